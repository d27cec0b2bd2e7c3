// Removal walks over sections of one type, checked through the file and the
// trace lines.
#include <string>
#include <vector>

#include "uci_fixture.hpp"

namespace kivtest {
namespace {

// Three sections whose option o reads a, b, a.
const char kABA[] =
    "config t\n\toption o 'a'\n\toption n '1'\n"
    "config t\n\toption o 'b'\n\toption n '2'\n"
    "config t\n\toption o 'a'\n\toption n '3'\n";

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
  // The tuples of the "lookup str" lines, in order.
  static std::vector<std::string> lookups(const std::string &out) {
    std::vector<std::string> r;
    const std::string key = "]: lookup str : ";
    for (size_t at = out.find(key); at != std::string::npos;
         at = out.find(key, at + 1)) {
      size_t b = at + key.size();
      r.push_back(out.substr(b, out.find('\n', b) - b));
    }
    return r;
  }
  static void need_uci_command() {
#ifdef KIV_UCI_CLI_PATH
    Sandbox::install_command("uci", KIV_UCI_CLI_PATH);
#else
    GTEST_SKIP() << "the uci command is not built";
#endif
  }
};

TEST_F(UciAnonymous, FirstWalkRemovesEveryHit) {
  put("p", kABA);
  std::string out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option("p", "t", "o", "a"));
  });
  EXPECT_EQ("2", left());
  EXPECT_EQ((std::vector<std::string>{"p.@t[0]", "p.@t[0]", "p.@t[1]", "p.@t[1]"}),
            lookups(out));
  EXPECT_NE(std::string::npos,
            out.find("del_uci_anonymous_section_by_option[00"));
  EXPECT_EQ(1, occurrences(out, "]: Not found target option!\n"));
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/p"));

  // Filter off (value NULL): every section of the type goes, others stay.
  put("p", std::string(kABA) + "config u 'keep'\n\toption n '9'\n");
  out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option("p", "t", "o", nullptr));
  });
  EXPECT_EQ("9", left());
  EXPECT_EQ(4u, lookups(out).size());

  // No section of the type, no package.
  out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option("p", "t", "o", "a"));
    EXPECT_NE(0, del_uci_anonymous_section_by_option("nopkg", "t", "o", "a"));
    EXPECT_EQ(-1, del_uci_anonymous_section_by_option(nullptr, "t", "o", "a"));
  });
  EXPECT_NE(std::string::npos, out.find("]: uci lookup ptr failed\n"));
  EXPECT_NE(std::string::npos, out.find("]: parameter error\n"));
}

// After a commit the context would still number the sections after the old
// file; the walk must re-read it, or it misses or hits the wrong section.
TEST_F(UciAnonymous, RereadsThePackageAfterEachCommit) {
  put("p",
      "config t\n\toption o 'a'\n\toption n '1'\n"
      "config t\n\toption o 'b'\n\toption n '2'\n"
      "config t\n\toption o 'a'\n\toption n '3'\n"
      "config t\n\tlist o 'a'\n\toption n '4'\n");
  std::string out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option("p", "t", "o", "a"));
  });
  EXPECT_EQ("24", left());
  EXPECT_EQ((std::vector<std::string>{"p.@t[0]", "p.@t[0]", "p.@t[1]", "p.@t[1]",
                                      "p.@t[2]"}),
            lookups(out));
  EXPECT_EQ(1, occurrences(out, "Not found target option!"));
  EXPECT_EQ("", Sandbox::read_file("/tmp/.uci/p"));
}

TEST_F(UciAnonymous, SecondWalkRemovesTheFirstHitOnly) {
  put("p", kABA);
  std::string out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option2("p", "t", "o", "n", "a", "3"));
  });
  EXPECT_EQ("12", left());
  EXPECT_EQ("", out);

  // A second option that is absent is no hit.
  put("p", kABA);
  EXPECT_EQ(0, del_uci_anonymous_section_by_option2("p", "t", "o", "x", "a", "1"));
  EXPECT_EQ("123", left());

  // One complete pair does not switch the filter on.
  EXPECT_EQ(0, del_uci_anonymous_section_by_option2("p", "t", "o", nullptr, "a", nullptr));
  EXPECT_EQ("", left());
}

TEST_F(UciAnonymous, ThirdWalkIsBoundedByTheCount) {
  need_uci_command();
  if (IsSkipped()) return;
  put("p",
      "config t\n\toption o 'a'\n\toption n '1'\n"
      "config t\n\toption o 'b'\n\toption n '2'\n"
      "config t\n\toption o 'a'\n\toption n '3'\n"
      "config t\n\tlist o 'a'\n\toption n '4'\n");
  // The one-item list shows like a string, so the count is 3; the list
  // section is still no hit.
  std::string out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option3("p", "t", "o", "a"));
  });
  EXPECT_EQ("24", left());
  EXPECT_NE(std::string::npos,
            out.find("]: cmd:uci show p | grep t | grep -c \"o='a'\"\n need delete count:3\n"));
  EXPECT_EQ(2, occurrences(out, "]: --- uci_delete str : "));
  EXPECT_NE(std::string::npos, out.find("]: --- uci_delete str : p.@t[1]\n"));
  EXPECT_EQ(1, occurrences(out, "Not found target option!"));

  // Count 2 on a, b, a: both go and the walk stops at once.
  put("p", kABA);
  out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option3("p", "t", "o", "a"));
  });
  EXPECT_EQ("2", left());
  EXPECT_NE(std::string::npos, out.find("need delete count:2\n"));
  EXPECT_EQ(0, occurrences(out, "Not found target option!"));

  // Filter off: the count is 0 and only the first section goes.
  put("p", kABA);
  out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option3("p", "t", nullptr, nullptr));
  });
  EXPECT_EQ("23", left());
  EXPECT_NE(std::string::npos, out.find("need delete count:0\n"));

  // No package: both words, and 0.
  out = out_of([] {
    EXPECT_EQ(0, del_uci_anonymous_section_by_option3("nopkg", "t", "o", "a"));
  });
  EXPECT_NE(std::string::npos,
            out.find("]: uci lookup ptr failed\n"));
  EXPECT_NE(std::string::npos, out.find("]: Not found target option!\n"));
}

TEST_F(UciAnonymous, FailedCommitStopsTheWalk) {
  put("p", kABA);
  freeze_config_dir();
  std::string out = out_of([] {
    EXPECT_NE(0, del_uci_anonymous_section_by_option("p", "t", "o", "a"));
  });
  EXPECT_NE(std::string::npos, out.find("]: uci commit failed\n"));
  EXPECT_EQ("123", left());
  // The saved removal stays pending.
  EXPECT_EQ(1, occurrences(Sandbox::read_file("/tmp/.uci/p"), "-p.cfg01"));
}

}  // namespace
}  // namespace kivtest
