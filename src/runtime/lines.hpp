// Cutting a command's or a file's output into lines the way fgets() with a
// fixed buffer cuts it, from blocks of any size: the parsers of that output
// work the same on a stream read in large blocks and on a buffer in memory.
#pragma once

#include <stddef.h>
#include <stdio.h>

namespace kiv {

// Pieces of at most size - 1 bytes, each ending at its first LF (kept):
// what fgets(buf, size, stream) returns call by call, NUL-terminated and
// writable.  A NUL inside a piece ends its text there, as it does for a
// caller of fgets().  Each piece goes to each(ctx, piece); when that returns
// false, nothing more is cut and the calls below return false.
class LineCutter {
 public:
  using Each = bool (*)(void *ctx, char *piece);

  // buf (size bytes) holds pieces that cross the blocks given.
  LineCutter(char *buf, size_t size, Each each, void *ctx)
      : buf_(buf), size_(size), each_(each), ctx_(ctx) {}

  // The pieces the bytes complete.
  bool feed(const char *p, size_t len);
  // The last piece, which has no LF, if there is one.
  bool finish();
  // A whole stream, read in large blocks, then finish().
  bool feed_stream(FILE *stream);

 private:
  bool feed_block(char *p, size_t len, bool in_place);

  char *buf_;
  size_t size_;
  Each each_;
  void *ctx_;
  size_t n_ = 0;  // bytes of a piece begun in buf_
};

}  // namespace kiv
