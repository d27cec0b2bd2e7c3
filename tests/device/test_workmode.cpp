// The work mode from /etc/config/network.
#include <gmock/gmock.h>
#include <unistd.h>

#include <string>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

class WorkMode : public kivtest::SandboxTest {};

TEST_F(WorkMode, TextsGiveTheirNumbersAndFailuresAreReported) {
  // Other texts, also near misses and one that fills the whole buffer, are
  // no mode and no failure.  No package, no option, or a list: a failure.
  const struct {
    const char *option_line;
    int mode;
    bool failed;
  } cases[] = {
      {"\toption mode 'repeater'", 3, false},
      {"\toption mode 'wisp'", 4, false},
      {"\toption mode router", 1, false},
      {"\toption mode 'bridge'", 2, false},
      {"\toption mode 'ap'", 0, false},
      {"\toption mode 'Router'", 0, false},
      {"\toption mode 'router2'", 0, false},
      {"\toption mode 'wis'", 0, false},
      {"\toption mode 'routerrouterrouterrouterrouterro'", 0, false},
      {nullptr, 0, true},
      {"\toption other 'router'", 0, true},
      {"\tlist mode 'router'", 0, true},
  };
  for (const auto &c : cases) {
    unlink("/etc/config/network");
    if (c.option_line)
      Sandbox::write_file("/etc/config/network",
                          "config interface 'lan'\n\toption proto 'static'\n\n"
                          "config workmode 'workmode'\n" +
                              std::string(c.option_line) + "\n");
    kivtest::Capture out(1);  // the UCI layer's own words
    EXPECT_EQ(get_work_mode(), c.mode) << c.option_line;
    EXPECT_EQ(
        Sandbox::console(),
        c.failed ? "[kiv-err][get_work_mode:22] get workmode failed\n" : "")
        << c.option_line;
  }
}
