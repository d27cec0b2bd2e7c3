// The harness itself: fresh state per entry, fakes that record, console
// and syslog capture, children that exit.
#include <fcntl.h>
#include <stdlib.h>
#include <syslog.h>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

class SandboxSelf : public kivtest::SandboxTest {};

TEST_F(SandboxSelf, FreshStateOnEveryEntry) {
  Sandbox::write_file("/etc/config/network", "x\n");
  Sandbox::write_file("/tmp/a", "y");
  ASSERT_TRUE(Sandbox::exists("/etc/config/network"));
  ASSERT_EQ(Sandbox::enter(), "");
  EXPECT_FALSE(Sandbox::exists("/etc/config/network"));
  EXPECT_FALSE(Sandbox::exists("/tmp/a"));
  EXPECT_TRUE(Sandbox::exists("/etc/passwd")) << "host /etc stays readable";
  EXPECT_TRUE(Sandbox::exists("/var/run"));
}

TEST_F(SandboxSelf, FakeCommandsRecordArgumentsAndRun) {
  Sandbox::fake_command("iw", "echo listing; exit 3");
  int status = system("iw dev 'wlan 0' scan");
  EXPECT_EQ(WEXITSTATUS(status), 3);
  char *const argv[] = {const_cast<char *>("iw"), const_cast<char *>("x"),
                        nullptr};
  EXPECT_EQ(_do_cmd(argv, "/tmp/out"), 3);
  EXPECT_EQ(Sandbox::read_file("/tmp/out"), "listing\n");
  auto calls = Sandbox::calls_argv("iw");
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0], (std::vector<std::string>{"dev", "wlan 0", "scan"}));
  EXPECT_EQ(Sandbox::calls("iw")[1], "x");
}

TEST_F(SandboxSelf, ConsoleAndSyslogAreCaptured) {
  console_printf("one %d\n", 1);
  console_printf("two\n");
  EXPECT_EQ(Sandbox::console(), "one 1\ntwo\n");
  EXPECT_EQ(Sandbox::console(), "");
  openlog("kivtest", 0, LOG_USER);
  ::syslog(LOG_NOTICE, "hello %s", "log");
  closelog();
  auto msgs = Sandbox::syslog();
  ASSERT_EQ(msgs.size(), 1u);
  EXPECT_NE(msgs[0].find("kivtest: hello log"), std::string::npos) << msgs[0];
}

TEST(Harness, ChildRunnerAndCapture) {
  auto r = kivtest::run_in_child([] {
    printf("out");
    fprintf(stderr, "err");
    exit(255);
  });
  EXPECT_TRUE(r.exited);
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.out, "out");
  EXPECT_EQ(r.err, "err");

  kivtest::Capture cap(1);
  printf("captured");
  EXPECT_EQ(cap.take(), "captured");

  int before = kivtest::open_fd_count();
  int fd = open("/proc/self/stat", O_RDONLY);
  EXPECT_EQ(kivtest::open_fd_count(), before + 1);
  close(fd);
}

TEST_F(SandboxSelf, ManyLogLinesNeverBlockTheWriter) {
  openlog("kivtest", 0, LOG_USER);
  for (int i = 0; i < 200; ++i) ::syslog(LOG_INFO, "line %d", i);
  closelog();
  auto msgs = Sandbox::syslog();
  ASSERT_EQ(msgs.size(), 200u);
  EXPECT_NE(msgs[199].find("line 199"), std::string::npos);
}
