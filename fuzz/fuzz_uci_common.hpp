// Helpers of the libuci fuzz targets.
#pragma once

#include <stdio.h>
#include <stdlib.h>

#include <string>

#include "uci.h"

namespace kivfuzz {

// A package of every kind of node, used as the fixed configuration of the
// tuple and delta targets.
inline constexpr char kNetwork[] =
    "config interface 'lan'\n"
    "\toption ifname 'eth0'\n"
    "\toption proto 'static'\n"
    "\tlist dns '1.1.1.1'\n"
    "\tlist dns '8.8.8.8'\n"
    "\n"
    "config interface 'wan'\n"
    "\toption proto 'dhcp'\n"
    "\n"
    "config route\n"
    "\toption target '10.0.0.0'\n"
    "\n"
    "config route\n"
    "\toption target '10.1.0.0'\n"
    "\n"
    "config alias\n"
    "\toption name 'it'\\''s'\n";

// uci_export of p into a string.
inline std::string export_text(uci_context *ctx, uci_package *p) {
  char *buf = nullptr;
  size_t len = 0;
  FILE *f = open_memstream(&buf, &len);
  if (!f) abort();
  uci_export(ctx, f, p, true);
  fclose(f);
  std::string out(buf, len);
  free(buf);
  return out;
}

}  // namespace kivfuzz
