// The scalar update, token lists and the crash-safe rewrite.
#include <stdlib.h>
#include <string.h>

#include "profile_test.hpp"

using kivtest::Sandbox;

namespace {

std::string b64(const std::string &bytes) {
  size_t n = 0;
  unsigned char *t = base64_encode(
      reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size(), &n);
  std::string s(reinterpret_cast<char *>(t), n);
  free(t);
  return s;
}

std::string token_out(const char *key, int idx) {
  kivtest::Capture out(1);
  EXPECT_EQ(conf_get_token(key, idx), 0);
  return out.take();
}

}  // namespace

TEST_F(ProfileTest, SetChangedFlagAndFormOfTheLine) {
  const std::string head = "# radio\nDefault\n";
  profile(head + "  Key=  old \r\nKey=shadow\nOther = 1\nLast=end");

  EXPECT_EQ(set("Key", "old"), "0\n") << "equal after the trim";
  EXPECT_EQ(content(), head + "Key=old\nKey=shadow\nOther = 1\nLast=end");
  EXPECT_EQ(set("Key", "olD"), "1\n");
  EXPECT_EQ(set("Key", " olD"), "1\n") << "lengths differ";
  EXPECT_EQ(set("Key", ""), "1\n");
  EXPECT_EQ(set("Key", "   "), "1\n");
  EXPECT_EQ(set("Key", ""), "0\n") << "blanks trim to the empty value";
  EXPECT_EQ(content(), head + "Key=\nKey=shadow\nOther = 1\nLast=end");

  // The last line without LF is replaced and the file ends in LF.
  EXPECT_EQ(set("Last", "end"), "0\n");
  EXPECT_EQ(content(), head + "Key=\nKey=shadow\nOther = 1\nLast=end\n");

  // An absent key goes to the end, nothing before it moves; the line of a
  // name with a blank in front of its '=' is not that key's.
  std::string before = content();
  EXPECT_EQ(set("Other", "2"), "1\n");
  EXPECT_EQ(content(), before + "Other=2\n");

  // Quiet does not silence the flag; a LF in a value goes in as it comes.
  __quiet = 1;
  EXPECT_EQ(set("Multi", "a\nb"), "1\n");
  EXPECT_EQ(content(), before + "Other=2\nMulti=a\nb\n");
}

TEST_F(ProfileTest, SetAbsentKeyAfterLastLineWithoutLineFeed) {
  profile("A=1\nB=2");
  EXPECT_EQ(set("C", "3"), "1\n");
  EXPECT_EQ(content(), "A=1\nB=2\nC=3\n");
  profile("");
  EXPECT_EQ(set("C", "3"), "1\n");
  EXPECT_EQ(content(), "C=3\n");
}

TEST_F(ProfileTest, Base64ValuesKeepEveryByte) {
  profile("A=1\nKey=old\nB=2\n");
  __base64 = 1;
  std::string raw("a\0b\xff", 4);
  EXPECT_EQ(set("Key", b64(raw).c_str()), "1\n");
  EXPECT_EQ(content(), "A=1\nKey=" + raw + "\nB=2\n");

  EXPECT_EQ(set("A", "MQ==\n"), "0\n") << "the decoded value is compared";

  // Text that does not decode is refused before the file is touched.
  std::string before = content();
  for (const char *bad : {"", "!!!", "QUJ", "===A"}) {
    auto r = kivtest::run_in_child([bad] { conf_set("Key", bad); });
    EXPECT_EQ(r.exit_code, 255) << bad;
    EXPECT_TRUE(r.err.starts_with("assert failure: value, ")) << r.err;
  }
  EXPECT_EQ(content(), before);

  // In a token the value ends at a decoded NUL.
  profile("L=1;2;3\n");
  EXPECT_EQ(conf_set_token("L", 1, b64(std::string("x\0y", 3)).c_str()), 0);
  EXPECT_EQ(content(), "L=1;x;3\n");
  // ...and not at the decoded length: "QR==" leaves 0x10 behind the 'A'.
  EXPECT_EQ(conf_set_token("L", 2, "QR=="), 0);
  EXPECT_EQ(content(), "L=1;x;A\x10\n");
  auto r = kivtest::run_in_child([] { conf_set_token("L", 0, "*"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with("assert failure: value, ")) << r.err;
}

TEST_F(ProfileTest, TokenHelpersOnOneLine) {
  char *t = __get_token("K=1;2;3;4\n", 3);
  EXPECT_STREQ(t, "4\n");
  free(t);
  t = __get_token("K= a ;b", 0);
  EXPECT_STREQ(t, " a ") << "tokens are not trimmed";
  free(t);
  t = __get_token("K=a;", 1);
  EXPECT_NE(t, EMPTY);
  EXPECT_STREQ(t, "") << "a trailing ';' is followed by an empty token";
  free(t);
  EXPECT_EQ(__get_token("K=1;2", 2), EMPTY);
  EXPECT_EQ(__get_token("K=1;2", -1), EMPTY);
  EXPECT_EQ(__get_token("no list", 0), EMPTY);

  struct Case {
    const char *line;
    int idx;
    const char *value;
    const char *want;
  } cases[] = {
      {"K=1;2;3;4", 0, "99", "K=99;2;3;4"},
      {"K=1;2;3", 3, "9", "K=1;2;3"},
      {"K=a;", 1, "b", "K=a;b"},
      {"K=", 0, "xyz", "K=xyz"},
      {"  K= 1 ;2=3", 1, "x", "  K= 1 ;x"},
      {"K=1;2", 0, "a;b", "K=a;b;2"},
      {"K=1;2", -1, "z", "K=1;2"},
  };
  for (const Case &c : cases) {
    char *got = __set_token(c.line, c.idx, c.value);
    ASSERT_NE(got, nullptr);
    EXPECT_STREQ(got, c.want) << c.line << " idx " << c.idx;
    EXPECT_NE(got, c.line);
    free(got);
  }
  const char *plain = "no list";
  EXPECT_EQ(__set_token(plain, 0, "x"), plain);
}

TEST_F(ProfileTest, TokensInTheProfile) {
  const std::string head = "# list\n";
  profile(head + "TestKey=1;2;3;4\nCr=a;b\r\n  Pad= x ; y \nEnd=p;q");
  EXPECT_EQ(token_out("TestKey", 3), "4\n\n");
  EXPECT_EQ(token_out("TestKey", 4), "\n");
  EXPECT_EQ(token_out("TestKey", 32), "\n");
  EXPECT_EQ(token_out("Absent", 0), "");

  EXPECT_EQ(conf_set_token("TestKey", 0, "99"), 0);
  EXPECT_EQ(content(),
            head + "TestKey=99;2;3;4\nCr=a;b\r\n  Pad= x ; y \nEnd=p;q");
  EXPECT_EQ(conf_set_token("Cr", 0, "z"), 0);
  EXPECT_EQ(conf_set_token("Pad", 1, "w"), 0);
  EXPECT_EQ(conf_set_token("TestKey", 5, "lost"), 0);
  EXPECT_EQ(content(), head + "TestKey=99;2;3;4\nCr=z;b\r\n  Pad= x ;w\nEnd=p;q");
  EXPECT_EQ(conf_set_token("End", 1, "r"), 0);
  EXPECT_EQ(content(), head + "TestKey=99;2;3;4\nCr=z;b\r\n  Pad= x ;w\nEnd=p;r\n");

  // An absent key leaves the file exactly as it was, even its last line.
  profile("A=1;2\nB=3");
  struct stat before, after;
  ASSERT_EQ(stat(kPath, &before), 0);
  kivtest::Capture out(1);
  EXPECT_EQ(conf_set_token("C", 0, "x"), 0);
  EXPECT_EQ(out.take(), "");
  EXPECT_EQ(content(), "A=1;2\nB=3");
  ASSERT_EQ(stat(kPath, &after), 0);
  EXPECT_EQ(before.st_ino, after.st_ino);

  auto r = kivtest::run_in_child([] { conf_set_token("A", 32, "x"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with("assert failure: idx >= 0 && idx < 32, "))
      << r.err;
  r = kivtest::run_in_child([] { conf_get_token("A", -1); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_TRUE(r.err.starts_with("assert failure: idx >= 0, ")) << r.err;
  __quiet = 1;
  r = kivtest::run_in_child([] { conf_set_token(nullptr, 0, "x"); });
  EXPECT_EQ(r.exit_code, 255);
  EXPECT_EQ(said(r), "");
  EXPECT_EQ(content(), "A=1;2\nB=3");
}
