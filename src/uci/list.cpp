// List options: add or remove one item, copy a list into the caller's array.
#include "kiv/ucicfg.h"

#include <string.h>

#include "internal.hpp"
#include "util.hpp"

using kiv::UciContext;

namespace {

// The common body of add_uci_list() and del_uci_list(); `change` is
// uci_add_list or uci_del_list, `what` its name for the message, `caller`
// the exported function's name for the message prefix.
int change_list(const char *caller, const char *what,
                int (*change)(uci_context *, uci_ptr *), const char *confdir,
                const char *package, const char *section, const char *option,
                const char *value, int line) {
  char tuple[128] = {};
  uci_ptr ptr{};

  if (!package || !section || !option || !value) {
    printf("[%s][%d]: Parameter error!!!\n", caller, line);
    return 1;
  }
  UciContext ctx;
  if (!ctx) {
    printf("[%s][%d]: alloc uci context failed", caller, line);
    return 1;
  }
  if (confdir) uci_set_confdir(ctx.get(), confdir);

  // The value travels inside the tuple and counts against its length.
  kiv::format_into(tuple, 127, "%s.%s.%s=%s", package, section, option, value);
  if (uci_lookup_ptr(ctx.get(), &ptr, tuple, true) != UCI_OK) {
    printf("[%s]: uci_lookup_ptr failed by %s.\r\n", caller, tuple);
    return 1;
  }
  if (change(ctx.get(), &ptr) != UCI_OK) {
    printf("[%s]: %s failed for %s.\r\n", caller, what, tuple);
    return 1;
  }
  uci_commit(ctx.get(), &ptr.p, false);
  return 0;
}

}  // namespace

int add_uci_list(const char *confdir, const char *package, const char *section,
                 const char *option, const char *value) {
  return change_list(__func__, "uci_add_list", uci_add_list, confdir, package,
                     section, option, value, __LINE__);
}

int del_uci_list(const char *confdir, const char *package, const char *section,
                 const char *option, const char *value) {
  return change_list(__func__, "uci_del_list", uci_del_list, confdir, package,
                     section, option, value, __LINE__);
}

int get_uci_list(const char *confdir, const char *package, const char *section,
                 const char *option, char *items, size_t item_size,
                 unsigned int max_items, unsigned int *count) {
  char tuple[128] = {};
  uci_ptr ptr{};

  // A slot needs at least one byte, and slots need an array to live in.
  if (!package || !section || !option || item_size == 0 ||
      (!items && max_items > 0)) {
    UCI_SAY_AT("Parameter error!!!\n");
    return 1;
  }
  UciContext ctx;
  if (!ctx) {
    UCI_SAY_AT("alloc uci context failed");
    return 1;
  }
  if (confdir) uci_set_confdir(ctx.get(), confdir);

  kiv::format_into(tuple, 127, "%s.%s.%s", package, section, option);
  if (uci_lookup_ptr(ctx.get(), &ptr, tuple, true) != UCI_OK) {
    UCI_SAY("uci_lookup_ptr failed by %s.\r\n", tuple);
    return 1;
  }
  if (!kiv::lookup_complete(ptr) || !ptr.o) {
    UCI_SAY("find tuple %s.%s.%s failed.\r\n", package, section, option);
    return 1;
  }
  if (ptr.o->type != UCI_TYPE_LIST) {
    UCI_SAY("%s type is not list.\r\n", option);
    return 1;
  }

  // Each slot gets the item with its terminator when it fits, else the
  // item's first item_size bytes and no terminator.
  unsigned int n = 0;
  uci_element *e;
  uci_foreach_element(&ptr.o->v.list, e) {
    if (n >= max_items) break;
    size_t m = strlen(e->name);
    if (m > item_size - 1) m = item_size - 1;
    memcpy(items + static_cast<size_t>(n) * item_size, e->name, m + 1);
    ++n;
  }
  if (count) *count = n;
  return 0;
}
