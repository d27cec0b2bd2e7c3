// Driver parameters: the nvram_set and iwpriv command lines, their quoting,
// the masking of pre-shared keys in every log, and the connection status
// request.
#include "kiv/wifi.h"

#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "sandbox.hpp"

namespace {

using kivtest::Sandbox;

class WifiDriver : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("nvram_set");
    Sandbox::fake_command("iwpriv", "exit 3");
  }

  // Runs fn and returns every line it logged (stderr, syslog) or printed on
  // the console, for the checks of what a log may hold.
  template <typename Fn>
  std::string logged(Fn fn) {
    kivtest::Capture err(2);
    fn();
    std::string all = err.take();
    for (const std::string &line : Sandbox::syslog()) all += line + "\n";
    all += Sandbox::console();
    return all;
  }
};

TEST_F(WifiDriver, NvramSetMasksPreSharedKeys) {
  const char *secret = "Sup3r`$ecret";
  for (const char *key : {"WPAPSK", "WPAPSK1", "AWPAPSK2"}) {
    std::string log = logged([&] {
      EXPECT_EQ(kiv_nvram_set(0, key, secret), 0);
    });
    EXPECT_EQ(log.find("Sup3r"), std::string::npos) << log;
    EXPECT_NE(log.find(std::string("system_cmd: nvram_set 2860 ") + key +
                       " ******"),
              std::string::npos)
        << log;
  }
  std::string log = logged([&] { kiv_nvram_set(4, "WPAPSK3", secret); });
  EXPECT_EQ(log.find("Sup3r"), std::string::npos) << log;
  EXPECT_NE(log.find("system_cmd: nvram_set rtdev WPAPSK3 ******"),
            std::string::npos);
  // The value reaches the command unescaped, inside single quotes.
  auto calls = Sandbox::calls_argv("nvram_set");
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[1], (std::vector<std::string>{"2860", "WPAPSK1", secret}));
  EXPECT_EQ(calls[3], (std::vector<std::string>{"rtdev", "WPAPSK3", secret}));
}

TEST_F(WifiDriver, NvramSetOtherKeysAreLoggedWhole) {
  std::string log = logged([] {
    EXPECT_EQ(kiv_nvram_set(1, "SSID1", "My `Net"), 0);
    EXPECT_EQ(kiv_nvram_set(3, "Channel", "36"), 0);
  });
  EXPECT_NE(log.find("system_cmd: nvram_set rtdev SSID1 'My `Net'"),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("system_cmd: nvram_set 2860 Channel '36'"),
            std::string::npos);
  EXPECT_EQ(Sandbox::calls_argv("nvram_set"),
            (std::vector<std::vector<std::string>>{
                {"rtdev", "SSID1", "My `Net"}, {"2860", "Channel", "36"}}));

  // A masked command longer than its line is cut at 254 characters.
  std::string key = "WPAPSK" + std::string(300, 'k');
  kiv_nvram_set(0, key.c_str(), "v");
  auto calls = Sandbox::calls_argv("nvram_set");
  ASSERT_EQ(calls.size(), 3u);
  // "nvram_set 2860 " is 15 characters.
  EXPECT_EQ(calls[2], (std::vector<std::string>{"2860", key.substr(0, 254 - 15)}));
}

TEST_F(WifiDriver, IwprivQuotingByKey) {
  const char *secret = "pa`ss word";
  std::string log = logged([&] {
    // The command's status comes back as system() gives it.
    EXPECT_EQ(kiv_iwpriv_set(0, "WPAPSK", secret), 3 << 8);
    EXPECT_EQ(kiv_iwpriv_set(1, "WPAPSK", secret), 3 << 8);
    EXPECT_EQ(kiv_iwpriv_set(3, "WPAPSK", secret), 3 << 8);
    EXPECT_EQ(kiv_iwpriv_set(4, "WPAPSK", secret), 3 << 8);
  });
  EXPECT_EQ(log.find("pa`ss"), std::string::npos) << log;
  for (const char *ifname : {"ra0", "rax0", "ra1", "rax1"})
    EXPECT_NE(log.find(std::string("system_cmd: iwpriv ") + ifname +
                       " set WPAPSK=******"),
              std::string::npos)
        << ifname << "\n" << log;

  log = logged([] {
    kiv_iwpriv_set(4, "SSID", "Cafe `x` Net");
    kiv_iwpriv_set(0, "WPAPSK1", "k`ey");
    kiv_iwpriv_set(1, "Channel", "1`1");
  });
  // SSID in double quotes with escaped backticks; other keys, also a
  // WPAPSK with a digit, bare and escaped, logged with their value.
  EXPECT_NE(log.find("system_cmd: iwpriv rax1 set SSID=\"Cafe \\`x\\` Net\""),
            std::string::npos)
      << log;
  EXPECT_NE(log.find("system_cmd: iwpriv ra0 set WPAPSK1=k\\`ey"),
            std::string::npos);
  EXPECT_NE(log.find("system_cmd: iwpriv rax0 set Channel=1\\`1"),
            std::string::npos);

  EXPECT_EQ(Sandbox::calls_argv("iwpriv"),
            (std::vector<std::vector<std::string>>{
                {"ra0", "set", "WPAPSK=pa`ss word"},
                {"rax0", "set", "WPAPSK=pa`ss word"},
                {"ra1", "set", "WPAPSK=pa`ss word"},
                {"rax1", "set", "WPAPSK=pa`ss word"},
                {"rax1", "set", "SSID=Cafe `x` Net"},
                {"ra0", "set", "WPAPSK1=k`ey"},
                {"rax0", "set", "Channel=1`1"},
            }));
}

TEST_F(WifiDriver, RefusedRadiosAndNullArguments) {
  for (uint32_t radio : {2u, 5u, 0xFFFFFFFFu}) {
    EXPECT_EQ(kiv_nvram_set(radio, "SSID1", "x"), -1);
    EXPECT_EQ(kiv_iwpriv_set(radio, "SSID", "x"), -1);
  }
  EXPECT_EQ(kiv_nvram_set(0, nullptr, "x"), -1);
  EXPECT_EQ(kiv_nvram_set(0, "SSID1", nullptr), -1);
  EXPECT_EQ(kiv_iwpriv_set(0, nullptr, "x"), -1);
  EXPECT_EQ(kiv_iwpriv_set(0, "SSID", nullptr), -1);
  EXPECT_TRUE(Sandbox::calls("nvram_set").empty());
  EXPECT_TRUE(Sandbox::calls("iwpriv").empty());
}

TEST_F(WifiDriver, ConnectionStatusRequest) {
  char status[40];
  memset(status, 0xAA, sizeof status);
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus(nullptr, status), -1);
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus("apcli0", nullptr), -1);
  EXPECT_EQ(static_cast<unsigned char>(status[0]), 0xAA);

  // No wireless driver here: the request fails, and the area stays zeroed.
  int fds = kivtest::open_fd_count();
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus("lo", status), -1);
  EXPECT_EQ(kivtest::open_fd_count(), fds);
  for (char c : status) EXPECT_EQ(c, 0);
  std::string console = Sandbox::console();
  EXPECT_NE(console.find("[kiv-err][kiv_ioctl_get_apclix_connstatus:"),
            std::string::npos)
      << console;
  EXPECT_NE(console.find("] ioctl fail:cmd=8bfc\n\n"), std::string::npos)
      << console;
  // A name of 16 characters or more is handed over cut, without harm.
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus("a-very-long-interface-name",
                                            status),
            -1);
}

}  // namespace

namespace {

class WifiNvramGet : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::write_file("/etc/wireless/kiv/dbdc.b0.dat",
                        "Default\nSSID1=Home 2G\nChannel=6\n");
    Sandbox::write_file("/etc/wireless/kiv/dbdc.b1.dat",
                        "Default\nSSID1=Home 5G\nChannel=36\n");
  }
};

TEST_F(WifiNvramGet, ReadsTheZoneOfTheRadio) {
  char out[32];
  // Radios 0 and 3 share one profile, 1 and 4 the other.
  for (uint32_t radio : {0u, 3u}) {
    memset(out, 'x', sizeof out);
    EXPECT_EQ(kiv_nvram_get(radio, "SSID1", out, sizeof out), 0);
    EXPECT_STREQ(out, "Home 2G");
  }
  for (uint32_t radio : {1u, 4u}) {
    EXPECT_EQ(kiv_nvram_get(radio, "Channel", out, sizeof out), 0);
    EXPECT_STREQ(out, "36");
  }
  // An absent key: 0 and the whole buffer zeroed.
  memset(out, 'x', sizeof out);
  EXPECT_EQ(kiv_nvram_get(0, "Absent", out, sizeof out), 0);
  for (char c : out) EXPECT_EQ(c, 0);
}

TEST_F(WifiNvramGet, Refusals) {
  char out[16];
  // A refused radio leaves the buffer zeroed; a null key leaves it alone.
  for (uint32_t radio : {2u, 5u, 0xFFFFFFFFu}) {
    memset(out, 'x', sizeof out);
    EXPECT_EQ(kiv_nvram_get(radio, "SSID1", out, sizeof out), -1);
    for (char c : out) EXPECT_EQ(c, 0);
  }
  memset(out, 'x', sizeof out);
  EXPECT_EQ(kiv_nvram_get(0, nullptr, out, sizeof out), -1);
  EXPECT_EQ(out[0], 'x');
  EXPECT_EQ(kiv_nvram_get(0, "SSID1", nullptr, 16), -1);
}

}  // namespace
