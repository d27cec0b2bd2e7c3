// The firewall rule journal: recording, replay, and journals written by
// other programs.
#include <string.h>

#include <string>
#include <vector>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

namespace {

class Journal : public kivtest::SandboxTest {};

constexpr const char kPath[] = "/tmp/.iptbl_save";
constexpr const char kHeader[] =
    "chain\tproto\tin\tout\tsport\tdport\tsip\tdip\tACTION\n";

// What a callback saw, one line per call.
std::vector<std::string> g_seen;
int g_fail_at = -1;  // call index that fails

std::string show(const iptbl_rule *r) {
  auto s = [](const char *p) { return p ? std::string(p) : "(null)"; };
  return s(r->chain) + "|" + s(r->proto) + "|" + s(r->in) + "|" + s(r->out) +
         "|" + std::to_string(r->sport) + "|" + std::to_string(r->dport) +
         "|" + s(r->sip) + "|" + s(r->dip) + "|" + s(r->ACTION);
}

int record_rule(iptbl_rule *r) {
  int index = static_cast<int>(g_seen.size());
  g_seen.push_back(show(r));
  return index == g_fail_at ? -1 : 0;
}

int count_errors(const std::vector<std::string> &log, const char *text) {
  int n = 0;
  for (const auto &line : log)
    if (line.find(text) != std::string::npos) ++n;
  return n;
}

void reset_callback(int fail_at = -1) {
  g_seen.clear();
  g_fail_at = fail_at;
}

}  // namespace

TEST_F(Journal, RecordAndReplayWithNullFields) {
  iptbl_rule rules[3] = {
      {"FORWARD", "tcp", "br-lan", "eth1", "ACCEPT", 1024, 80, "192.168.1.2",
       "10.0.0.1"},
      {nullptr, nullptr, nullptr, nullptr, nullptr, -1, 0, nullptr, nullptr},
      {"INPUT", "udp", "eth1", nullptr, "DROP", 0, 53, nullptr, "8.8.8.8"},
  };
  ASSERT_EQ(recoder_iptables(rules, 3), 0);
  EXPECT_EQ(Sandbox::read_file(kPath),
            std::string(kHeader) +
                "FORWARD tcp br-lan eth1 1024 80 192.168.1.2 10.0.0.1 ACCEPT\n"
                "NULL NULL NULL NULL -1 0 NULL NULL NULL\n"
                "INPUT udp eth1 NULL 0 53 NULL 8.8.8.8 DROP\n");
  // The caller's null pointers now all point at one constant "NULL".
  const char *null_word = rules[1].chain;
  ASSERT_NE(null_word, nullptr);
  EXPECT_STREQ(null_word, "NULL");
  for (const char *p : {rules[1].proto, rules[1].in, rules[1].out,
                        rules[1].ACTION, rules[1].sip, rules[1].dip,
                        rules[2].out, rules[2].sip})
    EXPECT_EQ(p, null_word);
  EXPECT_STREQ(rules[0].chain, "FORWARD");

  reset_callback();
  EXPECT_EQ(iptabes_exe_from_file(record_rule, kPath), 0);
  EXPECT_EQ(g_seen,
            (std::vector<std::string>{
                "FORWARD|tcp|br-lan|eth1|1024|80|192.168.1.2|10.0.0.1|ACCEPT",
                "NULL|NULL|NULL|NULL|-1|0|NULL|NULL|NULL",
                "INPUT|udp|eth1|NULL|0|53|NULL|8.8.8.8|DROP"}));
  EXPECT_FALSE(Sandbox::exists(kPath)) << "spent by one replay";
  EXPECT_EQ(iptabes_exe_from_file(record_rule, kPath), -1);
}

TEST_F(Journal, EmptyBatchAndMissingJournal) {
  ASSERT_EQ(recoder_iptables(nullptr, 0), 0);
  EXPECT_EQ(Sandbox::read_file(kPath), kHeader);
  reset_callback();
  EXPECT_EQ(iptabes_exe_from_file(record_rule, kPath), 0);
  EXPECT_TRUE(g_seen.empty());
  EXPECT_FALSE(Sandbox::exists(kPath));

  Sandbox::syslog();
  EXPECT_EQ(iptabes_exe_from_file(record_rule, "/tmp/none"), -1);
  EXPECT_EQ(iptabes_exe_from_file(record_rule, nullptr), -1);
  EXPECT_TRUE(g_seen.empty());
  EXPECT_TRUE(Sandbox::syslog().empty()) << "a missing journal is quiet";

  // Bad arguments lose nothing.
  Sandbox::write_file(kPath, std::string(kHeader) + "a b c d 1 2 e f g\n");
  EXPECT_EQ(iptabes_exe_from_file(nullptr, kPath), -1);
  EXPECT_EQ(recoder_iptables(nullptr, 2), -1);
  EXPECT_TRUE(Sandbox::exists(kPath));
}

TEST_F(Journal, FailingRuleStopsAndSpendsTheJournal) {
  iptbl_rule rules[3] = {
      {"A", "tcp", "i", "o", "ACCEPT", 1, 1, "s", "d"},
      {"B", "tcp", "i", "o", "ACCEPT", 2, 2, "s", "d"},
      {"C", "tcp", "i", "o", "ACCEPT", 3, 3, "s", "d"},
  };
  ASSERT_EQ(recoder_iptables(rules, 3), 0);
  Sandbox::syslog();
  reset_callback(1);
  EXPECT_EQ(iptabes_exe_from_file(record_rule, kPath), -1);
  ASSERT_EQ(g_seen.size(), 2u);
  EXPECT_EQ(g_seen[1].substr(0, 2), "B|");
  EXPECT_EQ(count_errors(Sandbox::syslog(), "kiv exe iptables from file error!"),
            1);
  EXPECT_FALSE(Sandbox::exists(kPath));
}

TEST_F(Journal, UnopenableJournalIsLogged) {
  Sandbox::mkdirs(kPath);  // a directory can't be opened for writing
  Sandbox::syslog();
  iptbl_rule rule = {"A", "tcp", "i", "o", "ACCEPT", 1, 1, "s", "d"};
  EXPECT_EQ(recoder_iptables(&rule, 1), -1);
  EXPECT_EQ(count_errors(Sandbox::syslog(), "open /tmp/.iptbl_save fail!"), 1);
}

TEST_F(Journal, ForeignJournalIsParsedWithinBounds) {
  // Written by another program: fields longer than a rule may hold, a
  // short line, a line longer than the line limit.
  std::string chain(100, 'c'), proto(40, 'p'), action(50, 'x');
  std::string text = std::string(kHeader) +
                     chain + " " + proto + " in0 out0 7 8 " +
                     std::string(20, '1') + " 2.2.2.2 " + action + "\n" +
                     "SHORT udp\n" +
                     "L tcp i o 1 2 s d " + std::string(236, 'a') +
                     "BC tcp i o 3 4 s d A\n" +
                     "N tcp i o 5x 6 s2 d2 A2\n" + "M udp i o 7 8x d3 A3\n";
  Sandbox::write_file("/tmp/other", text);
  reset_callback();
  EXPECT_EQ(iptabes_exe_from_file(record_rule, "/tmp/other"), 0);
  ASSERT_EQ(g_seen.size(), 6u);
  EXPECT_EQ(g_seen[0], std::string(31, 'c') + "|" + std::string(15, 'p') +
                           "|in0|out0|7|8|" + std::string(15, '1') +
                           "|2.2.2.2|" + std::string(31, 'x'));
  // The short line keeps what the line before left.
  EXPECT_EQ(g_seen[1], "SHORT|udp|in0|out0|7|8|" + std::string(15, '1') +
                           "|2.2.2.2|" + std::string(31, 'x'));
  // The long line is split behind its 254th byte; its rest reads as one
  // more line.
  EXPECT_EQ(g_seen[2], "L|tcp|i|o|1|2|s|d|" + std::string(31, 'a'));
  EXPECT_EQ(g_seen[3], "BC|tcp|i|o|3|4|s|d|A");
  // A number ends at its last digit: what stands behind it in the word is
  // where the next field is read, and a field that doesn't read ends the
  // line.
  EXPECT_EQ(g_seen[4], "N|tcp|i|o|5|4|s|d|A");
  EXPECT_EQ(g_seen[5], "M|udp|i|o|7|8|x|d3|A3");
  EXPECT_FALSE(Sandbox::exists("/tmp/other"));
}
