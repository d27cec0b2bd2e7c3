// Staging of an interface's SSID, key and role: the uci command sequences.
#include <gmock/gmock.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "kiv/wifi.h"
#include "sandbox.hpp"

namespace {

using kivtest::Sandbox;
using testing::HasSubstr;
using Lines = std::vector<std::string>;

// The uci commands of a compact text: each word "x" is "set wireless.x",
// "-x" is "delete wireless.x", and '@' in a word stands for ifname.
Lines staged(const std::string &ifname, const std::string &text) {
  Lines out;
  std::istringstream words(text);
  for (std::string w; words >> w;) {
    for (size_t at; (at = w.find('@')) != std::string::npos;)
      w.replace(at, 1, ifname);
    out.push_back(w[0] == '-' ? "delete wireless." + w.substr(1)
                              : "set wireless." + w);
  }
  return out;
}

// What each call staged since the last look.
class Provisioning : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("uci");
  }
  Lines fresh_calls() {
    Lines all = Sandbox::calls("uci");
    Lines fresh(all.begin() + static_cast<long>(seen_), all.end());
    seen_ = all.size();
    return fresh;
  }
  size_t seen_ = 0;
};

TEST_F(Provisioning, BasicParaByInterface) {
  const struct {
    const char *ifname, *ssid, *key;
    int ret;
    const char *want;
  } cases[] = {
      // Stations of radio 0 and 1: the radio on, channel automatic.
      {"ath03", "Home", "k3y-Secret", 0,
       "wifi0.disabled=0 wifi0.channel=0 @.disabled=0 @.key=k3y-Secret "
       "@.ssid=Home @.extap=1 @.mode=sta"},
      {"ath13", "Home5", "k3y-Secret", 0,
       "wifi1.disabled=0 wifi1.channel=0 @.disabled=0 @.key=k3y-Secret "
       "@.ssid=Home5 @.extap=1 @.mode=sta"},
      // Radio 2 touches no radio section, and an empty key is still set.
      {"ath23", "Home6", "", 0, "@.key= @.ssid=Home6 @.wds=1 @.mode=sta"},
      {"ath1", "unused", "k", 0, "@.key=k @.mode=ap"},
      {"ath2", "unused", nullptr, 0, "@.mode=ap"},
      {"ath0", "unused", nullptr, 0, "@.mode=ap"},
      // An unknown name has its key set, then is refused with a log line.
      {"wlan0", "x", "k2", 1, "@.key=k2"},
      {"ath3", "x", nullptr, 1, ""},
      {"ath03 ", "x", nullptr, 1, ""},
      {nullptr, "x", "k", 1, ""},
      {"ath0", nullptr, "k", 1, ""},
  };
  std::string log = kivtest::logged([&] {
    for (const auto &c : cases) {
      EXPECT_EQ(SetWifiBasicPara(c.ifname, c.ssid, c.key), c.ret) << c.want;
      EXPECT_EQ(fresh_calls(), staged(c.ifname ? c.ifname : "", c.want));
    }
  });
  // Only the enabling lines are logged, and never the key.
  EXPECT_THAT(log, testing::Not(HasSubstr("k3y-Secret")));
  EXPECT_THAT(log,
              HasSubstr("system_cmd: uci set wireless.ath03.disabled='0'"));
  EXPECT_THAT(log,
              HasSubstr("system_cmd: uci set wireless.ath13.disabled='0'"));
  EXPECT_THAT(log,
              testing::ContainsRegex(
                  "NOTICE.\\(SetWifiBasicPara\\)(.|\n)*invalid iface(.|\n)*"
                  "invalid iface(.|\n)*invalid iface"));
  EXPECT_THAT(log, testing::ContainsRegex(
                       "\\[kiv-err\\]\\[SetWifiBasicPara:[0-9]+\\] param is "
                       "null\n\n\\[kiv-err\\]"));

  // "uci set wireless.ath23.ssid=" is 28 characters; the line keeps 127.
  std::string ssid(200, 's');
  EXPECT_EQ(SetWifiBasicPara("ath23", ssid.c_str(), nullptr), 0);
  EXPECT_EQ(fresh_calls()[0],
            "set wireless.ath23.ssid=" + std::string(127 - 28, 's'));
}

// SetWifiParaByEncrypt reads `sae` through libuci, then stages with `uci`.
TEST_F(Provisioning, EncryptParaByCode) {
  Sandbox::write_file("/etc/config/wireless",
                      "config wifi-iface 'ath0'\n\toption sae '0'\n"
                      "config wifi-iface 'ath1'\n\toption sae '1'\n"
                      "config wifi-iface 'ath13'\n\toption sae '1234'\n");
  const std::string open = "@=wifi-iface @.disabled=0 ",
                    clear =
                        " -@.sae=1 -@.sae_confirm_immediate=1 "
                        "-@.force_invalid_group=1 -@.ieee80211w=2",
                    sae =
                        " @.sae=1 @.sae_confirm_immediate=1 "
                        "@.force_invalid_group=1 @.ieee80211w=2";
  const struct {
    const char *ifname;
    int enc;
    std::string want;
  } cases[] = {
      // ath0 has sae '0', ath03 no section at all: both count as false.
      {"ath0", 0, open + "@.encryption=none" + clear},
      {"ath03", 0, open + "@.encryption=none" + clear},
      {"ath0", 1, open + "@.encryption=psk" + clear},
      {"ath0", 2, open + "@.encryption=psk2+ccmp" + clear},
      {"ath03", 3, open + "@.encryption=psk2+ccmp" + clear},
      // WPA3 sets the SAE options and never clears them; only 4 drops OWE.
      {"ath0", 4, open + "@.encryption=ccmp" + sae + " -@.owe=1"},
      {"ath03", 5, open + "@.encryption=psk2+ccmp" + sae},
      // Any other code is handled as 0.
      {"ath0", 6, open + "@.encryption=none" + clear},
      {"ath03", -1, open + "@.encryption=none" + clear},
      {"ath0", 1000, open + "@.encryption=none" + clear},
      // A stored sae of "1" keeps the options; a value that fills the
      // whole read is not "1".
      {"ath1", 2, open + "@.encryption=psk2+ccmp"},
      {"ath1", 0, open + "@.encryption=none"},
      {"ath13", 2, open + "@.encryption=psk2+ccmp" + clear},
      // The 6 GHz interfaces are never open: OWE instead.
      {"ath23", 0,
       open + "@.encryption=none @.encryption=ccmp @.owe=1" + clear},
      {"ath2", 0, open + "@.encryption=none @.encryption=ccmp @.owe=1" + clear},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(SetWifiParaByEncrypt(c.ifname, c.enc), 0);
    EXPECT_EQ(fresh_calls(), staged(c.ifname, c.want)) << c.ifname << c.enc;
  }
  std::string console = Sandbox::console();
  EXPECT_THAT(console, HasSubstr("[     SetWifiParaByEncrypt]["));
  EXPECT_THAT(console, HasSubstr("]:--enc=2-saeStr=1-sae=1\n"));
  EXPECT_THAT(console, HasSubstr("]:--enc=2-saeStr=1234-sae=0\n"));
  EXPECT_THAT(console, HasSubstr("]:--enc=0-saeStr=-sae=0\n"));

  EXPECT_EQ(SetWifiParaByEncrypt(nullptr, 2), 1);
  EXPECT_TRUE(fresh_calls().empty());
  EXPECT_THAT(Sandbox::console(), HasSubstr("[kiv-err][SetWifiParaByEncrypt:"));
  // Without a wireless package the flag is false and staging goes on.
  unlink("/etc/config/wireless");
  kivtest::Capture out(1);
  EXPECT_EQ(SetWifiParaByEncrypt("ath1", 3), 0);
  EXPECT_EQ(fresh_calls(),
            staged("ath1", open + "@.encryption=psk2+ccmp" + clear));
}

}  // namespace
