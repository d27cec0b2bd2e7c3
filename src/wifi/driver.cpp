// Driver parameters by shell command (nvram_set, iwpriv) and by private
// Wireless Extensions request.  Pre-shared keys never reach a log line.
#include "kiv/wifi.h"

#include <linux/wireless.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "internal.hpp"
#include "util.hpp"

namespace kiv::wifi {

const DriverRadio *driver_radio(uint32_t radio) {
  // Index 2 has no radio; 0 and 3 share zone "2860", 1 and 4 "rtdev".
  static constexpr DriverRadio kRadios[] = {
      {"2860", "ra0"}, {"rtdev", "rax0"}, {nullptr, nullptr},
      {"2860", "ra1"}, {"rtdev", "rax1"},
  };
  if (radio >= sizeof kRadios / sizeof kRadios[0]) return nullptr;
  const DriverRadio *row = &kRadios[radio];
  return row->zone ? row : nullptr;
}

}  // namespace kiv::wifi

namespace {

using kiv::wifi::DriverRadio;
using kiv::wifi::driver_radio;

// Client connection status of the AP client interface.
constexpr unsigned long kApcliConnStatus = SIOCIWFIRSTPRIV + 0x1C;
constexpr uint16_t kConnStatusSize = 40;

bool is_zone_2860(const DriverRadio &r) { return strcmp(r.zone, "2860") == 0; }

}  // namespace

int kiv_nvram_set(uint32_t radio, const char *key, const char *value) {
  const DriverRadio *r = driver_radio(radio);
  if (key == nullptr || value == nullptr || r == nullptr) return -1;
  const bool b0 = is_zone_2860(*r);

  if (strstr(key, "WPAPSK") != nullptr) {
    char cmd[256] = {0};
    if (b0)
      kiv::format_into(cmd, sizeof cmd - 1, "nvram_set 2860 %s '%s'", key,
                       value);
    else
      kiv::format_into(cmd, sizeof cmd - 1, "nvram_set rtdev %s '%s'", key,
                       value);
    if (b0)
      KIV_LOG(kiv::kUnitWifi, kiv::kNotice,
              "system_cmd: nvram_set 2860 %s ******", key);
    else
      KIV_LOG(kiv::kUnitWifi, kiv::kNotice,
              "system_cmd: nvram_set rtdev %s ******", key);
    return system(cmd);
  }
  if (b0) return igd_system("nvram_set 2860 %s '%s'", key, value);
  return igd_system("nvram_set rtdev %s '%s'", key, value);
}

int kiv_iwpriv_set(uint32_t radio, const char *key, const char *value) {
  const DriverRadio *r = driver_radio(radio);
  if (key == nullptr || value == nullptr || r == nullptr) return -1;

  char escaped[256] = {0};
  special_character_processing(value, escaped, sizeof escaped);

  if (strcmp(key, "SSID") == 0)
    return igd_system("iwpriv %s set %s=\"%s\"", r->ifname, key, escaped);

  if (strcmp(key, "WPAPSK") == 0) {
    // The key goes raw, between single quotes, and only masked to the log.
    char cmd[256] = {0};
    kiv::format_into(cmd, sizeof cmd - 1, "iwpriv %s set %s='%s'", r->ifname,
                     key, value);
    KIV_LOG(kiv::kUnitWifi, kiv::kNotice, "system_cmd: iwpriv %s set %s=******",
            r->ifname, key);
    return system(cmd);
  }
  return igd_system("iwpriv %s set %s=%s", r->ifname, key, escaped);
}

int kiv_ioctl_get_apclix_connstatus(const char *ifname, char *status_out) {
  if (ifname == nullptr || status_out == nullptr) return -1;
  memset(status_out, 0, kConnStatusSize);

  kiv::Fd sock(socket(AF_INET, SOCK_DGRAM, 0));
  if (!sock) return -1;

  struct iwreq req;
  memset(&req, 0, sizeof req);
  // Sixteen characters at most, with no terminator when the name fills them.
  strncpy(req.ifr_name, ifname, IFNAMSIZ);
  req.u.data.pointer = status_out;
  req.u.data.length = kConnStatusSize;
  req.u.data.flags = 0;

  if (ioctl(sock.get(), kApcliConnStatus, &req) < 0) {
    KIV_CONSOLE_ERR("ioctl fail:cmd=%x\n\n",
                    static_cast<unsigned int>(kApcliConnStatus));
    return -1;
  }
  return 0;
}
