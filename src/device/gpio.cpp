// GPIO pins through the sysfs files and the Ethernet port LEDs through the
// switch's registers, all by shell commands.
#include "kiv/device.h"

#include <stdlib.h>
#include <string.h>

#include "util.hpp"

namespace {

// One command line of five register writes for each port LED mode.
constexpr const char *kPortLedModes[] = {
    "switch reg w 7d00 77771;switch reg w 7d04 77776;"
    "switch reg w 7d10 77771;switch reg w 7d14 1;switch reg w 7d18 76770",
    "switch reg w 7d00 77777;switch reg w 7d04 77777;"
    "switch reg w 7d10 77777;switch reg w 7d14 0;switch reg w 7d18 76770",
    "switch reg w 7d00 77771;switch reg w 7d04 77776;"
    "switch reg w 7d10 77771;switch reg w 7d14 1;switch reg w 7d18 76771",
};

}  // namespace

int GPIOInit(int gpio, int direction) {
  char path[64] = {0};
  kiv::format_into(path, sizeof path - 1, "/sys/class/gpio/gpio%d/value",
                   gpio);
  // An exported pin keeps whatever direction it was given before.
  if (is_file_exist(path)) return 1;

  igd_system("echo %d > /sys/class/gpio/export", gpio);
  if (direction != 0)
    return igd_system("echo in > /sys/class/gpio/gpio%d/direction", gpio);
  return igd_system("echo out > /sys/class/gpio/gpio%d/direction", gpio);
}

int GetKeyValue(int unused, int gpio) {
  (void)unused;
  char cmd[64] = {0};
  char out[64] = {0};
  kiv::format_into(cmd, "cat /sys/class/gpio/gpio%d/value", gpio);
  exe_cmd(cmd, out, sizeof out);
  return atoi(out);
}

int SetKeyValue(int unused, int gpio, int value) {
  (void)unused;
  char cmd[64] = {0};
  kiv::format_into(cmd, "echo %d > /sys/class/gpio/gpio%d/value", value,
                   gpio);
  exe_cmd(cmd, nullptr, 0);
  return 0;
}

int PortLedIOModeRegInit(int mode) {
  char cmd[1024] = {0};
  if (mode >= 0 && mode < static_cast<int>(sizeof kPortLedModes /
                                           sizeof kPortLedModes[0]))
    kiv::format_into(cmd, "%s", kPortLedModes[mode]);
  // An unknown mode still goes through igd_system, as an empty command.
  return igd_system("%s", cmd);
}

int WanPortLedEn(int on) {
  char mode[128] = {0};
  int got = exe_cmd("uci get network.workmode.mode", mode, sizeof mode);
  int led;
  if (on == 1)
    led = strcmp(mode, "router") == 0 ? 1 : 0;
  else if (on == 0)
    led = 2;
  else
    return got;
  return PortLedIOModeRegInit(led);
}

int LanPortLedEn(int mode) { return PortLedIOModeRegInit(mode); }
