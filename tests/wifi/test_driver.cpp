// Driver parameters: the nvram_set and iwpriv command lines, their quoting,
// the masking of pre-shared keys in every log, the connection status
// request, and reads from the profile of a radio's zone.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <linux/wireless.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "kiv/wifi.h"
#include "sandbox.hpp"

namespace {
// While set, the wireless driver's answer to the connection status request:
// the ioctl below writes it into the caller's area and succeeds.
const char *g_driver_says = nullptr;
}  // namespace

// Programs of the tests export their symbols, so the library calls this.
extern "C" __attribute__((visibility("default"))) int ioctl(
    int fd, unsigned long request, ...) {
  va_list ap;
  va_start(ap, request);
  void *arg = va_arg(ap, void *);
  va_end(ap);
  auto *req = static_cast<iwreq *>(arg);
  if (g_driver_says != nullptr && request == SIOCIWFIRSTPRIV + 0x1C &&
      req->u.data.length == 40) {
    strcpy(static_cast<char *>(req->u.data.pointer), g_driver_says);
    return 0;
  }
  using Fn = int (*)(int, unsigned long, ...);
  static const Fn real = reinterpret_cast<Fn>(dlsym(RTLD_NEXT, "ioctl"));
  return real(fd, request, arg);
}

namespace {

using kivtest::Sandbox;
using testing::HasSubstr;
using testing::Not;
using Args = std::vector<std::string>;

class WifiDriver : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("nvram_set");
    Sandbox::fake_command("iwpriv", "exit 3");
  }
};

TEST_F(WifiDriver, CommandLinesQuotingAndMaskedKeys) {
  const char *S = "Sup3r`$ecret", *P = "pa`ss word";  // never logged
  const struct {
    bool iwpriv;  // else nvram_set
    uint32_t radio;
    const char *key, *value, *logged;
  } cases[] = {
      // nvram_set: any key with WPAPSK in it is masked.
      {0, 0, "WPAPSK", S, "nvram_set 2860 WPAPSK ******"},
      {0, 3, "WPAPSK1", S, "nvram_set 2860 WPAPSK1 ******"},
      {0, 1, "AWPAPSK2", S, "nvram_set rtdev AWPAPSK2 ******"},
      {0, 4, "SSID1", "My `Net", "nvram_set rtdev SSID1 'My `Net'"},
      {0, 3, "Channel", "36", "nvram_set 2860 Channel '36'"},
      // iwpriv: WPAPSK alone is masked; SSID in double quotes with escaped
      // backticks; other keys bare, escaped.
      {1, 0, "WPAPSK", P, "iwpriv ra0 set WPAPSK=******"},
      {1, 1, "WPAPSK", P, "iwpriv rax0 set WPAPSK=******"},
      {1, 3, "WPAPSK", P, "iwpriv ra1 set WPAPSK=******"},
      {1, 4, "SSID", "Cafe `x` Net",
       "iwpriv rax1 set SSID=\"Cafe \\`x\\` Net\""},
      {1, 0, "WPAPSK1", "k`ey", "iwpriv ra0 set WPAPSK1=k\\`ey"},
      {1, 1, "SSIDx", "1`1", "iwpriv rax0 set SSIDx=1\\`1"},
  };
  for (const auto &c : cases) {
    std::string log = kivtest::logged([&] {
      // The command's status comes back as system() gives it.
      EXPECT_EQ(c.iwpriv ? kiv_iwpriv_set(c.radio, c.key, c.value)
                         : kiv_nvram_set(c.radio, c.key, c.value),
                c.iwpriv ? 3 << 8 : 0);
    });
    EXPECT_THAT(log, HasSubstr(std::string("system_cmd: ") + c.logged + "\n"));
    EXPECT_THAT(log, Not(HasSubstr("Sup3r")));
    EXPECT_THAT(log, Not(HasSubstr("pa`ss")));
    // The value reaches the command whole and unescaped, after the zone or
    // interface named in the log line.
    std::string place = c.logged;
    place = place.substr(place.find(' ') + 1);
    place.resize(place.find(' '));
    Args want = {place, c.key, c.value};
    if (c.iwpriv) want = {place, "set", c.key + std::string("=") + c.value};
    EXPECT_EQ(Sandbox::calls_argv(c.iwpriv ? "iwpriv" : "nvram_set").back(),
              want);
  }

  // A masked command longer than its line is cut at 254 characters;
  // "nvram_set 2860 " is 15 of them.
  std::string key = "WPAPSK" + std::string(300, 'k');
  kiv_nvram_set(0, key.c_str(), "v");
  EXPECT_EQ(Sandbox::calls_argv("nvram_set").back(),
            (Args{"2860", key.substr(0, 254 - 15)}));
}

TEST_F(WifiDriver, RefusedRadiosAndNullArguments) {
  char out[16];
  for (uint32_t radio : {2u, 5u, 0xFFFFFFFFu}) {
    EXPECT_EQ(kiv_nvram_set(radio, "SSID1", "x"), -1);
    EXPECT_EQ(kiv_iwpriv_set(radio, "SSID", "x"), -1);
    // A refused radio leaves the buffer zeroed.
    memset(out, 'x', sizeof out);
    EXPECT_EQ(kiv_nvram_get(radio, "SSID1", out, sizeof out), -1);
    EXPECT_EQ(std::string(out, 16), std::string(16, '\0'));
  }
  EXPECT_EQ(kiv_nvram_set(0, nullptr, "x"), -1);
  EXPECT_EQ(kiv_nvram_set(0, "SSID1", nullptr), -1);
  EXPECT_EQ(kiv_iwpriv_set(0, nullptr, "x"), -1);
  EXPECT_EQ(kiv_iwpriv_set(0, "SSID", nullptr), -1);
  EXPECT_TRUE(Sandbox::calls("nvram_set").empty());
  EXPECT_TRUE(Sandbox::calls("iwpriv").empty());
  // A null key leaves the buffer alone.
  memset(out, 'x', sizeof out);
  EXPECT_EQ(kiv_nvram_get(0, nullptr, out, sizeof out), -1);
  EXPECT_EQ(out[0], 'x');
  EXPECT_EQ(kiv_nvram_get(0, "SSID1", nullptr, 16), -1);
}

TEST_F(WifiDriver, NvramGetReadsTheZoneOfTheRadio) {
  Sandbox::write_file("/etc/wireless/kiv/dbdc.b0.dat",
                      "Default\nSSID1=Home 2G\nChannel=6\n");
  Sandbox::write_file("/etc/wireless/kiv/dbdc.b1.dat",
                      "Default\nSSID1=Home 5G\nChannel=36\n");
  // Radios 0 and 3 share one profile, 1 and 4 the other; an absent key
  // gives 0 and the whole buffer zeroed.
  const struct {
    uint32_t radio;
    const char *key, *value;
  } cases[] = {{0, "SSID1", "Home 2G"},
               {3, "SSID1", "Home 2G"},
               {1, "Channel", "36"},
               {4, "Channel", "36"},
               {0, "Absent", ""}};
  for (const auto &c : cases) {
    char out[32];
    memset(out, 'x', sizeof out);
    EXPECT_EQ(kiv_nvram_get(c.radio, c.key, out, sizeof out), 0);
    EXPECT_EQ(std::string(out, 32),
              c.value + std::string(32 - strlen(c.value), '\0'));
  }
}

TEST_F(WifiDriver, ConnectionStatusRequest) {
  char status[40];
  memset(status, 0xAA, sizeof status);
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus(nullptr, status), -1);
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus("apcli0", nullptr), -1);
  EXPECT_EQ(static_cast<unsigned char>(status[0]), 0xAA);

  // No wireless driver here: the request fails, and the area stays zeroed.
  // A name of 16 characters or more is handed over cut, without harm.
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus("lo", status), -1);
  EXPECT_EQ(std::string(status, 40), std::string(40, '\0'));
  EXPECT_THAT(
      Sandbox::console(),
      testing::MatchesRegex("\\[kiv-err\\]\\[kiv_ioctl_get_apclix_"
                            "connstatus:[0-9]+\\] ioctl fail:cmd=8bfc\n\n"));
  EXPECT_EQ(
      kiv_ioctl_get_apclix_connstatus("a-very-long-interface-name", status),
      -1);
  // With a driver: its answer in the caller's area of 40 bytes.
  g_driver_says = "Connected";
  EXPECT_EQ(kiv_ioctl_get_apclix_connstatus("apcli0", status), 0);
  EXPECT_STREQ(status, "Connected");
  g_driver_says = nullptr;
}

}  // namespace
