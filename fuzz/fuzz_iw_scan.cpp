// The parse of an `iw` scan listing, fed the fuzzed listing directly (the
// parse wifi_list_scan_read runs on the command's output).  Checked: the
// records past the capacity are never written, texts stay terminated in
// their fields, and the result is a slot inside the capacity.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "fuzz_common.hpp"
#include "wifi/internal.hpp"

namespace {
constexpr unsigned char kGuard = 0xa5;
const char *const kIfnames[] = {"mld1", "mld3", "mld2"};
}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  kivfuzz::quiet_stdout();  // lines that don't parse print their message
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  const char *ifname = kIfnames[data[0] % 3];
  int capacity = 1 + (data[0] >> 2) % 8;  // small, so the cut is reached
  if (data[0] >= 0xf0) capacity = 384;

  std::vector<WifiSiteEntry> sites(static_cast<size_t>(capacity) + 2);
  memset(sites.data(), kGuard, sites.size() * sizeof(WifiSiteEntry));
  memset(sites.data(), 0, static_cast<size_t>(capacity) * sizeof(WifiSiteEntry));
  int r = kiv::wifi::parse_scan_listing(
      ifname, reinterpret_cast<const char *>(data + 1), size - 1, sites.data(),
      capacity);
  if (r < 0 || r >= capacity) abort();
  const unsigned char *guard =
      reinterpret_cast<const unsigned char *>(&sites[capacity]);
  for (size_t i = 0; i < 2 * sizeof(WifiSiteEntry); ++i)
    if (guard[i] != kGuard) abort();
  for (int i = 0; i < capacity; ++i) {
    if (memchr(sites[i].ssid, 0, sizeof sites[i].ssid) == nullptr) abort();
    if (memchr(sites[i].bssid, 0, sizeof sites[i].bssid) == nullptr) abort();
  }
  return 0;
}
