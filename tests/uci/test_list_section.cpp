// List options and section maintenance, checked through the config files.
#include <string.h>

#include <string>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

class UciList : public UciTest {};
class UciSection : public UciTest {};

TEST_F(UciList, AddReadAndRemoveItems) {
  put("net", "config interface 'lan'\n\toption proto 'static'\n");

  EXPECT_EQ(0, add_uci_list(nullptr, "net", "lan", "dns", "1.1.1.1"));
  EXPECT_EQ(0, add_uci_list(nullptr, "net", "@interface[0]", "dns", "8.8.8.8"));
  EXPECT_EQ(0, add_uci_list(nullptr, "net", "lan", "dns", "a-long-item"));
  EXPECT_NE(std::string::npos,
            file("net").find("\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n"
                             "\tlist dns 'a-long-item'\n"));

  // Two slots of 8 bytes: the third item is left out without a word.
  char items[4][8];
  memset(items, 'x', sizeof items);
  unsigned count = 99;
  EXPECT_EQ(0, get_uci_list(nullptr, "net", "lan", "dns", &items[0][0], 8, 2, &count));
  EXPECT_EQ(2u, count);
  EXPECT_STREQ("1.1.1.1", items[0]);
  EXPECT_STREQ("8.8.8.8", items[1]);
  EXPECT_EQ('x', items[2][0]);

  // Slots of 3 bytes: 3 bytes of each item and no terminator.
  memset(items, 'x', sizeof items);
  EXPECT_EQ(0, get_uci_list(nullptr, "net", "lan", "dns", &items[0][0], 3, 4, nullptr));
  EXPECT_EQ(std::string("1.18.8a-lx", 10), std::string(&items[0][0], 10));

  // max_items 0 writes nothing but the count.
  count = 99;
  EXPECT_EQ(0, get_uci_list(nullptr, "net", "lan", "dns", nullptr, 8, 0, &count));
  EXPECT_EQ(0u, count);

  // Failures leave items and count alone.
  count = 99;
  memset(items, 'x', sizeof items);
  std::string out = out_of([&] {
    EXPECT_EQ(1, get_uci_list(nullptr, "net", "lan", "proto", &items[0][0], 8, 4, &count));
    EXPECT_EQ(1, get_uci_list(nullptr, "net", "lan", "nope", &items[0][0], 8, 4, &count));
    EXPECT_EQ(1, get_uci_list(nullptr, "nopkg", "lan", "dns", &items[0][0], 8, 4, &count));
  });
  EXPECT_EQ(
      "[get_uci_list]: proto type is not list.\r\n"
      "[get_uci_list]: find tuple net.lan.nope failed.\r\n"
      "[get_uci_list]: uci_lookup_ptr failed by nopkg.\r\n",
      out);
  EXPECT_EQ(99u, count);
  EXPECT_EQ('x', items[0][0]);

  EXPECT_EQ(0, del_uci_list(nullptr, "net", "lan", "dns", "8.8.8.8"));
  EXPECT_EQ(std::string::npos, file("net").find("8.8.8.8"));
  EXPECT_NE(std::string::npos, file("net").find("1.1.1.1"));
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
  EXPECT_NE(std::string::npos, Sandbox::read_file("/tmp/conf/own").find("list l 'v'"));
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
  EXPECT_NE(std::string::npos,
            file("net").find("\nconfig route\n\toption a '1'\n\toption b '2'\n"
                             "\toption e '5'\n"));

  opts.count = 0;
  EXPECT_EQ(0, add_new_uci_section_and_option("net", "empty", opts));
  EXPECT_NE(std::string::npos, file("net").find("\nconfig empty\n"));

  // A path loads but is no package name: nothing is added.
  std::string before = file("net");
  EXPECT_EQ(0, add_new_uci_section_and_option("/etc/config/net", "x", opts));
  EXPECT_EQ(before, file("net"));
  EXPECT_EQ(-1, add_new_uci_section_and_option("nopkg", "x", opts));
  EXPECT_EQ(-1, add_new_uci_section_and_option(nullptr, "x", opts));

  // Named sections, and their removal.
  EXPECT_EQ(0, add_uci_sections("net", "net", "interface", "wan"));
  EXPECT_NE(std::string::npos, file("net").find("config interface 'wan'\n"));
  EXPECT_EQ(0, set_uci_option("net", "wan", "proto", "dhcp"));
  EXPECT_EQ(0, del_uci_options("/etc/config/net", "net", "wan", "proto"));
  EXPECT_EQ(std::string::npos, file("net").find("dhcp"));
  EXPECT_EQ(0, del_uci_sections("net", "net", "wan"));
  EXPECT_EQ(std::string::npos, file("net").find("wan"));
  EXPECT_EQ(0, del_uci_sections("net", "net", "wan"));

  std::string out = out_of([] {
    EXPECT_EQ(-1, del_uci_sections("nopkg", "nopkg", "a"));
    EXPECT_EQ(-1, add_uci_sections("nopkg", "nopkg", "t", "a"));
    EXPECT_EQ(-1, del_uci_options("net", "net", nullptr, "a"));
  });
  EXPECT_NE(std::string::npos, out.find("]: uci_load nopkg error(a)!!!\n"));
  EXPECT_NE(std::string::npos, out.find("]: uci_load nopkg error (a)!!!\n"));
  EXPECT_NE(std::string::npos, out.find("]: Parameter error!!!\n"));
}

TEST_F(UciSection, DeleteSectionOptionsInTwoPhases) {
  std::string text = "config t 'none'\nconfig t 'five'\n";
  for (int i = 0; i < 4; ++i) text += "\toption o" + std::to_string(i) + " 'v'\n";
  text += "\tlist l 'x'\nconfig t 'forty'\n";
  for (int i = 0; i < 40; ++i) text += "\toption p" + std::to_string(i) + " 'v'\n";
  put("pk", text);

  std::string out = out_of([] { EXPECT_EQ(1, delete_section_options("pk", "none")); });
  EXPECT_NE(std::string::npos, out.find("]: Found 0 options to delete in section none\n"));
  EXPECT_NE(std::string::npos, out.find("]: Successfully deleted 0 options in section none\n"));

  out = out_of([] { EXPECT_EQ(1, delete_section_options("pk", "five")); });
  EXPECT_EQ(4, occurrences(out, "]: Found option: o"));  // the list is not shown
  EXPECT_NE(std::string::npos, out.find("]: Found 5 options to delete in section five\n"));
  EXPECT_NE(std::string::npos, out.find("]: Deleting option: l\n"));
  EXPECT_NE(std::string::npos, out.find("]: Successfully committed changes for section five\n"));
  EXPECT_NE(std::string::npos, file("pk").find("config t 'five'\n\nconfig t 'forty'"));

  out = out_of([] { EXPECT_EQ(1, delete_section_options("pk", "forty")); });
  EXPECT_EQ(40, occurrences(out, "]: Found option: p"));
  EXPECT_NE(std::string::npos, out.find("]: Successfully deleted 32 options in section forty\n"));
  EXPECT_EQ(8, occurrences(file("pk"), "\toption p"));
  EXPECT_NE(std::string::npos, file("pk").find("option p32 "));
  out_of([] { EXPECT_EQ(1, delete_section_options("/etc/config/pk", "forty")); });
  EXPECT_EQ(0, occurrences(file("pk"), "\toption p"));

  out = out_of([] {
    EXPECT_EQ(0, delete_section_options("pk", "nope"));
    EXPECT_EQ(0, delete_section_options("nopkg", "a"));
  });
  EXPECT_NE(std::string::npos, out.find("]: Failed to lookup section 'nope' in package 'pk'\n"));
  EXPECT_NE(std::string::npos, out.find("]: Failed to load config package 'nopkg': 3\n"));
}

TEST_F(UciSection, FailedCommitIsReverted) {
  put("pk", "config t 'a'\n\toption o 'v'\n\toption k 'w'\n");
  const std::string before = file("pk");
  freeze_config_dir();
  std::string out = out_of([] { EXPECT_EQ(0, delete_section_options("pk", "a")); });
  EXPECT_NE(std::string::npos, out.find("]: Failed to commit changes: "));
  EXPECT_EQ(std::string::npos, out.find("Successfully committed"));
  EXPECT_EQ(before, file("pk"));
  // Nothing is left staged to surface in a later commit.
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/pk"));

  // set_uci_option tells a failed commit; where the commit's result is
  // ignored, the call still succeeds.
  out = out_of([] { EXPECT_EQ(-1, set_uci_option("pk", "a", "o", "new")); });
  EXPECT_NE(std::string::npos,
            out.find("]: Failed to commit changes for option: pk\n"));
  EXPECT_EQ(0, set_uci_option_value("pk", "a", "o", "new"));
  EXPECT_EQ(0, add_uci_list(nullptr, "pk", "a", "l", "x"));
  EXPECT_EQ(0, delUciOption(nullptr, "pk", "a", "k"));
  EXPECT_EQ(0, del_uci_sections("pk", "pk", "a"));
  EXPECT_EQ(before, file("pk"));
}

}  // namespace
}  // namespace kivtest
