// The libuci tuple parser (extended syntax) on fuzzed tuples: uci_lookup_ptr
// on a fixed package in the private tmpfs, then the change the first byte
// picks (set, add_list, del_list, delete, rename) and an export of the
// changed package.  Nothing is saved, so every input starts from the file.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "fuzz_common.hpp"
#include "fuzz_uci_common.hpp"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  kivfuzz::private_tmpfs();
  kivfuzz::mkdirs("/tmp/fuzz/config");
  kivfuzz::mkdirs("/tmp/fuzz/save");
  kivfuzz::write_file("/tmp/fuzz/config/net", kivfuzz::kNetwork,
                      sizeof kivfuzz::kNetwork - 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1) return 0;
  int op = data[0] % 6;
  std::vector<char> tuple(data + 1, data + size);
  tuple.push_back('\0');

  uci_context *ctx = uci_alloc_context();
  if (!ctx) abort();
  uci_set_confdir(ctx, "/tmp/fuzz/config");
  uci_set_savedir(ctx, "/tmp/fuzz/save");
  uci_ptr ptr;
  memset(&ptr, 0, sizeof ptr);
  int rc = uci_lookup_ptr(ctx, &ptr, tuple.data(), true);
  if (rc == UCI_OK && ptr.p) {
    switch (op) {
      case 1:
        if (ptr.value) uci_set(ctx, &ptr);
        break;
      case 2:
        if (ptr.value) uci_add_list(ctx, &ptr);
        break;
      case 3:
        if (ptr.value) uci_del_list(ctx, &ptr);
        break;
      case 4:
        uci_delete(ctx, &ptr);
        break;
      case 5:
        uci_rename(ctx, &ptr);
        break;
      default:
        break;
    }
    kivfuzz::export_text(ctx, nullptr);
  }
  uci_free_context(ctx);
  return 0;
}
