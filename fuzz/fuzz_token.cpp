// __get_token and __set_token on a fuzzed line, index and value.
// Checked: setting token i to v and reading token i back gives v when the
// line has that token and v holds no ';'.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <string>

#include "kiv/profile.h"

namespace {

void release(char *p, const char *line) {
  if (p && p != EMPTY && p != line) free(p);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  FuzzedDataProvider in(data, size);
  int idx = in.ConsumeIntegralInRange<int>(-2, 40);
  std::string value = in.ConsumeRandomLengthString(128);
  std::string line = in.ConsumeRemainingBytesAsString();
  const char *l = line.c_str();
  const char *v = value.c_str();

  char *tok = __get_token(l, idx);
  if (!tok) abort();
  bool had_token = tok != EMPTY;
  release(tok, l);

  if (idx < 0) return 0;
  char *set = __set_token(l, idx, v);
  if (!set) abort();
  if (set != l && had_token && strchr(v, ';') == nullptr &&
      strchr(l, '\n') == nullptr) {
    char *again = __get_token(set, idx);
    if (!again || again == EMPTY || strcmp(again, v) != 0) abort();
    release(again, set);
  }
  release(set, l);
  return 0;
}
