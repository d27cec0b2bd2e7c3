// wifi_list_scan_read on a fuzzed `iw` listing.  A fake `iw` in the private
// tmpfs (first on PATH) prints the input.  Checked: the records past the
// capacity are never written, texts stay terminated in their fields, and
// the result is a slot inside the capacity.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "fuzz_common.hpp"
#include "kiv/wifi.h"

namespace {
constexpr unsigned char kGuard = 0xa5;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  kivfuzz::private_tmpfs();
  kivfuzz::quiet_stdout();
  kivfuzz::mkdirs("/tmp/fuzzbin");
  const char script[] = "#!/bin/sh\nexec cat /tmp/iw.out\n";
  kivfuzz::write_file("/tmp/fuzzbin/iw", script, sizeof script - 1, 0755);
  std::string path = "/tmp/fuzzbin:";
  const char *old = getenv("PATH");
  path += old ? old : "/usr/bin:/bin";
  setenv("PATH", path.c_str(), 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  int ifidx = data[0] % 3;
  int capacity = 1 + (data[0] >> 2) % 8;  // small, so the cut is reached
  if (data[0] >= 0xf0) capacity = 384;
  kivfuzz::write_file("/tmp/iw.out", data + 1, size - 1);

  std::vector<WifiSiteEntry> sites(static_cast<size_t>(capacity) + 2);
  memset(sites.data(), kGuard, sites.size() * sizeof(WifiSiteEntry));
  int r = wifi_list_scan_read(ifidx, 0, sites.data(), capacity);
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
