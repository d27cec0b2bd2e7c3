// Code and text conversions, and radio and interface names.
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "kiv/wifi.h"

namespace {

using ToText = const char *(*)(uint32_t);
using ToNum = int (*)(const char *);

TEST(WifiVocabulary, CodesAndTextsBothWays) {
  // Rows out of code order in the tables, reserved rows without a text,
  // and codes past the tables (a negative code is a large unsigned one).
  const struct {
    ToText to_text;
    uint32_t code;
    const char *text;
  } rows[] = {
      {wifi_auth_to_str, 7, "WPA3-192"},
      {wifi_auth_to_str, 8, "OWE"},
      {wifi_auth_to_str, 18, "WPANONE"},
      {wifi_auth_to_str, 21, "UNKNOWN"},
      {wifi_auth_to_str, ~0u, "UNKNOWN"},
      {wifi_encrypt_to_str, 6, "CCMP256"},
      {wifi_encrypt_to_str, 5, "UNKNOWN"},
      {wifi_encrypt_to_str, 12, "BIP-GMAC256"},
      {wifi_auth_to_str0, 5, "WPA2PSKWPA3AES"},
      {wifi_auth_to_str0, 6, "UNKNOWENC"},
      {wifi_auth_to_str0, 7, "UNKNOWN"},
      {wifi_ext_ch_to_str, 2, "BELOW"},
      {wifi_ext_ch_to_str, 3, "UNKNOWN"},
      {wifi_ext_ch_to_str, ~0u, "UNKNOWN"},
  };
  for (const auto &r : rows) EXPECT_STREQ(r.to_text(r.code), r.text) << r.code;
  // Every code with a text maps back to itself, and no text reaches a
  // reserved row.
  for (uint32_t code = 0; code <= 20; ++code)
    EXPECT_EQ(wifi_auth_to_num(wifi_auth_to_str(code)), static_cast<int>(code));
  for (uint32_t code = 0; code <= 12; ++code) {
    if (code == 5) continue;
    EXPECT_EQ(wifi_encrypt_to_num(wifi_encrypt_to_str(code)),
              static_cast<int>(code));
  }
  EXPECT_EQ(wifi_auth_to_num("UNKNOWN"), -1);
  EXPECT_EQ(wifi_encrypt_to_num("UNKNOWN"), -1);
}

TEST(WifiVocabulary, TextLookupTrimsButKeepsCase) {
  // A text longer than the work buffer is cut, so it matches nothing.
  const std::string longer(299, 'A');
  const struct {
    ToNum to_num;
    const char *text;
    int code;
  } rows[] = {
      {wifi_auth_to_num, " WPA2PSK\n", 13},
      {wifi_auth_to_num, "\t\v\fWPA2PSK \r", 13},
      {wifi_auth_to_num, "wpa2psk", -1},
      {wifi_auth_to_num, "WPA2", 5},  // whole text, not a prefix
      {wifi_auth_to_num, "WPA2P", -1},
      {wifi_auth_to_num, longer.c_str(), -1},
      {wifi_encrypt_to_num, " AES ", 3},
      {wifi_ext_ch_to_num, "ABOVE\n", 1},
      {wifi_ext_ch_to_num, "above", -1},
      {wifi_mode_to_num, "11ax", 0x20},
      {wifi_mode_to_num, "11g/n", 0x0C},
      {wifi_mode_to_num, " 11a/b/g/n/ac/ax\n", 0x3F},
      {wifi_mode_to_num, "11b/x/g", 0x06},  // unknown piece skipped
      {wifi_mode_to_num, "11bgn", -1},
      {wifi_mode_to_num, "11A", -1},
      // The two leading characters are skipped unread.
      {wifi_mode_to_num, "ab/g", 0x04},
      {wifi_mode_to_num, "xxa", 0x01},
      // Separators at the ends and in runs yield no piece.
      {wifi_mode_to_num, "//11a//n/", 0x09},
      {wifi_mode_to_num, "///", -1},
      // A first piece of two characters adds nothing; the rest still counts.
      {wifi_mode_to_num, "11", -1},
      {wifi_mode_to_num, "11/ac", 0x10},
      {wifi_mode_to_num, "1/ax", 0x20},
  };
  for (const auto &r : rows) EXPECT_EQ(r.to_num(r.text), r.code) << r.text;
  // One character or none is no text at all, not even a valid code.
  for (const char *t : {"", " ", "N"})
    for (ToNum to_num : {wifi_auth_to_num, wifi_encrypt_to_num,
                         wifi_ext_ch_to_num, wifi_mode_to_num})
      EXPECT_EQ(to_num(t), -1) << '"' << t << '"';
}

TEST(WifiVocabulary, ModeMaskToText) {
  EXPECT_STREQ(wifi_mode_to_str(0x0C), "11g/n");
  EXPECT_STREQ(wifi_mode_to_str(0x20), "11ax");
  EXPECT_STREQ(wifi_mode_to_str(0xFFFFFFFF), "11a/b/g/n/ac/ax");
  EXPECT_STREQ(wifi_mode_to_str(0x40), "UNKNOWN");
  // Every text made by wifi_mode_to_str reads back to its mask.
  for (uint32_t mask = 1; mask < 0x40; ++mask)
    EXPECT_EQ(wifi_mode_to_num(wifi_mode_to_str(mask)), static_cast<int>(mask))
        << mask;

  // One buffer for the process: an earlier result shows the later text,
  // and "UNKNOWN" leaves it holding only "11".
  const char *first = wifi_mode_to_str(0x01);
  EXPECT_EQ(first, wifi_mode_to_str(0x18));
  EXPECT_STREQ(first, "11n/ac");
  EXPECT_STREQ(wifi_mode_to_str(0), "UNKNOWN");
  EXPECT_STREQ(first, "11");
}

TEST(WifiNaming, ScanInterfaceKeepsLastValidName) {
  // The first call of a process, with an invalid index: the empty name.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exit(strcmp(wifi_idx_to_ifname(3), "") == 0 ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
  EXPECT_STREQ(wifi_idx_to_ifname(2), "mld2");
  const char *name = wifi_idx_to_ifname(1);
  EXPECT_STREQ(name, "mld3");
  EXPECT_STREQ(wifi_idx_to_ifname(3), "mld3");
  EXPECT_STREQ(wifi_idx_to_ifname(-1), "mld3");
  EXPECT_EQ(wifi_idx_to_ifname(0), name);
  EXPECT_STREQ(name, "mld1");
}

TEST(WifiNaming, InterfaceNamesToIndexes) {
  // The character behind the prefix is not checked to be a digit; failures
  // write nothing.
  const struct {
    const char *name;
    int ret, ifidx, apidx;
  } rows[] = {
      {"ath13", 0, 1, 3},  {"ath23", 0, 2, 3},   {"rax2", 0, 1, 2},
      {"ra0", 0, 0, 0},    {"ra", 0, 0, -48},    {"rax", 0, 1, -48},
      {"ath0", -2, 7, 7},  {"ath033", -2, 7, 7}, {"r", -2, 7, 7},
      {nullptr, -1, 7, 7},
  };
  for (const auto &r : rows) {
    int ifidx = 7, apidx = 7;
    EXPECT_EQ(wifi_ifname_to_idx(r.name, &ifidx, &apidx), r.ret) << r.name;
    EXPECT_EQ(ifidx, r.ifidx) << r.name;
    EXPECT_EQ(apidx, r.apidx) << r.name;
  }
  int idx = 0;
  EXPECT_EQ(wifi_ifname_to_idx("ra0", nullptr, &idx), -1);
  EXPECT_EQ(wifi_ifname_to_idx("ra0", &idx, nullptr), -1);

  // Station interfaces to their radio.
  unsigned char radio = 0xAA;
  EXPECT_EQ(ifname_to_idx("ath23", &radio), 0);
  EXPECT_EQ(radio, 2);
  EXPECT_EQ(ifname_to_idx("ath03", &radio), 0);
  EXPECT_EQ(radio, 0);
  radio = 0xAA;
  for (const char *bad : {"ra0", "ath0", static_cast<const char *>(nullptr)})
    EXPECT_EQ(ifname_to_idx(bad, &radio), -1);
  EXPECT_EQ(radio, 0xAA);
}

}  // namespace
