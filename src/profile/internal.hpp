// Private helpers of the profile store: the fatal report, the store's blank
// class and the line cutting that every reader and writer shares.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <sys/types.h>

#include "util.hpp"

namespace kiv::profile {

// Size of the key search's line buffer (it sees 1023 bytes at a time) and
// of the value read's (it sees 1022).
inline constexpr size_t kSearchLimit = 1024;
inline constexpr size_t kReadLimit = 1023;

inline constexpr const char kSelectDir[] = "/tmp/.wificonf";
inline constexpr const char kCurrentLink[] = "/tmp/.wificonf/current";

// TAB, LF, CR and SPACE; VT and FF are not blanks here.
inline bool is_blank(unsigned char c) {
  return c == '\t' || c == '\n' || c == '\r' || c == ' ';
}

// Prints "assert failure: ..." on stderr unless __quiet, with the text of
// the errno current at the call, then exit(-1).  free()s `a` and `b` first
// (exit runs no destructors, and a report must not look like a leak).
[[noreturn]] void fatal(const char *cond, const char *func, int line,
                        void *a = nullptr, void *b = nullptr);

// The fatal report of a check in the calling function, at this line.
#define PROFILE_FATAL(cond, ...)                   \
  ::kiv::profile::fatal(cond, __func__, __LINE__ \
                        __VA_OPT__(, ) __VA_ARGS__)

// The key search's own checks, reported under its name: fatal when the
// stream (has_fp false) or the key is missing.
void check_search_args(bool has_fp, const char *key);

// Length of the text that fgets() with `limit` takes from p[0..avail):
// through the first LF, at most limit - 1 bytes.
inline size_t chunk_len(const char *p, size_t avail, size_t limit) {
  size_t max = avail < limit - 1 ? avail : limit - 1;
  // Eight bytes at a time: profile lines are short, and a call of memchr()
  // per line costs more than the line.
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  size_t i = 0;
  for (; i + 8 <= max; i += 8) {
    uint64_t w;
    memcpy(&w, p + i, 8);
    w ^= kOnes * '\n';
    if ((w - kOnes) & ~w & (kOnes << 7)) break;  // a LF among these eight
  }
  for (; i < max; ++i)
    if (p[i] == '\n') return i + 1;
  return max;
}

// Whether the text p[0..n) read by the key search is the line of key
// (klen bytes): it holds a '=', and its name (from the first non-blank byte
// to the first '=') is key, not empty and not a comment.
bool chunk_matches(const char *p, size_t n, const char *key, size_t klen);

// chunk_matches() for one key, with a fast path for the usual line that
// starts with its name: such a line is the key's line exactly when it
// starts with the key and a '=' (a key that can be no name never matches).
class KeyMatcher {
 public:
  explicit KeyMatcher(const char *key)
      : key_(key),
        klen_(strlen(key)),
        possible_(klen_ > 0 && key[0] != '#' &&
                  !is_blank(static_cast<unsigned char>(key[0])) &&
                  memchr(key, '=', klen_) == nullptr &&
                  memchr(key, '\n', klen_) == nullptr) {}

  // False for a key that no line can answer to.
  bool possible() const { return possible_; }

  bool operator()(const char *p, size_t n) const {
    if (!possible_) return false;
    if (!is_blank(static_cast<unsigned char>(p[0])))
      return p[0] == key_[0] && klen_ < n && p[klen_] == '=' &&
             memcmp(p, key_, klen_) == 0;
    return chunk_matches(p, n, key_, klen_);
  }

 private:
  const char *key_;
  size_t klen_;
  bool possible_;
};

// Offset of the line of key in the image img[0..len), or len when absent.
size_t locate_in_image(const char *img, size_t len, const char *key);

// Reads a file through a fixed buffer, cutting it as fgets() would, without
// stdio.  Read errors end the input like the end of the file.
class ChunkReader {
 public:
  explicit ChunkReader(int fd) : fd_(fd) {}
  ChunkReader(const ChunkReader &) = delete;
  ChunkReader &operator=(const ChunkReader &) = delete;

  // The next text fgets(buf, limit) would give; false at the end.  The text
  // stays valid until the next call.
  bool next(size_t limit, const char **text, size_t *len);
  // Makes the last text the next one again, to read it with another limit.
  void rewind_last() { pos_ = last_; }
  // Before the first next(): reads as much as the buffer holds, and tells
  // whether that is the whole file, then at data()[0..size()).
  bool load_all();
  const char *data() const { return buf_; }
  size_t size() const { return end_; }

 private:
  int fd_;
  size_t pos_ = 0, end_ = 0, last_ = 0;
  bool eof_ = false;
  char buf_[16384];  // read only where filled
};

// The text of key's line as the value read sees it (at most 1022 bytes),
// from a fresh reader; false when the key is absent.
bool find_line(ChunkReader &reader, const char *key, const char **text,
               size_t *len);

// The whole profile in a malloc'd image with a NUL behind it, read under
// the exclusive lock that `file` holds until the rewrite is done.
struct Image {
  char *data;
  size_t len;
};

// Opens and locks the profile for a read-modify-write and reads it, with
// the update's fatal checks in the caller's order: conf_set opens first
// (open_first), conf_set_token looks at the size first.  `search` is the
// condition of the position step, reported for a stream that can not
// seek.  Frees `extra` before any fatal report.
Image load_image(const char *profile, kiv::LockedFile &file, void *extra,
                 const char *func, bool open_first, const char *search);

// Replaces the profile with data[0..len); fatal (freeing img.data, b and
// c) on failure, with the old file left as it was.
void commit_image(const char *profile, kiv::LockedFile &file, Image img,
                  const char *data, size_t len, const char *func, void *b,
                  void *c);

// Opens and share-locks the profile for a read; fatal "fp" when it can
// not be opened, `search` when it can not seek.  The key is checked
// between the two, as the key search checks it before it seeks.
void open_for_read(const char *profile, const char *key,
                   kiv::LockedFile &file, const char *func,
                   const char *search);

}  // namespace kiv::profile
