// The levelled log line (stderr and syslog) and the console print.
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <string>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Capture;
using kivtest::Sandbox;

namespace {

class LogTest : public kivtest::SandboxTest {
 protected:
  void TearDown() override {
    kivtest::FdCheckedTest::TearDown();
    kiv_dbg_level = 7;
  }
  static std::string log(int pri, const char *msg) {
    Capture err(2);
    _kiv_debug("kiv_utils", "probe", 52, pri, "%s", msg);
    return err.take();
  }
};

// Logs msg in a time zone where the local clock reads h:m:s during the
// call, and returns the stderr text and the local date.
std::string log_at(int h, int m, int s, int pri, const char *msg,
                   struct tm *local) {
  for (int tries = 0; tries < 5; ++tries) {
    time_t now = time(nullptr);
    long off = (now % 86400 - (h * 3600 + m * 60 + s) + 86400) % 86400;
    char tz[32];
    snprintf(tz, sizeof tz, "KIV+%ld:%02ld:%02ld", off / 3600, off / 60 % 60,
             off % 60);
    setenv("TZ", tz, 1);
    tzset();
    Capture err(2);
    _kiv_debug("kiv_utils", "probe", 52, pri, "%s", msg);
    std::string out = err.take();
    if (time(nullptr) == now) {
      localtime_r(&now, local);
      return out;
    }
  }
  return "clock too busy";
}

TEST_F(LogTest, StderrLineHasLocalStampWithoutZeroFill) {
  struct tm d;
  std::string out = log_at(9, 5, 7, 5, "system_cmd: uptime", &d);
  EXPECT_EQ(out, "[" + std::to_string(d.tm_mon + 1) + "/" +
                     std::to_string(d.tm_mday) +
                     "-9:5:7][libkiv][NOTICE](probe)[52] system_cmd: uptime\n");
  out = log_at(0, 59, 59, 3, "x\n", &d);
  EXPECT_NE(out.find("-0:59:59][libkiv][ERROR](probe)[52] x\n\n"),
            std::string::npos)
      << out;
}

TEST_F(LogTest, ThresholdGovernsStderrOnlyAndSyslogGetsEverything) {
  Sandbox::syslog();
  EXPECT_NE(log(7, "at").find("][DEBUG](probe)"), std::string::npos);
  EXPECT_EQ(log(8, "above"), "");
  EXPECT_NE(log(-1, "below").find("][UNKOWN](probe)"), std::string::npos);
  kiv_dbg_level = 3;
  EXPECT_NE(log(3, "equal").find("[ERROR]"), std::string::npos);
  EXPECT_EQ(log(4, "warn"), "");
  kiv_dbg_level = -1;
  EXPECT_EQ(log(0, "emerg"), "");

  // Each bare message under "libkiv[pid]", at LOG_DAEMON and with the
  // priority as given (libc folds -1 into its masks).
  const std::string tag = " libkiv[" + std::to_string(getpid()) + "]: ";
  std::map<std::string, std::string> prio;
  for (const std::string &m : Sandbox::syslog())
    if (m.find(tag) != std::string::npos)
      prio[m.substr(m.find(tag) + tag.size())] = m.substr(0, m.find('>') + 1);
  prio.erase("syslog: unknown facility/priority: ffffffff");  // glibc's own
  EXPECT_EQ(prio, (std::map<std::string, std::string>{{"at", "<31>"},
                                                      {"above", "<8>"},
                                                      {"below", "<1023>"},
                                                      {"equal", "<27>"},
                                                      {"warn", "<28>"},
                                                      {"emerg", "<24>"}}));
}

TEST_F(LogTest, PercentMIsTheCallersErrnoEvenWhenStderrFails) {
  Sandbox::syslog();
  auto r = kivtest::run_in_child([] {
    close(2);  // the stderr write fails and sets errno of its own
    errno = EACCES;
    _kiv_debug("kiv_utils", "probe", 1, 3, "denied: %m");
    if (errno != EACCES) _exit(1);
  });
  EXPECT_EQ(r.exit_code, 0) << "errno changed by the log call";
  auto msgs = Sandbox::syslog();
  ASSERT_EQ(msgs.size(), 1u);
  EXPECT_NE(msgs[0].find("]: denied: Permission denied"), std::string::npos)
      << msgs[0];
}

TEST_F(LogTest, ConsoleGetsEachMessageAsFormattedOrMinusOne) {
  errno = ENOENT;
  EXPECT_EQ(
      console_printf("[kiv-err][%s:%d] open %s failed(%m).\n\n", "f", 9, "/x"),
      59);
  EXPECT_EQ(console_printf("no newline"), 10);
  _kiv_debug("kiv_utils", "probe", 1, 8, "to syslog");
  EXPECT_EQ(Sandbox::console(),
            "[kiv-err][f:9] open /x failed(No such file or directory).\n\n"
            "no newline");

  ASSERT_EQ(unlink("/dev/console"), 0);
  ASSERT_EQ(mkdir("/dev/console", 0755), 0);  // fopen "w" would create a file
  errno = EINTR;
  Capture err(2);
  EXPECT_EQ(console_printf("lost\n"), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(err.take(), "") << "no fallback to stderr";
}

}  // namespace
