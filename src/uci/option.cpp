// Single options: read, set and delete one option, one context per call.
#include "kiv/ucicfg.h"

#include <string.h>

#include "internal.hpp"
#include "util.hpp"

using kiv::UciContext;

int get_uci_option(const char *confdir, const char *package,
                   const char *section, const char *option, char *value,
                   size_t value_size) {
  char tuple[128] = {};
  uci_ptr ptr{};

  // Without these the copy below has nothing sound to write to.
  if (!package || !section || !option || !value || value_size == 0) {
    console_printf("Parameter error!!!");
    return -1;
  }
  UciContext ctx;
  if (!ctx) {
    console_printf("alloc uci context failed");
    return -1;
  }
  if (confdir) uci_set_confdir(ctx.get(), confdir);

  kiv::format_into(tuple, 127, "%s.%s.%s", package, section, option);
  if (uci_lookup_ptr(ctx.get(), &ptr, tuple, true) != UCI_OK) {
    console_printf("uci_lookup_ptr %s failed.", tuple);
    return -1;
  }
  // A cut tuple may name a section only, and a list has no text: neither
  // gives a string to copy.
  if (!kiv::lookup_complete(ptr) || !ptr.o ||
      ptr.o->type != UCI_TYPE_STRING) {
    console_printf("find tuple %s.%s.%s failed.", package, section, option);
    return -1;
  }

  size_t n = strlen(ptr.o->v.string);
  if (n > value_size - 1) n = value_size - 1;
  memcpy(value, ptr.o->v.string, n);
  value[n] = '\0';
  return 0;
}

int set_uci_option(const char *package, const char *section,
                   const char *option, const char *value) {
  char tuple[128] = {};
  uci_ptr ptr{};

  if (!package || !section || !option || !value) {
    UCI_SAY_AT("Parameter error!!!\n");
    return -1;
  }
  UciContext ctx;
  if (!ctx) {
    UCI_SAY_AT("alloc uci context failed");
    return -1;
  }

  kiv::format_into(tuple, 128, "%s.%s.%s", package, section, option);
  if (uci_lookup_ptr(ctx.get(), &ptr, tuple, true) != UCI_OK) {
    UCI_SAY_AT("Failed to lookup option: %s\n", tuple);
    return -1;
  }
  // The value is given after the lookup, so it never passes through the
  // tuple and may hold any character.
  ptr.value = value;
  if (uci_set(ctx.get(), &ptr) != UCI_OK) {
    UCI_SAY_AT("Failed to set option: %s\n", tuple);
    return -1;
  }
  if (uci_commit(ctx.get(), &ptr.p, false) != UCI_OK) {
    UCI_SAY_AT("Failed to commit changes for option: %s\n", tuple);
    return -1;
  }
  return 0;
}

int set_uci_option_value(const char *package, const char *section,
                         const char *option, const char *value) {
  uci_ptr ptr{};

  if (!package || !section || !option || !value) {
    UCI_TRACE("Parameter error!!!\n");
    return -1;
  }
  // A hand-filled record: uci_set() resolves it, loading the package.
  ptr.package = package;
  ptr.section = section;
  ptr.option = option;
  ptr.value = value;

  UciContext ctx;
  if (!ctx) return 0;
  uci_set(ctx.get(), &ptr);
  if (ptr.p) {
    uci_commit(ctx.get(), &ptr.p, false);
    uci_unload(ctx.get(), ptr.p);
  }
  return 0;
}

int get_uci_option_value(const char *config, const char *section,
                         const char *option, char *value, size_t value_size) {
  if (!config || !section || !option || !value) {
    UCI_TRACE("Parameter error!!!\n");
    return -1;
  }
  // From here on a failed call leaves an empty buffer.
  memset(value, 0, value_size);

  UciContext ctx;
  uci_package *p = nullptr;
  if (!ctx || uci_load(ctx.get(), config, &p) != UCI_OK || !p) {
    UCI_TRACE("uci_load %s error!!!\n", config);
    return -1;
  }

  // Every section of that name is looked at, to the end of the list: with
  // two sections of one name the last value wins.
  int found = 0;
  uci_element *e;
  uci_foreach_element(&p->sections, e) {
    if (strcmp(e->name, section) != 0) continue;
    const char *text =
        uci_lookup_option_string(ctx.get(), uci_to_section(e), option);
    if (text) {
      memset(value, 0, value_size);
      strncpy(value, text, value_size);
      found = 1;
    }
  }
  uci_unload(ctx.get(), p);
  return found;
}

int uci_set_option_string(struct uci_context *ctx, struct uci_section *section,
                          const char *option, char *value) {
  if (!ctx || !section || !option || !value) return -1;
  uci_option *o = uci_lookup_option(ctx, section, option);
  if (!o || o->type != UCI_TYPE_STRING) return -1;
  o->v.string = value;
  return 0;
}

int delUciOption(const char *confdir, const char *package, const char *section,
                 const char *option) {
  char tuple[128] = {};
  uci_ptr ptr{};

  if (!package || !section || !option) {
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
    UCI_SAY("uci_lookup_ptr %s failed.", tuple);
    return 1;
  }
  // An absent target is uci_delete()'s failure to report.
  if (uci_delete(ctx.get(), &ptr) != UCI_OK) return 1;
  uci_commit(ctx.get(), &ptr.p, false);
  return 0;
}
