// Internal helpers shared by every subsystem of the library: log macros
// that pass the caller's function and line, bounded formatting into fixed
// buffers, move-only guards for descriptors, streams and directories, and
// whole-file read and the locked, crash-safe rewrite.  Nothing here is
// exported.
#pragma once

#include <dirent.h>
#include <errno.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include "kiv/runtime.h"

namespace kiv {

// Source unit names passed as the first argument of _kiv_debug().
inline constexpr const char kUnitUtils[] = "kiv_utils";
inline constexpr const char kUnitInet[] = "kiv_inet";
inline constexpr const char kUnitWifi[] = "kiv_wifi";

// Syslog priorities, named as the log table of _kiv_debug() names them.
enum Priority : int {
  kEmerg = 0,
  kAlert = 1,
  kCrit = 2,
  kError = 3,
  kWarning = 4,
  kNotice = 5,
  kInfo = 6,
  kDebug = 7,
};

// vsnprintf into buf[size]; always terminated when size > 0.  Returns what
// vsnprintf returned (the untruncated length, or -1).
int vformat_into(char *buf, size_t size, const char *fmt, va_list ap)
    __attribute__((format(printf, 3, 0)));
int format_into(char *buf, size_t size, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));

template <size_t N>
__attribute__((format(printf, 2, 3))) int format_into(char (&buf)[N],
                                                      const char *fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  int r = vformat_into(buf, N, fmt, ap);
  va_end(ap);
  return r;
}

// Owns a descriptor; close() in the destructor keeps errno.
class Fd {
 public:
  Fd() noexcept = default;
  explicit Fd(int fd) noexcept : fd_(fd) {}
  Fd(const Fd &) = delete;
  Fd &operator=(const Fd &) = delete;
  Fd(Fd &&o) noexcept : fd_(o.release()) {}
  Fd &operator=(Fd &&o) noexcept {
    if (this != &o) reset(o.release());
    return *this;
  }
  ~Fd() { reset(); }

  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }
  explicit operator bool() const noexcept { return fd_ >= 0; }
  int release() noexcept {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void reset(int fd = -1) noexcept {
    if (fd_ >= 0) {
      int saved = errno;
      ::close(fd_);
      errno = saved;
    }
    fd_ = fd;
  }
  // Closes now and reports close()'s result (0 or -1 with errno).
  int close() noexcept {
    int fd = release();
    return fd >= 0 ? ::close(fd) : 0;
  }

 private:
  int fd_ = -1;
};

// Owns a stdio stream; Closer is fclose or pclose.
template <int (*Closer)(FILE *)>
class Stream {
 public:
  Stream() noexcept = default;
  explicit Stream(FILE *f) noexcept : f_(f) {}
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
  Stream(Stream &&o) noexcept : f_(o.release()) {}
  Stream &operator=(Stream &&o) noexcept {
    if (this != &o) reset(o.release());
    return *this;
  }
  ~Stream() { reset(); }

  FILE *get() const noexcept { return f_; }
  explicit operator bool() const noexcept { return f_ != nullptr; }
  FILE *release() noexcept {
    FILE *f = f_;
    f_ = nullptr;
    return f;
  }
  void reset(FILE *f = nullptr) noexcept {
    if (f_) {
      int saved = errno;
      Closer(f_);
      errno = saved;
    }
    f_ = f;
  }
  // Closes now and returns the closer's result.
  int close() noexcept {
    FILE *f = release();
    return f ? Closer(f) : 0;
  }

 private:
  FILE *f_ = nullptr;
};

using File = Stream<fclose>;
using Pipe = Stream<pclose>;

// Owns a DIR stream.
class Dir {
 public:
  explicit Dir(DIR *d) noexcept : d_(d) {}
  Dir(const Dir &) = delete;
  Dir &operator=(const Dir &) = delete;
  ~Dir() {
    if (d_) {
      int saved = errno;
      closedir(d_);
      errno = saved;
    }
  }
  DIR *get() const noexcept { return d_; }
  explicit operator bool() const noexcept { return d_ != nullptr; }

 private:
  DIR *d_;
};

// A file held under an advisory lock (flock) for a read or a
// read-modify-write.  The lock is on the open file, and a writer checks
// after locking that the path still names that file, so a rename by
// another writer can not leave it holding a lock on an orphan.
struct LockedFile {
  Fd fd;
  struct stat st {};      // a writer's: of the open file, under the lock
  bool seekable = false;  // false for a FIFO or a socket: nothing is locked
  bool writable = false;  // opened read-write
  int write_errno = 0;    // why not, when !writable
};

// Opens path (links followed) and locks it, shared for a reader, exclusive
// for a writer.  A writer asks for write access and, where the file's
// rights refuse it, goes on read-only, so that the caller can make its
// checks in order and report the refusal where it writes.  Opening never
// waits for a FIFO's other end.  Returns 0, or -1 with errno when the file
// cannot be opened at all.
int open_locked(const char *path, bool writer, LockedFile *f);

// What rewrite_locked() could not do.
enum class RewriteFailure { kNone, kOpen, kWrite };

// Replaces the content of the file that f locks (opened at path by
// open_locked as a writer) with data[0..len).  The file stays the same
// file: owner, group, mode, hard links and the target of a link at path.
// A regular file with one link gets a new file beside it, synced and
// renamed over it (all or nothing, also on power loss) where that keeps
// its owner, group and mode; any other file is rewritten in place after
// the room for the new content is reserved.  On failure errno is set: a
// file that may not be written is kOpen and is not touched, and a write
// that fails (a full disk) is kWrite, with the old content old[0..oldlen)
// left or put back and no stray file.
RewriteFailure rewrite_locked(const char *path, LockedFile &f,
                              const void *data, size_t len, const void *old,
                              size_t oldlen);

}  // namespace kiv

// Levelled log with the caller's function and line.
#define KIV_LOG(unit, pri, fmt, ...) \
  _kiv_debug(unit, __func__, __LINE__, pri, fmt __VA_OPT__(, ) __VA_ARGS__)

// Console messages with the library's two fixed prefixes.
#define KIV_CONSOLE_ERR(fmt, ...)                                 \
  console_printf("[kiv-err][%s:%d] " fmt, __func__, __LINE__ \
                 __VA_OPT__(, ) __VA_ARGS__)
#define KIV_CONSOLE_INFO(fmt, ...)                                 \
  console_printf("[kiv-info][%s:%d] " fmt, __func__, __LINE__ \
                 __VA_OPT__(, ) __VA_ARGS__)
