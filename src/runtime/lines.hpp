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
    // Never written through: every piece is copied.
    return feed_block<false>(const_cast<char *>(p), len, each);
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
    char block[4096 + 1];  // one byte behind for a terminator
    size_t got;
    while ((got = fread(block, 1, sizeof block - 1, stream)) > 0)
      if (!feed_block<true>(block, got, each)) return false;
    return finish(each);
  }

 private:
  // With kInPlace, a piece that lies whole in the block is handed out where
  // it stands, terminated in place (p[len] must be writable), instead of
  // being copied.
  template <bool kInPlace, class Each>
  bool feed_block(char *p, size_t len, Each &&each) {
    while (len > 0) {
      size_t take = Size - 1 - n_;
      if (take > len) take = len;
      const char *lf = static_cast<const char *>(memchr(p, '\n', take));
      if (lf != nullptr) take = static_cast<size_t>(lf - p) + 1;
      const bool whole = lf != nullptr || n_ + take == Size - 1;
      char *text = line_;
      if (kInPlace && whole && n_ == 0) {
        const char saved = p[take];
        p[take] = '\0';
        const bool more = each(p);
        p[take] = saved;
        if (!more) return false;
      } else {
        memcpy(line_ + n_, p, take);
        n_ += take;
        if (whole) {
          line_[n_] = '\0';
          n_ = 0;
          if (!each(text)) return false;
        }
      }
      p += take;
      len -= take;
    }
    return true;
  }

  char line_[Size];
  size_t n_ = 0;
};

}  // namespace kiv
