// Base64 (RFC 4648 alphabet) for the store's -e values: an encoder that
// wraps its text in lines of 72 characters, and a lenient decoder that
// skips every byte outside the alphabet.
#include "kiv/profile.h"

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

constexpr DecodeTable make_table() {
  DecodeTable t{};
  for (auto &e : t.v) e = kInvalid;
  for (int i = 0; i < 64; ++i)
    t.v[static_cast<unsigned char>(kAlphabet[i])] = static_cast<uint8_t>(i);
  t.v[static_cast<unsigned char>('=')] = 0;
  return t;
}

constexpr DecodeTable kTable = make_table();

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

  unsigned char *pos = out;
  const unsigned char *in = src;
  const unsigned char *end = src + len;
  int line_len = 0;
  while (end - in >= 3) {
    *pos++ = kAlphabet[in[0] >> 2];
    *pos++ = kAlphabet[((in[0] & 0x03) << 4) | (in[1] >> 4)];
    *pos++ = kAlphabet[((in[1] & 0x0f) << 2) | (in[2] >> 6)];
    *pos++ = kAlphabet[in[2] & 0x3f];
    in += 3;
    line_len += 4;
    if (line_len >= 72) {
      *pos++ = '\n';
      line_len = 0;
    }
  }
  if (end - in > 0) {
    *pos++ = kAlphabet[in[0] >> 2];
    if (end - in == 1) {
      *pos++ = kAlphabet[(in[0] & 0x03) << 4];
      *pos++ = '=';
    } else {
      *pos++ = kAlphabet[((in[0] & 0x03) << 4) | (in[1] >> 4)];
      *pos++ = kAlphabet[(in[1] & 0x0f) << 2];
    }
    *pos++ = '=';
    line_len += 4;
  }
  if (line_len) *pos++ = '\n';
  *pos = '\0';
  if (out_len) *out_len = static_cast<size_t>(pos - out);
  return out;
}

unsigned char *base64_decode(const unsigned char *src, size_t len,
                             size_t *out_len) {
  size_t count = 0;
  for (size_t i = 0; i < len; ++i) count += kTable.v[src[i]] != kInvalid;
  if (count == 0 || count % 4) return nullptr;

  size_t olen = count / 4 * 3 + 1;
  unsigned char *out = static_cast<unsigned char *>(malloc(olen));
  if (out == nullptr) return nullptr;
  out[olen - 1] = '\0';

  unsigned char *pos = out;
  unsigned char block[4];
  int got = 0, pad = 0;
  size_t i = 0;
  // Whole groups of four alphabet bytes, the bulk of the encoder's lines.
  while (i + 4 <= len) {
    uint8_t a = kTable.v[src[i]], b = kTable.v[src[i + 1]],
            c = kTable.v[src[i + 2]], d = kTable.v[src[i + 3]];
    if ((a | b | c | d) & kInvalid || src[i + 2] == '=' || src[i + 3] == '=' ||
        src[i] == '=' || src[i + 1] == '=') {
      if (src[i] != '\n') break;
      ++i;  // the line feed of a wrapped line
      continue;
    }
    *pos++ = static_cast<unsigned char>((a << 2) | (b >> 4));
    *pos++ = static_cast<unsigned char>((b << 4) | (c >> 2));
    *pos++ = static_cast<unsigned char>((c << 6) | d);
    i += 4;
  }
  for (; i < len; ++i) {
    uint8_t v = kTable.v[src[i]];
    if (v == kInvalid) continue;
    if (src[i] == '=') ++pad;
    block[got++] = v;
    if (got < 4) continue;
    *pos++ = static_cast<unsigned char>((block[0] << 2) | (block[1] >> 4));
    *pos++ = static_cast<unsigned char>((block[1] << 4) | (block[2] >> 2));
    *pos++ = static_cast<unsigned char>((block[2] << 6) | block[3]);
    got = 0;
    if (pad == 0) continue;
    if (pad > 2) {
      free(out);
      return nullptr;
    }
    pos -= pad;
    break;
  }
  if (out_len) *out_len = static_cast<size_t>(pos - out);
  return out;
}

}  // extern "C"
