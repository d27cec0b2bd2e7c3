// libuci delta replay: a fuzzed delta file in the savedir of the private
// tmpfs, applied by uci_load to a fixed package; the first byte may also
// ask for a commit, which replays the deltas again and rewrites the file.
// The configuration is restored before every input.
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include "fuzz_common.hpp"
#include "fuzz_uci_common.hpp"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  kivfuzz::private_tmpfs();
  kivfuzz::mkdirs("/tmp/fuzz/config");
  kivfuzz::mkdirs("/tmp/fuzz/save");
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  bool commit = data[0] & 1;
  kivfuzz::write_file("/tmp/fuzz/config/net", kivfuzz::kNetwork,
                      sizeof kivfuzz::kNetwork - 1, 0600);
  kivfuzz::write_file("/tmp/fuzz/save/net", data + 1, size - 1, 0600);

  uci_context *ctx = uci_alloc_context();
  if (!ctx) abort();
  uci_set_confdir(ctx, "/tmp/fuzz/config");
  uci_set_savedir(ctx, "/tmp/fuzz/save");
  uci_package *p = nullptr;
  if (uci_load(ctx, "net", &p) == UCI_OK && p) {
    kivfuzz::export_text(ctx, p);
    if (commit) {
      if (uci_commit(ctx, &p, false) != UCI_OK) abort();
      // What was committed loads again.
      uci_context *again = uci_alloc_context();
      uci_set_confdir(again, "/tmp/fuzz/config");
      uci_set_savedir(again, "/tmp/fuzz/save");
      uci_package *q = nullptr;
      if (uci_load(again, "net", &q) != UCI_OK) abort();
      uci_free_context(again);
    }
  } else if (p == nullptr) {
    // The fixed file always parses; deltas never make a load fail.
    abort();
  }
  uci_free_context(ctx);
  unlink("/tmp/fuzz/save/net");
  return 0;
}
