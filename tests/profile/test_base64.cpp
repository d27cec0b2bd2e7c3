// The Base64 codec: line wrapping, round trips, lenient decoding, refusals.
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>

#include "kiv/profile.h"
#include "gtest/gtest.h"

namespace {

std::string enc(const std::string &in) {
  size_t n = 12345;
  unsigned char *t = base64_encode(
      reinterpret_cast<const unsigned char *>(in.data()), in.size(), &n);
  EXPECT_NE(t, nullptr);
  std::string s(reinterpret_cast<char *>(t));
  EXPECT_EQ(n, s.size());
  free(t);
  return s;
}

// Decoded bytes, or "<null>" with out_len untouched.
std::string dec(const std::string &in) {
  size_t n = 777;
  unsigned char *d = base64_decode(
      reinterpret_cast<const unsigned char *>(in.data()), in.size(), &n);
  if (d == nullptr) {
    EXPECT_EQ(n, 777u) << "out_len is not written on refusal";
    return "<null>";
  }
  std::string s(reinterpret_cast<char *>(d), n);
  free(d);
  return s;
}

}  // namespace

TEST(Base64, EncoderWrapsAt72) {
  EXPECT_EQ(enc(""), "");
  EXPECT_EQ(enc("abc"), "YWJj\n");
  EXPECT_EQ(enc("a"), "YQ==\n");
  std::string line = enc(std::string(54, 'x'));
  EXPECT_EQ(line.size(), 73u);
  EXPECT_EQ(line.find('\n'), 72u);
  std::string l53 = enc(std::string(53, 'x'));
  EXPECT_EQ(l53.size(), 73u);
  EXPECT_EQ(l53[71], '=');
  std::string l55 = enc(std::string(55, 'x'));
  EXPECT_EQ(l55.substr(0, 73), line);
  EXPECT_EQ(l55.substr(73), "eA==\n");
  EXPECT_EQ(enc(std::string(108, 'x')).size(), 146u) << "two full lines";
  unsigned char *empty =
      base64_encode(reinterpret_cast<const unsigned char *>(""), 0, nullptr);
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty[0], '\0');
  free(empty);

  // 4 x 2^30 wraps to 0 in 32 bits: refused before any input is read.
  size_t n = 99;
  EXPECT_EQ(base64_encode(reinterpret_cast<const unsigned char *>("x"),
                          size_t{1} << 30, &n),
            nullptr);
  EXPECT_EQ(n, 99u);
}

TEST(Base64, RoundTripEveryLength) {
  std::mt19937 rng(7);
  for (size_t len = 1; len <= 400; ++len) {
    std::string in(len, '\0');
    for (char &c : in) c = static_cast<char>(rng());
    std::string text = enc(in);
    // Lines hold 72 characters but the last; the text ends in one LF.
    for (size_t at = 0; at < text.size();) {
      size_t lf = text.find('\n', at);
      ASSERT_NE(lf, std::string::npos);
      if (lf + 1 < text.size()) {
        ASSERT_EQ(lf - at, 72u) << len;
      }
      at = lf + 1;
    }
    ASSERT_EQ(dec(text), in) << len;
  }
}

TEST(Base64, LenientDecodingAndRefusals) {
  EXPECT_EQ(dec(" Q\tU\r\nJ*D "), "ABC") << "bytes outside the alphabet";
  EXPECT_EQ(dec("QQ=="), "A");
  EXPECT_EQ(dec("QUI="), "AB");
  EXPECT_EQ(dec("Q=Q="), "@") << "a '=' counts as 0 wherever it stands";
  EXPECT_EQ(dec("QQ==QUJD"), "A") << "nothing behind a padded group";
  EXPECT_EQ(dec("QQ==QUJ"), "<null>") << "...but it counts";
  EXPECT_EQ(dec(""), "<null>");
  EXPECT_EQ(dec("!!\n"), "<null>");
  EXPECT_EQ(dec("QUJ"), "<null>");
  EXPECT_EQ(dec("===="), "<null>");
  EXPECT_EQ(dec("===A"), "<null>");
  EXPECT_EQ(dec("A==="), "<null>");

  // Canonical results read as strings of the right length.
  size_t n = 0;
  unsigned char *d =
      base64_decode(reinterpret_cast<const unsigned char *>("QUI="), 4, &n);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(n, 2u);
  EXPECT_STREQ(reinterpret_cast<char *>(d), "AB");
  free(d);
  d = base64_decode(reinterpret_cast<const unsigned char *>("QUJD"), 4,
                    nullptr);
  EXPECT_STREQ(reinterpret_cast<char *>(d), "ABC");
  free(d);
}
