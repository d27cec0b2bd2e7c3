// Timed I/O on single descriptors, beside the event loop.
#include "kiv/event.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// The counts are ints: a single call moves at most INT_MAX bytes.
inline size_t clamp_len(size_t len) {
  return len > static_cast<size_t>(INT_MAX) ? static_cast<size_t>(INT_MAX)
                                            : len;
}

}  // namespace

int aeWait(int fd, int mask, int milliseconds) {
  struct pollfd pfd;
  pfd.fd = fd;
  pfd.events = 0;
  pfd.revents = 0;
  if (mask & AE_READABLE) pfd.events |= POLLIN;
  if (mask & AE_WRITABLE) pfd.events |= POLLOUT;
  int rc = poll(&pfd, 1, milliseconds);
  if (rc != 1) return rc;
  int found = 0;
  if (pfd.revents & POLLIN) found |= AE_READABLE;
  if (pfd.revents & (POLLOUT | POLLERR | POLLHUP)) found |= AE_WRITABLE;
  return found;
}

int tread(int fd, void *buf, size_t len, uint32_t timeoutSec) {
  // The set below has FD_SETSIZE bits: refuse what it can't hold.
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  if (fd >= FD_SETSIZE) {
    errno = EINVAL;
    return -1;
  }
  struct timeval tv;
  // On a 32-bit time_t the largest limits are cut to what it holds.
  tv.tv_sec = timeoutSec > static_cast<uint32_t>(INT32_MAX)
                  ? static_cast<time_t>(INT32_MAX)
                  : static_cast<time_t>(timeoutSec);
  tv.tv_usec = 0;
  fd_set readSet;
  FD_ZERO(&readSet);
  FD_SET(fd, &readSet);
  int rc = select(fd + 1, &readSet, nullptr, nullptr, &tv);
  if (rc == 0) {
    errno = ETIMEDOUT;
    return -1;
  }
  if (rc < 0) return -1;
  return static_cast<int>(read(fd, buf, clamp_len(len)));
}

int treadn(int fd, void *buf, size_t len, uint32_t timeoutSec) {
  auto *p = static_cast<char *>(buf);
  size_t left = clamp_len(len);
  size_t done = 0;
  while (left > 0) {
    int n = tread(fd, p + done, left, timeoutSec);
    if (n < 0) {
      if (done == 0) return -1;
      break;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
    left -= static_cast<size_t>(n);
  }
  return static_cast<int>(done);
}

int writen(int fd, const void *buf, size_t len) {
  const auto *p = static_cast<const char *>(buf);
  size_t left = clamp_len(len);
  size_t done = 0;
  while (left > 0) {
    ssize_t n = write(fd, p + done, left);
    if (n < 0) {
      if (done == 0) return -1;
      break;
    }
    if (n == 0) break;
    done += static_cast<size_t>(n);
    left -= static_cast<size_t>(n);
  }
  return static_cast<int>(done);
}

int setnonblock(int fd) {
  int flags = fcntl(fd, F_GETFL);
  if (flags < 0) return -1;
  return fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0 ? -1 : 0;
}
