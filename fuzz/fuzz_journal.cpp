// Replay of a fuzzed firewall journal with iptabes_exe_from_file, in the
// private tmpfs.  Checked: every field handed to the callback fits its rule
// limit and holds no blank; rules read back from a journal that
// recoder_iptables wrote from them are the same rules.
#include <ctype.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "fuzz_common.hpp"
#include "kiv/device.h"

namespace {

struct Rule {
  std::string text[7];  // chain proto in out sip dip ACTION
  int sport, dport;
};

std::vector<Rule> g_rules;
int g_stop_after = -1;

void check_field(const char *s, size_t max) {
  if (s == nullptr) abort();
  size_t n = strlen(s);
  if (n > max) abort();
  for (size_t i = 0; i < n; ++i)
    if (isspace(static_cast<unsigned char>(s[i]))) abort();
}

int collect(iptbl_rule *r) {
  check_field(r->chain, 31);
  check_field(r->ACTION, 31);
  for (const char *s : {r->proto, r->in, r->out, r->sip, r->dip})
    check_field(s, 15);
  if (g_stop_after >= 0 && static_cast<int>(g_rules.size()) == g_stop_after)
    return -1;
  if (g_rules.size() < 64)
    g_rules.push_back(Rule{{r->chain, r->proto, r->in, r->out, r->sip, r->dip,
                            r->ACTION},
                           r->sport,
                           r->dport});
  return 0;
}

bool same(const Rule &a, const Rule &b) {
  for (int i = 0; i < 7; ++i)
    if (a.text[i] != b.text[i]) return false;
  return a.sport == b.sport && a.dport == b.dport;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  kivfuzz::private_tmpfs();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  // The first byte: stop after that many rules (0xff: never).
  g_stop_after = data[0] == 0xff ? -1 : data[0];
  kivfuzz::write_file("/tmp/journal", data + 1, size - 1);
  g_rules.clear();
  int rc = iptabes_exe_from_file(collect, "/tmp/journal");
  if (access("/tmp/journal", F_OK) == 0) abort();  // a replay spends it
  if (rc != 0 || g_rules.empty()) return 0;

  bool whole = true;
  for (const Rule &r : g_rules)
    for (const std::string &t : r.text) whole = whole && !t.empty();
  if (!whole) return 0;

  std::vector<Rule> first = g_rules;
  std::vector<iptbl_rule> out(first.size());
  for (size_t i = 0; i < first.size(); ++i) {
    const Rule &r = first[i];
    out[i] = iptbl_rule{r.text[0].c_str(), r.text[1].c_str(), r.text[2].c_str(),
                        r.text[3].c_str(), r.text[6].c_str(), r.sport,
                        r.dport,           r.text[4].c_str(), r.text[5].c_str()};
  }
  if (recoder_iptables(out.data(), static_cast<int>(out.size())) != 0) abort();
  g_rules.clear();
  g_stop_after = -1;
  if (iptabes_exe_from_file(collect, "/tmp/.iptbl_save") != 0) abort();
  if (g_rules.size() != first.size()) abort();
  for (size_t i = 0; i < first.size(); ++i)
    if (!same(first[i], g_rules[i])) abort();
  return 0;
}
