// readall and writeall on pipes: pieces, end of file, interrupted and
// non-blocking descriptors, failures.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "kiv/runtime.h"
#include "sandbox.hpp"

namespace {

volatile sig_atomic_t g_ticks = 0;
void tick(int) { g_ticks = g_ticks + 1; }

// A SIGALRM every 2 ms, without SA_RESTART, so that blocked reads and
// writes fail with EINTR or return short.
class Ticker {
 public:
  Ticker() {
    struct sigaction sa;
    memset(&sa, 0, sizeof sa);
    sa.sa_handler = tick;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGALRM, &sa, &old_);
    g_ticks = 0;
    struct itimerval it = {{0, 2000}, {0, 2000}};
    setitimer(ITIMER_REAL, &it, nullptr);
  }
  ~Ticker() {
    struct itimerval off;
    memset(&off, 0, sizeof off);
    setitimer(ITIMER_REAL, &off, nullptr);
    signal(SIGALRM, SIG_IGN);  // drops a tick still on its way (valgrind)
    sigaction(SIGALRM, &old_, nullptr);
  }

 private:
  struct sigaction old_;
};

// Runs fn in a child that exits with its result; the parent keeps pid.
pid_t spawn(const std::function<int()> &fn) {
  pid_t pid = fork();
  if (pid == 0) _exit(fn());
  return pid;
}

int reap(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

char pattern(size_t i) { return static_cast<char>('a' + i * 7 % 26); }

TEST(Io, ReadallGathersPiecesThroughSignalsUntilLengthOrEof) {
  int fds = kivtest::open_fd_count();
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t writer = spawn([&] {
    for (const char *piece : {"abc", "defg", "hij"}) {
      usleep(20000);
      if (write(p[1], piece, strlen(piece)) < 0) return 1;
    }
    return 0;
  });
  close(p[1]);
  char buf[16] = {0};
  {
    Ticker ticker;
    EXPECT_EQ(readall(p[0], buf, 8), 8);
    EXPECT_GT(g_ticks, 0);
  }
  EXPECT_STREQ(buf, "abcdefgh");
  memset(buf, 0, sizeof buf);
  EXPECT_EQ(readall(p[0], buf, 8), 2) << "end of file after a part";
  EXPECT_STREQ(buf, "ij");
  EXPECT_EQ(readall(p[0], buf, 8), 0);
  EXPECT_EQ(reap(writer), 0);
  close(p[0]);
  EXPECT_EQ(kivtest::open_fd_count(), fds);
}

TEST(Io, ReadallWaitsOnNonBlockingPipeAndSkipsEmptyRequests) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  ASSERT_EQ(write(p[1], "xy", 2), 2);
  char buf[8] = {0};
  EXPECT_EQ(readall(p[0], buf, 0), 0);
  EXPECT_EQ(readall(p[0], buf, -5), 0);
  fcntl(p[0], F_SETFL, O_NONBLOCK);
  pid_t writer = spawn([&] {
    usleep(20000);
    return write(p[1], "z", 1) == 1 ? 0 : 1;
  });
  close(p[1]);
  EXPECT_EQ(readall(p[0], buf, 3), 3);
  EXPECT_STREQ(buf, "xyz");
  EXPECT_EQ(reap(writer), 0);
  close(p[0]);
}

TEST(Io, WriteallPushesEverythingThroughSignalsAndShortWrites) {
  const size_t size = 1 << 20;
  std::string data(size, 0);
  for (size_t i = 0; i < size; ++i) data[i] = pattern(i);
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t reader = spawn([&] {
    close(p[1]);
    usleep(30000);
    size_t got = 0;
    char chunk[4096];
    for (ssize_t r; (r = read(p[0], chunk, sizeof chunk)) > 0;)
      for (ssize_t i = 0; i < r; ++i, ++got)
        if (chunk[i] != pattern(got)) return 2;
    return got == size ? 0 : 1;
  });
  close(p[0]);
  {
    Ticker ticker;
    EXPECT_EQ(writeall(p[1], data.data(), static_cast<int>(size)),
              static_cast<int>(size));
    EXPECT_GT(g_ticks, 0);
  }
  close(p[1]);
  EXPECT_EQ(reap(reader), 0) << "1: bytes missing, 2: bytes out of order";
  EXPECT_EQ(writeall(-1, "x", 0), 0) << "nothing is written";
  EXPECT_EQ(writeall(-1, "x", -3), -3);
}

TEST(Io, WriteallFailsWhenTheReaderGoesAfterAPart) {
  auto old = signal(SIGPIPE, SIG_IGN);
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t reader = spawn([&] {
    close(p[1]);
    char chunk[10];
    return read(p[0], chunk, sizeof chunk) > 0 ? 0 : 1;
  });
  close(p[0]);
  std::string data(1 << 20, 'w');
  EXPECT_EQ(writeall(p[1], data.data(), static_cast<int>(data.size())), -1);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(reap(reader), 0);
  close(p[1]);
  signal(SIGPIPE, old);
}

class IoConsoleTest : public kivtest::SandboxTest {};

TEST_F(IoConsoleTest, ReadallReportsOtherFailures) {
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  char buf[4];
  EXPECT_EQ(readall(p[1], buf, 4), -1);
  std::string text = kivtest::Sandbox::console();
  EXPECT_EQ(text.rfind("[kiv-err][readall:", 0), 0u) << text;
  EXPECT_NE(text.find("] read err! Bad file descriptor\n"), std::string::npos)
      << text;
  close(p[0]);
  close(p[1]);
}

}  // namespace
