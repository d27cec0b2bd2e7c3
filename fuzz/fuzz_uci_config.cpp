// The libuci configuration parser on a fuzzed file, through uci_import (the
// reader of uci_load) in strict and in lax mode, then the writer through
// uci_export.  Checked: for packages whose section types are plain words,
// exporting, importing the export and exporting again gives the same text.
// The same bytes are also read as batch input by uci_parse_argument, which
// must give a word on every call and reach the end of the input.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "fuzz_uci_common.hpp"

namespace {

bool plain_word(const char *s) {
  if (!s || !*s) return false;
  for (; *s; ++s) {
    char c = *s;
    if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
          (c >= '0' && c <= '9') || c == '_' || c == '-'))
      return false;
  }
  return true;
}

uci_package *import(uci_context *ctx, const void *data, size_t size) {
  FILE *f = fmemopen(const_cast<void *>(data), size, "r");
  if (!f) abort();
  uci_package *p = nullptr;
  int rc = uci_import(ctx, f, "fuzz", &p, true);
  fclose(f);
  return rc == UCI_OK ? p : nullptr;
}

void batch_words(const uint8_t *data, size_t size) {
  uci_context *ctx = uci_alloc_context();
  FILE *f = fmemopen(const_cast<uint8_t *>(data), size, "r");
  if (!ctx || !f) abort();
  char *line = nullptr, *word = nullptr;
  // At most one word per byte, and one "" per line.
  for (size_t calls = 0; !feof(f); calls++) {
    if (uci_parse_argument(ctx, f, &line, &word)) break;
    if (!word || calls > 2 * size + 2) abort();
  }
  fclose(f);
  uci_free_context(ctx);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  if (size > 1) batch_words(data + 1, size - 1);
  uci_context *ctx = uci_alloc_context();
  if (!ctx) abort();
  if (data[0] & 1) ctx->flags = static_cast<uci_flags>(ctx->flags & ~UCI_FLAG_STRICT);
  uci_package *p = import(ctx, data + 1, size - 1);
  if (!p) {
    char *msg = nullptr;
    uci_get_errorstr(ctx, &msg, "fuzz");
    free(msg);
    uci_free_context(ctx);
    return 0;
  }
  bool plain = true;
  uci_element *e;
  uci_foreach_element(&p->sections, e) {
    plain = plain && plain_word(uci_to_section(e)->type);
  }
  std::string first = kivfuzz::export_text(ctx, p);
  uci_free_context(ctx);
  if (!plain) return 0;

  // "package fuzz" heads the export; import skips it (single).
  ctx = uci_alloc_context();
  p = import(ctx, first.data(), first.size());
  if (!p) abort();
  std::string second = kivfuzz::export_text(ctx, p);
  uci_free_context(ctx);
  if (first != second) abort();
  return 0;
}
