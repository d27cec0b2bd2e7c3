// Wi-Fi codes and their texts: authentication methods, combined security,
// ciphers, 802.11 modes and the extension channel position.
#include "kiv/wifi.h"

#include <stdint.h>
#include <string.h>

#include "util.hpp"

namespace {

struct CodeText {
  uint32_t code;
  const char *text;  // null: the code is reserved and has no text
};

// Rows are searched by code, never indexed by it: these two tables are not
// in code order.
constexpr CodeText kAuthTable[] = {
    {0, "OPEN"},
    {1, "SHARED"},
    {2, "WEPAUTO"},
    {3, "WPA"},
    {4, "WPA1"},
    {5, "WPA2"},
    {6, "WPA3"},
    {18, "WPANONE"},
    {9, "WPAWPA2"},
    {10, "WPA1WPA2"},
    {11, "WPAPSK"},
    {12, "WPA1PSK"},
    {13, "WPA2PSK"},
    {14, "WPA3PSK"},
    {7, "WPA3-192"},
    {15, "WPAPSKWPA2PSK"},
    {16, "WPA1PSKWPA2PSK"},
    {17, "WPA2PSKWPA3PSK"},
    {8, "OWE"},
    {19, "FT-WPA2"},
    {20, "FT-WPA2PSK"},
    {21, nullptr},
    {22, nullptr},
};

constexpr CodeText kAuth0Table[] = {
    {0, "none"},    {1, "WPA"},            {2, "WPA2PSKAES"},
    {3, "WPAWPA2PSK"}, {4, "WPA3AES"}, {5, "WPA2PSKWPA3AES"},
    {6, "UNKNOWENC"},
};

constexpr CodeText kEncryptTable[] = {
    {0, "NONE"},         {1, "WEP"},          {2, "TKIP"},
    {3, "AES"},          {4, "TKIPAES"},      {6, "CCMP256"},
    {7, "GCMP128"},      {8, "GCMP256"},      {9, "BIP-CMAC128"},
    {10, "BIP-CMAC256"}, {11, "BIP-GMAC128"}, {12, "BIP-GMAC256"},
    {5, nullptr},
};

// Single bits of a mode mask, in the order their letters are written.
constexpr CodeText kModeTable[] = {
    {0x01, "a"}, {0x02, "b"}, {0x04, "g"}, {0x08, "n"}, {0x10, "ac"}, {0x20, "ax"},
};

// Row number equals the code.
constexpr CodeText kExtChTable[] = {
    {0, "NONE"},
    {1, "ABOVE"},
    {2, "BELOW"},
};

constexpr const char kUnknown[] = "UNKNOWN";
constexpr size_t kWorkSize = 128;

char mode_text[64];

template <size_t N>
const char *text_of(const CodeText (&table)[N], uint32_t code) {
  for (const CodeText &row : table)
    if (row.code == code) return row.text ? row.text : kUnknown;
  return kUnknown;
}

// Caller's text without white space at its ends, at most kWorkSize - 1
// bytes, in the zero-filled `work`.
void trimmed(const char *text, char (&work)[kWorkSize]) {
  memset(work, 0, sizeof work);
  igd_cut_space(text, static_cast<unsigned int>(strlen(text)), work,
                static_cast<int>(sizeof work));
}

template <size_t N>
int code_of(const CodeText (&table)[N], const char *text) {
  char work[kWorkSize];
  trimmed(text, work);
  for (const CodeText &row : table)
    if (row.text && strcmp(row.text, work) == 0)
      return static_cast<int>(row.code);
  return -1;
}

}  // namespace

const char *wifi_auth_to_str(uint32_t code) {
  return text_of(kAuthTable, code);
}

const char *wifi_auth_to_str0(uint32_t code) {
  return text_of(kAuth0Table, code);
}

int wifi_auth_to_num(const char *text) { return code_of(kAuthTable, text); }

const char *wifi_encrypt_to_str(uint32_t code) {
  return text_of(kEncryptTable, code);
}

int wifi_encrypt_to_num(const char *text) {
  return code_of(kEncryptTable, text);
}

const char *wifi_mode_to_str(uint32_t mask) {
  kiv::format_into(mode_text, "%s", "11");
  size_t used = strlen(mode_text);
  bool any = false;
  for (const CodeText &row : kModeTable) {
    if ((row.code & mask) == 0) continue;
    kiv::format_into(mode_text + used, sizeof mode_text - used,
                     any ? "/%s" : "%s", row.text);
    used += strlen(mode_text + used);
    any = true;
  }
  return any ? mode_text : kUnknown;
}

int wifi_mode_to_num(const char *text) {
  char work[kWorkSize];
  trimmed(text, work);

  int mask = 0;
  int matches = 0;
  bool first = true;
  char *save = nullptr;
  for (char *piece = strtok_r(work, "/", &save); piece != nullptr;
       piece = strtok_r(nullptr, "/", &save)) {
    const char *token = piece;
    if (first) {
      // The two digits of "11" are skipped without being looked at.
      size_t len = strlen(piece);
      token = piece + (len < 2 ? len : 2);
      first = false;
    }
    for (const CodeText &row : kModeTable) {
      if (row.text && strcmp(row.text, token) == 0) {
        mask |= static_cast<int>(row.code);
        ++matches;
        break;
      }
    }
  }
  return matches > 0 ? mask : -1;
}

const char *wifi_ext_ch_to_str(uint32_t code) {
  if (code > 2) return kUnknown;
  return kExtChTable[code].text;
}

int wifi_ext_ch_to_num(const char *text) {
  return code_of(kExtChTable, text);
}
