// Link, mode and system status: the work mode daemon's FIFO and status
// file, Ethernet port and WAN link, DNS servers, factory reset and the
// software version.
#include "kiv/device.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "util.hpp"

namespace {

constexpr const char kWorkModeFifo[] = "/var/run/.work_moded.fifo";
constexpr const char kWorkModeLinkStatus[] = "/tmp/.work_moded_link_status";
constexpr const char kPortStatus[] = "/tmp/portStatus";
constexpr const char kWanCarrier[] = "/sys/class/net/eth1/carrier";
constexpr const char kResolvAuto[] = "/var/resolv.conf.d/resolv.conf.auto";
constexpr const char kVersionFile[] = "/etc/version";

// strncpy(dst, src, size - 1): zero-fills up to that limit and leaves the
// last byte of the buffer alone.
void copy_below_last(char *dst, int size, const char *src) {
  if (dst == nullptr || size < 1) return;
  size_t limit = static_cast<size_t>(size) - 1;
  size_t n = strnlen(src, limit);
  memcpy(dst, src, n);
  memset(dst + n, 0, limit - n);
}

}  // namespace

int wmode_send_msg(const void *buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  // Waits here until the daemon has its end open.
  kiv::Fd fifo(open(kWorkModeFifo, O_WRONLY));
  if (!fifo) {
    const char *why = strerror(errno);
    KIV_CONSOLE_ERR("open %s failed(%s).\n\n", kWorkModeFifo, why);
    return -1;
  }
  int ret = static_cast<int>(write(fifo.get(), buf, static_cast<size_t>(len)));
  KIV_CONSOLE_INFO("ret:%d, msg-len:%d\n\n", ret, len);
  return ret;
}

int wmode_link_status(void) {
  char cmd[256] = {0};
  char out[64] = {0};
  kiv::format_into(cmd, "cat %s", kWorkModeLinkStatus);
  exe_cmd(cmd, out, sizeof out);
  const char *colon = strchr(out, ':');
  return colon != nullptr && colon[1] == '1' ? 1 : 0;
}

int down_up_eth_interface(int32_t skip_port0) {
  int ret = 0;
  for (int port = skip_port0 == 1 ? 1 : 0; port <= 4; ++port) {
    char cmd[128] = {0};
    kiv::format_into(cmd, sizeof cmd - 1, "mii_mgr -s -p %d -r 0 -v 8000",
                     port);
    ret = igd_system("%s", cmd);
  }
  return ret;
}

int kiv_get_port_link_status(int port) {
  char cmd[64] = {0};
  char out[128] = {0};
  // Port 0 is the WAN port, port 2 of the first switch.
  if (port == 0)
    kiv::format_into(cmd, sizeof cmd - 1,
                     "swconfig dev switch0 port 2 get link");
  else
    kiv::format_into(cmd, sizeof cmd - 1,
                     "swconfig dev switch1 port %d get link", port);
  exe_cmd(cmd, out, sizeof out);
  return strstr(out, "link:up") != nullptr ? 1 : 0;
}

int kiv_port_link_status(int port) {
  kiv::File file(fopen(kPortStatus, "r"));
  if (!file) return 0;

  char word[16] = {0};
  // At most 14 characters: a port of ten digits loses its last one.
  kiv::format_into(word, sizeof word - 1, "port %d", port);
  char line[128] = {0};
  while (fgets(line, sizeof line, file.get()) != nullptr) {
    // The word may stand anywhere in the line: "port 1" is also found in
    // a "port 10" line.
    if (strstr(line, word) == nullptr) continue;
    if (strstr(line, "linkup") != nullptr) return 1;
    if (strstr(line, "linkdown") != nullptr) return 0;
  }
  return 0;
}

int GetWanLinkStatus(unsigned char *link_out) {
  if (link_out == nullptr) return -1;
  kiv::File file(fopen(kWanCarrier, "rt"));
  if (!file) return -1;
  char line[8] = {0};
  if (fgets(line, sizeof line, file.get()) != nullptr) {
    if (line[0] == '1')
      *link_out = 1;
    else if (line[0] == '0')
      *link_out = 0;
  }
  return 0;
}

int getWanDnsAdress(char (*dns_slots)[64]) {
  if (dns_slots == nullptr) return -1;
  if (!isFileExist(kResolvAuto)) return -1;
  kiv::File file(fopen(kResolvAuto, "r"));
  if (!file) {
    fprintf(stderr, "Read DNS file error!\n");
    return -1;
  }

  int stored = 0;
  char line[64] = {0};
  while (fgets(line, sizeof line, file.get()) != nullptr) {
    if (strstr(line, "nameserver") == nullptr) continue;
    // Drops the newline; a last line without one loses its last character.
    size_t n = strlen(line);
    if (n > 0) line[n - 1] = '\0';
    const char *blank = strchr(line, ' ');
    if (blank == nullptr) continue;
    const char *addr = blank + 1;
    if (!isIPv4Str(addr)) continue;
    kiv::format_into(dns_slots[stored], 64, "%s", addr);
    if (++stored == 2) break;
  }
  return stored;
}

void getRunTimeDns(char *dns1, int dns1_size, char *dns2, int dns2_size) {
  char slots[3][64];
  memset(slots, 0, sizeof slots);
  int found = getWanDnsAdress(slots);
  copy_below_last(dns1, dns1_size, found >= 1 ? slots[0] : "");
  copy_below_last(dns2, dns2_size, found >= 2 ? slots[1] : "");
}

int kiv_restore_default(void) {
  system("fact telnet 0");
  return system("jffs2reset -y -r");
}

int kiv_get_software_version(char *version_out) {
  if (version_out == nullptr) return 1;
  kiv::File file(fopen(kVersionFile, "r"));
  if (!file) return 1;

  // A line holds at most 255 characters, so the quoted text, behind
  // "VERSION=" and between two quotes, has at most 245: with its
  // terminator no more than 246 bytes are written.
  constexpr size_t kMaxVersion = 245;
  char line[256] = {0};
  while (fgets(line, sizeof line, file.get()) != nullptr) {
    if (strncmp(line, "VERSION=", 8) != 0) continue;
    const char *first = strchr(line, '"');
    if (first == nullptr) continue;
    const char *second = strchr(first + 1, '"');
    if (second == nullptr) continue;
    size_t n = static_cast<size_t>(second - (first + 1));
    if (n > kMaxVersion) n = kMaxVersion;
    memcpy(version_out, first + 1, n);
    version_out[n] = '\0';
    return 0;
  }
  return 1;
}
