// Removal walks over sections of one type, checked through the file and the
// trace lines.
#include <gmock/gmock.h>

#include <string>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

// Three sections whose option o reads a, b, a; then a fourth with a list.
#define ABA                                    \
  "config t\n\toption o 'a'\n\toption n '1'\n" \
  "config t\n\toption o 'b'\n\toption n '2'\n" \
  "config t\n\toption o 'a'\n\toption n '3'\n"
const char kABA[] = ABA;
const char kABAL[] = ABA "config t\n\tlist o 'a'\n\toption n '4'\n";

// The trace of a lookup of p.@t[i], and of a deletion of it.
std::string look(int i) {
  return "lookup str : p.@t[" + std::to_string(i) + "]\n\n";
}
std::string gone(int i) {
  return "--- uci_delete str : p.@t[" + std::to_string(i) + "]\n";
}
const std::string kEnd = "Not found target option!\n";
std::string count(int n) {
  return "cmd:uci show p | grep t | grep -c \"o='a'\"\n need delete count:" +
         std::to_string(n) + "\n";
}

class UciAnonymous : public UciTest {
 protected:
  // The values of n left in the package, in order.
  static std::string left() {
    std::string f = file("p"), r;
    for (size_t at = f.find("option n '"); at != std::string::npos;
         at = f.find("option n '", at + 1))
      r += f[at + 10];
    return r;
  }
};

TEST_F(UciAnonymous, WalksRemoveTheirHitsAndTellTheirSteps) {
  // The third walk counts through the uci command, which a build against
  // the system's libuci leaves to the system: its rows need ours.
#ifdef KIV_UCI_CLI_PATH
  Sandbox::install_command("uci", KIV_UCI_CLI_PATH);
  const bool command = true;
#else
  const bool command = false;
#endif
  const struct {
    const char *text;
    int walk;  // 1, 2 or 3: by_option, by_option2, by_option3
    const char *o1, *o2, *v1, *v2;
    std::string left, said;  // said: stdout without the line heads
  } cases[] = {
      // The first walk removes every hit; after each commit it must read
      // the package again, or it misses or hits the wrong section.
      {kABA, 1, "o", 0, "a", 0, "2",
       look(0) + look(0) + look(1) + look(1) + kEnd},
      {kABAL, 1, "o", 0, "a", 0, "24",
       look(0) + look(0) + look(1) + look(1) + look(2) + kEnd},
      // Filter off (value NULL): every section of the type goes.
      {ABA "config u\n\toption n '9'\n", 1, "o", 0, 0, 0, "9",
       look(0) + look(0) + look(0) + look(0) + kEnd},
      // The second walk removes the first hit only, and tells no lookup;
      // an absent option is no hit, and one complete pair does not filter.
      {kABA, 2, "o", "n", "a", "3", "12", ""},
      {kABA, 2, "o", "x", "a", "1", "123", kEnd},
      {kABA, 2, "o", 0, "a", 0, "", kEnd},
      // The third walk is bounded by the count of "uci show": the one-item
      // list shows like a string, so 3, but is still no hit.
      {kABAL, 3, "o", 0, "a", 0, "24", count(3) + gone(0) + gone(1) + kEnd},
      {kABA, 3, "o", 0, "a", 0, "2", count(2) + gone(0) + gone(1)},
      // Filter off: the count is 0 and only the first section goes.
      {kABA, 3, 0, 0, 0, 0, "23",
       "cmd:uci show p | grep t | grep -c \"(null)='(null)'\"\n need "
       "delete count:0\n" +
           gone(0)},
  };
  for (const auto &c : cases) {
    if (c.walk == 3 && !command) continue;
    put("p", c.text);
    std::string out = out_of([&] {
      EXPECT_EQ(
          0, c.walk == 1
                 ? del_uci_anonymous_section_by_option("p", "t", c.o1, c.v1)
             : c.walk == 2
                 ? del_uci_anonymous_section_by_option2("p", "t", c.o1, c.o2,
                                                        c.v1, c.v2)
                 : del_uci_anonymous_section_by_option3("p", "t", c.o1, c.v1));
    });
    EXPECT_EQ(c.left, left()) << c.said;
    EXPECT_EQ(c.said, heads_off(out));
    EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/p")) << "nothing staged";
  }
}

TEST_F(UciAnonymous, NoPackageOrNoName) {
  std::string out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option3("nopkg", "t", "o", "a"));
    EXPECT_NE(0, del_uci_anonymous_section_by_option("nopkg", "t", "o", "a"));
    EXPECT_EQ(-1, del_uci_anonymous_section_by_option(nullptr, "t", "o", "a"));
  });
  EXPECT_THAT(out, testing::ContainsRegex(
                       "option3\\[[0-9]{5}\\]: uci lookup ptr failed\n.*"
                       "option3\\[[0-9]{5}\\]: Not found target option!\n.*"
                       "\\[[0-9]{5}\\]: lookup str : nopkg.@t\\[0\\]\n\n.*"
                       "\\[[0-9]{5}\\]: uci lookup ptr failed\n.*"
                       "option\\[[0-9]{5}\\]: parameter error\n"));
}

TEST_F(UciAnonymous, FailedCommitStopsTheWalk) {
  put("p", kABA);
  freeze_config_dir();
  std::string out = out_of([] {
    EXPECT_NE(0, del_uci_anonymous_section_by_option("p", "t", "o", "a"));
  });
  EXPECT_THAT(out, testing::HasSubstr("]: uci commit failed\n"));
  EXPECT_EQ("123", left());
  // The saved removal stays pending.
  EXPECT_EQ(1, occurrences(Sandbox::read_file("/tmp/.uci/p"), "-p.cfg01"));
}

}  // namespace
}  // namespace kivtest
