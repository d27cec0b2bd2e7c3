// Timed descriptor I/O: readiness masks, time limits and partial transfers.
#include "kiv/event.h"

#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

namespace {

struct Fds {
  int fd[2] = {-1, -1};
  void close_end(int i) {
    close(fd[i]);
    fd[i] = -1;
  }
  ~Fds() {
    for (int f : fd)
      if (f >= 0) close(f);
  }
};

TEST(Io, WaitMapsPollResults) {
  Fds p;
  ASSERT_EQ(pipe(p.fd), 0);
  EXPECT_EQ(aeWait(p.fd[0], AE_READABLE, 0), 0);  // nothing yet: timeout
  EXPECT_EQ(aeWait(p.fd[1], AE_READABLE | AE_WRITABLE, 0), AE_WRITABLE);
  ASSERT_EQ(write(p.fd[1], "ab", 2), 2);
  EXPECT_EQ(aeWait(p.fd[0], AE_READABLE, -1), AE_READABLE);

  // A hang-up reads as writable, beside the data still to be read.
  p.close_end(1);
  EXPECT_EQ(aeWait(p.fd[0], AE_READABLE, 0), AE_READABLE | AE_WRITABLE);
  char buf[2];
  ASSERT_EQ(read(p.fd[0], buf, 2), 2);
  EXPECT_EQ(aeWait(p.fd[0], AE_READABLE, 0), AE_WRITABLE);

  // A closed descriptor number gives POLLNVAL alone: 0.
  int closed = p.fd[0];
  p.close_end(0);
  EXPECT_EQ(aeWait(closed, AE_READABLE, 0), 0);
}

TEST(Io, TreadTimesOutAndRefusesWhatTheSetCantHold) {
  Fds s;
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, s.fd), 0);
  char buf[16];
  errno = 0;
  EXPECT_EQ(tread(s.fd[0], buf, sizeof buf, 0), -1);
  EXPECT_EQ(errno, ETIMEDOUT);
  ASSERT_EQ(write(s.fd[1], "hello", 5), 5);
  EXPECT_EQ(tread(s.fd[0], buf, sizeof buf, 1), 5);
  EXPECT_EQ(memcmp(buf, "hello", 5), 0);

  EXPECT_EQ(tread(1024, buf, sizeof buf, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(tread(-1, buf, sizeof buf, 0), -1);
  EXPECT_EQ(errno, EBADF);

  s.close_end(1);
  EXPECT_EQ(tread(s.fd[0], buf, sizeof buf, 1), 0);  // end of file
}

TEST(Io, TreadnReportsPartsEndOfFileAndTimeouts) {
  char buf[10];
  {
    Fds s;
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, s.fd), 0);
    EXPECT_EQ(treadn(s.fd[0], buf, 0, 0), 0);
    errno = 0;
    EXPECT_EQ(treadn(s.fd[0], buf, sizeof buf, 0), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    ASSERT_EQ(write(s.fd[1], "abcd", 4), 4);
    EXPECT_EQ(treadn(s.fd[0], buf, sizeof buf, 0), 4);  // then the limit
    ASSERT_EQ(write(s.fd[1], "0123456789xy", 12), 12);
    EXPECT_EQ(treadn(s.fd[0], buf, sizeof buf, 0), 10);
    EXPECT_EQ(memcmp(buf, "0123456789", 10), 0);
    ASSERT_EQ(write(s.fd[1], "wxyz", 4), 4);
    s.close_end(1);
    EXPECT_EQ(treadn(s.fd[0], buf, sizeof buf, 5), 6);  // "xy" + "wxyz"
    EXPECT_EQ(treadn(s.fd[0], buf, sizeof buf, 5), 0);  // closed from start
  }
  errno = 0;
  EXPECT_EQ(treadn(-1, buf, sizeof buf, 0), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(Io, WritenStopsAtAFullBufferAndNonblockSwitches) {
  Fds s;
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, s.fd), 0);
  EXPECT_EQ(writen(s.fd[0], "x", 0), 0);
  EXPECT_EQ(setnonblock(s.fd[0]), 0);
  EXPECT_EQ(setnonblock(s.fd[0]), 0);
  EXPECT_NE(fcntl(s.fd[0], F_GETFL) & O_NONBLOCK, 0);

  std::vector<char> big(8 << 20, 'z');
  int n = writen(s.fd[0], big.data(), big.size());
  EXPECT_GT(n, 0);
  EXPECT_LT(n, static_cast<int>(big.size()));
  errno = 0;
  EXPECT_EQ(writen(s.fd[0], big.data(), big.size()), -1);
  EXPECT_EQ(errno, EAGAIN);

  int closed = s.fd[1];
  s.close_end(1);
  EXPECT_EQ(setnonblock(closed), -1);
  EXPECT_EQ(writen(closed, "x", 1), -1);
}

}  // namespace
