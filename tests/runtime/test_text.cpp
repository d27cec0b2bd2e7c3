// Numbers and MAC addresses as text, trimming, string and file tests.
#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kiv/runtime.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

namespace {

TEST(Text, NumberAndMacTextsReuseOneBufferEach) {
  char *a = igd_number_to_str(-1);
  EXPECT_STREQ(a, "-1");
  EXPECT_EQ(igd_number_to_str(INT_MIN), a);
  EXPECT_STREQ(a, "-2147483648");
  const unsigned char m1[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
  const unsigned char m2[6] = {0x0f, 0, 0, 0, 0, 0xf0};
  char *t = igd_mac2str(m1);
  EXPECT_STREQ(t, "00-11-22-AA-BB-CC");
  EXPECT_EQ(igd_mac2str(m2), t);
  EXPECT_STREQ(t, "0F-00-00-00-00-F0");
}

TEST(Text, MacAddressesInThreeForms) {
  const std::vector<unsigned char> want = {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
  unsigned char mac[6];
  auto read = [&](const char *s) {
    memset(mac, 0x55, sizeof mac);
    return igd_str2mac(s, mac);
  };
  auto bytes = [&] { return std::vector<unsigned char>(mac, mac + 6); };
  for (const char *s : {"aa:bb:cc:dd:ee:ff", "AA-BB-CC-DD-EE-FF",
                        "aAbBcCdDeEfF", "aabbccddeeff and more"}) {
    EXPECT_EQ(read(s), 0) << s;
    EXPECT_EQ(bytes(), want) << s;
  }
  EXPECT_EQ(read("00:00:00:00:00:00"), -3);
  EXPECT_EQ(read("zzzzzzzzzzzz"), -3);
  EXPECT_EQ(read("aa:bb:cc:dd:ee:f"), -1);
  EXPECT_EQ(read("aa-bb-cc-dd-ee-f"), -1);
  EXPECT_EQ(read("aabbccddeef"), -2);
  EXPECT_EQ(bytes(), std::vector<unsigned char>(6, 0)) << "cleared first";
  EXPECT_EQ(read("aa:bb:cc:zz:ee:ff"), 0);
  EXPECT_EQ(bytes(), (std::vector<unsigned char>{0xaa, 0xbb, 0xcc, 0, 0, 0}));
  // A colon wins over a hyphen, and the hyphen ends the reading.
  EXPECT_EQ(read("aa:bb-cc:dd:ee:ff"), 0);
  EXPECT_EQ(bytes(), (std::vector<unsigned char>{0xaa, 0xbb, 0, 0, 0, 0}));
}

TEST(Text, CutSpaceTrimsSixWhitespaceBytesWithinDstSize) {
  // dst zero-filled, or holding "zz" to show that nothing was copied.
  auto cut = [](const char *src, unsigned len, int size, bool mark = false) {
    char dst[32] = {0};
    if (mark) strcpy(dst, "zz");
    EXPECT_EQ(igd_cut_space(src, len, dst, size), dst);
    return std::string(dst);
  };
  EXPECT_EQ(cut("  x  ", 5, 32), "x");
  EXPECT_EQ(cut(" \t\n\v\f\rab c\r\n\v\f\t ", 16, 32), "ab c");
  EXPECT_EQ(cut("abcdef", 6, 4), "abc");
  EXPECT_EQ(cut("ab  cd", 4, 32), "ab") << "the end is src + srcLen - 1";
  EXPECT_EQ(cut("    ", 4, 32, true), "zz");
  EXPECT_EQ(cut("x", 1, 32, true), "zz");
  EXPECT_EQ(cut("", 0, 32, true), "zz");
  EXPECT_EQ(cut("a\x01", 2, 32), "a\x01") << "only the six bytes are cut";
}

TEST(Text, IPv4TextAndNewLineRemoval) {
  for (const char *ok : {"1.2.3.4", "0.0.0.0", "255.255.255.255",
                         "1.2.3.4.5", "10.0.0.1 tail"})
    EXPECT_EQ(isIPv4Str(ok), 1) << ok;
  for (const char *bad : {"256.1.1.1", "1.2.3", "1.2.-3.4", "a.b.c.d", "",
                          "1.2.3.256"})
    EXPECT_EQ(isIPv4Str(bad), 0) << bad;
  EXPECT_EQ(isIPv4Str(nullptr), 0);

  char s[] = "a\nb\r\n\nc\n";
  EXPECT_EQ(removeNewLines(s), 8);
  EXPECT_STREQ(s, "ab\rc");
  char only[] = "\n\n\n";
  EXPECT_EQ(removeNewLines(only), 3);
  EXPECT_STREQ(only, "");
}

class FileTest : public kivtest::SandboxTest {};

TEST_F(FileTest, ExistenceTestsFollowLinks) {
  Sandbox::write_file("/tmp/f", "x");
  ASSERT_EQ(symlink("/tmp/f", "/tmp/good"), 0);
  ASSERT_EQ(symlink("/tmp/none", "/tmp/dangling"), 0);
  for (const char *p : {"/tmp/f", "/tmp/good", "/tmp"}) {
    EXPECT_EQ(is_file_exist(p), 1) << p;
    EXPECT_EQ(kiv_is_file_exist(p), 1) << p;
    EXPECT_EQ(isFileExist(p), 1) << p;
  }
  for (const char *p : {"/tmp/dangling", "/tmp/none"}) {
    EXPECT_EQ(is_file_exist(p), 0) << p;
    EXPECT_EQ(kiv_is_file_exist(p), 0) << p;
    EXPECT_EQ(isFileExist(p), 0) << p;
  }
  EXPECT_EQ(isFileExist(nullptr), 0);
}

TEST_F(FileTest, CreateFileTouchesTheBarePathCutTo57) {
  Sandbox::fake_command("touch", "exec /usr/bin/touch \"$@\"");
  EXPECT_EQ(kiv_create_file("/tmp/one"), 0);
  EXPECT_EQ(kiv_create_file("/tmp/two /tmp/words"), 0);
  std::string long_path = "/tmp/" + std::string(60, 'L');
  EXPECT_EQ(kiv_create_file(long_path.c_str()), 0);
  {
    kivtest::Capture err(2);
    EXPECT_EQ(kiv_create_file("/no/such/dir/x"), 0) << "touch's failure ignored";
  }
  EXPECT_TRUE(Sandbox::exists("/tmp/one"));
  EXPECT_TRUE(Sandbox::exists("/tmp/two"));
  EXPECT_TRUE(Sandbox::exists("/tmp/words"));
  EXPECT_TRUE(Sandbox::exists(long_path.substr(0, 57)));
  auto calls = Sandbox::calls_argv("touch");
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[1], (std::vector<std::string>{"/tmp/two", "/tmp/words"}));
  EXPECT_EQ(calls[2], (std::vector<std::string>{long_path.substr(0, 57)}));
}

}  // namespace
