// Shared file helpers: bounded formatting, whole-file read and the
// crash-safe replace used by every rewrite of a file the library owns.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "util.hpp"

namespace kiv {

int vformat_into(char *buf, size_t size, const char *fmt, va_list ap) {
  return vsnprintf(buf, size, fmt, ap);
}

int format_into(char *buf, size_t size, const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int r = vformat_into(buf, size, fmt, ap);
  va_end(ap);
  return r;
}

ssize_t read_file(const char *path, char *buf, size_t size) {
  if (size == 0) return 0;
  Fd fd(open(path, O_RDONLY | O_CLOEXEC));
  if (!fd) return -1;
  size_t got = 0;
  while (got < size - 1) {
    ssize_t r = read(fd.get(), buf + got, size - 1 - got);
    if (r < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    if (r == 0) break;
    got += static_cast<size_t>(r);
  }
  buf[got] = '\0';
  return static_cast<ssize_t>(got);
}

int replace_file(const char *target, const void *data, size_t len) {
  // Follow links so that a linked file is rewritten in place of its target.
  // Only a link as the last component needs resolving: a linked directory
  // leads the temporary file to the same place as the target.
  char real[PATH_MAX];
  struct stat st;
  bool have_st = lstat(target, &st) == 0 && !S_ISLNK(st.st_mode);
  if (have_st) {
    if (strlen(target) >= sizeof real) {
      errno = ENAMETOOLONG;
      return -1;
    }
    strcpy(real, target);
  } else if (realpath(target, real) == nullptr) {
    if (errno != ENOENT || strlen(target) >= sizeof real) return -1;
    strcpy(real, target);
  }

  char tmp[PATH_MAX];
  if (format_into(tmp, "%s.XXXXXX", real) >= static_cast<int>(sizeof tmp)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  Fd fd(mkstemp(tmp));
  if (!fd) return -1;

  if (!have_st) have_st = stat(real, &st) == 0;
  mode_t mode = have_st ? (st.st_mode & 07777) : 0644;
  const char *p = static_cast<const char *>(data);
  size_t left = len;
  bool ok = true;
  while (ok && left > 0) {
    ssize_t w = write(fd.get(), p, left);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      if (w == 0) errno = ENOSPC;
      ok = false;
      break;
    }
    p += w;
    left -= static_cast<size_t>(w);
  }
  ok = ok && fchmod(fd.get(), mode) == 0 && fsync(fd.get()) == 0 &&
       fd.close() == 0 && rename(tmp, real) == 0;
  if (!ok) {
    int saved = errno;
    unlink(tmp);
    errno = saved;
    return -1;
  }
  return 0;
}

}  // namespace kiv
