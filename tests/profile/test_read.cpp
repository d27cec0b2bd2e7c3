// Selecting a profile, the key search and the scalar read.
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "profile_test.hpp"

using kivtest::Sandbox;

namespace {
std::string link_text(const char *path) {
  char buf[512] = {};
  ssize_t n = readlink(path, buf, sizeof buf - 1);
  return n < 0 ? std::string("<none>") : std::string(buf, static_cast<size_t>(n));
}
}  // namespace

TEST_F(ProfileTest, ValueTrimsKeepBlanksOnlyForSsidAndWpapsk) {
  profile(
      "SSID1=  two  \r\n"
      "Plain=  two  \r\n"
      "Blanks=   \n"
      "SSIDx=   \n"
      "WPAPSK1= p w \n"
      "ssid2=  low  \n"
      "Empty=\n"
      "Eq=a=b==\n"
      "Vt=\v\fv\t\n");
  EXPECT_EQ(get("SSID1"), "  two  ");
  EXPECT_EQ(get("Plain"), "two");
  EXPECT_EQ(get("Blanks"), "");
  EXPECT_EQ(get("SSIDx"), "   ");
  EXPECT_EQ(get("WPAPSK1"), " p w ");
  EXPECT_EQ(get("ssid2"), "low") << "the prefix test is case-sensitive";
  EXPECT_EQ(get("Empty"), "");
  EXPECT_EQ(get("Eq"), "a=b==");
  EXPECT_EQ(get("Vt"), "\v\fv") << "VT and FF are no blanks here";
}

TEST_F(ProfileTest, SizeBoundariesAbsentKeyAndNullBuffer) {
  profile("Key=12345\n");
  EXPECT_EQ(get("Key", 5), "?????") << "a value is never cut";
  EXPECT_EQ(get("Key", 6), "12345");
  EXPECT_EQ(get("Nope"), std::string(1100, '?'));

  kivtest::Capture err(2);
  EXPECT_EQ(conf_get("Key", nullptr, 10), -1);
  EXPECT_EQ(err.take(), "");
  std::string console = Sandbox::console();
  EXPECT_EQ(console.rfind("[kiv-err][conf_get:", 0), 0u) << console;
  EXPECT_NE(console.find("] out is NULL!\n"), std::string::npos);
}

TEST_F(ProfileTest, CommentsBlanksNamesAndFirstMatch) {
  static const char text[] =
      "# Key=comment\n"
      "   \t#Key=indented comment\n"
      "Key\n"
      "SSID1 =blank in name\n"
      "=empty name\n"
      "Ke\0y=nul in the name\n"
      "  \tKey=found # not a comment\n"
      "Key=second\n"
      "SSID1=x\n"
      "Nul=a\0b\n";
  profile(std::string(text, sizeof text - 1));
  EXPECT_EQ(get("Key"), "found # not a comment");
  EXPECT_EQ(get("SSID1"), "x");
  EXPECT_EQ(get(""), std::string(1100, '?')) << "an empty name never matches";
  EXPECT_EQ(get("#Key"), std::string(1100, '?'));
  EXPECT_EQ(get("Nul"), "a") << "a NUL ends the value";
}

TEST_F(ProfileTest, LongLinesAreSeenInPieces) {
  // The tail of a physical line past 1023 bytes is a line of its own.
  std::string filler(1023, 'f');
  std::string longval(1500, 'v');
  profile(filler + "Hidden=tail\nLong=" + longval + "\nAfter=1\n");
  EXPECT_EQ(get("Hidden"), "tail");
  EXPECT_EQ(get("Long", 2000), std::string(1022 - 5, 'v'))
      << "the read sees the first 1022 bytes of the line";
  EXPECT_EQ(get("After"), "1");

  // The update takes the long line whole and keeps the rest.
  EXPECT_EQ(set("Long", "short"), "1\n");
  EXPECT_EQ(content(), filler + "Hidden=tail\nLong=short\nAfter=1\n");
}

TEST_F(ProfileTest, LocateKeyGivesLineStartOrEndOfFile) {
  std::string text = "A=1\n  B=2\nB=3\n";
  Sandbox::write_file(kPath, text);
  FILE *fp = fopen(kPath, "rb");
  ASSERT_NE(fp, nullptr);
  EXPECT_EQ(__locate_key(fp, "B"), 4);
  EXPECT_EQ(ftell(fp), 4);
  EXPECT_EQ(__locate_key(fp, "A"), 0);
  EXPECT_EQ(__locate_key(fp, "C"), static_cast<int>(text.size()));
  EXPECT_EQ(ftell(fp), static_cast<long>(text.size()));

  auto r = kivtest::run_in_child([&] { __locate_key(fp, nullptr); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.err.rfind("assert failure: key, ", 0), 0u) << r.err;
  EXPECT_NE(r.err.find(", __locate_key L"), std::string::npos) << r.err;
  r = kivtest::run_in_child([] { __locate_key(nullptr, "A"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.err.rfind("assert failure: fp, ", 0), 0u) << r.err;
  fclose(fp);
}

TEST_F(ProfileTest, SelectionLinksAndAliases) {
  EXPECT_EQ(use_profile("/etc/wireless/wlan0.dat", nullptr), 0);
  struct stat st;
  ASSERT_EQ(stat("/tmp/.wificonf", &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0700u);
  EXPECT_EQ(link_text("/tmp/.wificonf/current"), "/etc/wireless/wlan0.dat");

  kivtest::Capture err(2);
  EXPECT_EQ(use_profile("rel/wlan1.dat", "radio1"), 0);
  EXPECT_EQ(err.take(), "") << "a new alias is no overwrite";
  EXPECT_EQ(link_text("/tmp/.wificonf/current"), "rel/wlan1.dat")
      << "the text is kept as given";
  EXPECT_EQ(link_text("/tmp/.wificonf/radio1"), "rel/wlan1.dat");

  kivtest::Capture err2(2);
  EXPECT_EQ(use_profile("/b.dat", "current"), 0);
  EXPECT_EQ(err2.take(),
            "you are overwritting /tmp/.wificonf/current to /b.dat\n");
  EXPECT_EQ(link_text("/tmp/.wificonf/current"), "/b.dat");

  __quiet = 1;
  kivtest::Capture err3(2);
  EXPECT_EQ(use_profile("/c.dat", "radio1"), 0);
  EXPECT_EQ(err3.take(), "");
  EXPECT_EQ(link_text("/tmp/.wificonf/radio1"), "/c.dat");
}

TEST_F(ProfileTest, GetProfileFollowsLinkOrOverride) {
  Sandbox::write_file("/tmp/a.dat", "K=a\n");
  Sandbox::write_file("/tmp/b.dat", "K=b\n");
  use_profile("/tmp/a.dat", nullptr);
  char *first = __get_profile(nullptr);
  ASSERT_NE(first, nullptr);
  EXPECT_STREQ(first, "/tmp/a.dat");
  EXPECT_EQ(__get_profile(nullptr), first)
      << "repeated calls must not pile up allocations";
  EXPECT_EQ(get("K"), "a");
  use_profile("/tmp/b.dat", nullptr);
  EXPECT_STREQ(__get_profile(nullptr), "/tmp/b.dat");
  EXPECT_EQ(get("K"), "b");
  EXPECT_STREQ(first, "/tmp/a.dat") << "a text handed out stays valid";
  use_profile("/tmp/a.dat", nullptr);
  EXPECT_EQ(__get_profile(nullptr), first);

  // The override wins, the link is not even looked at.
  char path[] = "/tmp/a.dat";
  __profile = path;
  unlink("/tmp/.wificonf/current");
  EXPECT_EQ(__get_profile(nullptr), path);
  EXPECT_EQ(get("K"), "a");
}

TEST_F(ProfileTest, FatalReportsOfTheRead) {
  // No selection at all: the hint alone.
  auto r = kivtest::run_in_child([] { get("K"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(said(r), "use \"wificonf use <profile>\" first\n");

  // A selection that is no link: the hint, then the report "profile".
  Sandbox::write_file("/tmp/.wificonf/current", "K=1\n");
  r = kivtest::run_in_child([] { get("K"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(r.err.rfind("use \"wificonf use <profile>\" first\n"
                        "assert failure: profile, ",
                        0),
            0u)
      << r.err;

  // A selection of a missing file: "fp" with the errno text.
  unlink("/tmp/.wificonf/current");
  use_profile("/tmp/missing.dat", nullptr);
  r = kivtest::run_in_child([] { get("K"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with(
      "assert failure: fp, No such file or directory, conf_get L"))
      << r.err;
  EXPECT_TRUE(r.err.ends_with(".\n")) << r.err;

  // Quiet: the same exits, nothing said.
  __quiet = 1;
  r = kivtest::run_in_child([] { get("K"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(said(r), "");
  unlink("/tmp/.wificonf/current");
  r = kivtest::run_in_child([] { get("K"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(said(r), "");
}

TEST_F(ProfileTest, ZonesOfKivNvram) {
  Sandbox::write_file("/etc/wireless/kiv/dbdc.b0.dat", "SSID1=Main 2G \n");
  Sandbox::write_file("/etc/wireless/kiv/dbdc.b1.dat", "SSID1=Main 5G\n");
  Sandbox::write_file("/tmp/linked.dat", "SSID1=linked\n");
  use_profile("/tmp/linked.dat", nullptr);

  char buf[64] = {};
  EXPECT_EQ(KivNvram("get", "2860", "SSID1", buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "Main 2G ");
  EXPECT_STREQ(__profile, "/etc/wireless/kiv/dbdc.b0.dat");
  EXPECT_EQ(get("SSID1"), "Main 2G ") << "the zone stays selected";

  memset(buf, 0, sizeof buf);
  EXPECT_EQ(KivNvram("get", "rtdev", "Absent", buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(KivNvram("get", "rtdev", "SSID1", buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "Main 5G");

  Sandbox::console();
  EXPECT_EQ(KivNvram("get", "wlan0", "SSID1", buf, sizeof buf), -1);
  EXPECT_STREQ(__profile, "/etc/wireless/kiv/dbdc.b1.dat");
  EXPECT_NE(Sandbox::console().find("] ifname err!\n"), std::string::npos);
  EXPECT_EQ(KivNvram("put", "2860", "SSID1", buf, sizeof buf), -1);
  EXPECT_STREQ(__profile, "/etc/wireless/kiv/dbdc.b0.dat");
  std::string console = Sandbox::console();
  EXPECT_TRUE(console.starts_with("[kiv-err][KivNvram:")) << console;
  EXPECT_NE(console.find("] cmd err!\n"), std::string::npos);

  char value[] = "New 5G";
  kivtest::Capture out(1);
  EXPECT_EQ(KivNvram("set", "rtdev", "SSID1", value, 0), 0);
  EXPECT_EQ(out.take(), "1\n");
  EXPECT_EQ(Sandbox::read_file("/etc/wireless/kiv/dbdc.b1.dat"),
            "SSID1=New 5G\n");

  // A zone whose file is missing ends even a daemon.
  unlink("/etc/wireless/kiv/dbdc.b0.dat");
  auto r = kivtest::run_in_child(
      [&] { KivNvram("get", "2860", "SSID1", buf, sizeof buf); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with("assert failure: fp, ")) << r.err;
}

TEST_F(ProfileTest, KeyAcrossTheEndOfAReadBlockIsFound) {
  // A profile larger than the reader's 16 KiB block, with the key line
  // standing across the block's end: the line is read whole.
  for (size_t before : {1u, 3u, 5u}) {
    std::string text;
    while (text.size() < 16384 - before - 40)
      text += "Pad=" + std::string(30, 'p') + "\n";
    text += "Fill=" + std::string(16384 - before - text.size() - 6, 'f') + "\n";
    profile(text + "Key=v\nTail=" + std::string(20000, 't') + "\n");
    EXPECT_EQ(get("Key"), "v") << before;
  }
}
