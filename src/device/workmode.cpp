// The device's work mode, read from the network configuration.
#include "kiv/device.h"

#include <string.h>

#include "kiv/ucicfg.h"
#include "util.hpp"

namespace {

constexpr const char kNetworkConfig[] = "/etc/config/network";

// Option texts of the work modes 1 to 4, in order.
constexpr const char *kWorkModes[] = {"router", "bridge", "repeater", "wisp"};

}  // namespace

int get_work_mode(void) {
  char mode[32] = {0};
  if (get_uci_option_value(kNetworkConfig, "workmode", "mode", mode,
                           sizeof mode) <= 0) {
    KIV_CONSOLE_ERR("get workmode failed\n");
    return KIV_WORK_MODE_NONE;
  }
  // A text that fills the buffer comes without a terminator; none of the
  // mode names is that long, so it simply matches nothing.
  size_t len = strnlen(mode, sizeof mode);
  for (size_t i = 0; i < sizeof kWorkModes / sizeof kWorkModes[0]; ++i) {
    if (strlen(kWorkModes[i]) == len && memcmp(mode, kWorkModes[i], len) == 0)
      return static_cast<int>(i) + 1;
  }
  return KIV_WORK_MODE_NONE;
}
