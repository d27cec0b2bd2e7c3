// Shell lines, captured output, direct program runs and the backtick
// filter, with recording fakes in place of real commands.
#include <errno.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Capture;
using kivtest::Sandbox;
using testing::HasSubstr;
using Args = std::vector<std::string>;

namespace {

// Console text with the source lines of the prefixes blanked out.
std::string console_text() {
  return std::regex_replace(Sandbox::console(), std::regex(R"(:\d+\] )"),
                            ":N] ");
}

char **args(std::initializer_list<const char *> list) {
  static std::vector<char *> v;
  v.clear();
  for (const char *a : list) v.push_back(const_cast<char *>(a));
  v.push_back(nullptr);
  return v.data();
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
  const struct {
    const char *cmd;
    int n, ret;
    std::string text;
  } cases[] = {
      {"gen 'abc\\n'", 64, 4, "abc"},
      {"gen abc", 64, 3, "abc"},
      {"gen 'ab\\n\\n'", 64, 4, "ab\n"},
      {"gen ''", 64, 0, ""},
      {"many 100", 10, 10, "xxxxxxxxx"},
      {"many 2000", 1024, 1024, std::string(1023, 'x')},
      {"gen one", 0, 0, ""},     // runs for its effect only
      {"gen two", 1025, 0, ""},  // refused
  };
  for (const auto &c : cases) {
    char buf[1100] = {'\n'};  // nothing is read or written before buf + 1
    buf[1 + c.n] = '#';       // ... nor written behind n
    EXPECT_EQ(exe_cmd(c.cmd, buf + 1, c.n), c.ret) << c.cmd;
    EXPECT_EQ(buf + 1 + (c.n ? 0 : 1), c.text) << c.cmd;
    EXPECT_EQ(buf[0] + buf[1 + c.n], '\n' + '#') << c.cmd;
  }
  EXPECT_EQ(exe_cmd("gen three", nullptr, 64), 0);
  EXPECT_EQ(Sandbox::calls("gen").back(), "three");
  EXPECT_EQ(Sandbox::calls("gen").size(), 6u);
  EXPECT_EQ(console_text(),
            "[kiv-err][exe_cmd:N] Invalid length(len:1025, gen two)!\n\n");
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

  // A caller without stdin gets the file as descriptor 0.
  auto r = kivtest::run_in_child([] {
    close(0);
    _exit(_do_cmd(args({"quit", "5"}), "/tmp/out"));
  });
  EXPECT_EQ(r.exit_code, 5);
}

TEST_F(CommandTest, DoCmdTruncatesTheFileAndFixesTheChildsPath) {
  Sandbox::fake_command("probe",
                        "wc -c < /tmp/out; echo \"$PATH\"; echo err >&2; "
                        "kill -INT $$; echo alive");
  Sandbox::write_file("/tmp/out", "old content, longer than the new\n");
  setenv("PATH", "/nowhere", 1);
  struct sigaction before, after;
  sigaction(SIGINT, nullptr, &before);

  EXPECT_EQ(_do_cmd(args({"probe"}), "/tmp/out"), 0);
  EXPECT_EQ(Sandbox::read_file("/tmp/out"),
            "0\n/sbin:/bin:/usr/sbin:/usr/bin\nerr\nalive\n");
  EXPECT_STREQ(getenv("PATH"), "/nowhere");
  sigaction(SIGINT, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler);

  umask(0);
  EXPECT_EQ(_do_cmd(args({"probe"}), "/tmp/new"), 0);
  struct stat st;
  ASSERT_EQ(stat("/tmp/new", &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST_F(CommandTest, RunSystemCmdLogsTheLineAndRunsUpToTheEndMark) {
  Sandbox::fake_command("tool");
  // 13 for the head, 5 for "tool ": an argument of 236 brings the running
  // total to 255 exactly, one of 237 passes it.
  std::string fits(236, 'f'), over(237, 'o');
  Capture err(2);
  EXPECT_EQ(kiv_run_system_cmd(nullptr, "tool", "a", "b c", "", "d"), 0);
  EXPECT_EQ(kiv_run_system_cmd("/tmp/o", "tool", "x", (char *)nullptr), 0);
  kiv_run_system_cmd(nullptr, "tool", fits.c_str(), "q", "");
  kiv_run_system_cmd(nullptr, "tool", over.c_str(), "q", "");
  EXPECT_EQ(kiv_run_system_cmd(nullptr, ""), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(Sandbox::calls_argv("tool"),
            (std::vector<Args>{{"a", "b c"}, {"x"}, {fits, "q"}, {over, "q"}}));

  std::regex head(
      R"(\[[0-9/:-]+\]\[libkiv\]\[(\w+)\]\(kiv_run_system_cmd\)\[\d+\] )");
  EXPECT_EQ(std::regex_replace(err.take(), head, "$1 "),
            "INFO system_cmd: tool a b c \n\n"
            "ERROR system para is NULL!\n"
            "INFO system_cmd: tool x \n\n"
            "INFO system_cmd: tool " +
                fits +
                " \n\n"
                "INFO system_cmd: tool \n\n"
                "INFO system_cmd: \n\n");
}

TEST_F(CommandTest, IgdSystemLogsAtNoticeAndReturnsTheRawStatus) {
  Capture err(2);
  EXPECT_EQ(igd_system("quit %d", 3), 3 << 8);
  std::string long_arg(1100, 'y');
  EXPECT_EQ(igd_system("quit 0 %s", long_arg.c_str()), 0);
  std::string log = err.take();
  EXPECT_THAT(log, HasSubstr("][NOTICE](igd_system)["));
  EXPECT_THAT(log, HasSubstr("] system_cmd: quit 3\n"));
  // The line is cut to 1022 characters.
  EXPECT_EQ(Sandbox::calls("quit"),
            (Args{"3", "0 " + std::string(1022 - 7, 'y')}));
}

TEST_F(CommandTest, BackticksAreEscapedWithinTheRoom) {
  const std::string s254(254, 'p'), s255(255, 'p');
  const struct {
    const char *src;
    int size;
    std::string want;
  } cases[] = {
      {"a`b", 256, "a\\`b"},
      {"plain $(x) \"y\"", 256, "plain $(x) \"y\""},
      {"", 256, ""},
      {s254.c_str(), 256, s254},
      {s255.c_str(), 256, s254},              // too small
      {"ab`", 5, "ab\\`"},                    // the last admitted place
      {"abc`", 5, "abc"},                     // too small
      {nullptr, 256, std::string(256, '#')},  // untouched
      {"a", 0, ""},  // no room for the terminator: untouched
  };
  for (const auto &c : cases) {
    char dst[300];
    memset(dst, '#', sizeof dst);
    special_character_processing(c.src, dst, c.size);
    EXPECT_EQ(std::string(dst, strnlen(dst, c.size)), c.want);
    EXPECT_EQ(dst[c.size], '#') << c.want;
  }
  const std::string small =
      "[kiv-info][special_character_processing:N] dstSize is too small!\n";
  EXPECT_EQ(console_text(),
            small + small +
                "[kiv-err][special_character_processing:N] src = NULL!\n" +
                small);
}

}  // namespace
