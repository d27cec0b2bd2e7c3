// The work mode from /etc/config/network.
#include <string>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

namespace {

class WorkMode : public kivtest::SandboxTest {
 protected:
  static void set_mode(const std::string &option_line) {
    Sandbox::write_file("/etc/config/network",
                        "config interface 'lan'\n"
                        "\toption proto 'static'\n\n"
                        "config workmode 'workmode'\n" +
                            option_line + "\n");
  }
};

bool reports_failure(const std::string &console) {
  return console.rfind("[kiv-err][get_work_mode:", 0) == 0 &&
         console.find("] get workmode failed\n") != std::string::npos;
}

}  // namespace

TEST_F(WorkMode, TextsGiveTheirNumbers) {
  set_mode("\toption mode 'repeater'");
  EXPECT_EQ(get_work_mode(), 3);
  set_mode("\toption mode 'wisp'");
  EXPECT_EQ(get_work_mode(), 4);
  set_mode("\toption mode router");
  EXPECT_EQ(get_work_mode(), 1);
  set_mode("\toption mode 'bridge'");
  EXPECT_EQ(get_work_mode(), 2);
  EXPECT_EQ(Sandbox::console(), "");

  // Other texts, also near misses and one that fills the whole buffer, are
  // no mode and no failure.
  for (const char *text : {"ap", "Router", "router2", "wis",
                           "routerrouterrouterrouterrouterro"}) {
    set_mode(std::string("\toption mode '") + text + "'");
    EXPECT_EQ(get_work_mode(), 0) << text;
  }
  EXPECT_EQ(Sandbox::console(), "");
}

TEST_F(WorkMode, UnreadableOptionIsReported) {
  testing::internal::CaptureStdout();  // the UCI layer's own words
  EXPECT_EQ(get_work_mode(), 0) << "no network package";
  EXPECT_TRUE(reports_failure(Sandbox::console()));

  set_mode("\toption other 'router'");
  EXPECT_EQ(get_work_mode(), 0) << "no mode option";
  EXPECT_TRUE(reports_failure(Sandbox::console()));

  set_mode("\tlist mode 'router'");
  EXPECT_EQ(get_work_mode(), 0) << "a list is no text";
  EXPECT_TRUE(reports_failure(Sandbox::console()));
  testing::internal::GetCapturedStdout();
}
