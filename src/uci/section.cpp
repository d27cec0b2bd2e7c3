// Section maintenance: add sections, delete sections and options, empty a
// section.  Each function loads the package itself in a context of its own,
// commits and unloads it.
#include "kiv/ucicfg.h"

#include <string.h>

#include "internal.hpp"
#include "util.hpp"

using kiv::UciContext;

int add_new_uci_section_and_option(const char *package,
                                   const char *section_type,
                                   uci_section_options options) {
  if (!package || !section_type) return -1;
  UciContext ctx;
  if (!ctx) return -1;
  if (uci_load(ctx.get(), package, nullptr) != UCI_OK) return -1;

  // Found again by name: a path in `package` loads, but finds nothing here.
  uci_ptr ptr{};
  ptr.p = uci_lookup_package(ctx.get(), package);
  if (!ptr.p) return 0;

  uci_add_section(ctx.get(), ptr.p, section_type, &ptr.s);
  for (int i = 0; i < options.count && i < 32; ++i) {
    const uci_option_pair &pair = options.pairs[i];
    if (!pair.name || !pair.value) continue;
    // uci_set() leaves the option it made in o: clear it for the next one.
    ptr.o = nullptr;
    ptr.option = pair.name;
    ptr.value = pair.value;
    uci_set(ctx.get(), &ptr);
  }
  uci_commit(ctx.get(), &ptr.p, false);
  if (ptr.p) uci_unload(ctx.get(), ptr.p);
  return 0;
}

int delete_section_options(const char *package_name, const char *section_name) {
  // At most 32 names of at most 63 characters are collected per call.
  char names[32][64] = {};
  uci_ptr ptr{};

  if (!package_name || !section_name) {
    UCI_TRACE(
        "Invalid parameters: package_name or section_name is NULL\n");
    return 0;
  }
  UciContext ctx;
  if (!ctx) {
    UCI_TRACE("Failed to allocate uci context\n");
    return 0;
  }
  uci_package *p = nullptr;
  int rc = uci_load(ctx.get(), package_name, &p);
  if (rc != UCI_OK) {
    UCI_TRACE("Failed to load config package '%s': %d\n", package_name, rc);
    return 0;
  }
  uci_section *s = uci_lookup_section(ctx.get(), p, section_name);
  if (!s) {
    UCI_TRACE("Failed to lookup section '%s' in package '%s'\n", section_name,
              package_name);
    uci_unload(ctx.get(), p);
    return 0;
  }
  UCI_TRACE("Found section: %s in package %s\n", s->e.name, package_name);

  // All names are collected before the first deletion changes the list.
  int n = 0;
  uci_element *e;
  uci_foreach_element(&s->options, e) {
    uci_option *o = uci_to_option(e);
    if (o->type == UCI_TYPE_STRING)
      UCI_TRACE("Found option: %s = %s\n", e->name, o->v.string);
    if (n < 32) {
      strncpy(names[n], e->name, 63);
      names[n][63] = '\0';
      ++n;
    }
  }
  UCI_TRACE("Found %d options to delete in section %s\n", n, section_name);

  int deleted = 0;
  for (int i = 0; i < n; ++i) {
    ptr = uci_ptr{};
    ptr.package = package_name;
    ptr.section = s->e.name;
    ptr.option = names[i];
    ptr.p = p;
    UCI_TRACE("Deleting option: %s\n", names[i]);
    if (uci_delete(ctx.get(), &ptr) == UCI_OK)
      ++deleted;
    else
      UCI_TRACE("Failed to delete option: %s\n", names[i]);
  }
  UCI_TRACE("Successfully deleted %d options in section %s\n", deleted,
            section_name);

  rc = uci_commit(ctx.get(), &p, false);
  if (rc != UCI_OK) {
    UCI_TRACE("Failed to commit changes: %d\n", rc);
    ptr = uci_ptr{};
    ptr.p = p;
    ptr.package = package_name;
    uci_revert(ctx.get(), &ptr);
    if (ptr.p) uci_unload(ctx.get(), ptr.p);
    return 0;
  }
  UCI_TRACE("Successfully committed changes for section %s\n", section_name);
  if (p) uci_unload(ctx.get(), p);
  return 1;
}

namespace {

// Loads `config` for del_uci_options() and del_uci_sections(), runs
// uci_delete() on the hand-filled record, commits and unloads.  Returns
// false when the package does not load (no context counts as that).
bool load_and_delete(const char *config, uci_ptr &ptr) {
  UciContext ctx;
  if (!ctx || uci_load(ctx.get(), config, nullptr) != UCI_OK) return false;
  // flags are 0: the library resolves the record by its names.
  uci_delete(ctx.get(), &ptr);
  if (ptr.p) {
    uci_commit(ctx.get(), &ptr.p, false);
    if (ptr.p) uci_unload(ctx.get(), ptr.p);
  }
  return true;
}

}  // namespace

int del_uci_options(const char *config, const char *package,
                    const char *section, const char *option) {
  if (!config || !package || !section || !option) {
    UCI_TRACE("Parameter error!!!\n");
    return -1;
  }
  uci_ptr ptr{};
  ptr.package = package;
  ptr.section = section;
  ptr.option = option;
  if (!load_and_delete(config, ptr)) {
    UCI_TRACE("uci_load %s error!!!\n", config);
    return -1;
  }
  return 0;
}

int del_uci_sections(const char *config, const char *package,
                     const char *section) {
  if (!config || !package || !section) {
    UCI_TRACE("Parameter error!!!\n");
    return -1;
  }
  uci_ptr ptr{};
  ptr.package = package;
  ptr.section = section;
  if (!load_and_delete(config, ptr)) {
    UCI_TRACE("uci_load %s error(%s)!!!\n", config, section);
    return -1;
  }
  return 0;
}

int add_uci_sections(const char *config, const char *package,
                     const char *section_type, const char *section_name) {
  if (!config || !package || !section_type || !section_name) {
    UCI_TRACE("Parameter error!!!\n");
    return -1;
  }
  uci_ptr ptr{};
  ptr.package = package;
  ptr.value = section_name;

  UciContext ctx;
  uci_package *p = nullptr;
  if (!ctx || uci_load(ctx.get(), config, &p) != UCI_OK) {
    UCI_TRACE("uci_load %s error (%s)!!!\n", config, section_name);
    return -1;
  }
  // Made anonymous first, then given its name.
  uci_section *s = nullptr;
  uci_add_section(ctx.get(), p, section_type, &s);
  ptr.s = s;
  uci_rename(ctx.get(), &ptr);
  if (ptr.p) {
    uci_commit(ctx.get(), &ptr.p, false);
    if (ptr.p) uci_unload(ctx.get(), ptr.p);
  }
  return 0;
}
