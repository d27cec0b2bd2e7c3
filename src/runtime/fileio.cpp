// Shared file helpers: bounded formatting, whole-file read, and the locked
// open and crash-safe rewrite used by every file the library updates.
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
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

namespace {

bool same_file(const struct stat &a, const struct stat &b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Writes all of data at offset; false with errno on failure.
bool pwrite_all(int fd, const void *data, size_t len, off_t at) {
  const char *p = static_cast<const char *>(data);
  while (len > 0) {
    ssize_t w = pwrite(fd, p, len, at);
    if (w < 0 && errno == EINTR) continue;
    if (w <= 0) {
      if (w == 0) errno = ENOSPC;
      return false;
    }
    p += w;
    at += w;
    len -= static_cast<size_t>(w);
  }
  return true;
}

enum class Route { kDone, kInPlace, kFailed };

// The new file beside the old one, renamed over it.  Anything that would
// change the file's identity sends the caller in place instead; a failed
// write or sync is final.
Route replace_by_rename(const char *path, const struct stat &st,
                        const void *data, size_t len) {
  if (!S_ISREG(st.st_mode) || st.st_nlink != 1) return Route::kInPlace;
  // Only a link as the last component needs resolving: the new file goes
  // beside the file the link leads to.
  char real[PATH_MAX];
  char tmp[PATH_MAX];
  if (readlink(path, real, 1) < 0 && errno == EINVAL) {
    if (format_into(real, "%s", path) >= static_cast<int>(sizeof real))
      return Route::kInPlace;
  } else if (realpath(path, real) == nullptr) {
    return Route::kInPlace;
  }
  if (format_into(tmp, "%s.XXXXXX", real) >= static_cast<int>(sizeof tmp))
    return Route::kInPlace;
  Fd fd(mkostemp(tmp, O_CLOEXEC));
  if (!fd) return Route::kInPlace;
  struct stat now;
  Route route = Route::kInPlace;
  // Owner first: a change of owner clears the set-id bits of the mode.
  if (fstat(fd.get(), &now) == 0 &&
      ((now.st_uid == st.st_uid && now.st_gid == st.st_gid) ||
       fchown(fd.get(), st.st_uid, st.st_gid) == 0) &&
      fchmod(fd.get(), st.st_mode & 07777) == 0) {
    route = Route::kFailed;
    if (pwrite_all(fd.get(), data, len, 0) && fsync(fd.get()) == 0 &&
        fd.close() == 0) {
      // A sticky directory may still refuse to drop the old name.
      route = rename(tmp, real) == 0 ? Route::kDone : Route::kInPlace;
    }
  }
  if (route != Route::kDone) {
    int saved = errno;
    unlink(tmp);
    errno = saved;
  }
  return route;
}

}  // namespace

int open_locked(const char *path, bool writer, LockedFile *f) {
  for (;;) {
    f->writable = writer;
    f->write_errno = 0;
    // O_NONBLOCK: a FIFO opens at once instead of waiting for its other
    // end.  On a file that can seek, the flag changes nothing.
    constexpr int kFlags = O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    f->fd.reset(open(path, (writer ? O_RDWR : O_RDONLY) | kFlags));
    if (!f->fd && writer && errno != ENOENT && errno != ENOTDIR &&
        errno != ELOOP && errno != ENAMETOOLONG) {
      f->writable = false;
      f->write_errno = errno;
      f->fd.reset(open(path, O_RDONLY | kFlags));
    }
    if (!f->fd) return -1;
    f->seekable = lseek(f->fd.get(), 0, SEEK_CUR) >= 0;
    if (!f->seekable) return 0;
    while (flock(f->fd.get(), writer ? LOCK_EX : LOCK_SH) != 0 &&
           errno == EINTR) {
    }
    if (!writer) return 0;
    // The size and the rest are taken under the lock.
    struct stat named;
    if (fstat(f->fd.get(), &f->st) != 0) return -1;
    if (stat(path, &named) == 0 && same_file(named, f->st)) return 0;
  }
}

RewriteFailure rewrite_locked(const char *path, LockedFile &f,
                              const void *data, size_t len, const void *old,
                              size_t oldlen) {
  if (!f.writable) {
    errno = f.write_errno;
    return RewriteFailure::kOpen;
  }
  switch (replace_by_rename(path, f.st, data, len)) {
    case Route::kDone:
      return RewriteFailure::kNone;
    case Route::kFailed:
      return RewriteFailure::kWrite;
    case Route::kInPlace:
      break;
  }
  int fd = f.fd.get();
  bool regular = S_ISREG(f.st.st_mode);
  off_t size = static_cast<off_t>(len);
  if (regular && size > f.st.st_size) {
    // Reserve the room first, so that a full disk stops the rewrite
    // before the first byte changes.  Where the file system can not
    // reserve, a failed write puts the old content back below.
    int err = posix_fallocate(fd, 0, size);
    if (err != 0 && err != EOPNOTSUPP && err != ENOSYS && err != EINVAL) {
      if (ftruncate(fd, f.st.st_size) != 0) {
        // the old bytes are intact; only the reserved tail may stay
      }
      errno = err;
      return RewriteFailure::kWrite;
    }
  }
  if (pwrite_all(fd, data, len, 0) &&
      (!regular || (ftruncate(fd, size) == 0 && fsync(fd) == 0)))
    return RewriteFailure::kNone;
  int saved = errno;
  if (pwrite_all(fd, old, oldlen, 0) && regular &&
      ftruncate(fd, static_cast<off_t>(oldlen)) == 0) {
    fsync(fd);
  }
  errno = saved;
  return RewriteFailure::kWrite;
}

}  // namespace kiv
