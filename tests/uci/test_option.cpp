// Single options: reads into small buffers, absent places and their words,
// set and delete through the config files.
#include <gmock/gmock.h>
#include <string.h>
#include <uci.h>

#include <vector>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

using namespace std::string_literals;
using testing::HasSubstr;

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

TEST_F(UciOption, ReadsIntoSmallBuffersAndAbsentPlaces) {
  // 3 + 1 + 8 + 1 + 120 characters: the option name is cut to 113.
  const std::string opt(120, 'o');
  put("net", kNet + ("\toption " + opt.substr(0, 113) + " 'cut'\n"));
  Sandbox::write_file("/tmp/conf/own", "config t 'a'\n\toption o 'mine'\n");
  const struct {
    bool by_name;  // get_uci_option_value, else get_uci_option
    const char *dir, *pkg, *sec, *opt;
    size_t size;
    int ret;
    std::string bytes;  // the 12 bytes of 'x' after the call
  } reads[] = {
      {0, nullptr, "net", "workmode", "mode", 12, 0, "router\0xxxxx"s},
      {0, nullptr, "net", "@route[0]", "target", 12, 0, "10.0.0.0\0xxx"s},
      {0, nullptr, "net", "workmode", "mode", 1, 0, "\0xxxxxxxxxxx"s},
      {0, nullptr, "net", "workmode", "long", 8, 0, "abcdefg\0xxxx"s},
      {0, nullptr, "net", "workmode", "long", 9, 0, "abcdefgh\0xxx"s},
      {0, nullptr, "net", "workmode", opt.c_str(), 12, 0, "cut\0xxxxxxxx"s},
      {0, "/tmp/conf", "own", "a", "o", 12, 0, "mine\0xxxxxxx"s},
      {0, nullptr, "own", "a", "o", 12, -1, "xxxxxxxxxxxx"},
      {0, nullptr, "net", "workmode", "nope", 12, -1, "xxxxxxxxxxxx"},
      {0, nullptr, "net", "lan", "dns", 12, -1, "xxxxxxxxxxxx"},  // a list
      // By name: strncpy into a zero-filled buffer, no terminator when the
      // value fills it, and silent 0 and zeros for what is absent.
      {1, nullptr, "net", "workmode", "long", 8, 1, "abcdefghxxxx"},
      {1, nullptr, "/etc/config/net", "workmode", "long", 10, 1,
       "abcdefgh\0\0xx"s},
      {1, nullptr, "net", "nope", "mode", 12, 0, std::string(12, '\0')},
      {1, nullptr, "net", "workmode", "nope", 12, 0, std::string(12, '\0')},
      {1, nullptr, "net", "lan", "dns", 12, 0, std::string(12, '\0')},
      {1, nullptr, "net", "@route[0]", "target", 12, 0, std::string(12, '\0')},
      {1, nullptr, "nopkg", "a", "b", 12, -1, std::string(12, '\0')},
  };
  std::string out = out_of([&] {
    for (const auto &r : reads) {
      char buf[12];
      memset(buf, 'x', sizeof buf);
      int ret = r.by_name
                    ? get_uci_option_value(r.pkg, r.sec, r.opt, buf, r.size)
                    : get_uci_option(r.dir, r.pkg, r.sec, r.opt, buf, r.size);
      EXPECT_EQ(ret, r.ret) << r.pkg << "." << r.sec << "." << r.opt;
      EXPECT_EQ(std::string(buf, 12), r.bytes) << r.pkg << "." << r.opt;
    }
    EXPECT_EQ(-1, get_uci_option_value("net", "a", "b", nullptr, 4));
  });
  EXPECT_EQ(std::string(25 - strlen("get_uci_option_value"), ' ') +
                "get_uci_option_value[",
            out.substr(0, 26));
  EXPECT_THAT(out, HasSubstr("]: uci_load nopkg error!!!\n"));
  EXPECT_THAT(out, HasSubstr("]: Parameter error!!!\n"));
  EXPECT_EQ(Sandbox::console(),
            "uci_lookup_ptr own failed.find tuple net.workmode.nope failed."
            "find tuple net.lan.dns failed.");
}

TEST_F(UciOption, SetAndDeleteReachTheFile) {
  put("net", kNet);
  char buf[64];
  EXPECT_EQ(0, set_uci_option("net", "workmode", "mode", "it's a bridge"));
  EXPECT_THAT(file("net"), HasSubstr("option mode 'it'\\''s a bridge'"));
  EXPECT_EQ(1, get_uci_option_value("net", "workmode", "mode", buf, 64));
  EXPECT_STREQ("it's a bridge", buf);

  std::string out = out_of([] {
    EXPECT_EQ(-1, set_uci_option("net", "nope", "mode", "x"));
    EXPECT_EQ(-1, set_uci_option("nopkg", "a", "b", "x"));
  });
  EXPECT_THAT(out, testing::StartsWith("[set_uci_option]["));
  EXPECT_THAT(out, HasSubstr("]: Failed to set option: net\n"));
  EXPECT_THAT(out, HasSubstr("]: Failed to lookup option: nopkg\n"));

  EXPECT_EQ(0, set_uci_option_value("net", "lan", "mtu", "1500"));
  EXPECT_EQ(1, get_uci_option_value("net", "lan", "mtu", buf, 64));
  EXPECT_STREQ("1500", buf);
  EXPECT_EQ(0, set_uci_option_value("nopkg", "a", "b", "c"));
  EXPECT_FALSE(Sandbox::exists("/etc/config/nopkg"));

  EXPECT_EQ(0, delUciOption(nullptr, "net", "lan", "mtu"));
  EXPECT_THAT(file("net"), testing::Not(HasSubstr("mtu")));
  out = out_of([] {
    EXPECT_EQ(1, delUciOption(nullptr, "net", "lan", "mtu"));
    EXPECT_EQ(1, delUciOption(nullptr, "nopkg", "a", "b"));
  });
  EXPECT_EQ("[delUciOption]: uci_lookup_ptr nopkg failed.", out);
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/net")) << "nothing staged";

  // In a directory of our own.
  Sandbox::write_file("/tmp/conf/own", "config t 'a'\n\toption o 'x'\n");
  EXPECT_EQ(0, delUciOption("/tmp/conf", "own", "a", "o"));
  EXPECT_EQ("\nconfig t 'a'\n\n", Sandbox::read_file("/tmp/conf/own"));
}

// Each pointer argument null in turn: every call is refused and changes
// nothing.
TEST_F(UciOption, NullArgumentsAreRefused) {
  put("net", kNet);
  const std::string before = file("net");
  char buf[8];
  unsigned count = 9;
  const uci_section_options opts{};
  std::string out = out_of([&] {
    for (size_t i = 0; i < 4; ++i) {
      auto args = [i](std::vector<const char *> v) {
        if (i < v.size()) v[i] = nullptr;
        return v;
      };
      const auto o = args({"net", "lan", "proto", "x"});
      const auto c = args({"net", "net", "interface", "wan"});
      char *b = o[3] ? buf : nullptr;
      EXPECT_EQ(-1, get_uci_option(nullptr, o[0], o[1], o[2], b, 8)) << i;
      EXPECT_EQ(-1, get_uci_option_value(o[0], o[1], o[2], b, 8)) << i;
      EXPECT_EQ(-1, set_uci_option(o[0], o[1], o[2], o[3])) << i;
      EXPECT_EQ(-1, set_uci_option_value(o[0], o[1], o[2], o[3])) << i;
      EXPECT_EQ(1, add_uci_list(nullptr, o[0], o[1], o[2], o[3])) << i;
      EXPECT_EQ(1, del_uci_list(nullptr, o[0], o[1], o[2], o[3])) << i;
      EXPECT_EQ(-1, del_uci_options(c[0], c[1], c[2], c[3])) << i;
      EXPECT_EQ(-1, add_uci_sections(c[0], c[1], c[2], c[3])) << i;
      if (i == 3) continue;
      EXPECT_EQ(1, delUciOption(nullptr, o[0], o[1], o[2])) << i;
      EXPECT_EQ(1, get_uci_list(nullptr, o[0], o[1], o[2], buf, 8, 1, &count));
      EXPECT_EQ(-1, del_uci_sections(c[0], c[1], c[2])) << i;
      if (i == 2) continue;
      EXPECT_EQ(-1, add_new_uci_section_and_option(o[0], o[1], opts)) << i;
      EXPECT_EQ(0, delete_section_options(o[0], o[1])) << i;
      EXPECT_EQ(-1, del_uci_anonymous_section_by_option(o[0], o[1], "o", 0));
      EXPECT_EQ(-1,
                del_uci_anonymous_section_by_option2(o[0], o[1], 0, 0, 0, 0));
      EXPECT_EQ(-1, del_uci_anonymous_section_by_option3(o[0], o[1], 0, 0));
    }
    // No room in a slot or a buffer, or slots without an array.
    EXPECT_EQ(1, get_uci_list(nullptr, "net", "lan", "dns", buf, 0, 1, &count));
    EXPECT_EQ(
        1, get_uci_list(nullptr, "net", "lan", "dns", nullptr, 8, 1, &count));
    EXPECT_EQ(-1, get_uci_option(nullptr, "net", "lan", "proto", buf, 0));
  });
  // Refused before any lookup: no word of a failed one.
  EXPECT_THAT(out + Sandbox::console(), testing::Not(HasSubstr("ailed")));
  EXPECT_EQ(before, file("net"));
  EXPECT_EQ(9u, count);
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/net"));
}

TEST_F(UciOption, SetOptionStringInTheCallersContext) {
  put("net", kNet);
  uci_context *ctx = uci_alloc_context();
  uci_package *p = nullptr;
  ASSERT_EQ(0, uci_load(ctx, "net", &p));
  uci_section *lan = uci_lookup_section(ctx, p, "lan");
  ASSERT_NE(nullptr, lan);

  char fresh[] = "dhcp";
  EXPECT_EQ(-1, uci_set_option_string(ctx, lan, "dns", fresh));
  EXPECT_EQ(UCI_TYPE_LIST, uci_lookup_option(ctx, lan, "dns")->type);
  EXPECT_EQ(-1, uci_set_option_string(ctx, lan, "nope", fresh));
  EXPECT_EQ(-1, uci_set_option_string(nullptr, lan, "proto", fresh));
  EXPECT_EQ(-1, uci_set_option_string(ctx, nullptr, "proto", fresh));
  EXPECT_EQ(-1, uci_set_option_string(ctx, lan, nullptr, fresh));
  EXPECT_EQ(-1, uci_set_option_string(ctx, lan, "proto", nullptr));

  uci_option *o = uci_lookup_option(ctx, lan, "proto");
  char *old = o->v.string;
  EXPECT_EQ(0, uci_set_option_string(ctx, lan, "proto", fresh));
  EXPECT_EQ(fresh, uci_lookup_option_string(ctx, lan, "proto"));
  o->v.string = old;  // the library frees the text it holds at unload
  uci_free_context(ctx);
  EXPECT_THAT(file("net"), HasSubstr("'static'"));
}

}  // namespace
}  // namespace kivtest
