// Replay of a fuzzed firewall journal, fed directly to the replay that
// iptabes_exe_from_file runs on a journal file (without its pause).
// Checked: every field handed to the callback fits its rule limit and holds
// no blank; rules read back from the journal text that recoder_iptables
// writes for them are the same rules.
#include <ctype.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "device/internal.hpp"

namespace {

// A rule as the callback saw it; fields in the order of iptbl_rule.
struct Rule {
  char text[7][32];  // chain proto in out ACTION sip dip
  int sport, dport;
};

constexpr int kKept = 64;  // rules kept for the round trip
Rule g_rules[kKept];
int g_count = 0;  // rules the callback took
int g_stop_after = -1;

void check_field(const char *s, size_t max) {
  if (s == nullptr) abort();
  size_t n = strlen(s);
  if (n > max) abort();
  for (size_t i = 0; i < n; ++i)
    if (isspace(static_cast<unsigned char>(s[i]))) abort();
}

int collect(iptbl_rule *r) {
  const char *fields[7] = {r->chain,  r->proto, r->in, r->out,
                           r->ACTION, r->sip,   r->dip};
  for (int i = 0; i < 7; ++i)
    check_field(fields[i], i == 0 || i == 4 ? 31 : 15);
  if (g_stop_after >= 0 && g_count == g_stop_after) return -1;
  if (g_count < kKept) {
    Rule &k = g_rules[g_count];
    for (int i = 0; i < 7; ++i) strcpy(k.text[i], fields[i]);
    k.sport = r->sport;
    k.dport = r->dport;
  }
  ++g_count;
  return 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  // The first byte: stop after that many rules (0xff: never).
  g_stop_after = data[0] == 0xff ? -1 : data[0];
  g_count = 0;
  int rc = kiv::device::replay_journal(
      reinterpret_cast<const char *>(data + 1), size - 1, collect, 0);
  const int kept = g_count < kKept ? g_count : kKept;
  if (rc != 0 || kept == 0) return 0;
  // Only rules whose every text field holds a word can be written back.
  for (int i = 0; i < kept; ++i)
    for (const char *t : g_rules[i].text)
      if (t[0] == '\0') return 0;

  static Rule first[kKept];
  memcpy(first, g_rules, sizeof(Rule) * static_cast<size_t>(kept));
  iptbl_rule out[kKept];
  for (int i = 0; i < kept; ++i) {
    const Rule &r = first[i];
    out[i] = iptbl_rule{r.text[0], r.text[1], r.text[2], r.text[3],
                        r.text[4], r.sport,   r.dport,   r.text[5],
                        r.text[6]};
  }
  char *journal = nullptr;
  size_t journal_len = 0;
  FILE *f = open_memstream(&journal, &journal_len);
  if (f == nullptr) abort();
  kiv::device::write_journal(f, out, kept);
  fclose(f);
  g_count = 0;
  g_stop_after = -1;
  int again = kiv::device::replay_journal(journal, journal_len, collect, 0);
  free(journal);
  if (again != 0 || g_count != kept) abort();
  for (int i = 0; i < kept; ++i) {
    const Rule &a = first[i], &b = g_rules[i];
    for (int j = 0; j < 7; ++j)
      if (strcmp(a.text[j], b.text[j]) != 0) abort();
    if (a.sport != b.sport || a.dport != b.dport) abort();
  }
  return 0;
}
