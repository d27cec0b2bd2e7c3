// Removal of sections by type and position ("package.@type[n]"), optionally
// filtered by option values.
//
// A walk stays at its position after a removal (the next section moves into
// it) and moves on only past a section it leaves alone.  Each removal is
// saved and committed on its own.  After a commit the package held in a
// context still numbers its anonymous sections after the old file, so a
// position looked up there can name the wrong section or none; the walks
// that keep one context therefore unload the package after every commit,
// and the next lookup reads the file as the commit left it.
#include "kiv/ucicfg.h"

#include <stdlib.h>
#include <string.h>

#include "internal.hpp"
#include "util.hpp"

using kiv::UciContext;

namespace {

struct Pair {
  const char *option;
  const char *value;
};

// True when every option of pairs is a string option of s equal to its
// value; an absent option or a list is no match.
bool section_matches(uci_context *ctx, uci_section *s, const Pair *pairs,
                     int n) {
  for (int i = 0; i < n; ++i) {
    const char *text = uci_lookup_option_string(ctx, s, pairs[i].option);
    if (!text || strcmp(text, pairs[i].value) != 0) return false;
  }
  return true;
}

// What differs between the first two walks.
struct WalkRule {
  const char *caller;  // for the messages
  bool trace;          // "lookup str" line before each lookup
  bool stop_after_hit; // the filter's first hit is the only one to go
};

// The walk of del_uci_anonymous_section_by_option() and
// del_uci_anonymous_section_by_option2(): one context for the whole call.
int walk_one_context(const WalkRule &rule, const char *package,
                     const char *section_type, const Pair *pairs, int npairs,
                     bool filter) {
  const char *const fn = rule.caller;
  UciContext ctx;
  int index = 0;
  uci_ptr ptr{};

  for (;;) {
    char tuple[64] = {};
    kiv::format_into(tuple, "%s.@%s[%d]", package, section_type,
                     filter ? index : 0);
    if (rule.trace)
      fprintf(stdout, "%25s[%05d]: lookup str : %s\n\n", fn, __LINE__, tuple);
    // Without a context the lookup fails with the library's code for it.
    int rc = ctx ? uci_lookup_ptr(ctx.get(), &ptr, tuple, true)
                 : static_cast<int>(UCI_ERR_INVAL);
    if (rc != UCI_OK) {
      fprintf(stdout, "%25s[%05d]: uci lookup ptr failed\n", fn, __LINE__);
      return rc;
    }
    if (!ptr.s) {
      fprintf(stdout, "%25s[%05d]: Not found target option!\n", fn, __LINE__);
      return 0;
    }
    if (filter && !section_matches(ctx.get(), ptr.s, pairs, npairs)) {
      ++index;
      continue;
    }
    // A value is left only by an "=" in package or section_type.
    int number;
    if (ptr.value && sscanf(ptr.value, "%d", &number) == 0) {
      fprintf(stdout, "%25s[%05d]: sscanf failed\n", fn, __LINE__);
      return -1;
    }
    rc = uci_delete(ctx.get(), &ptr);
    if (rc != UCI_OK) return rc;
    rc = uci_save(ctx.get(), ptr.p);
    if (rc != UCI_OK) {
      fprintf(stdout, "%25s[%05d]: uci save failed\n", fn, __LINE__);
      return rc;
    }
    rc = uci_commit(ctx.get(), &ptr.p, false);
    if (rc != UCI_OK) {
      fprintf(stdout, "%25s[%05d]: uci commit failed\n", fn, __LINE__);
      return rc;
    }
    if (filter && rule.stop_after_hit) return 0;
    // Read the package again on the next lookup.
    if (ptr.p) uci_unload(ctx.get(), ptr.p);
    ptr = uci_ptr{};
  }
}

}  // namespace

int del_uci_anonymous_section_by_option(const char *package,
                                        const char *section_type,
                                        const char *option,
                                        const char *value) {
  if (!package || !section_type) {
    UCI_TRACE("parameter error\n");
    return -1;
  }
  const Pair pairs[] = {{option, value}};
  const bool filter = option && value;
  return walk_one_context({__func__, true, false}, package, section_type,
                          pairs, 1, filter);
}

int del_uci_anonymous_section_by_option2(const char *package,
                                         const char *section_type,
                                         const char *option1,
                                         const char *option2,
                                         const char *value1,
                                         const char *value2) {
  if (!package || !section_type) {
    UCI_TRACE("parameter error\n");
    return -1;
  }
  const Pair pairs[] = {{option1, value1}, {option2, value2}};
  const bool filter = option1 && option2 && value1 && value2;
  return walk_one_context({__func__, false, true}, package, section_type,
                          pairs, 2, filter);
}

int del_uci_anonymous_section_by_option3(const char *package,
                                         const char *section_type,
                                         const char *option,
                                         const char *value) {
  if (!package || !section_type) {
    UCI_TRACE("parameter error\n");
    return -1;
  }
  const bool filter = option && value;

  // The count bounds how many hits go.  Without a pair the command names
  // "(null)='(null)'", which no line of "uci show" holds (option names are
  // letters, digits and '_', and a quote inside a value is always escaped),
  // so the count is 0.
  char cmd[128] = {};
  char out[16] = {};
  kiv::format_into(cmd, 127, "uci show %s | grep %s | grep -c \"%s='%s'\"",
                   package, section_type, filter ? option : "(null)",
                   filter ? value : "(null)");
  exe_cmd(cmd, out, 15);
  const int count = atoi(out);
  UCI_TRACE("cmd:%s\n need delete count:%d\n", cmd, count);

  const Pair pairs[] = {{option, value}};
  int index = 0;
  int removed = 0;
  for (;;) {
    // A fresh context per pass: each pass reads the package as the last
    // commit left it.
    UciContext ctx;
    if (!ctx) return -1;
    char tuple[64] = {};
    char shown[64] = {};
    kiv::format_into(tuple, "%s.@%s[%d]", package, section_type,
                     filter ? index : 0);
    memcpy(shown, tuple, sizeof shown);

    uci_ptr ptr{};
    int rc = uci_lookup_ptr(ctx.get(), &ptr, tuple, true);
    if (rc != UCI_OK) {
      UCI_TRACE("uci lookup ptr failed\n");
      ctx.reset();
      UCI_TRACE("Not found target option!\n");
      return 0;
    }
    if (!ptr.s) {
      UCI_TRACE("Not found target option!\n");
      return 0;
    }
    if (filter && !section_matches(ctx.get(), ptr.s, pairs, 1)) {
      ++index;
      continue;
    }
    int number;
    if (ptr.value && sscanf(ptr.value, "%d", &number) == 0) {
      UCI_TRACE("sscanf failed\n");
      return -1;
    }
    UCI_TRACE("--- uci_delete str : %s\n", shown);
    rc = uci_delete(ctx.get(), &ptr);
    if (rc != UCI_OK) return rc;
    rc = uci_save(ctx.get(), ptr.p);
    if (rc != UCI_OK) {
      UCI_TRACE("uci save failed\n");
      return rc;
    }
    rc = uci_commit(ctx.get(), &ptr.p, false);
    if (rc != UCI_OK) {
      UCI_TRACE("uci commit failed\n");
      return rc;
    }
    ++removed;
    if (count <= removed) return 0;
  }
}
