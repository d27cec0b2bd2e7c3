// base64_decode on fuzzed text, and base64_encode -> base64_decode of
// fuzzed bytes, which must give the bytes back.
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "kiv/profile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  size_t n = 0;
  unsigned char *dec = base64_decode(data, size, &n);
  // A group padded out of place leaves the low bits of its last bytes
  // behind the length (the buffer's own NUL is further on): only the
  // length is checked here, the bounds by AddressSanitizer.
  if (dec) {
    if (n > size / 4 * 3) abort();
    free(dec);
  }

  size_t elen = 0;
  unsigned char *enc = base64_encode(data, size, &elen);
  if (!enc) abort();
  if (strlen(reinterpret_cast<char *>(enc)) != elen) abort();
  size_t dlen = 0;
  unsigned char *back = base64_decode(enc, elen, &dlen);
  if (size == 0) {
    // Nothing to encode gives no groups, which the decoder refuses.
    free(back);
  } else {
    if (!back || dlen != size || memcmp(back, data, size) != 0) abort();
    free(back);
  }
  free(enc);
  return 0;
}
