// Staging of an interface's SSID, key and role: the uci command sequences.
#include "kiv/wifi.h"

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
