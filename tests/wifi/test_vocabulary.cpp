// Code and text conversions, and radio and interface names.
#include "kiv/wifi.h"

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace {

TEST(WifiVocabulary, CodesOutOfRowOrderRoundTrip) {
  // The rows of the method table are not in code order.
  EXPECT_STREQ(wifi_auth_to_str(7), "WPA3-192");
  EXPECT_STREQ(wifi_auth_to_str(8), "OWE");
  EXPECT_STREQ(wifi_auth_to_str(18), "WPANONE");
  EXPECT_STREQ(wifi_auth_to_str(14), "WPA3PSK");
  EXPECT_EQ(wifi_auth_to_num("WPA3-192"), 7);
  EXPECT_EQ(wifi_auth_to_num("OWE"), 8);
  EXPECT_EQ(wifi_auth_to_num("WPANONE"), 18);
  EXPECT_EQ(wifi_auth_to_num("FT-WPA2PSK"), 20);
  // Every code with a text maps back to itself.
  for (uint32_t code = 0; code <= 20; ++code)
    EXPECT_EQ(wifi_auth_to_num(wifi_auth_to_str(code)), static_cast<int>(code))
        << code;
  for (uint32_t code = 0; code <= 12; ++code) {
    if (code == 5) continue;
    EXPECT_EQ(wifi_encrypt_to_num(wifi_encrypt_to_str(code)),
              static_cast<int>(code))
        << code;
  }
  EXPECT_STREQ(wifi_encrypt_to_str(6), "CCMP256");
  EXPECT_STREQ(wifi_encrypt_to_str(12), "BIP-GMAC256");
}

TEST(WifiVocabulary, ReservedAndUnknownCodes) {
  // Reserved rows have no text, and no text reaches them.
  EXPECT_STREQ(wifi_auth_to_str(21), "UNKNOWN");
  EXPECT_STREQ(wifi_auth_to_str(22), "UNKNOWN");
  EXPECT_STREQ(wifi_auth_to_str(23), "UNKNOWN");
  EXPECT_STREQ(wifi_encrypt_to_str(5), "UNKNOWN");
  EXPECT_STREQ(wifi_encrypt_to_str(13), "UNKNOWN");
  EXPECT_EQ(wifi_auth_to_num("UNKNOWN"), -1);
  EXPECT_EQ(wifi_encrypt_to_num("UNKNOWN"), -1);

  EXPECT_STREQ(wifi_auth_to_str0(0), "none");
  EXPECT_STREQ(wifi_auth_to_str0(5), "WPA2PSKWPA3AES");
  EXPECT_STREQ(wifi_auth_to_str0(6), "UNKNOWENC");
  EXPECT_STREQ(wifi_auth_to_str0(7), "UNKNOWN");

  EXPECT_STREQ(wifi_ext_ch_to_str(0), "NONE");
  EXPECT_STREQ(wifi_ext_ch_to_str(2), "BELOW");
  EXPECT_STREQ(wifi_ext_ch_to_str(3), "UNKNOWN");

  // A negative code is a large unsigned one.
  const uint32_t minus_one = static_cast<uint32_t>(-1);
  EXPECT_STREQ(wifi_auth_to_str(minus_one), "UNKNOWN");
  EXPECT_STREQ(wifi_auth_to_str0(minus_one), "UNKNOWN");
  EXPECT_STREQ(wifi_encrypt_to_str(minus_one), "UNKNOWN");
  EXPECT_STREQ(wifi_ext_ch_to_str(minus_one), "UNKNOWN");
}

TEST(WifiVocabulary, TextLookupTrimsButKeepsCase) {
  EXPECT_EQ(wifi_auth_to_num(" WPA2PSK\n"), 13);
  EXPECT_EQ(wifi_auth_to_num("\t\v\fWPA2PSK \r"), 13);
  EXPECT_EQ(wifi_auth_to_num("wpa2psk"), -1);
  EXPECT_EQ(wifi_auth_to_num("WPA2"), 5);  // whole text, not a prefix
  EXPECT_EQ(wifi_auth_to_num("WPA2P"), -1);
  EXPECT_EQ(wifi_encrypt_to_num(" AES "), 3);
  EXPECT_EQ(wifi_ext_ch_to_num("ABOVE\n"), 1);
  EXPECT_EQ(wifi_ext_ch_to_num("above"), -1);

  // One character or none is no text at all, not even a valid code.
  for (const char *t : {"", " ", "N"}) {
    EXPECT_EQ(wifi_auth_to_num(t), -1) << '"' << t << '"';
    EXPECT_EQ(wifi_encrypt_to_num(t), -1) << '"' << t << '"';
    EXPECT_EQ(wifi_ext_ch_to_num(t), -1) << '"' << t << '"';
    EXPECT_EQ(wifi_mode_to_num(t), -1) << '"' << t << '"';
  }

  // A text longer than the work buffer is cut, so it matches nothing.
  char longer[300];
  memset(longer, 'A', sizeof longer - 1);
  longer[sizeof longer - 1] = '\0';
  EXPECT_EQ(wifi_auth_to_num(longer), -1);
}

TEST(WifiVocabulary, ModeMaskToText) {
  EXPECT_STREQ(wifi_mode_to_str(0x0C), "11g/n");
  EXPECT_STREQ(wifi_mode_to_str(0x20), "11ax");
  EXPECT_STREQ(wifi_mode_to_str(0x3F), "11a/b/g/n/ac/ax");
  EXPECT_STREQ(wifi_mode_to_str(0xFFFFFFFF), "11a/b/g/n/ac/ax");
  EXPECT_STREQ(wifi_mode_to_str(0x0), "UNKNOWN");
  EXPECT_STREQ(wifi_mode_to_str(0x40), "UNKNOWN");

  // One buffer for the process: an earlier result shows the later text.
  const char *first = wifi_mode_to_str(0x01);
  EXPECT_STREQ(first, "11a");
  const char *second = wifi_mode_to_str(0x18);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "11n/ac");
  // "UNKNOWN" leaves the buffer holding only "11".
  EXPECT_STREQ(wifi_mode_to_str(0), "UNKNOWN");
  EXPECT_STREQ(first, "11");
}

TEST(WifiVocabulary, ModeTextToMask) {
  EXPECT_EQ(wifi_mode_to_num("11ax"), 0x20);
  EXPECT_EQ(wifi_mode_to_num("11g/n"), 0x0C);
  EXPECT_EQ(wifi_mode_to_num(" 11a/b/g/n/ac/ax\n"), 0x3F);
  EXPECT_EQ(wifi_mode_to_num("11b/x/g"), 0x06);  // unknown token skipped
  EXPECT_EQ(wifi_mode_to_num("11bgn"), -1);
  EXPECT_EQ(wifi_mode_to_num("11A"), -1);
  // The two leading characters are skipped unread.
  EXPECT_EQ(wifi_mode_to_num("ab/g"), 0x04);
  EXPECT_EQ(wifi_mode_to_num("xxa"), 0x01);
  // Separators at the ends and in runs yield no piece.
  EXPECT_EQ(wifi_mode_to_num("//11a//n/"), 0x09);
  EXPECT_EQ(wifi_mode_to_num("///"), -1);
  // A first piece of two characters adds nothing; the rest still counts.
  EXPECT_EQ(wifi_mode_to_num("11"), -1);
  EXPECT_EQ(wifi_mode_to_num("11/ac"), 0x10);
  EXPECT_EQ(wifi_mode_to_num("1/ax"), 0x20);
  // Every text made by wifi_mode_to_str reads back to its mask.
  for (uint32_t mask = 1; mask < 0x40; ++mask)
    EXPECT_EQ(wifi_mode_to_num(wifi_mode_to_str(mask)), static_cast<int>(mask))
        << mask;
}

TEST(WifiNaming, ScanInterfaceKeepsLastValidName) {
  // The first call of a process, with an invalid index: the empty name.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(exit(strcmp(wifi_idx_to_ifname(3), "") == 0 ? 0 : 1),
              ::testing::ExitedWithCode(0), "");
  EXPECT_STREQ(wifi_idx_to_ifname(0), "mld1");
  EXPECT_STREQ(wifi_idx_to_ifname(2), "mld2");
  const char *name = wifi_idx_to_ifname(1);
  EXPECT_STREQ(name, "mld3");
  EXPECT_STREQ(wifi_idx_to_ifname(3), "mld3");
  EXPECT_STREQ(wifi_idx_to_ifname(-1), "mld3");
  EXPECT_EQ(wifi_idx_to_ifname(0), name);
  EXPECT_STREQ(name, "mld1");
}

TEST(WifiNaming, InterfaceNameToIndexes) {
  int ifidx = 99, apidx = 99;
  EXPECT_EQ(wifi_ifname_to_idx("ath13", &ifidx, &apidx), 0);
  EXPECT_EQ(ifidx, 1);
  EXPECT_EQ(apidx, 3);
  EXPECT_EQ(wifi_ifname_to_idx("ath23", &ifidx, &apidx), 0);
  EXPECT_EQ(ifidx, 2);
  EXPECT_EQ(wifi_ifname_to_idx("rax2", &ifidx, &apidx), 0);
  EXPECT_EQ(ifidx, 1);
  EXPECT_EQ(apidx, 2);
  EXPECT_EQ(wifi_ifname_to_idx("ra0", &ifidx, &apidx), 0);
  EXPECT_EQ(ifidx, 0);
  EXPECT_EQ(apidx, 0);
  // The character behind the prefix is not checked to be a digit.
  EXPECT_EQ(wifi_ifname_to_idx("ra", &ifidx, &apidx), 0);
  EXPECT_EQ(ifidx, 0);
  EXPECT_EQ(apidx, -48);
  EXPECT_EQ(wifi_ifname_to_idx("rax", &ifidx, &apidx), 0);
  EXPECT_EQ(ifidx, 1);
  EXPECT_EQ(apidx, -48);

  // Failures write nothing.
  ifidx = apidx = 77;
  EXPECT_EQ(wifi_ifname_to_idx("ath0", &ifidx, &apidx), -2);
  EXPECT_EQ(wifi_ifname_to_idx("ath033", &ifidx, &apidx), -2);
  EXPECT_EQ(wifi_ifname_to_idx("r", &ifidx, &apidx), -2);
  EXPECT_EQ(wifi_ifname_to_idx(nullptr, &ifidx, &apidx), -1);
  EXPECT_EQ(wifi_ifname_to_idx("ra0", nullptr, &apidx), -1);
  EXPECT_EQ(wifi_ifname_to_idx("ra0", &ifidx, nullptr), -1);
  EXPECT_EQ(ifidx, 77);
  EXPECT_EQ(apidx, 77);
}

TEST(WifiNaming, StationInterfaceToRadio) {
  unsigned char idx = 0xAA;
  EXPECT_EQ(ifname_to_idx("ath23", &idx), 0);
  EXPECT_EQ(idx, 2);
  EXPECT_EQ(ifname_to_idx("ath03", &idx), 0);
  EXPECT_EQ(idx, 0);
  idx = 0xAA;
  EXPECT_EQ(ifname_to_idx("ra0", &idx), -1);
  EXPECT_EQ(ifname_to_idx("ath0", &idx), -1);
  EXPECT_EQ(ifname_to_idx(nullptr, &idx), -1);
  EXPECT_EQ(idx, 0xAA);
}

}  // namespace
