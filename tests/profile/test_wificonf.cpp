// The wificonf program itself, on the real selection and profile paths.
#ifdef KIV_WIFICONF_PATH

#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "profile_test.hpp"

using kivtest::Sandbox;

namespace {

kivtest::ChildResult wificonf(std::vector<std::string> args) {
  return kivtest::run_in_child([&] {
    std::vector<char *> argv;
    static char name[] = "wificonf";
    argv.push_back(name);
    for (std::string &a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    execv(KIV_WIFICONF_PATH, argv.data());
    _exit(127);
  });
}

std::string usage_text() {
  kivtest::Capture out(1);
  usage();
  return out.take();
}

}  // namespace

TEST_F(ProfileTest, WificonfUsesTheSelectionLink) {
  Sandbox::write_file("/etc/wireless/wlan0.dat",
                      "SSID1=Home\nTestKey=1;2;3;4\n");
  auto r = wificonf({"use", "/etc/wireless/wlan0.dat"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.out + r.err, "");
  char link[64] = {};
  ASSERT_GT(readlink("/tmp/.wificonf/current", link, sizeof link - 1), 0);
  EXPECT_STREQ(link, "/etc/wireless/wlan0.dat");

  EXPECT_EQ(wificonf({"get", "SSID1"}).out, "Home\n");
  EXPECT_EQ(wificonf({"get", "Absent"}).out, "\n");
  r = wificonf({"set", "SSID1", "MasterNet"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_EQ(r.out, "1\n");
  EXPECT_EQ(wificonf({"set", "TestKey", "0", "99"}).out, "");
  EXPECT_EQ(wificonf({"get", "TestKey"}).out, "99;2;3;4\n");
  EXPECT_EQ(wificonf({"get", "TestKey", "1"}).out, "2\n");
  EXPECT_EQ(wificonf({"-e", "set", "SSID2", "R3Vlc3Q="}).out, "1\n");
  EXPECT_EQ(Sandbox::read_file("/etc/wireless/wlan0.dat"),
            "SSID1=MasterNet\nTestKey=99;2;3;4\nSSID2=Guest\n");

  // -f leaves the link alone, also for "use", which replaces it anyway.
  Sandbox::write_file("/tmp/other.dat", "SSID1=Other\n");
  EXPECT_EQ(wificonf({"-f", "/tmp/other.dat", "get", "SSID1"}).out,
            "Other\n");
  EXPECT_EQ(wificonf({"-f", "/tmp/other.dat", "use", "/tmp/x.dat"}).exit_code,
            0);
  memset(link, 0, sizeof link);
  ASSERT_GT(readlink("/tmp/.wificonf/current", link, sizeof link - 1), 0);
  EXPECT_STREQ(link, "/tmp/x.dat");
}

TEST_F(ProfileTest, WificonfWritesWhatTheZoneReads) {
  const char *zone = "/etc/wireless/kiv/dbdc.b0.dat";
  Sandbox::write_file(zone, "Default\nSSID1=Old\n", 0600);
  auto r = wificonf({"-f", zone, "set", "SSID1", " Lab AP "});
  EXPECT_EQ(r.out, "1\n");
  char buf[32] = {};
  EXPECT_EQ(KivNvram("get", "2860", "SSID1", buf, sizeof buf), 0);
  EXPECT_STREQ(buf, " Lab AP ");
  struct stat st;
  ASSERT_EQ(stat(zone, &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u);
}

TEST_F(ProfileTest, WificonfFailuresAndCommandLine) {
  auto r = wificonf({"get", "SSID1"});
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.err, "use \"wificonf use <profile>\" first\n");
  r = wificonf({"-q", "-f", "/tmp/missing.dat", "set", "K", "v"});
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.out + r.err, "");
  r = wificonf({"-f", "/tmp/missing.dat", "get", "K"});
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with("assert failure: fp, ")) << r.err;

  const std::string text = usage_text();
  EXPECT_TRUE(text.ends_with("--> 99;2;3;4\n"));
  for (std::vector<std::string> bad : std::vector<std::vector<std::string>>{
           {}, {"get"}, {"frob", "x"}, {"-x", "get", "K"},
           {"set", "K", "one", "v"}, {"get", "K", "1", "2", "3"},
           {"get", "K", "-f", "/tmp/p.dat"}}) {
    r = wificonf(bad);
    EXPECT_EQ(r.exit_code, 1);
    EXPECT_EQ(r.out, text);
  }
}

TEST_F(ProfileTest, WificonfReadsTheShippedSample) {
  std::string sample = KIV_SOURCE_DIR "/examples/wlan0.dat";
  auto r = wificonf({"-f", sample, "get", "SSID1"});
  EXPECT_EQ(r.exit_code, 0);
  EXPECT_NE(r.out, "\n");
  EXPECT_EQ(wificonf({"-f", sample, "get", "TestKey"}).out, "1;2;3;4\n");
}

#endif  // KIV_WIFICONF_PATH
