// Single options: reads into small buffers, absent places and their words,
// set and delete through the config files.
#include <string.h>
#include <uci.h>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

const char kNet[] =
    "config interface 'lan'\n"
    "\toption proto 'static'\n"
    "\tlist dns '1.1.1.1'\n"
    "config route\n"
    "\toption target '10.0.0.0'\n"
    "config workmode 'workmode'\n"
    "\toption mode 'router'\n"
    "\toption long 'abcdefgh'\n";

class UciOption : public UciTest {};

TEST_F(UciOption, ReadsIntoSmallBuffers) {
  put("net", kNet);
  char buf[16];

  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(0, get_uci_option(nullptr, "net", "workmode", "mode", buf, sizeof buf));
  EXPECT_STREQ("router", buf);
  EXPECT_EQ(0, get_uci_option(nullptr, "net", "@route[0]", "target", buf, sizeof buf));
  EXPECT_STREQ("10.0.0.0", buf);

  // Size 1: only the terminator.
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(0, get_uci_option(nullptr, "net", "workmode", "mode", buf, 1));
  EXPECT_EQ('\0', buf[0]);
  EXPECT_EQ('x', buf[1]);

  // The same 8-character value into 8 bytes: cut and terminated here ...
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(0, get_uci_option(nullptr, "net", "workmode", "long", buf, 8));
  EXPECT_STREQ("abcdefg", buf);
  // ... all 8 bytes and no terminator there.
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(1, get_uci_option_value("net", "workmode", "long", buf, 8));
  EXPECT_EQ(0, memcmp(buf, "abcdefgh", 8));
  EXPECT_EQ('x', buf[8]);
  // An exact fit with room for the terminator, zero-filled behind it.
  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(1, get_uci_option_value("/etc/config/net", "workmode", "long", buf, 10));
  EXPECT_STREQ("abcdefgh", buf);
  EXPECT_EQ('\0', buf[9]);
  EXPECT_EQ('x', buf[10]);
  EXPECT_EQ(0, get_uci_option(nullptr, "net", "workmode", "long", buf, 9));
  EXPECT_STREQ("abcdefgh", buf);

  // A configuration directory of our own.
  Sandbox::write_file("/tmp/conf/own", "config t 'a'\n\toption o 'mine'\n");
  EXPECT_EQ(0, get_uci_option("/tmp/conf", "own", "a", "o", buf, sizeof buf));
  EXPECT_STREQ("mine", buf);
  EXPECT_EQ(-1, get_uci_option(nullptr, "own", "a", "o", buf, sizeof buf));
  EXPECT_EQ("uci_lookup_ptr own failed.", Sandbox::console());
}

TEST_F(UciOption, AbsentPlacesAndTheirWords) {
  put("net", kNet);
  char buf[8];

  memset(buf, 'x', sizeof buf);
  EXPECT_EQ(-1, get_uci_option(nullptr, "net", "workmode", "nope", buf, sizeof buf));
  EXPECT_EQ("find tuple net.workmode.nope failed.", Sandbox::console());
  EXPECT_EQ(-1, get_uci_option(nullptr, "nopkg", "a", "b", buf, sizeof buf));
  EXPECT_EQ("uci_lookup_ptr nopkg failed.", Sandbox::console());
  // A list has no string to give.
  EXPECT_EQ(-1, get_uci_option(nullptr, "net", "lan", "dns", buf, sizeof buf));
  EXPECT_EQ('x', buf[0]);

  // get_uci_option_value: silent 0 and an empty buffer for what is absent.
  std::string out = out_of([&] {
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(0, get_uci_option_value("net", "nope", "mode", buf, sizeof buf));
    EXPECT_EQ(0, get_uci_option_value("net", "workmode", "nope", buf, sizeof buf));
    EXPECT_EQ(0, get_uci_option_value("net", "lan", "dns", buf, sizeof buf));
    EXPECT_EQ(0, get_uci_option_value("net", "@route[0]", "target", buf, sizeof buf));
  });
  EXPECT_EQ("", out);
  EXPECT_EQ(std::string(sizeof buf, '\0'), std::string(buf, sizeof buf));

  out = out_of([&] {
    EXPECT_EQ(-1, get_uci_option_value("nopkg", "a", "b", buf, sizeof buf));
    EXPECT_EQ(-1, get_uci_option_value("net", "a", "b", nullptr, 4));
  });
  EXPECT_NE(std::string::npos, out.find("]: uci_load nopkg error!!!\n"));
  EXPECT_NE(std::string::npos, out.find("]: Parameter error!!!\n"));
  EXPECT_EQ(std::string(25 - strlen("get_uci_option_value"), ' ') +
                "get_uci_option_value[",
            out.substr(0, 26));
}

TEST_F(UciOption, SetAndDeleteReachTheFile) {
  put("net", kNet);
  char buf[64];

  EXPECT_EQ(0, set_uci_option("net", "workmode", "mode", "it's a bridge"));
  EXPECT_NE(std::string::npos, file("net").find("option mode 'it'\\''s a bridge'"));
  EXPECT_EQ(1, get_uci_option_value("net", "workmode", "mode", buf, sizeof buf));
  EXPECT_STREQ("it's a bridge", buf);

  std::string out = out_of([] {
    EXPECT_EQ(-1, set_uci_option("net", "nope", "mode", "x"));
    EXPECT_EQ(-1, set_uci_option("nopkg", "a", "b", "x"));
  });
  EXPECT_EQ(0u, out.find("[set_uci_option]["));
  EXPECT_NE(std::string::npos, out.find("]: Failed to set option: net\n"));
  EXPECT_NE(std::string::npos, out.find("]: Failed to lookup option: nopkg\n"));

  EXPECT_EQ(0, set_uci_option_value("net", "lan", "mtu", "1500"));
  EXPECT_EQ(1, get_uci_option_value("net", "lan", "mtu", buf, sizeof buf));
  EXPECT_STREQ("1500", buf);
  EXPECT_EQ(0, set_uci_option_value("nopkg", "a", "b", "c"));
  EXPECT_FALSE(Sandbox::exists("/etc/config/nopkg"));

  EXPECT_EQ(0, delUciOption(nullptr, "net", "lan", "mtu"));
  EXPECT_EQ(std::string::npos, file("net").find("mtu"));
  out = out_of([] { EXPECT_EQ(1, delUciOption(nullptr, "net", "lan", "mtu")); });
  EXPECT_EQ("", out);
  out = out_of([] { EXPECT_EQ(1, delUciOption(nullptr, "nopkg", "a", "b")); });
  EXPECT_EQ("[delUciOption]: uci_lookup_ptr nopkg failed.", out);
  // Nothing stays staged.
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/net"));

  // In a directory of our own.
  Sandbox::write_file("/tmp/conf/own", "config t 'a'\n\toption o 'x'\n\toption k 'y'\n");
  EXPECT_EQ(0, delUciOption("/tmp/conf", "own", "a", "o"));
  EXPECT_EQ(std::string::npos, Sandbox::read_file("/tmp/conf/own").find("'x'"));
}

TEST_F(UciOption, SetOptionStringInTheCallersContext) {
  put("net", kNet);
  uci_context *ctx = uci_alloc_context();
  ASSERT_NE(nullptr, ctx);
  uci_package *p = nullptr;
  ASSERT_EQ(0, uci_load(ctx, "net", &p));
  uci_section *lan = uci_lookup_section(ctx, p, "lan");
  ASSERT_NE(nullptr, lan);

  char fresh[] = "dhcp";
  EXPECT_EQ(-1, uci_set_option_string(ctx, lan, "dns", fresh));
  EXPECT_EQ(UCI_TYPE_LIST, uci_lookup_option(ctx, lan, "dns")->type);
  EXPECT_EQ(-1, uci_set_option_string(ctx, lan, "nope", fresh));

  uci_option *o = uci_lookup_option(ctx, lan, "proto");
  char *old = o->v.string;
  EXPECT_EQ(0, uci_set_option_string(ctx, lan, "proto", fresh));
  EXPECT_EQ(fresh, uci_lookup_option_string(ctx, lan, "proto"));
  o->v.string = old;  // the library frees the text it holds at unload
  uci_free_context(ctx);
  EXPECT_NE(std::string::npos, file("net").find("'static'"));
}

TEST_F(UciOption, LongTuplesAreCutAndNothingLeaks) {
  put("net", kNet);
  char buf[16];
  // 3 + 1 + 8 + 1 + 120 characters: the option name is cut to 113.
  std::string opt(120, 'o');
  Sandbox::write_file("/etc/config/net",
                      std::string(kNet) + "\toption " + opt.substr(0, 113) + " 'cut'\n");
  const int fds = open_fd_count();
  EXPECT_EQ(0, get_uci_option(nullptr, "net", "workmode", opt.c_str(), buf, sizeof buf));
  EXPECT_STREQ("cut", buf);
  for (int i = 0; i < 3; ++i) {
    get_uci_option_value("net", "workmode", "mode", buf, sizeof buf);
    get_uci_option(nullptr, "nopkg", "a", "b", buf, sizeof buf);
    set_uci_option("net", "workmode", "mode", "router");
  }
  Sandbox::console();
  EXPECT_EQ(fds, open_fd_count());
}

}  // namespace
}  // namespace kivtest
