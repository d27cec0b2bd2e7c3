// The harness itself: fresh state per entry, fakes that record, console
// and syslog capture, children that exit.
#include <fcntl.h>
#include <stdlib.h>
#include <syslog.h>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Sandbox;
using Args = std::vector<std::string>;

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
  EXPECT_EQ(WEXITSTATUS(system("iw dev 'wlan 0' '' scan")), 3);
  EXPECT_EQ(WEXITSTATUS(system("iw > /tmp/out")), 3);
  EXPECT_EQ(Sandbox::read_file("/tmp/out"), "listing\n");
  EXPECT_EQ(Sandbox::calls_argv("iw"),
            (std::vector<Args>{{"dev", "wlan 0", "", "scan"}, {}}));
  EXPECT_EQ(Sandbox::calls("iw"), (Args{"dev wlan 0  scan", ""}));
}

// 200 lines: more than a socket queues, so the reader must drain all along.
TEST_F(SandboxSelf, ConsoleAndSyslogAreCaptured) {
  std::string all = kivtest::logged([] {
    console_printf("one %d\n", 1);
    fprintf(stderr, "err\n");
    openlog("kivtest", 0, LOG_USER);
    for (int i = 0; i < 200; ++i) ::syslog(LOG_NOTICE, "line %d", i);
    closelog();
  });
  EXPECT_EQ(all.substr(0, 4), "err\n");
  EXPECT_NE(all.find("kivtest: line 0\n"), std::string::npos);
  EXPECT_NE(all.find("kivtest: line 199\none 1\n"), std::string::npos);
  EXPECT_EQ(Sandbox::console() + kivtest::logged([] {}), "");
}

TEST(Harness, ChildRunnerAndCapture) {
  auto r = kivtest::run_in_child([] {
    printf("out");
    fprintf(stderr, "err");
    exit(255);
  });
  EXPECT_TRUE(r.exited);
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.out + r.err, "outerr");
  EXPECT_EQ(kivtest::run_in_child([] { raise(SIGTERM); }).signal, SIGTERM);

  kivtest::Capture cap(1);
  printf("captured");
  EXPECT_EQ(cap.take(), "captured");

  int before = kivtest::open_fd_count();
  int fd = open("/proc/self/stat", O_RDONLY);
  EXPECT_EQ(kivtest::open_fd_count(), before + 1);
  close(fd);
}
