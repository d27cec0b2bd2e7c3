// Shared setup of the fuzz targets.
//
// kivfuzz::private_tmpfs() gives the fuzzing process its own mount namespace
// with empty tmpfs on /tmp, /var and /run, and /dev/null over /dev/console,
// so that targets working on the library's fixed paths never touch the host.
// It is called once, from LLVMFuzzerInitialize.
#pragma once

#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

namespace kivfuzz {

[[noreturn]] inline void die(const char *what) {
  fprintf(stderr, "fuzz setup: %s: %s\n", what, strerror(errno));
  _exit(2);
}

inline void private_tmpfs() {
  if (unshare(CLONE_NEWNS) != 0) die("unshare(CLONE_NEWNS) (needs root)");
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    die("making / private");
  for (const char *dir : {"/tmp", "/var", "/run"})
    if (mount("kivfuzz", dir, "tmpfs", 0, "mode=1777,size=256m") != 0)
      die(dir);
  // Console messages and syslog stay inside.
  if (access("/dev/console", F_OK) == 0 &&
      mount("/dev/null", "/dev/console", nullptr, MS_BIND, nullptr) != 0)
    die("/dev/console");
  if (access("/dev/log", F_OK) == 0 &&
      mount("/dev/null", "/dev/log", nullptr, MS_BIND, nullptr) != 0)
    die("/dev/log");
}

// Sends stdout to /dev/null (functions that print their results).
inline void quiet_stdout() {
  int fd = open("/dev/null", O_WRONLY);
  if (fd < 0 || dup2(fd, 1) < 0) die("/dev/null");
  close(fd);
}

inline void write_file(const char *path, const void *data, size_t len,
                       mode_t mode = 0644) {
  int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC, mode);
  if (fd < 0) die(path);
  const char *p = static_cast<const char *>(data);
  while (len > 0) {
    ssize_t n = write(fd, p, len);
    if (n <= 0) die(path);
    p += n;
    len -= static_cast<size_t>(n);
  }
  close(fd);
}

inline std::string read_file(const char *path) {
  std::string out;
  FILE *f = fopen(path, "rb");
  if (!f) return out;
  char buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
  fclose(f);
  return out;
}

inline void mkdirs(const char *path) {
  std::string p(path);
  for (size_t i = 1; i <= p.size(); ++i)
    if (i == p.size() || p[i] == '/') mkdir(p.substr(0, i).c_str(), 0755);
}

}  // namespace kivfuzz
