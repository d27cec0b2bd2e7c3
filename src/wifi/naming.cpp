// Radio and interface names: ifidx 0, 1, 2 are the 2.4, 5 and 6 GHz radios.
#include "kiv/wifi.h"

#include <string.h>

#include "util.hpp"

namespace {

// Scan interfaces by ifidx; not in the order of their digits.
constexpr const char *kScanIfnames[] = {"mld1", "mld3", "mld2"};
// Station interfaces by ifidx, all on AP index 3.
constexpr const char *kStaIfnames[] = {"ath03", "ath13", "ath23"};
constexpr int kStaApidx = 3;

char scan_ifname[32];

bool starts_with(const char *s, const char *prefix) {
  return strncmp(s, prefix, strlen(prefix)) == 0;
}

}  // namespace

const char *wifi_idx_to_ifname(int ifidx) {
  if (ifidx >= 0 && ifidx <= 2)
    kiv::format_into(scan_ifname, "%s", kScanIfnames[ifidx]);
  return scan_ifname;
}

int wifi_ifname_to_idx(const char *ifname, int *ifidx_out, int *apidx_out) {
  if (ifname == nullptr || ifidx_out == nullptr || apidx_out == nullptr)
    return -1;
  for (int i = 0; i < 3; ++i) {
    if (strcmp(ifname, kStaIfnames[i]) == 0) {
      *ifidx_out = i;
      *apidx_out = kStaApidx;
      return 0;
    }
  }
  // "rax" before "ra"; the character behind the prefix is taken as a digit
  // unchecked, so "ra" alone gives its terminator minus '0'.
  if (starts_with(ifname, "rax")) {
    *ifidx_out = 1;
    *apidx_out = ifname[3] - '0';
    return 0;
  }
  if (starts_with(ifname, "ra")) {
    *ifidx_out = 0;
    *apidx_out = ifname[2] - '0';
    return 0;
  }
  return -2;
}

int ifname_to_idx(const char *ifname, unsigned char *idx_out) {
  if (ifname == nullptr) return -1;
  for (unsigned char i = 0; i < 3; ++i) {
    if (strcmp(ifname, kStaIfnames[i]) == 0) {
      *idx_out = i;
      return 0;
    }
  }
  return -1;
}
