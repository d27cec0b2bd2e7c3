// Shared pieces of the hardening tests: files and commands that fail in
// the ways a router sees.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "sandbox.hpp"

namespace kivtest {

// Replaces whatever is at path by a directory: open() for reading works,
// every read fails with EISDIR.
inline void make_unreadable_dir(const std::string &path) {
  unlink(path.c_str());
  rmdir(path.c_str());
  Sandbox::mkdirs(path);
}

// Shell bodies of fake commands that misbehave.
inline constexpr char kFloodBody[] =  // 1 MiB of lines, then success
    "yes 'link:down port flood line of a command that never stops' | "
    "head -c 1048576; exit 0";
inline constexpr char kHangUpBody[] =  // closes its output, lives on
    "exec >&- 2>&-; sleep 0.3; exit 0";
inline constexpr char kFailBody[] = "echo partial; exit 7";
inline constexpr char kKilledBody[] = "echo partial; kill -9 $$";

}  // namespace kivtest
