// The Wi-Fi and runtime text parsers on fuzzed text: wifi_auth_to_num,
// wifi_encrypt_to_num, wifi_mode_to_num, wifi_ext_ch_to_num, igd_str2mac,
// isIPv4Str and igd_cut_space.  Checked: codes read back from their own
// texts, and the bounds of igd_cut_space's receiver.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "kiv/runtime.h"
#include "kiv/wifi.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  int dst_size = 1 + data[0] % 64;
  std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
  const char *s = text.c_str();  // cut at the first NUL, as C callers see it

  int auth = wifi_auth_to_num(s);
  if (auth >= 0 && wifi_auth_to_num(wifi_auth_to_str(auth)) != auth) abort();
  int enc = wifi_encrypt_to_num(s);
  if (enc >= 0 && wifi_encrypt_to_num(wifi_encrypt_to_str(enc)) != enc)
    abort();
  int mode = wifi_mode_to_num(s);
  if (mode >= 0) {
    std::string shown = wifi_mode_to_str(static_cast<uint32_t>(mode));
    if (shown != "UNKNOWN" && wifi_mode_to_num(shown.c_str()) != mode) abort();
  }
  int ext = wifi_ext_ch_to_num(s);
  if (ext >= 0 && wifi_ext_ch_to_num(wifi_ext_ch_to_str(ext)) != ext) abort();

  unsigned char mac[6] = {0};
  if (igd_str2mac(s, mac) == 0) {
    unsigned char again[6] = {0};
    if (igd_str2mac(igd_mac2str(mac), again) != 0 ||
        memcmp(mac, again, 6) != 0)
      abort();
  }
  isIPv4Str(s);

  // The receiver sits at the end of a heap block: a write past dstSize - 1
  // bytes or an unterminated result is caught.
  char *dst = static_cast<char *>(calloc(static_cast<size_t>(dst_size), 1));
  if (igd_cut_space(s, static_cast<unsigned int>(strlen(s)), dst, dst_size) !=
      dst)
    abort();
  if (dst[dst_size - 1] != '\0') abort();
  free(dst);
  return 0;
}
