// GPIO pins through sysfs and the port LED register writes.
#include <sys/wait.h>

#include <string>
#include <vector>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

namespace {

class Gpio : public kivtest::SandboxTest {};

using Lines = std::vector<std::string>;

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
  Sandbox::mkdirs("/sys/class/gpio/gpio7");
  EXPECT_EQ(GPIOInit(7, 2), 0);
  EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/export"), "7\n");
  EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/gpio7/direction"), "in\n");

  Sandbox::mkdirs("/sys/class/gpio/gpio8");
  EXPECT_EQ(GPIOInit(8, 0), 0);
  EXPECT_EQ(Sandbox::read_file("/sys/class/gpio/gpio8/direction"), "out\n");

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
  EXPECT_EQ(GetKeyValue(0, 3), 0);
  // A failed write is not reported.
  EXPECT_EQ(SetKeyValue(0, 4, 1), 0);
}

TEST_F(Gpio, PortLedModesWriteFiveRegisters) {
  Sandbox::fake_command("switch");
  EXPECT_EQ(PortLedIOModeRegInit(0), 0);
  EXPECT_EQ(Sandbox::calls("switch"),
            (Lines{"reg w 7d00 77771", "reg w 7d04 77776", "reg w 7d10 77771",
                   "reg w 7d14 1", "reg w 7d18 76770"}));

  EXPECT_EQ(LanPortLedEn(1), 0);
  Lines calls = Sandbox::calls("switch");
  ASSERT_EQ(calls.size(), 10u);
  EXPECT_EQ(Lines(calls.begin() + 5, calls.end()),
            (Lines{"reg w 7d00 77777", "reg w 7d04 77777", "reg w 7d10 77777",
                   "reg w 7d14 0", "reg w 7d18 76770"}));

  // Unknown modes run an empty command and write nothing.
  PortLedIOModeRegInit(3);
  PortLedIOModeRegInit(-1);
  EXPECT_EQ(Sandbox::calls("switch").size(), 10u);
}

TEST_F(Gpio, WanLedFollowsTheWorkMode) {
  Sandbox::fake_command("switch");
  Sandbox::fake_command("uci", "echo router");

  EXPECT_EQ(WanPortLedEn(1), 0);
  Lines router = Sandbox::calls("switch");
  ASSERT_EQ(router.size(), 5u);
  EXPECT_EQ(router[0], "reg w 7d00 77777") << "router gives mode 1";

  // Mode 0 by the WAN switch equals mode 2 by the LAN switch, and the WAN
  // switch reads the work mode whatever it is asked.
  Sandbox::fake_command("uci", "echo bridge");
  EXPECT_EQ(WanPortLedEn(0), 0);
  EXPECT_EQ(LanPortLedEn(2), 0);
  Lines calls = Sandbox::calls("switch");
  ASSERT_EQ(calls.size(), 15u);
  EXPECT_EQ(Lines(calls.begin() + 5, calls.begin() + 10),
            Lines(calls.begin() + 10, calls.end()));
  EXPECT_EQ(calls[14], "reg w 7d18 76771");

  // Any other work mode, or none, gives mode 0.
  EXPECT_EQ(WanPortLedEn(1), 0);
  Sandbox::fake_command("uci", "exit 1");
  EXPECT_EQ(WanPortLedEn(1), 0);
  calls = Sandbox::calls("switch");
  ASSERT_EQ(calls.size(), 25u);
  EXPECT_EQ(calls[15], "reg w 7d00 77771");
  EXPECT_EQ(calls[19], "reg w 7d18 76770");
  EXPECT_EQ(calls[24], "reg w 7d18 76770");

  // Neither on nor off: no register, the query's byte count.
  Sandbox::fake_command("uci", "echo repeater");
  EXPECT_EQ(WanPortLedEn(2), 9);
  EXPECT_EQ(Sandbox::calls("switch").size(), 25u);
  EXPECT_EQ(Sandbox::calls("uci"),
            Lines(5, "get network.workmode.mode"));
}
