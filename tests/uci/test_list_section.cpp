// List options and section maintenance, checked through the config files.
#include <gmock/gmock.h>
#include <string.h>

#include <string>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

using testing::HasSubstr;
using testing::Not;

class UciList : public UciTest {};
class UciSection : public UciTest {};

TEST_F(UciList, AddReadAndRemoveItems) {
  put("net", "config interface 'lan'\n\toption proto 'static'\n");
  EXPECT_EQ(0, add_uci_list(nullptr, "net", "lan", "dns", "1.1.1.1"));
  EXPECT_EQ(0, add_uci_list(nullptr, "net", "@interface[0]", "dns", "8.8.8.8"));
  EXPECT_EQ(0, add_uci_list(nullptr, "net", "lan", "dns", "a-long-item"));
  EXPECT_THAT(file("net"), HasSubstr("\tlist dns '1.1.1.1'\n\tlist dns "
                                     "'8.8.8.8'\n\tlist dns 'a-long-item'\n"));

  // Slots of 8 bytes, two of them: the third item is left out silently.
  // Slots of 3: 3 bytes of each item and no terminator.  No slots: the
  // count only.  Failures leave items and count alone.
  const struct {
    const char *pkg, *opt;
    size_t size;
    unsigned max;
    int ret;
    unsigned count;
    std::string bytes;  // the first 24 bytes of 'x' after the call
  } reads[] = {
      {"net", "dns", 8, 2, 0, 2,
       std::string("1.1.1.1\0008.8.8.8\0xxxxxxxx", 24)},
      {"net", "dns", 3, 4, 0, 3, "1.18.8a-l" + std::string(15, 'x')},
      {"net", "dns", 8, 0, 0, 0, std::string(24, 'x')},
      {"net", "proto", 8, 4, 1, 99, std::string(24, 'x')},
      {"net", "nope", 8, 4, 1, 99, std::string(24, 'x')},
      {"nopkg", "dns", 8, 4, 1, 99, std::string(24, 'x')},
  };
  std::string out = out_of([&] {
    for (const auto &r : reads) {
      char items[24];
      memset(items, 'x', sizeof items);
      unsigned count = 99;
      EXPECT_EQ(r.ret, get_uci_list(nullptr, r.pkg, "lan", r.opt, items, r.size,
                                    r.max, &count));
      EXPECT_EQ(r.count, count) << r.opt << " " << r.size;
      EXPECT_EQ(r.bytes, std::string(items, 24)) << r.opt << " " << r.size;
    }
  });
  EXPECT_EQ(
      "[get_uci_list]: proto type is not list.\r\n"
      "[get_uci_list]: find tuple net.lan.nope failed.\r\n"
      "[get_uci_list]: uci_lookup_ptr failed by nopkg.\r\n",
      out);

  EXPECT_EQ(0, del_uci_list(nullptr, "net", "lan", "dns", "8.8.8.8"));
  EXPECT_THAT(file("net"), Not(HasSubstr("8.8.8.8")));
  EXPECT_THAT(file("net"), HasSubstr("1.1.1.1"));
  out = out_of([] {
    EXPECT_EQ(1, add_uci_list(nullptr, "net", "nope", "dns", "1"));
    EXPECT_EQ(1, del_uci_list(nullptr, "nopkg", "lan", "dns", "1"));
  });
  EXPECT_EQ(
      "[add_uci_list]: uci_add_list failed for net.\r\n"
      "[del_uci_list]: uci_lookup_ptr failed by nopkg.\r\n",
      out);

  // A configuration directory of our own.
  Sandbox::write_file("/tmp/conf/own", "config t 'a'\n");
  EXPECT_EQ(0, add_uci_list("/tmp/conf", "own", "a", "l", "v"));
  EXPECT_THAT(Sandbox::read_file("/tmp/conf/own"), HasSubstr("list l 'v'"));
}

TEST_F(UciSection, AddSectionsWithOptions) {
  put("net", "config interface 'lan'\n");
  uci_section_options opts = {};
  opts.pairs[0] = {"a", "1"};
  opts.pairs[1] = {"b", "2"};
  opts.pairs[2] = {"c", nullptr};
  opts.pairs[3] = {nullptr, "4"};
  opts.pairs[4] = {"e", "5"};
  opts.count = 5;
  EXPECT_EQ(0, add_new_uci_section_and_option("net", "route", opts));
  opts.count = 0;
  EXPECT_EQ(0, add_new_uci_section_and_option("net", "empty", opts));
  // A path loads but is no package name: nothing is added.
  EXPECT_EQ(0, add_new_uci_section_and_option("/etc/config/net", "x", opts));
  EXPECT_EQ(-1, add_new_uci_section_and_option("nopkg", "x", opts));
  EXPECT_EQ(-1, add_new_uci_section_and_option(nullptr, "x", opts));
  EXPECT_EQ(file("net"),
            "\nconfig interface 'lan'\n\nconfig route\n\toption a '1'\n"
            "\toption b '2'\n\toption e '5'\n\nconfig empty\n\n");

  // Named sections, and their removal.
  EXPECT_EQ(0, add_uci_sections("net", "net", "interface", "wan"));
  EXPECT_THAT(file("net"), HasSubstr("config interface 'wan'\n"));
  EXPECT_EQ(0, set_uci_option("net", "wan", "proto", "dhcp"));
  EXPECT_EQ(0, del_uci_options("/etc/config/net", "net", "wan", "proto"));
  EXPECT_THAT(file("net"), Not(HasSubstr("dhcp")));
  EXPECT_EQ(0, del_uci_sections("net", "net", "wan"));
  EXPECT_THAT(file("net"), Not(HasSubstr("wan")));
  EXPECT_EQ(0, del_uci_sections("net", "net", "wan"));

  std::string out = out_of([] {
    EXPECT_EQ(-1, del_uci_sections("nopkg", "nopkg", "a"));
    EXPECT_EQ(-1, add_uci_sections("nopkg", "nopkg", "t", "a"));
    EXPECT_EQ(-1, del_uci_options("net", "net", nullptr, "a"));
  });
  EXPECT_THAT(out, HasSubstr("]: uci_load nopkg error(a)!!!\n"));
  EXPECT_THAT(out, HasSubstr("]: uci_load nopkg error (a)!!!\n"));
  EXPECT_THAT(out, HasSubstr("]: Parameter error!!!\n"));
}

TEST_F(UciSection, DeleteSectionOptionsInTwoPhases) {
  std::string text = "config t 'none'\nconfig t 'five'\n";
  for (int i = 0; i < 4; ++i)
    text += "\toption o" + std::to_string(i) + " 'v'\n";
  text += "\tlist l 'x'\nconfig t 'forty'\n";
  for (int i = 0; i < 40; ++i)
    text += "\toption p" + std::to_string(i) + " 'v'\n";
  put("pk", text);

  std::string out = heads_off(out_of([] {
    EXPECT_EQ(1, delete_section_options("pk", "none"));
    EXPECT_EQ(1, delete_section_options("pk", "five"));
  }));
  for (const char *line :
       {"Found 0 options to delete in section none\n",
        "Successfully deleted 0 options in section none\n",
        "Found 5 options to delete in section five\n", "Deleting option: l\n",
        "Successfully committed changes for section five\n"})
    EXPECT_THAT(out, HasSubstr(line));
  EXPECT_EQ(4, occurrences(out, "Found option: o"));  // the list is not shown
  EXPECT_THAT(file("pk"), HasSubstr("config t 'five'\n\nconfig t 'forty'"));

  out = heads_off(
      out_of([] { EXPECT_EQ(1, delete_section_options("pk", "forty")); }));
  EXPECT_EQ(40, occurrences(out, "Found option: p"));
  EXPECT_THAT(out,
              HasSubstr("Successfully deleted 32 options in section forty"));
  EXPECT_EQ(8, occurrences(file("pk"), "\toption p"));
  EXPECT_THAT(file("pk"), HasSubstr("option p32 "));
  out_of([] { delete_section_options("/etc/config/pk", "forty"); });
  EXPECT_EQ(0, occurrences(file("pk"), "\toption p"));

  out = heads_off(out_of([] {
    EXPECT_EQ(0, delete_section_options("pk", "nope"));
    EXPECT_EQ(0, delete_section_options("nopkg", "a"));
  }));
  EXPECT_EQ(out,
            "Failed to lookup section 'nope' in package 'pk'\n"
            "Failed to load config package 'nopkg': 3\n");
}

TEST_F(UciSection, FailedCommitIsReverted) {
  put("pk", "config t 'a'\n\toption o 'v'\n\toption k 'w'\n");
  const std::string before = file("pk");
  freeze_config_dir();
  std::string out =
      out_of([] { EXPECT_EQ(0, delete_section_options("pk", "a")); });
  EXPECT_THAT(out, HasSubstr("]: Failed to commit changes: "));
  EXPECT_THAT(out, Not(HasSubstr("Successfully committed")));
  // Nothing is left staged to surface in a later commit.
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/pk"));

  // set_uci_option tells a failed commit; where the commit's result is
  // ignored, the call still succeeds.
  out = out_of([] { EXPECT_EQ(-1, set_uci_option("pk", "a", "o", "new")); });
  EXPECT_THAT(out, HasSubstr("]: Failed to commit changes for option: pk\n"));
  EXPECT_EQ(0, set_uci_option_value("pk", "a", "o", "new"));
  EXPECT_EQ(0, add_uci_list(nullptr, "pk", "a", "l", "x"));
  EXPECT_EQ(0, delUciOption(nullptr, "pk", "a", "k"));
  EXPECT_EQ(0, del_uci_sections("pk", "pk", "a"));
  EXPECT_EQ(before, file("pk"));
}

}  // namespace
}  // namespace kivtest
