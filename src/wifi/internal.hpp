// Shared inside the Wi-Fi unit: the driver's radio table, the runner of
// staging commands and the parse of a scan listing.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include "kiv/wifi.h"

namespace kiv::wifi {

// A driver radio (0, 1, 3, 4): its profile zone and its iwpriv interface.
struct DriverRadio {
  const char *zone;
  const char *ifname;
};

// Formats a command into a zeroed 128-byte line (cut at 127 characters
// without a word) and runs it with system(), unlogged; the status is
// dropped.  The staging commands of the wireless configuration go this way.
void run_uci(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

// The radio's row, or null for a refused index (2, and above 4).
const DriverRadio *driver_radio(uint32_t radio);

// Parses an `iw ... scan` listing held in memory as wifi_list_scan_read()
// parses the command's output for the interface ifname: the same lines,
// records and result, and the same messages on stdout.  sites must hold
// capacity (at least 1) zeroed records.
int parse_scan_listing(const char *ifname, const char *text, size_t len,
                       WifiSiteEntry *sites, int capacity);

}  // namespace kiv::wifi
