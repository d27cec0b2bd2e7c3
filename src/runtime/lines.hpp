// Cutting a command's or a file's output into lines the way fgets() with a
// fixed buffer cuts it, from blocks of any size: the parsers of that output
// work the same on a stream read in large blocks and on a buffer in memory.
#pragma once

#include <stddef.h>
#include <stdio.h>
#include <string.h>

namespace kiv {

// Pieces of at most Size - 1 bytes, each ending at its first LF (kept):
// what fgets(buf, Size, stream) returns call by call, NUL-terminated in a
// writable buffer.  A NUL inside a piece ends its text there, as it does
// for a caller of fgets().
template <size_t Size>
class LineCutter {
 public:
  // Calls each(char *line) for every piece the bytes complete; stops early
  // and returns false when each returns false.
  template <class Each>
  bool feed(const char *p, size_t len, Each &&each) {
    while (len > 0) {
      size_t take = Size - 1 - n_;
      if (take > len) take = len;
      const char *lf = static_cast<const char *>(memchr(p, '\n', take));
      if (lf != nullptr) take = static_cast<size_t>(lf - p) + 1;
      memcpy(line_ + n_, p, take);
      n_ += take;
      p += take;
      len -= take;
      if (lf != nullptr || n_ == Size - 1) {
        line_[n_] = '\0';
        n_ = 0;
        if (!each(line_)) return false;
      }
    }
    return true;
  }

  // The last piece, which has no LF, if there is one.
  template <class Each>
  bool finish(Each &&each) {
    if (n_ == 0) return true;
    line_[n_] = '\0';
    n_ = 0;
    return each(line_);
  }

  // Feeds a whole stream, read in large blocks, then finishes.
  template <class Each>
  bool feed_stream(FILE *stream, Each &&each) {
    char block[4096];
    size_t got;
    while ((got = fread(block, 1, sizeof block, stream)) > 0)
      if (!feed(block, got, each)) return false;
    return finish(each);
  }

 private:
  char line_[Size];
  size_t n_ = 0;
};

}  // namespace kiv
