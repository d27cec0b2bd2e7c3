// readall and writeall on pipes: pieces, end of file, interrupted and
// non-blocking descriptors, failures.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "kiv/runtime.h"
#include "sandbox.hpp"

namespace {

using kivtest::Ticker;

int reap(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// A writer and a reader of 1 MiB, each under a timer signal: the writer
// waits on a full pipe, the reader on an empty one, and both see their calls
// cut short.  The reader takes the second half from a non-blocking
// descriptor, and the three bytes behind it at the end of the file.
TEST(Io, ReadallAndWriteallMoveAStreamThroughSignals) {
  const int half = 1 << 19;
  const std::string data = kivtest::stream_pattern(2 * half + 3);
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t writer = fork();
  if (writer == 0) {
    close(p[0]);
    bool ok;
    {
      Ticker ticker;
      ok = writeall(p[1], data.data(), half) == half && Ticker::ticks() > 0;
    }
    usleep(30000);
    ok = ok && writeall(p[1], data.data() + half, half + 3) == half + 3;
    _exit(ok ? 0 : 1);
  }
  close(p[1]);
  usleep(30000);
  std::string got(data.size() + 5, '\0');
  {
    Ticker ticker;
    EXPECT_EQ(readall(p[0], got.data(), half + 1), half + 1);
    EXPECT_GT(Ticker::ticks(), 0);
  }
  fcntl(p[0], F_SETFL, O_NONBLOCK);
  EXPECT_EQ(readall(p[0], got.data() + half + 1, half - 1), half - 1);
  EXPECT_EQ(readall(p[0], got.data() + 2 * half, 8), 3) << "end of file";
  EXPECT_EQ(readall(p[0], got.data(), 8), 0);
  EXPECT_TRUE(got == data + std::string(5, '\0')) << "bytes lost or moved";
  close(p[0]);
  EXPECT_EQ(reap(writer), 0) << "writeall lost bytes or saw no signal";
}

class IoFailures : public kivtest::SandboxTest {};

TEST_F(IoFailures, WriteallWhenTheReaderGoesReadallOnABadDescriptor) {
  auto old = signal(SIGPIPE, SIG_IGN);
  int p[2];
  ASSERT_EQ(pipe(p), 0);
  pid_t reader = fork();
  if (reader == 0) {
    char chunk[10];
    _exit(read(p[0], chunk, sizeof chunk) > 0 ? 0 : 1);
  }
  close(p[0]);
  std::string data(1 << 20, 'w');
  EXPECT_EQ(writeall(p[1], data.data(), static_cast<int>(data.size())), -1);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(reap(reader), 0);
  signal(SIGPIPE, old);

  char buf[4];
  EXPECT_EQ(readall(p[1], buf, 4), -1);
  EXPECT_THAT(kivtest::Sandbox::console(),
              testing::MatchesRegex(R"(\[kiv-err\]\[readall:[0-9]+\] read )"
                                    R"(err! Bad file descriptor.)"));
  close(p[1]);
}

}  // namespace
