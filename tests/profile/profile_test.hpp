// Shared fixture of the profile store tests: a sandbox with the store's
// words reset and a scratch profile at /tmp/p.dat selected by __profile.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "kiv/profile.h"
#include "sandbox.hpp"

class ProfileTest : public kivtest::SandboxTest {
 protected:
  static constexpr const char *kPath = "/tmp/p.dat";

  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    __profile = nullptr;
    __quiet = 0;
    __base64 = 0;
  }
  void TearDown() override {
    kivtest::FdCheckedTest::TearDown();
    __profile = nullptr;
    __quiet = 0;
    __base64 = 0;
  }

  // Writes the scratch profile and selects it.
  void profile(const std::string &content) {
    kivtest::Sandbox::write_file(kPath, content);
    __profile = const_cast<char *>(kPath);
  }
  std::string content() const { return kivtest::Sandbox::read_file(kPath); }

  // What a child wrote on stderr, without the lines a sanitizer adds at
  // its exit ("==pid==...").
  static std::string said(const kivtest::ChildResult &r) {
    std::string kept;
    size_t at = 0;
    while (at < r.err.size()) {
      size_t lf = r.err.find('\n', at);
      size_t end = lf == std::string::npos ? r.err.size() : lf + 1;
      if (r.err.compare(at, 2, "==") != 0) kept += r.err.substr(at, end - at);
      at = end;
    }
    return kept;
  }

  // conf_get into a buffer of `size` bytes prefilled with '?'.
  static std::string get(const char *key, size_t size = 1100) {
    std::string buf(size + 1, '?');
    buf[size] = '\0';
    EXPECT_EQ(conf_get(key, buf.data(), size), 0);
    return buf.c_str();
  }
  // conf_set; returns what it printed.
  static std::string set(const char *key, const char *value) {
    kivtest::Capture out(1);
    EXPECT_EQ(conf_set(key, value), 0);
    return out.take();
  }
};
