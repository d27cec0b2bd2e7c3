// Numbers and MAC addresses as text, trimming, string and file tests, and
// readall and writeall on pipes: pieces, end of file, interrupted and
// non-blocking descriptors, failures.
#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <limits.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Sandbox;
using kivtest::Ticker;

namespace {

TEST(Text, NumberAndMacTextsReuseOneBufferEach) {
  char *a = igd_number_to_str(-1);
  EXPECT_STREQ(a, "-1");
  EXPECT_EQ(igd_number_to_str(INT_MIN), a);
  EXPECT_STREQ(a, "-2147483648");
  const unsigned char m1[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
  const unsigned char m2[6] = {0x0f, 0, 0, 0, 0, 0xf0};
  char *t = igd_mac2str(m1);
  EXPECT_STREQ(t, "00-11-22-AA-BB-CC");
  EXPECT_EQ(igd_mac2str(m2), t);
  EXPECT_STREQ(t, "0F-00-00-00-00-F0");
}

TEST(Text, MacAddressesInThreeForms) {
  using Bytes = std::vector<unsigned char>;
  const Bytes all = {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}, none(6, 0);
  const struct {
    const char *text;
    int ret;
    Bytes mac;  // cleared first, whatever the result
  } cases[] = {
      {"aa:bb:cc:dd:ee:ff", 0, all},
      {"AA-BB-CC-DD-EE-FF", 0, all},
      {"aAbBcCdDeEfF", 0, all},
      {"aabbccddeeff and more", 0, all},
      {"00:00:00:00:00:00", -3, none},
      {"zzzzzzzzzzzz", -3, none},
      {"aa:bb:cc:dd:ee:f", -1, none},
      {"aa-bb-cc-dd-ee-f", -1, none},
      {"aabbccddeef", -2, none},
      {"aa:bb:cc:zz:ee:ff", 0, {0xaa, 0xbb, 0xcc, 0, 0, 0}},
      // A colon wins over a hyphen, and the hyphen ends the reading.
      {"aa:bb-cc:dd:ee:ff", 0, {0xaa, 0xbb, 0, 0, 0, 0}},
  };
  for (const auto &c : cases) {
    unsigned char mac[6] = {0x55, 0x55, 0x55, 0x55, 0x55, 0x55};
    EXPECT_EQ(igd_str2mac(c.text, mac), c.ret) << c.text;
    EXPECT_EQ(Bytes(mac, mac + 6), c.mac) << c.text;
  }
}

TEST(Text, CutSpaceTrimsSixWhitespaceBytesWithinDstSize) {
  // dst holds "zz" to show where nothing was copied.
  auto cut = [](const char *src, unsigned len, int size) {
    char dst[32] = "zz";
    EXPECT_EQ(igd_cut_space(src, len, dst, size), dst);
    return std::string(dst);
  };
  EXPECT_EQ(cut("  xy  ", 6, 32), "xy");
  EXPECT_EQ(cut(" \t\n\v\f\rab c\r\n\v\f\t ", 16, 32), "ab c");
  EXPECT_EQ(cut("abcdef", 6, 2), "az");
  EXPECT_EQ(cut("ab  cd", 4, 32), "ab") << "the end is src + srcLen - 1";
  EXPECT_EQ(cut("    ", 4, 32), "zz");
  EXPECT_EQ(cut("x", 1, 32), "zz");
  EXPECT_EQ(cut("", 0, 32), "zz");
  EXPECT_EQ(cut("a\x01", 2, 32), "a\x01") << "only the six bytes are cut";
}

TEST(Text, IPv4TextAndNewLineRemoval) {
  for (const char *ok :
       {"1.2.3.4", "0.0.0.0", "255.255.255.255", "1.2.3.4.5", "10.0.0.1 tail"})
    EXPECT_EQ(isIPv4Str(ok), 1) << ok;
  for (const char *bad : {"256.1.1.1", "1.2.3", "1.2.-3.4", "a.b.c.d", "",
                          "1.2.3.256", static_cast<const char *>(nullptr)})
    EXPECT_EQ(isIPv4Str(bad), 0) << (bad ? bad : "NULL");

  char s[] = "a\nb\r\n\nc\n";
  EXPECT_EQ(removeNewLines(s), 8);
  EXPECT_STREQ(s, "ab\rc");
  EXPECT_EQ(removeNewLines(nullptr), 0);
}

class FileTest : public kivtest::SandboxTest {};

TEST_F(FileTest, ExistenceTestsFollowLinks) {
  Sandbox::write_file("/tmp/f", "x");
  ASSERT_EQ(symlink("/tmp/f", "/tmp/good"), 0);
  ASSERT_EQ(symlink("/tmp/none", "/tmp/dangling"), 0);
  for (const char *p :
       {"/tmp/f", "/tmp/good", "/tmp", "/tmp/dangling", "/tmp/none"}) {
    const int want = strstr(p, "n") ? 0 : 1;
    EXPECT_EQ(is_file_exist(p), want) << p;
    EXPECT_EQ(kiv_is_file_exist(p), want) << p;
    EXPECT_EQ(isFileExist(p), want) << p;
  }
  EXPECT_EQ(isFileExist(nullptr), 0);
}

TEST_F(FileTest, CreateFileTouchesTheBarePathCutTo57) {
  Sandbox::fake_command("touch", "exec /usr/bin/touch \"$@\"");
  std::string long_path = "/tmp/" + std::string(60, 'L');
  std::string cut = long_path.substr(0, 57);
  for (std::string path : {"/tmp/one", "/tmp/two /tmp/words", long_path.c_str(),
                           "/no/such/dir/x"}) {
    kivtest::Capture err(2);
    EXPECT_EQ(kiv_create_file(path.c_str()), 0) << "touch's failure ignored";
  }
  for (std::string path : {"/tmp/one", "/tmp/two", "/tmp/words", cut.c_str()})
    EXPECT_TRUE(Sandbox::exists(path)) << path;
  auto calls = Sandbox::calls_argv("touch");
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[1], (std::vector<std::string>{"/tmp/two", "/tmp/words"}));
  EXPECT_EQ(calls[2], (std::vector<std::string>{cut}));
}

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
