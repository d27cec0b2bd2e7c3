// Staging of an interface's SSID, key and role with `uci set`.  Nothing is
// committed; each command stands alone and its status is not looked at.
#include "kiv/wifi.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

#include "internal.hpp"
#include "util.hpp"

namespace kiv::wifi {

void run_uci(const char *fmt, ...) {
  char cmd[128] = {0};
  va_list ap;
  va_start(ap, fmt);
  kiv::vformat_into(cmd, sizeof cmd, fmt, ap);
  va_end(ap);
  int status = system(cmd);
  (void)status;
}

}  // namespace kiv::wifi

namespace {

using kiv::wifi::run_uci;

bool is_one_of(const char *name, const char *const *names, size_t n) {
  for (size_t i = 0; i < n; ++i)
    if (strcmp(name, names[i]) == 0) return true;
  return false;
}

}  // namespace

int SetWifiBasicPara(const char *ifname, const char *ssid, const char *key) {
  if (ifname == nullptr || ssid == nullptr) {
    KIV_CONSOLE_ERR("param is null\n\n");
    return 1;
  }

  if (strcmp(ifname, "ath03") == 0 || strcmp(ifname, "ath13") == 0) {
    // Station interface of radio 0 or 1: its radio on, channel automatic.
    if (ifname[3] == '0') {
      run_uci("uci set wireless.wifi0.disabled=0");
      run_uci("uci set wireless.wifi0.channel=0");
      igd_system("uci set wireless.ath03.disabled='0'");
    } else {
      run_uci("uci set wireless.wifi1.disabled=0");
      run_uci("uci set wireless.wifi1.channel=0");
      igd_system("uci set wireless.ath13.disabled='0'");
    }
    if (key != nullptr) run_uci("uci set wireless.%s.key=%s", ifname, key);
    run_uci("uci set wireless.%s.ssid=%s", ifname, ssid);
    run_uci("uci set wireless.%s.extap=1", ifname);
    run_uci("uci set wireless.%s.mode=sta", ifname);
    return 0;
  }

  if (key != nullptr) run_uci("uci set wireless.%s.key=%s", ifname, key);

  if (strcmp(ifname, "ath23") == 0) {
    run_uci("uci set wireless.ath23.ssid=%s", ssid);
    run_uci("uci set wireless.ath23.wds=1");
    run_uci("uci set wireless.ath23.mode=sta");
    return 0;
  }

  static constexpr const char *kApIfnames[] = {"ath0", "ath1", "ath2"};
  if (is_one_of(ifname, kApIfnames, sizeof kApIfnames / sizeof *kApIfnames)) {
    run_uci("uci set wireless.%s.mode=ap", ifname);
    return 0;
  }

  KIV_LOG(kiv::kUnitWifi, kiv::kNotice, "invalid iface\n");
  return 1;
}
