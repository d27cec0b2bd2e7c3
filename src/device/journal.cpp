// Firewall rule journal: a batch of rules kept in a text file, to be handed
// one by one to a caller's callback later.
#include "kiv/device.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "internal.hpp"
#include "lines.hpp"
#include "util.hpp"

namespace {

constexpr const char kJournal[] = "/tmp/.iptbl_save";
// Stands in for a missing text field, in the file and in the caller's array.
constexpr const char kNullWord[] = "NULL";

void fill_null(const char *&field) {
  if (field == nullptr) field = kNullWord;
}

// Field buffers of one replayed line.  They outlive the line: a short line
// leaves the fields it lacks as the line before left them.
struct ReplayFields {
  char chain[32];
  char proto[16];
  char in[16];
  char out[16];
  int sport;
  int dport;
  char sip[16];
  char dip[16];
  char action[32];
};

// Reads the next blank-separated word of *cur.  Returns false at the end of
// the line.
bool next_word(const char *&cur, const char *&word, size_t &len) {
  while (*cur != '\0' && isspace(static_cast<unsigned char>(*cur))) ++cur;
  if (*cur == '\0') return false;
  word = cur;
  while (*cur != '\0' && !isspace(static_cast<unsigned char>(*cur))) ++cur;
  len = static_cast<size_t>(cur - word);
  return true;
}

// A word into a fixed buffer; a longer word is cut to what the buffer
// holds, and the rest of it is skipped so the columns behind stay in place.
void take_text(char *dst, size_t size, const char *word, size_t len) {
  if (len > size - 1) len = size - 1;
  memcpy(dst, word, len);
  dst[len] = '\0';
}

// A decimal number at *cur, as "%d" reads it: *cur is left behind its last
// digit, so what follows in the same word is where the next field begins.
// False when no number stands there.
bool take_int(int &dst, const char *&cur) {
  char *end = nullptr;
  long v = strtol(cur, &end, 10);
  if (end == cur) return false;
  if (v > INT_MAX) v = INT_MAX;
  if (v < INT_MIN) v = INT_MIN;
  dst = static_cast<int>(v);
  cur = end;
  return true;
}

// Parses "chain proto in out sport dport sip dip ACTION" into f.  Like a
// scan with that format it stops at the end of the line or at a number
// that does not read, leaving the remaining fields untouched; unlike it,
// no field is written past its buffer.
void parse_rule_line(const char *line, ReplayFields &f) {
  struct Text {
    char *buf;
    size_t size;
  };
  const Text before[] = {{f.chain, sizeof f.chain},
                         {f.proto, sizeof f.proto},
                         {f.in, sizeof f.in},
                         {f.out, sizeof f.out}};
  const Text after[] = {{f.sip, sizeof f.sip},
                        {f.dip, sizeof f.dip},
                        {f.action, sizeof f.action}};
  const char *cur = line;
  const char *word = nullptr;
  size_t len = 0;
  for (const Text &t : before) {
    if (!next_word(cur, word, len)) return;
    take_text(t.buf, t.size, word, len);
  }
  int *const numbers[] = {&f.sport, &f.dport};
  for (int *n : numbers) {
    if (!next_word(cur, word, len)) return;
    cur = word;
    if (!take_int(*n, cur)) return;
  }
  for (const Text &t : after) {
    if (!next_word(cur, word, len)) return;
    take_text(t.buf, t.size, word, len);
  }
}

// The replay of one journal, line by line: the first line is the header;
// each further line fills the fields and goes to the callback as a rule,
// followed by a pause, until a callback fails.
class JournalReplay {
 public:
  JournalReplay(iptbl_rule_exec_fn callback, unsigned pause_us)
      : callback_(callback), pause_us_(pause_us) {
    memset(&f_, 0, sizeof f_);
  }

  // False once a callback has failed: nothing more is replayed.
  bool line(const char *text) {
    if (!header_seen_) {
      header_seen_ = true;
      return true;
    }
    parse_rule_line(text, f_);
    iptbl_rule rule;
    rule.chain = f_.chain;
    rule.proto = f_.proto;
    rule.in = f_.in;
    rule.out = f_.out;
    rule.ACTION = f_.action;
    rule.sport = f_.sport;
    rule.dport = f_.dport;
    rule.sip = f_.sip;
    rule.dip = f_.dip;
    if (callback_(&rule) < 0) {
      result_ = -1;
      return false;
    }
    if (pause_us_ != 0) usleep(pause_us_);
    return true;
  }

  int result() const { return result_; }
  // line() as a line cutter calls it.
  static bool each(void *replay, char *text) {
    return static_cast<JournalReplay *>(replay)->line(text);
  }

 private:
  iptbl_rule_exec_fn callback_;
  unsigned pause_us_;
  bool header_seen_ = false;
  int result_ = 0;
  ReplayFields f_;
};

// Lines are read with a limit of 255: at most 254 bytes of a line count.
constexpr size_t kLineLimit = 255;

}  // namespace

namespace kiv::device {

int replay_journal(const char *text, size_t len, iptbl_rule_exec_fn callback,
                   unsigned pause_us) {
  JournalReplay replay(callback, pause_us);
  char line[kLineLimit];
  LineCutter lines(line, sizeof line, JournalReplay::each, &replay);
  if (lines.feed(text, len)) lines.finish();
  return replay.result();
}

void write_journal(FILE *out, iptbl_rule *rules, int count) {
  fputs("chain\tproto\tin\tout\tsport\tdport\tsip\tdip\tACTION\n", out);
  for (int i = 0; i < count; ++i) {
    iptbl_rule &r = rules[i];
    fill_null(r.chain);
    fill_null(r.proto);
    fill_null(r.in);
    fill_null(r.out);
    fill_null(r.sip);
    fill_null(r.dip);
    fill_null(r.ACTION);
    fprintf(out, "%s %s %s %s %d %d %s %s %s\n", r.chain, r.proto, r.in,
            r.out, static_cast<int>(r.sport), static_cast<int>(r.dport), r.sip,
            r.dip, r.ACTION);
  }
}

}  // namespace kiv::device

int recoder_iptables(iptbl_rule *rules, int count) {
  if (rules == nullptr && count > 0) {
    errno = EINVAL;
    return -1;
  }
  kiv::File file(fopen(kJournal, "w+"));
  if (!file) {
    KIV_LOG(kiv::kUnitUtils, kiv::kError, "open %s fail!", kJournal);
    return -1;
  }
  kiv::device::write_journal(file.get(), rules, count);
  return 0;
}

int iptabes_exe_from_file(iptbl_rule_exec_fn callback, const char *path) {
  if (callback == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (path == nullptr || !is_file_exist(path)) return -1;
  kiv::File file(fopen(path, "r"));
  if (!file) {
    KIV_LOG(kiv::kUnitUtils, kiv::kError, "open %s fail!", path);
    return -1;
  }

  JournalReplay replay(callback, 100);
  char line[kLineLimit];
  kiv::LineCutter lines(line, sizeof line, JournalReplay::each, &replay);
  lines.feed_stream(file.get());
  if (replay.result() < 0)
    KIV_LOG(kiv::kUnitUtils, kiv::kError, "kiv exe iptables from file error!");
  file.close();
  // One replay spends the journal, whatever its outcome.
  unlink(path);
  return replay.result();
}
