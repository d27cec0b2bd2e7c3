// What the library's callers run through the shell with the uci command:
// the output of get and show, set and delete as staged changes
// that the layer then reads.
#include <stdlib.h>
#include <string.h>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

class UciCommand : public UciTest {
 protected:
  void SetUp() override {
    UciTest::SetUp();
    if (IsSkipped()) return;
#ifdef KIV_UCI_CLI_PATH
    Sandbox::install_command("uci", KIV_UCI_CLI_PATH);
#else
    GTEST_SKIP() << "the uci command is not built";
#endif
  }
  // The whole output of a shell line.
  static std::string run(const char *cmd) {
    std::string out;
    FILE *f = popen(cmd, "r");
    if (!f) return out;
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    pclose(f);
    return out;
  }
};

TEST_F(UciCommand, GetAndShowServeTheCallers) {
  put("network", "config workmode 'workmode'\n\toption mode 'router'\n");
  EXPECT_EQ("router\n", run("uci get network.workmode.mode"));
  EXPECT_EQ("", run("uci get network.workmode.nope 2>/dev/null"));

  // Anonymous sections show their type in every option line; a named
  // section's lines carry its name instead.
  put("w",
      "config wifi-iface 'ath0'\n\toption ssid 'Home Net'\n\toption encryption 'psk2'\n"
      "config wifi-iface\n\toption ssid 'guest'\n\toption encryption 'none'\n"
      "config wifi-iface\n\toption ssid 'guest'\n\toption encryption 'psk2'\n");
  EXPECT_EQ("2\n", run("uci show w | grep wifi-iface | grep -c \"ssid='guest'\""));
  EXPECT_EQ("1\n", run("uci show w | grep wifi-iface | grep -c \"encryption='psk2'\""));
  EXPECT_EQ("0\n", run("uci show w | grep wifi-iface | grep -c \"owe='1'\""));
  EXPECT_EQ("w.@wifi-iface[1].ssid='guest'\n",
            run("uci show w | grep \"@wifi-iface\\[1\\].ssid\""));
}

TEST_F(UciCommand, SetAndDeleteStageChanges) {
  const char kWireless[] =
      "config wifi-iface 'ath0'\n\toption sae '1'\n\toption ieee80211w '2'\n";
  put("wireless", kWireless);
  ASSERT_EQ(0, system("uci set wireless.ath1=wifi-iface"));
  ASSERT_EQ(0, system("uci set wireless.ath1.disabled='0'"));
  ASSERT_EQ(0, system("uci set wireless.ath0.encryption=psk2+ccmp"));
  ASSERT_EQ(0, system("uci delete wireless.ath0.sae=1"));
  ASSERT_EQ(0, system("uci delete wireless.ath0.ieee80211w=2"));
  EXPECT_NE(0, system("uci delete wireless.ath0.owe=1 2>/dev/null"));

  // Staged only: the file is as it was, and a load by name sees the changes.
  EXPECT_EQ(kWireless, file("wireless"));
  EXPECT_EQ("wifi-iface\n", run("uci get wireless.ath1"));
  char buf[32];
  EXPECT_EQ(1, get_uci_option_value("wireless", "ath1", "disabled", buf, sizeof buf));
  EXPECT_STREQ("0", buf);
  EXPECT_EQ(0, get_uci_option(nullptr, "wireless", "ath0", "encryption", buf, sizeof buf));
  EXPECT_STREQ("psk2+ccmp", buf);
  EXPECT_EQ(0, get_uci_option_value("wireless", "ath0", "sae", buf, sizeof buf));
  EXPECT_EQ(0, get_uci_option_value("wireless", "ath0", "ieee80211w", buf, sizeof buf));
}

}  // namespace
}  // namespace kivtest
