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
  using Bytes = std::vector<unsigned char>;
  const Bytes all = {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}, none(6, 0);
  const struct {
    const char *text;
    int ret;
    Bytes mac;  // cleared first, whatever the result
  } cases[] = {
      {"aa:bb:cc:dd:ee:ff", 0, all},
      {"AA-BB-CC-DD-EE-FF", 0, all},
      {"aAbBcCdDeEfF", 0, all},
      {"aabbccddeeff and more", 0, all},
      {"00:00:00:00:00:00", -3, none},
      {"zzzzzzzzzzzz", -3, none},
      {"aa:bb:cc:dd:ee:f", -1, none},
      {"aa-bb-cc-dd-ee-f", -1, none},
      {"aabbccddeef", -2, none},
      {"aa:bb:cc:zz:ee:ff", 0, {0xaa, 0xbb, 0xcc, 0, 0, 0}},
      // A colon wins over a hyphen, and the hyphen ends the reading.
      {"aa:bb-cc:dd:ee:ff", 0, {0xaa, 0xbb, 0, 0, 0, 0}},
  };
  for (const auto &c : cases) {
    unsigned char mac[6] = {0x55, 0x55, 0x55, 0x55, 0x55, 0x55};
    EXPECT_EQ(igd_str2mac(c.text, mac), c.ret) << c.text;
    EXPECT_EQ(Bytes(mac, mac + 6), c.mac) << c.text;
  }
}

TEST(Text, CutSpaceTrimsSixWhitespaceBytesWithinDstSize) {
  // dst holds "zz" to show where nothing was copied.
  auto cut = [](const char *src, unsigned len, int size) {
    char dst[32] = "zz";
    EXPECT_EQ(igd_cut_space(src, len, dst, size), dst);
    return std::string(dst);
  };
  EXPECT_EQ(cut("  xy  ", 6, 32), "xy");
  EXPECT_EQ(cut(" \t\n\v\f\rab c\r\n\v\f\t ", 16, 32), "ab c");
  EXPECT_EQ(cut("abcdef", 6, 2), "az");
  EXPECT_EQ(cut("ab  cd", 4, 32), "ab") << "the end is src + srcLen - 1";
  EXPECT_EQ(cut("    ", 4, 32), "zz");
  EXPECT_EQ(cut("x", 1, 32), "zz");
  EXPECT_EQ(cut("", 0, 32), "zz");
  EXPECT_EQ(cut("a\x01", 2, 32), "a\x01") << "only the six bytes are cut";
}

TEST(Text, IPv4TextAndNewLineRemoval) {
  for (const char *ok :
       {"1.2.3.4", "0.0.0.0", "255.255.255.255", "1.2.3.4.5", "10.0.0.1 tail"})
    EXPECT_EQ(isIPv4Str(ok), 1) << ok;
  for (const char *bad : {"256.1.1.1", "1.2.3", "1.2.-3.4", "a.b.c.d", "",
                          "1.2.3.256", static_cast<const char *>(nullptr)})
    EXPECT_EQ(isIPv4Str(bad), 0) << (bad ? bad : "NULL");

  char s[] = "a\nb\r\n\nc\n";
  EXPECT_EQ(removeNewLines(s), 8);
  EXPECT_STREQ(s, "ab\rc");
  EXPECT_EQ(removeNewLines(nullptr), 0);
}

class FileTest : public kivtest::SandboxTest {};

TEST_F(FileTest, ExistenceTestsFollowLinks) {
  Sandbox::write_file("/tmp/f", "x");
  ASSERT_EQ(symlink("/tmp/f", "/tmp/good"), 0);
  ASSERT_EQ(symlink("/tmp/none", "/tmp/dangling"), 0);
  for (const char *p :
       {"/tmp/f", "/tmp/good", "/tmp", "/tmp/dangling", "/tmp/none"}) {
    const int want = strstr(p, "n") ? 0 : 1;
    EXPECT_EQ(is_file_exist(p), want) << p;
    EXPECT_EQ(kiv_is_file_exist(p), want) << p;
    EXPECT_EQ(isFileExist(p), want) << p;
  }
  EXPECT_EQ(isFileExist(nullptr), 0);
}

TEST_F(FileTest, CreateFileTouchesTheBarePathCutTo57) {
  Sandbox::fake_command("touch", "exec /usr/bin/touch \"$@\"");
  std::string long_path = "/tmp/" + std::string(60, 'L');
  std::string cut = long_path.substr(0, 57);
  for (std::string path : {"/tmp/one", "/tmp/two /tmp/words", long_path.c_str(),
                           "/no/such/dir/x"}) {
    kivtest::Capture err(2);
    EXPECT_EQ(kiv_create_file(path.c_str()), 0) << "touch's failure ignored";
  }
  for (std::string path : {"/tmp/one", "/tmp/two", "/tmp/words", cut.c_str()})
    EXPECT_TRUE(Sandbox::exists(path)) << path;
  auto calls = Sandbox::calls_argv("touch");
  ASSERT_EQ(calls.size(), 4u);
  EXPECT_EQ(calls[1], (std::vector<std::string>{"/tmp/two", "/tmp/words"}));
  EXPECT_EQ(calls[2], (std::vector<std::string>{cut}));
}

}  // namespace
