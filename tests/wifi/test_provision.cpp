// Staging of an interface's SSID, key and role: the uci command sequences.
#include "kiv/wifi.h"

#include <unistd.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "sandbox.hpp"

namespace {

using kivtest::Sandbox;
using Lines = std::vector<std::string>;

// The calls of the fake uci from the n-th on.
Lines uci_calls_from(size_t n) {
  Lines all = Sandbox::calls("uci");
  return n < all.size() ? Lines(all.begin() + static_cast<long>(n), all.end())
                        : Lines{};
}

class WifiBasicPara : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("uci");
  }
};

TEST_F(WifiBasicPara, StationInterfaces) {
  kivtest::Capture err(2);
  EXPECT_EQ(SetWifiBasicPara("ath03", "Home", "k3y-Secret"), 0);
  EXPECT_EQ(Sandbox::calls("uci"),
            (Lines{"set wireless.wifi0.disabled=0",
                   "set wireless.wifi0.channel=0",
                   "set wireless.ath03.disabled=0",
                   "set wireless.ath03.key=k3y-Secret",
                   "set wireless.ath03.ssid=Home",
                   "set wireless.ath03.extap=1",
                   "set wireless.ath03.mode=sta"}));

  EXPECT_EQ(SetWifiBasicPara("ath13", "Home5", "k3y-Secret"), 0);
  EXPECT_EQ(uci_calls_from(7),
            (Lines{"set wireless.wifi1.disabled=0",
                   "set wireless.wifi1.channel=0",
                   "set wireless.ath13.disabled=0",
                   "set wireless.ath13.key=k3y-Secret",
                   "set wireless.ath13.ssid=Home5",
                   "set wireless.ath13.extap=1",
                   "set wireless.ath13.mode=sta"}));

  // Radio 2 touches no radio section, and an empty key is still set.
  EXPECT_EQ(SetWifiBasicPara("ath23", "Home6", ""), 0);
  EXPECT_EQ(uci_calls_from(14),
            (Lines{"set wireless.ath23.key=",
                   "set wireless.ath23.ssid=Home6",
                   "set wireless.ath23.wds=1",
                   "set wireless.ath23.mode=sta"}));

  // Only the enabling lines are logged, and never the key.
  std::string log = err.take();
  for (const std::string &line : Sandbox::syslog()) log += line + "\n";
  log += Sandbox::console();
  EXPECT_EQ(log.find("k3y-Secret"), std::string::npos) << log;
  EXPECT_NE(log.find("system_cmd: uci set wireless.ath03.disabled='0'"),
            std::string::npos);
  EXPECT_NE(log.find("system_cmd: uci set wireless.ath13.disabled='0'"),
            std::string::npos);
}

TEST_F(WifiBasicPara, AccessPointsAndOtherNames) {
  EXPECT_EQ(SetWifiBasicPara("ath1", "unused", "k"), 0);
  EXPECT_EQ(SetWifiBasicPara("ath2", "unused", nullptr), 0);
  EXPECT_EQ(Sandbox::calls("uci"),
            (Lines{"set wireless.ath1.key=k", "set wireless.ath1.mode=ap",
                   "set wireless.ath2.mode=ap"}));

  // An unknown name has its key set, then is refused with a log line.
  kivtest::Capture err(2);
  EXPECT_EQ(SetWifiBasicPara("wlan0", "x", "k2"), 1);
  EXPECT_EQ(SetWifiBasicPara("ath3", "x", nullptr), 1);
  EXPECT_EQ(SetWifiBasicPara("ath03 ", "x", nullptr), 1);
  EXPECT_NE(err.take().find("[NOTICE](SetWifiBasicPara)"), std::string::npos);
  EXPECT_EQ(Sandbox::calls("uci").size(), 4u);
  EXPECT_EQ(Sandbox::calls("uci").back(), "set wireless.wlan0.key=k2");
  int invalid = 0;
  for (const std::string &line : Sandbox::syslog())
    if (line.find("invalid iface") != std::string::npos) ++invalid;
  EXPECT_EQ(invalid, 3);

  // Null name or SSID: nothing runs.
  EXPECT_EQ(SetWifiBasicPara(nullptr, "x", "k"), 1);
  EXPECT_EQ(SetWifiBasicPara("ath0", nullptr, "k"), 1);
  EXPECT_EQ(Sandbox::calls("uci").size(), 4u);
  std::string console = Sandbox::console();
  EXPECT_NE(console.find("[kiv-err][SetWifiBasicPara:"), std::string::npos);
  EXPECT_NE(console.find("] param is null\n\n"), std::string::npos);
}

TEST_F(WifiBasicPara, LongCommandsAreCut) {
  // "uci set wireless.ath23.ssid=" is 28 characters; the line keeps 127.
  std::string ssid(200, 's');
  EXPECT_EQ(SetWifiBasicPara("ath23", ssid.c_str(), nullptr), 0);
  EXPECT_EQ(Sandbox::calls("uci").front(),
            "set wireless.ath23.ssid=" + std::string(127 - 28, 's'));
}

}  // namespace

namespace {

// SetWifiParaByEncrypt reads `sae` through libuci, then stages with `uci`.
class WifiEncryptPara : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("uci");
    Sandbox::write_file("/etc/config/wireless",
                        "config wifi-iface 'ath0'\n"
                        "\toption mode 'ap'\n"
                        "\toption sae '0'\n\n"
                        "config wifi-iface 'ath1'\n"
                        "\toption sae '1'\n\n"
                        "config wifi-iface 'ath13'\n"
                        "\toption sae '1234'\n\n"
                        "config wifi-iface 'ath23'\n"
                        "\toption mode 'sta'\n");
  }

  static Lines run(const char *ifname, int enc) {
    size_t before = Sandbox::calls("uci").size();
    EXPECT_EQ(SetWifiParaByEncrypt(ifname, enc), 0);
    return uci_calls_from(before);
  }
};

Lines opening(const std::string &s) {
  return {"set wireless." + s + "=wifi-iface",
          "set wireless." + s + ".disabled=0"};
}

Lines clears(const std::string &s) {
  return {"delete wireless." + s + ".sae=1",
          "delete wireless." + s + ".sae_confirm_immediate=1",
          "delete wireless." + s + ".force_invalid_group=1",
          "delete wireless." + s + ".ieee80211w=2"};
}

Lines sae_sets(const std::string &s) {
  return {"set wireless." + s + ".sae=1",
          "set wireless." + s + ".sae_confirm_immediate=1",
          "set wireless." + s + ".force_invalid_group=1",
          "set wireless." + s + ".ieee80211w=2"};
}

Lines join(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines &p : parts) all.insert(all.end(), p.begin(), p.end());
  return all;
}

TEST_F(WifiEncryptPara, EachCodeWithoutStoredSae) {
  // ath0 has sae '0', ath03 has no section at all: both count as false.
  for (const char *s : {"ath0", "ath03"}) {
    SCOPED_TRACE(s);
    EXPECT_EQ(run(s, 0), join({opening(s), {"set wireless." + std::string(s) +
                                            ".encryption=none"},
                               clears(s)}));
    EXPECT_EQ(run(s, 1),
              join({opening(s), {"set wireless." + std::string(s) + ".encryption=psk"},
                    clears(s)}));
    for (int enc : {2, 3})
      EXPECT_EQ(run(s, enc),
                join({opening(s),
                      {"set wireless." + std::string(s) + ".encryption=psk2+ccmp"},
                      clears(s)}));
    // WPA3 sets the SAE options and never clears them; only 4 drops OWE.
    EXPECT_EQ(run(s, 4),
              join({opening(s), {"set wireless." + std::string(s) + ".encryption=ccmp"},
                    sae_sets(s), {"delete wireless." + std::string(s) + ".owe=1"}}));
    EXPECT_EQ(run(s, 5),
              join({opening(s),
                    {"set wireless." + std::string(s) + ".encryption=psk2+ccmp"},
                    sae_sets(s)}));
    // Any other code is handled as 0.
    for (int enc : {6, -1, 1000})
      EXPECT_EQ(run(s, enc), run(s, 0)) << enc;
  }
}

TEST_F(WifiEncryptPara, StoredSaeKeepsTheOptions) {
  EXPECT_EQ(run("ath1", 2),
            join({opening("ath1"), {"set wireless.ath1.encryption=psk2+ccmp"}}));
  EXPECT_EQ(run("ath1", 0),
            join({opening("ath1"), {"set wireless.ath1.encryption=none"}}));
  // A value that fills the whole read is not "1".
  EXPECT_EQ(run("ath13", 2),
            join({opening("ath13"), {"set wireless.ath13.encryption=psk2+ccmp"},
                  clears("ath13")}));
  std::string console = Sandbox::console();
  EXPECT_NE(console.find("[     SetWifiParaByEncrypt]["), std::string::npos)
      << console;
  EXPECT_NE(console.find("]:--enc=2-saeStr=1-sae=1\n"), std::string::npos)
      << console;
  EXPECT_NE(console.find("]:--enc=2-saeStr=1234-sae=0\n"), std::string::npos)
      << console;
}

TEST_F(WifiEncryptPara, SixGigahertzOpenBecomesOwe) {
  for (const char *s : {"ath23", "ath2"}) {
    std::string n = s;
    EXPECT_EQ(run(s, 0),
              join({opening(n),
                    {"set wireless." + n + ".encryption=none",
                     "set wireless." + n + ".encryption=ccmp",
                     "set wireless." + n + ".owe=1"},
                    clears(n)}));
  }
  // The console line of a missing option has an empty text.
  EXPECT_NE(Sandbox::console().find("]:--enc=0-saeStr=-sae=0\n"),
            std::string::npos);
}

TEST_F(WifiEncryptPara, NullNameAndUnreadableConfiguration) {
  EXPECT_EQ(SetWifiParaByEncrypt(nullptr, 2), 1);
  EXPECT_TRUE(Sandbox::calls("uci").empty());
  EXPECT_NE(Sandbox::console().find("[kiv-err][SetWifiParaByEncrypt:"),
            std::string::npos);
  // Without a wireless package the flag is false and staging goes on.
  unlink("/etc/config/wireless");
  kivtest::Capture out(1);
  EXPECT_EQ(run("ath0", 3),
            join({opening("ath0"), {"set wireless.ath0.encryption=psk2+ccmp"},
                  clears("ath0")}));
}

}  // namespace
