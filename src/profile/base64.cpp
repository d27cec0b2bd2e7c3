// Base64 (RFC 4648 alphabet) for the store's -e values: an encoder that
// wraps its text in lines of 72 characters, and a lenient decoder that
// skips every byte outside the alphabet.
//
// Both work through tables made on first use (in zeroed memory, so they
// cost the library file nothing): the encoder turns 12 bits into two
// characters at once, and the decoder turns a group of four characters into
// its three bytes with four lookups and three ors.  The decoder's fast paths
// take whole groups without '=' (whole lines of them when the text is
// wrapped at a width of whole groups) and step over single bytes outside
// the alphabet that lead a group, such as the line feeds; anything else
// goes through the plain steps one byte at a time, which decide alone what
// the result is.
#include "kiv/profile.h"

#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr const char kAlphabet[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr uint8_t kInvalid = 0x80;

struct DecodeTable {
  uint8_t v[256];
};

// Value of each byte: 0 to 63 for the alphabet, 0 for '=', else kInvalid.
constexpr DecodeTable make_table() {
  DecodeTable t{};
  for (auto &e : t.v) e = kInvalid;
  for (int i = 0; i < 64; ++i)
    t.v[static_cast<unsigned char>(kAlphabet[i])] = static_cast<uint8_t>(i);
  t.v[static_cast<unsigned char>('=')] = 0;
  return t;
}

constexpr DecodeTable kTable = make_table();

constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

struct Tables {
  // The two characters of each 12-bit value, as a word whose bytes in
  // memory are those characters in text order.
  uint16_t pairs[4096];
  // For the character at position i of a group: its bits in place among
  // the group's three bytes, as a word whose bytes in memory are those
  // three bytes and a fourth that only marks a character that is not in
  // the alphabet, or is '=' (bad).
  uint32_t group[4][256];
  uint32_t bad;
};

Tables g_tables;
bool g_ready = false;
pthread_once_t g_once = PTHREAD_ONCE_INIT;

// A word with the given bytes in memory order, whatever the byte order.
uint32_t word_of(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3) {
  const uint8_t b[4] = {b0, b1, b2, b3};
  uint32_t w;
  memcpy(&w, b, 4);
  return w;
}

void make_tables() {
  Tables &t = g_tables;
  for (int v = 0; v < 4096; ++v) {
    const char pair[2] = {kAlphabet[v >> 6], kAlphabet[v & 63]};
    memcpy(&t.pairs[v], pair, 2);
  }
  t.bad = word_of(0, 0, 0, 1);
  for (int c = 0; c < 256; ++c) {
    const uint8_t v = kTable.v[c];
    if (v == kInvalid || c == '=') {
      for (auto &column : t.group) column[c] = t.bad;
      continue;
    }
    t.group[0][c] = word_of(static_cast<uint8_t>(v << 2), 0, 0, 0);
    t.group[1][c] = word_of(static_cast<uint8_t>(v >> 4),
                            static_cast<uint8_t>(v << 4), 0, 0);
    t.group[2][c] = word_of(0, static_cast<uint8_t>(v >> 2),
                            static_cast<uint8_t>(v << 6), 0);
    t.group[3][c] = word_of(0, 0, v, 0);
  }
  __atomic_store_n(&g_ready, true, __ATOMIC_RELEASE);
}

// The little steps below are forced inline: a size-optimised build would
// call them for each group.
#define KIV_INLINE inline __attribute__((always_inline))

KIV_INLINE const Tables &tables() {
  if (!__atomic_load_n(&g_ready, __ATOMIC_ACQUIRE))
    pthread_once(&g_once, make_tables);
  return g_tables;
}

// The four bytes at p as a number, the first byte highest.
KIV_INLINE uint32_t load_be32(const unsigned char *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return kLittleEndian ? __builtin_bswap32(v) : v;
}

// The 24 bits of v to four characters.
KIV_INLINE void encode_bits(const Tables &t, uint32_t v, unsigned char *out) {
  const uint32_t hi = t.pairs[v >> 12 & 0xfff], lo = t.pairs[v & 0xfff];
  const uint32_t w = kLittleEndian ? hi | lo << 16 : hi << 16 | lo;
  memcpy(out, &w, 4);
}

// Three input bytes to four characters; the fast form reads a fourth byte.
KIV_INLINE void encode_group(const Tables &t, const unsigned char *in,
                         unsigned char *out) {
  encode_bits(t, static_cast<uint32_t>(in[0]) << 16 |
                     static_cast<uint32_t>(in[1]) << 8 | in[2],
              out);
}
KIV_INLINE void encode_group_fast(const Tables &t, const unsigned char *in,
                              unsigned char *out) {
  encode_bits(t, load_be32(in) >> 8, out);
}

// Six input bytes to eight characters, reading eight bytes.
KIV_INLINE void encode_pair_fast(const Tables &t, const unsigned char *in,
                                 unsigned char *out) {
  uint64_t v;
  memcpy(&v, in, 8);
  if (kLittleEndian) v = __builtin_bswap64(v);
  const uint64_t c0 = t.pairs[v >> 52], c1 = t.pairs[v >> 40 & 0xfff],
                 c2 = t.pairs[v >> 28 & 0xfff], c3 = t.pairs[v >> 16 & 0xfff];
  const uint64_t w = kLittleEndian ? c0 | c1 << 16 | c2 << 32 | c3 << 48
                                   : c0 << 48 | c1 << 32 | c2 << 16 | c3;
  memcpy(out, &w, 8);
}

// Four characters to the word of their three bytes (t.bad set if any of
// them is outside the alphabet or '=').
KIV_INLINE uint32_t decode_group(const Tables &t, const unsigned char *in) {
  return t.group[0][in[0]] | t.group[1][in[1]] | t.group[2][in[2]] |
         t.group[3][in[3]];
}

// Lines of `width` characters (whole groups), each followed by one byte
// outside the alphabet, for as long as they come.  A line's groups are
// stored before they are checked; it is kept only if none holds a byte not
// for this path and its separator stands where expected.
template <size_t kWidth>
KIV_INLINE void decode_lines(const Tables &t, const unsigned char *&in,
                             const unsigned char *end, unsigned char *&pos,
                             size_t width) {
  if (kWidth != 0) width = kWidth;
  while (static_cast<size_t>(end - in) > width) {
    uint32_t seen = 0;
    const unsigned char *p = in;
    unsigned char *o = pos;
    for (const unsigned char *stop = in + (width & ~size_t{7}); p < stop;
         p += 8, o += 6) {
      const uint32_t a = decode_group(t, p), b = decode_group(t, p + 4);
      memcpy(o, &a, 4);
      memcpy(o + 3, &b, 4);
      seen |= a | b;
    }
    if (width & 4) {
      const uint32_t a = decode_group(t, p);
      memcpy(o, &a, 4);
      seen |= a;
      p += 4;
      o += 3;
    }
    if ((seen & t.bad) != 0 || kTable.v[*p] != kInvalid) return;
    in = p + 1;
    pos = o;
  }
}

}  // namespace

extern "C" {

unsigned char *base64_encode(const unsigned char *src, size_t len,
                             size_t *out_len) {
  // Sizes are reckoned in 32 bits, as on the target, also where size_t is
  // wider: 4 * len wraps for a len of 2^30 or more, and the guard below then
  // refuses it.
  uint32_t olen = static_cast<uint32_t>(len) * 4u / 3u + 4u;
  olen += olen / 72u;
  if (len > static_cast<size_t>(olen) + 1) return nullptr;
  unsigned char *out =
      static_cast<unsigned char *>(malloc(static_cast<size_t>(olen) + 2));
  if (out == nullptr) return nullptr;

  const Tables &t = tables();
  unsigned char *pos = out;
  const unsigned char *in = src;
  const unsigned char *end = src + len;
  // Whole lines but a last one of just 54 bytes: 18 groups give 72
  // characters and a LF.  Each group reads four bytes (on 64-bit machines
  // each pair of groups eight), which the bytes behind the line allow.
  while (end - in > 54) {
    if (sizeof(void *) >= 8 && end - in > 55) {
      for (int g = 0; g < 18; g += 2)
        encode_pair_fast(t, in + 3 * g, pos + 4 * g);
    } else {
      for (int g = 0; g < 18; ++g)
        encode_group_fast(t, in + 3 * g, pos + 4 * g);
    }
    in += 54;
    pos += 72;
    *pos++ = '\n';
  }
  // The last line: up to 18 groups, then one or two bytes padded to a
  // group, and the LF behind whatever the line holds.
  for (; end - in > 3; in += 3, pos += 4) encode_group_fast(t, in, pos);
  if (end - in == 3) {
    encode_group(t, in, pos);
    in += 3;
    pos += 4;
  }
  if (end - in > 0) {
    *pos++ = static_cast<unsigned char>(kAlphabet[in[0] >> 2]);
    if (end - in == 1) {
      *pos++ = static_cast<unsigned char>(kAlphabet[(in[0] & 0x03) << 4]);
      *pos++ = '=';
    } else {
      *pos++ = static_cast<unsigned char>(
          kAlphabet[((in[0] & 0x03) << 4) | (in[1] >> 4)]);
      *pos++ = static_cast<unsigned char>(kAlphabet[(in[1] & 0x0f) << 2]);
    }
    *pos++ = '=';
  }
  if (pos != out && pos[-1] != '\n') *pos++ = '\n';
  *pos = '\0';
  if (out_len) *out_len = static_cast<size_t>(pos - out);
  return out;
}

unsigned char *base64_decode(const unsigned char *src, size_t len,
                             size_t *out_len) {
  // Fewer than four bytes hold fewer than four valid ones: refused.
  if (len < 4) return nullptr;
  const Tables &t = tables();
  // Room for every byte being valid, and for the fast path's four-byte
  // stores; cut down at the end when much of the input was skipped.
  size_t cap = len / 4 * 3 + 4;
  unsigned char *out = static_cast<unsigned char *>(malloc(cap));
  if (out == nullptr) return nullptr;

  const unsigned char *in = src;
  const unsigned char *end = src + len;
  unsigned char *pos = out;
  size_t count;  // the valid bytes of the input, '=' included
  int pad = 0;   // the '=' in the group that ended the decoding
  const unsigned char *line = src;  // where the last separator left off
  for (;;) {
    // Two groups at a time; the first alone when the second holds a byte
    // not for this path.  A byte outside the alphabet that leads a group
    // (the LF of a wrapped line) is stepped over; anything else goes to the
    // plain steps.
    while (end - in >= 8) {
      const uint32_t a = decode_group(t, in);
      const uint32_t b = decode_group(t, in + 4);
      if (((a | b) & t.bad) == 0) {
        memcpy(pos, &a, 4);
        memcpy(pos + 3, &b, 4);
        pos += 6;
        in += 8;
      } else if ((a & t.bad) == 0) {
        memcpy(pos, &a, 4);
        pos += 3;
        in += 4;
      } else if (kTable.v[in[0]] == kInvalid) {
        // A line ends.  If it was whole groups, lines of the same width
        // likely follow: they go faster as lines.  (Not on 32-bit machines,
        // the small routers, where the code would weigh more than it gains.)
        const size_t width = static_cast<size_t>(in - line);
        line = ++in;
        if (sizeof(void *) >= 8 && width >= 16 && width % 4 == 0) {
          // The encoder's own width is worth a copy whose loop the
          // compiler can lay out in full.
          if (width == 72)
            decode_lines<72>(t, in, end, pos, width);
          else
            decode_lines<0>(t, in, end, pos, width);
          line = in;
        }
      } else {
        break;
      }
    }
    // The same a group at a time, for the last few groups.
    while (end - in >= 4) {
      const uint32_t a = decode_group(t, in);
      if ((a & t.bad) == 0) {
        memcpy(pos, &a, 4);
        pos += 3;
        in += 4;
      } else if (kTable.v[in[0]] == kInvalid) {
        ++in;
      } else {
        break;
      }
    }
    // One group by the plain steps: skip invalid bytes, take four values.
    uint8_t block[4];
    int got = 0;
    while (got < 4 && in < end) {
      const uint8_t v = kTable.v[*in];
      if (v != kInvalid) {
        pad += *in == '=';
        block[got++] = v;
      }
      ++in;
    }
    const size_t groups = static_cast<size_t>(pos - out) / 3;
    if (got < 4) {  // the input ended
      count = groups * 4 + static_cast<size_t>(got);
      break;
    }
    *pos++ = static_cast<unsigned char>((block[0] << 2) | (block[1] >> 4));
    *pos++ = static_cast<unsigned char>((block[1] << 4) | (block[2] >> 2));
    *pos++ = static_cast<unsigned char>((block[2] << 6) | block[3]);
    if (pad == 0) continue;
    // A group with '=' ends the result; the rest of the input still counts.
    count = (groups + 1) * 4;
    for (; in < end; ++in) count += kTable.v[*in] != kInvalid;
    pos -= pad;
    break;
  }
  const size_t length = static_cast<size_t>(pos - out);
  if (count == 0 || count % 4 != 0 || pad > 2) {
    free(out);
    return nullptr;
  }
  const size_t size = count / 4 * 3 + 1;  // what the plain steps allocate
  out[size - 1] = '\0';
  if (cap - size > size / 4 + 64) {
    void *smaller = realloc(out, size);
    if (smaller != nullptr) out = static_cast<unsigned char *>(smaller);
  }
  if (out_len) *out_len = length;
  return out;
}

}  // extern "C"
