// GPIO pins through sysfs and the port LED register writes.
#include <string>
#include <vector>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

namespace {

class Gpio : public kivtest::SandboxTest {};

using Lines = std::vector<std::string>;

// The five register writes of each LED mode.
const Lines kLedModes[] = {
    {"reg w 7d00 77771", "reg w 7d04 77776", "reg w 7d10 77771", "reg w 7d14 1",
     "reg w 7d18 76770"},
    {"reg w 7d00 77777", "reg w 7d04 77777", "reg w 7d10 77777", "reg w 7d14 0",
     "reg w 7d18 76770"},
    {"reg w 7d00 77771", "reg w 7d04 77776", "reg w 7d10 77771", "reg w 7d14 1",
     "reg w 7d18 76771"},
};

}  // namespace

TEST_F(Gpio, InitExportsAndSetsDirectionOnlyForNewPins) {
  // An exported pin is left as it is, whatever direction is asked for.
  Sandbox::write_file("/sys/class/gpio/gpio5/value", "0\n");
  Sandbox::write_file("/sys/class/gpio/gpio5/direction", "out\n");
  EXPECT_EQ(GPIOInit(5, 1), 1);
  EXPECT_FALSE(Sandbox::exists("/sys/class/gpio/export"));
  EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/gpio5/direction"), "out\n");

  // A new pin: export, then the direction (the pin directory stands in for
  // what the kernel makes on export).
  for (auto [pin, dir, want] :
       {std::tuple{7, 2, "in\n"}, {8, 0, "out\n"}, {6, 1, "in\n"}}) {
    std::string base = "/sys/class/gpio/gpio" + std::to_string(pin);
    Sandbox::mkdirs(base);
    EXPECT_EQ(GPIOInit(pin, dir), 0);
    EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/export"),
              std::to_string(pin) + "\n");
    EXPECT_EQ(Sandbox::read_file(base + "/direction"), want);
  }
  // The direction command's failure is the result.
  EXPECT_NE(GPIOInit(9, 0), 0);
  EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/export"), "9\n");
}

TEST_F(Gpio, ValueReadAndWrite) {
  Sandbox::write_file("/sys/class/gpio/gpio3/value", "1\n");
  EXPECT_EQ(GetKeyValue(-1, 3), 1);
  EXPECT_EQ(GetKeyValue(0, 4), 0) << "never exported";
  EXPECT_EQ(SetKeyValue(12345, 3, 0), 0);
  EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/gpio3/value"), "0\n");
  EXPECT_EQ(SetKeyValue(0, 4, 1), 0) << "a failed write is not reported";
}

TEST_F(Gpio, PortLedsByModeAndByWorkMode) {
  Sandbox::fake_command("switch");
  Sandbox::fake_command("uci", "echo router");
  // Each call and the mode of LED writes it gives, -1 for none: unknown
  // modes run an empty command.  The WAN switch reads the work mode
  // whatever it is asked; on gives mode 1 in router mode, else 0, and off
  // gives mode 2.
  const struct {
    int (*call)(int);
    int arg, mode;
    const char *work_mode;  // the fake uci's answer, when it changes
  } cases[] = {
      {PortLedIOModeRegInit, 0, 0, nullptr},
      {LanPortLedEn, 1, 1, nullptr},
      {PortLedIOModeRegInit, 3, -1, nullptr},
      {PortLedIOModeRegInit, -1, -1, nullptr},
      {WanPortLedEn, 1, 1, nullptr},
      {WanPortLedEn, 0, 2, "echo bridge"},
      {LanPortLedEn, 2, 2, nullptr},
      {WanPortLedEn, 1, 0, nullptr},
      {WanPortLedEn, 1, 0, "exit 1"},
  };
  Lines want;
  for (const auto &c : cases) {
    if (c.work_mode) Sandbox::fake_command("uci", c.work_mode);
    EXPECT_EQ(c.call(c.arg), 0) << c.arg;
    if (c.mode >= 0)
      want.insert(want.end(), kLedModes[c.mode].begin(),
                  kLedModes[c.mode].end());
    EXPECT_EQ(Sandbox::calls("switch"), want) << c.arg;
  }
  // Neither on nor off: no register, the query's byte count.
  Sandbox::fake_command("uci", "echo repeater");
  EXPECT_EQ(WanPortLedEn(2), 9);
  EXPECT_EQ(Sandbox::calls("switch"), want);
  EXPECT_EQ(Sandbox::calls("uci"), Lines(5, "get network.workmode.mode"));
}
