// The Base64 codec: line wrapping, round trips, lenient decoding, refusals.
#include <stdlib.h>
#include <string.h>

#include <random>
#include <string>
#include <vector>

#include "kiv/profile.h"
#include "gtest/gtest.h"

namespace {

std::string enc(const std::string &in) {
  size_t n = 12345;
  // An exact copy on the heap: a read past the input shows under ASan.
  std::vector<unsigned char> src(in.begin(), in.end());
  unsigned char *t = base64_encode(src.data(), src.size(), &n);
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
  // After whole groups the terminator stands right behind the bytes.
  if (n % 3 == 0) {
    EXPECT_EQ(d[n], '\0') << in;
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
  // Each case alone, then behind 16 valid characters and a LF, where the
  // decoder takes whole groups at a time: the lead's 12 bytes come first
  // (lead_out, if set, is the whole result then).
  const struct {
    const char *in, *out, *lead_out = nullptr;
  } cases[] = {
      {" Q\tU\r\nJ*D ", "ABC"},  // bytes outside the alphabet
      {"QQ==", "A"},
      {"QUI=", "AB"},
      {"Q=Q=", "@"},          // a '=' counts as 0 wherever it stands
      {"QQ==QUJD", "A"},      // nothing behind a padded group...
      {"QQ==QUJ", "<null>"},  // ...but it counts
      {"", "<null>", "ABCDEFGHIJKL"},
      {"!!\n", "<null>", "ABCDEFGHIJKL"},
      {"QUJ", "<null>"},
      {"====", "<null>"},
      {"===A", "<null>"},
      {"A===", "<null>"},
      {"Q\nU\nJ\nD\nQ\nU\nJ\nD\nQUJDQUJDQUJD", "ABCABCABCABCABC"},
      {"QUJDQUJDQU\nJDQUJDQU=D", "ABCABCABCABCA@"},
  };
  const std::string lead = "QUJDREVGR0hJSktM\n";
  for (const auto &c : cases) {
    EXPECT_EQ(dec(c.in), c.out) << c.in;
    std::string out = c.lead_out ? c.lead_out
                      : c.out == std::string("<null>")
                          ? c.out
                          : "ABCDEFGHIJKL" + std::string(c.out);
    EXPECT_EQ(dec(lead + c.in), out) << c.in;
  }

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

namespace {

// The decoding steps one byte at a time: the reference for the fast paths.
std::string plain_decode(const std::string &in) {
  auto value = [](unsigned char c) -> int {
    const char *a =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (c == '=') return 0;
    const char *p = c ? strchr(a, c) : nullptr;
    return p ? static_cast<int>(p - a) : -1;
  };
  size_t count = 0;
  for (unsigned char c : in) count += value(c) >= 0;
  if (count == 0 || count % 4) return "<null>";
  std::string out;
  int block[4], got = 0, pad = 0;
  for (unsigned char c : in) {
    if (value(c) < 0) continue;
    pad += c == '=';
    block[got++] = value(c);
    if (got < 4) continue;
    got = 0;
    out += static_cast<char>(block[0] << 2 | block[1] >> 4);
    out += static_cast<char>(block[1] << 4 | block[2] >> 2);
    out += static_cast<char>(block[2] << 6 | block[3]);
    if (pad == 0) continue;
    if (pad > 2) return "<null>";
    out.resize(out.size() - static_cast<size_t>(pad));
    break;
  }
  return out;
}

}  // namespace

TEST(Base64, DecoderAgreesWithThePlainStepsOnAnyLayout) {
  // Encoded text rewrapped at every width with LF or CRLF, then stray '=',
  // blanks, NULs and high bytes dropped in: the fast paths (whole lines,
  // pairs of groups, single groups) must give what the plain steps give.
  std::mt19937 rng(11);
  const std::string strays = std::string("= \t*\x80\xff", 7) + '\0';
  for (int round = 0; round < 4000; ++round) {
    std::string raw(rng() % 200, '\0');
    for (char &c : raw) c = static_cast<char>(rng());
    std::string flat;
    for (char c : enc(raw))
      if (c != '\n') flat += c;
    const size_t width = 1 + rng() % 90;
    const char *eol = rng() % 4 ? "\n" : "\r\n";
    std::string text;
    for (size_t at = 0; at < flat.size(); at += width)
      text += flat.substr(at, width) + eol;
    for (int n = static_cast<int>(rng() % 4) - 1; n > 0; --n)
      text.insert(rng() % (text.size() + 1), 1, strays[rng() % strays.size()]);
    ASSERT_EQ(dec(text), plain_decode(text)) << "width " << width << ": "
                                             << text;
  }
}
