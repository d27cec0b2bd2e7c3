// Shell lines, captured output, direct program runs and the backtick
// filter, with recording fakes in place of real commands.
#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Capture;
using kivtest::Sandbox;
using Args = std::vector<std::string>;

namespace {

// Console text with the source lines of the prefixes blanked out.
std::string console_text() {
  return std::regex_replace(Sandbox::console(), std::regex(R"(:\d+\] )"),
                            ":N] ");
}

bool ends_with(const std::string &s, const std::string &tail) {
  return s.size() >= tail.size() &&
         s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

class CommandTest : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("gen", "printf \"$1\"");
    Sandbox::fake_command("many", "head -c \"$1\" /dev/zero | tr '\\0' x");
    Sandbox::fake_command("quit", "exit \"$1\"");
  }
};

TEST_F(CommandTest, ExeCmdDropsOneFinalNewlineAndCutsAtN) {
  int fds = kivtest::open_fd_count();
  char buf[64] = {0};
  EXPECT_EQ(exe_cmd("gen 'abc\\n'", buf, 64), 4);
  EXPECT_STREQ(buf, "abc");
  memset(buf, 0, sizeof buf);
  EXPECT_EQ(exe_cmd("gen abc", buf, 64), 3);
  EXPECT_STREQ(buf, "abc");
  memset(buf, 0, sizeof buf);
  EXPECT_EQ(exe_cmd("gen 'ab\\n\\n'", buf, 64), 4);
  EXPECT_STREQ(buf, "ab\n");
  memset(buf, 0, sizeof buf);
  EXPECT_EQ(exe_cmd("gen ''", buf, 64), 0);
  EXPECT_TRUE(std::all_of(buf, buf + 64, [](char c) { return c == 0; }));

  buf[10] = '#';
  EXPECT_EQ(exe_cmd("many 100", buf, 10), 10);
  EXPECT_STREQ(buf, "xxxxxxxxx");
  EXPECT_EQ(buf[10], '#') << "nothing is written behind n";
  char big[1100] = {0};
  EXPECT_EQ(exe_cmd("many 2000", big, 1024), 1024);
  EXPECT_EQ(strlen(big), 1023u);
  EXPECT_EQ(kivtest::open_fd_count(), fds);
  EXPECT_EQ(console_text(), "");
}

TEST_F(CommandTest, ExeCmdRunsForEffectWithoutBufferButNotAbove1024) {
  char buf[8] = {0};
  EXPECT_EQ(exe_cmd("gen one", nullptr, 64), 0);
  EXPECT_EQ(exe_cmd("gen two", buf, 0), 0);
  EXPECT_EQ(buf[0], 0);
  EXPECT_EQ(exe_cmd("gen three", buf, 1025), 0);
  EXPECT_EQ(Sandbox::calls("gen"), (Args{"one", "two"}));
  EXPECT_EQ(console_text(),
            "[kiv-err][exe_cmd:N] Invalid length(len:1025, gen three)!\n\n");
}

char **args(std::initializer_list<const char *> list) {
  static std::vector<char *> v;
  v.clear();
  for (const char *a : list) v.push_back(const_cast<char *>(a));
  v.push_back(nullptr);
  return v.data();
}

TEST_F(CommandTest, DoCmdGivesExitCodeSignalOrTheChildsErrno) {
  Sandbox::fake_command("die", "kill -TERM $$");
  Sandbox::write_file("/usr/sbin/noexec", "#!/bin/sh\n", 0644);
  EXPECT_EQ(_do_cmd(args({"quit", "3"}), nullptr), 3);
  EXPECT_EQ(_do_cmd(args({"die"}), nullptr), SIGTERM);
  EXPECT_EQ(_do_cmd(args({"noexec"}), "/tmp/out"), EACCES);
  EXPECT_EQ(Sandbox::read_file("/tmp/out"), "noexec: Permission denied\n");
  EXPECT_EQ(_do_cmd(args({"no-such-tool"}), "/tmp/out"), ENOENT);
  EXPECT_EQ(Sandbox::read_file("/tmp/out"),
            "no-such-tool: No such file or directory\n");

  // An output file that can't be opened: the message, cut to 30
  // characters, on the child's stderr, and the program never runs.
  Capture err(2);
  EXPECT_EQ(_do_cmd(args({"quit", "0"}), "/tmp/no/such/dir/and/a/long/name"),
            ENOENT);
  EXPECT_EQ(err.take(),
            "open /tmp/no/such/dir/and/a/lo: No such file or directory\n");
  EXPECT_EQ(Sandbox::calls("quit"), (Args{"3"}));
}

TEST_F(CommandTest, DoCmdTruncatesTheFileAndFixesTheChildsPath) {
  Sandbox::fake_command("probe",
                        "wc -c < /tmp/out; echo \"$PATH\"; echo err >&2; "
                        "kill -INT $$; echo alive");
  Sandbox::write_file("/tmp/out", "old content, longer than the new\n");
  setenv("PATH", "/nowhere", 1);
  struct sigaction before, after;
  sigaction(SIGINT, nullptr, &before);
  int fds = kivtest::open_fd_count();

  EXPECT_EQ(_do_cmd(args({"probe"}), "/tmp/out"), 0);
  EXPECT_EQ(Sandbox::read_file("/tmp/out"),
            "0\n/sbin:/bin:/usr/sbin:/usr/bin\nerr\nalive\n");
  EXPECT_STREQ(getenv("PATH"), "/nowhere");
  sigaction(SIGINT, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);
  EXPECT_EQ(kivtest::open_fd_count(), fds);

  umask(0);
  EXPECT_EQ(_do_cmd(args({"probe"}), "/tmp/new"), 0);
  struct stat st;
  ASSERT_EQ(stat("/tmp/new", &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST_F(CommandTest, RunSystemCmdLogsTheLineAndRunsUpToTheEndMark) {
  Sandbox::fake_command("tool");
  Capture err(2);
  EXPECT_EQ(kiv_run_system_cmd(nullptr, "tool", "a", "b c", "", "d"), 0);
  EXPECT_EQ(kiv_run_system_cmd("/tmp/o", "tool", "x", (char *)nullptr), 0);
  std::string log = err.take();
  EXPECT_EQ(Sandbox::calls_argv("tool"),
            (std::vector<Args>{{"a", "b c"}, {"x"}}));

  std::regex line(R"(\[[0-9/:-]+\]\[libkiv\]\[(\w+)\]\(kiv_run_system_cmd\)\[\d+\] )");
  std::string bare = std::regex_replace(log, line, "$1 ");
  EXPECT_EQ(bare,
            "INFO system_cmd: tool a b c \n\n"
            "ERROR system para is NULL!\n"
            "INFO system_cmd: tool x \n\n");
}

TEST_F(CommandTest, RunSystemCmdLogLineStopsGrowingPast255) {
  Sandbox::fake_command("tool");
  // 13 for the head, 5 for "tool ": an argument of 236 brings the running
  // total to 255 exactly, one of 237 passes it.
  std::string fits(236, 'f'), over(237, 'o');
  Capture err(2);
  kiv_run_system_cmd(nullptr, "tool", fits.c_str(), "q", "");
  kiv_run_system_cmd(nullptr, "tool", over.c_str(), "q", "");
  std::string log = err.take();
  EXPECT_NE(log.find("] system_cmd: tool " + fits + " \n\n"), std::string::npos);
  EXPECT_NE(log.find("] system_cmd: tool \n\n"), std::string::npos) << log;
  EXPECT_EQ(Sandbox::calls_argv("tool"),
            (std::vector<Args>{{fits, "q"}, {over, "q"}}));
}

TEST_F(CommandTest, IgdSystemLogsAtNoticeAndReturnsTheRawStatus) {
  Sandbox::syslog();
  Capture err(2);
  EXPECT_EQ(igd_system("quit %d", 3), 3 << 8);
  std::string long_arg(1100, 'y');
  EXPECT_EQ(igd_system("quit 0 %s", long_arg.c_str()), 0);
  std::string log = err.take();
  EXPECT_NE(log.find("][NOTICE](igd_system)["), std::string::npos) << log;
  EXPECT_NE(log.find("] system_cmd: quit 3\n"), std::string::npos) << log;
  auto msgs = Sandbox::syslog();
  ASSERT_EQ(msgs.size(), 2u);
  EXPECT_EQ(msgs[0].rfind("<29>", 0), 0u);
  EXPECT_TRUE(ends_with(msgs[0], "]: system_cmd: quit 3")) << msgs[0];
  // The line is cut to 1022 characters.
  EXPECT_EQ(Sandbox::calls("quit"),
            (Args{"3", "0 " + std::string(1022 - 7, 'y')}));
}

TEST_F(CommandTest, BackticksAreEscapedWithinTheRoomTest) {
  char dst[300];
  auto run = [&](const char *src, int size) {
    memset(dst, '#', sizeof dst);
    special_character_processing(src, dst, size);
    return std::string(dst, strnlen(dst, sizeof dst));
  };
  EXPECT_EQ(run("a`b", 256), "a\\`b");
  EXPECT_EQ(run("plain $(x) \"y\"", 256), "plain $(x) \"y\"");
  EXPECT_EQ(run("", 256), "");
  EXPECT_EQ(console_text(), "");

  std::string s254(254, 'p'), s255(255, 'p');
  EXPECT_EQ(run(s254.c_str(), 256), s254);
  EXPECT_EQ(console_text(), "");
  EXPECT_EQ(run(s255.c_str(), 256), s254);
  EXPECT_EQ(dst[255], '#');
  EXPECT_EQ(run("ab`", 5), "ab\\`");  // the last admitted place
  EXPECT_EQ(dst[5], '#');
  EXPECT_EQ(run("abc`", 5), "abc");
  run(nullptr, 256);
  EXPECT_EQ(dst[0], '#') << "dst stays untouched";
  run("a", 0);
  EXPECT_EQ(dst[0], '#') << "no room even for the terminator";
  const std::string small =
      "[kiv-info][special_character_processing:N] dstSize is too small!\n";
  EXPECT_EQ(console_text(),
            small + small +
                "[kiv-err][special_character_processing:N] src = NULL!\n" +
                small);
}

}  // namespace
