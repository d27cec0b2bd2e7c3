// Staging of the security options that belong to a combined security code
// (the code a site survey stores in `security`).
#include "kiv/wifi.h"

#include <string.h>

#include "internal.hpp"
#include "kiv/ucicfg.h"
#include "util.hpp"

namespace {

using kiv::wifi::run_uci;

// Security codes with options of their own.
enum SecurityCode : int {
  kWpa = 1,
  kWpa2PskAes = 2,
  kWpaWpa2Psk = 3,
  kWpa3Aes = 4,
  kWpa2PskWpa3Aes = 5,
};

// The SAE options that WPA3 sets.
void set_sae_options(const char *ifname) {
  run_uci("uci set wireless.%s.sae=1", ifname);
  run_uci("uci set wireless.%s.sae_confirm_immediate=1", ifname);
  run_uci("uci set wireless.%s.force_invalid_group=1", ifname);
  run_uci("uci set wireless.%s.ieee80211w=2", ifname);
}

}  // namespace

int SetWifiParaByEncrypt(const char *ifname, int enc) {
  if (ifname == nullptr) {
    KIV_CONSOLE_ERR("param is null\n\n");
    return 1;
  }

  // Read before any command of this call.  One byte more than is read, so
  // that a value filling all four bytes still ends.
  char sae_text[4 + 1] = {0};
  const bool sae = get_uci_option_value("/etc/config/wireless", ifname, "sae",
                                        sae_text, 4) > 0 &&
                   strcmp(sae_text, "1") == 0;
  console_printf("[%25s][%4d]:--enc=%d-saeStr=%s-sae=%d\n", __func__,
                 __LINE__, enc, sae_text, sae ? 1 : 0);

  run_uci("uci set wireless.%s=wifi-iface", ifname);
  run_uci("uci set wireless.%s.disabled=0", ifname);

  switch (enc) {
    case kWpa:
      run_uci("uci set wireless.%s.encryption=psk", ifname);
      break;
    case kWpa2PskAes:
    case kWpaWpa2Psk:
      run_uci("uci set wireless.%s.encryption=psk2+ccmp", ifname);
      break;
    case kWpa3Aes:
      run_uci("uci set wireless.%s.encryption=ccmp", ifname);
      set_sae_options(ifname);
      run_uci("uci delete wireless.%s.owe=1", ifname);
      return 0;
    case kWpa2PskWpa3Aes:
      run_uci("uci set wireless.%s.encryption=psk2+ccmp", ifname);
      set_sae_options(ifname);
      return 0;
    default:  // 0 "none", and every code without options of its own
      run_uci("uci set wireless.%s.encryption=none", ifname);
      if (strcmp(ifname, "ath23") == 0 || strcmp(ifname, "ath2") == 0) {
        // The 6 GHz interfaces are never open: OWE instead.
        run_uci("uci set wireless.%s.encryption=ccmp", ifname);
        run_uci("uci set wireless.%s.owe=1", ifname);
      }
      break;
  }

  if (!sae) {
    run_uci("uci delete wireless.%s.sae=1", ifname);
    run_uci("uci delete wireless.%s.sae_confirm_immediate=1", ifname);
    run_uci("uci delete wireless.%s.force_invalid_group=1", ifname);
    run_uci("uci delete wireless.%s.ieee80211w=2", ifname);
  }
  return 0;
}
