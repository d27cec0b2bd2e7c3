// The line cutter of command and file output (lines.hpp).
#include "lines.hpp"

#include <string.h>

namespace kiv {

bool LineCutter::feed(const char *p, size_t len) {
  // Never written through: every piece is copied.
  return feed_block(const_cast<char *>(p), len, false);
}

bool LineCutter::finish() {
  if (n_ == 0) return true;
  buf_[n_] = '\0';
  n_ = 0;
  return each_(ctx_, buf_);
}

bool LineCutter::feed_stream(FILE *stream) {
  char block[4096 + 1];  // one byte behind for a terminator
  size_t got;
  while ((got = fread(block, 1, sizeof block - 1, stream)) > 0)
    if (!feed_block(block, got, true)) return false;
  return finish();
}

// in_place: a piece that lies whole in the block is handed out where it
// stands, terminated in place (p[len] must be writable), instead of being
// copied.
bool LineCutter::feed_block(char *p, size_t len, bool in_place) {
  while (len > 0) {
    size_t take = size_ - 1 - n_;
    if (take > len) take = len;
    const char *lf = static_cast<const char *>(memchr(p, '\n', take));
    if (lf != nullptr) take = static_cast<size_t>(lf - p) + 1;
    const bool whole = lf != nullptr || n_ + take == size_ - 1;
    bool more = true;
    if (in_place && whole && n_ == 0) {
      const char saved = p[take];
      p[take] = '\0';
      more = each_(ctx_, p);
      p[take] = saved;
    } else {
      memcpy(buf_ + n_, p, take);
      n_ += take;
      if (whole) {
        buf_[n_] = '\0';
        n_ = 0;
        more = each_(ctx_, buf_);
      }
    }
    if (!more) return false;
    p += take;
    len -= take;
  }
  return true;
}

}  // namespace kiv
