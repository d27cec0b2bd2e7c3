// Shared pieces of the UCI layer tests: a sandbox with a few packages on the
// real default paths, and output capture around one call.
#pragma once

#include <sys/mount.h>

#include <functional>
#include <regex>
#include <string>

#include "kiv/ucicfg.h"
#include "sandbox.hpp"

namespace kivtest {

class UciTest : public SandboxTest {
 protected:
  static void put(const std::string &package, const std::string &text) {
    Sandbox::write_file("/etc/config/" + package, text, 0644);
  }
  static std::string file(const std::string &package) {
    return Sandbox::read_file("/etc/config/" + package);
  }
  // Runs fn and returns what it wrote on stdout.
  static std::string out_of(const std::function<void()> &fn) {
    Capture cap(1);
    fn();
    return cap.take();
  }
  // Text without the "%25s[%05d]: " heads of its lines.
  static std::string heads_off(const std::string &text) {
    return std::regex_replace(text, std::regex(R"( *\w+\[\d{5}\]: )"), "");
  }
  // Makes /etc/config read-only (even for root) inside the sandbox.
  static void freeze_config_dir() {
    ASSERT_EQ(0,
              mount("/etc/config", "/etc/config", nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0, mount(nullptr, "/etc/config", nullptr,
                       MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr));
  }
  // Number of times needle occurs in hay.
  static int occurrences(const std::string &hay, const std::string &needle) {
    int n = 0;
    for (size_t at = hay.find(needle); at != std::string::npos;
         at = hay.find(needle, at + needle.size()))
      ++n;
    return n;
  }
};

}  // namespace kivtest
