// Profile updates: the scalar update with its changed flag, and the token
// lists.  Every rewrite builds the new content in memory and replaces the
// file as a whole, so an update that fails leaves the old profile intact.
#include "kiv/profile.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "internal.hpp"
#include "util.hpp"

namespace kiv::profile {

void open_for_read(const char *profile, const char *key, LockedFile &file,
                   const char *func, const char *search) {
  if (open_locked(profile, false, &file) != 0) fatal("fp", func, __LINE__);
  check_search_args(true, key);
  if (!file.seekable) {
    errno = ESPIPE;
    fatal(search, func, __LINE__);
  }
}

Image load_image(const char *profile, LockedFile &file, void *extra,
                 const char *func, bool open_first, const char *search) {
  struct stat sb;
  if (!open_first && stat(profile, &sb) != 0)
    fatal("stat(profile, &sb) == 0", func, __LINE__, extra);
  if (open_locked(profile, true, &file) != 0)
    fatal("fp", func, __LINE__, extra);
  if (!file.seekable) {
    errno = ESPIPE;
    fatal(search, func, __LINE__, extra);
  }
  size_t size = static_cast<size_t>(file.st.st_size);
  char *data = static_cast<char *>(malloc(size + 1));
  if (data == nullptr) fatal("buffer", func, __LINE__, extra);
  data[size] = '\0';
  size_t got = 0;
  while (got < size) {
    ssize_t r = read(file.fd.get(), data + got, size - got);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) break;
    got += static_cast<size_t>(r);
  }
  if (got != size) fatal("ret == sb.st_size", func, __LINE__, extra, data);
  return Image{data, size};
}

void commit_image(const char *profile, LockedFile &file, Image img,
                  const char *data, size_t len, const char *func, void *b,
                  void *c) {
  RewriteFailure failed =
      rewrite_locked(profile, file, data, len, img.data, img.len);
  if (failed == RewriteFailure::kNone) return;
  int err = errno;
  free(c);
  errno = err;
  fatal(failed == RewriteFailure::kOpen ? "fp" : "ret == nbytes", func,
        __LINE__, img.data, b);
}

}  // namespace kiv::profile

using namespace kiv::profile;

extern "C" {

int conf_set(const char *key, const char *value) {
  if (value == nullptr) PROFILE_FATAL("value");
  size_t n = strlen(value);
  unsigned char *decoded = nullptr;
  if (__base64) {
    decoded = base64_decode(reinterpret_cast<const unsigned char *>(value), n,
                            &n);
    if (decoded == nullptr) PROFILE_FATAL("value");
    value = reinterpret_cast<const char *>(decoded);
  }
  const char *profile = __get_profile(nullptr);
  if (profile == nullptr) PROFILE_FATAL("profile", decoded);
  kiv::LockedFile file;
  Image img =
      load_image(profile, file, decoded, __func__, true, "nbytes >= 0");
  if (key == nullptr) {
    free(img.data);
    free(decoded);
    check_search_args(true, key);
  }
  size_t nbytes = locate_in_image(img.data, img.len, key);

  // The flag: 1 unless the old value, blanks trimmed, has the new bytes.
  int changed = 1;
  if (nbytes < img.len) {
    const char *p = img.data + nbytes;
    size_t len = strnlen(p, chunk_len(p, img.len - nbytes, kSearchLimit));
    const char *eq = static_cast<const char *>(memchr(p, '=', len));
    if (eq) {
      const char *old = eq + 1;
      size_t oldlen = len - static_cast<size_t>(old - p);
      while (oldlen > 0 && is_blank(static_cast<unsigned char>(*old))) {
        ++old;
        --oldlen;
      }
      while (oldlen > 0 && is_blank(static_cast<unsigned char>(old[oldlen - 1])))
        --oldlen;
      changed = oldlen != n || memcmp(old, value, n) != 0;
    }
  }

  // The rest of the file starts behind the old line's LF (or at a NUL).
  size_t rest = nbytes + strcspn(img.data + nbytes, "\n");
  if (rest < img.len && img.data[rest] == '\n') ++rest;
  // A new line never runs on from a last line without its LF.
  bool sep = nbytes == img.len && img.len > 0 && img.data[img.len - 1] != '\n';
  size_t klen = strlen(key);
  size_t total = nbytes + sep + klen + 1 + n + 1 + (img.len - rest);
  char *out = static_cast<char *>(malloc(total));
  if (out == nullptr) PROFILE_FATAL("buffer", img.data, decoded);
  char *w = out;
  memcpy(w, img.data, nbytes);
  w += nbytes;
  if (sep) *w++ = '\n';
  memcpy(w, key, klen);
  w += klen;
  *w++ = '=';
  memcpy(w, value, n);
  w += n;
  *w++ = '\n';
  memcpy(w, img.data + rest, img.len - rest);

  commit_image(profile, file, img, out, total, __func__, decoded, out);
  free(out);
  free(img.data);
  free(decoded);
  printf("%d\n", changed);
  return 0;
}

char *__get_token(const char *line, int idx) {
  const char *p = line ? strchr(line, '=') : nullptr;
  if (p == nullptr || idx < 0) return const_cast<char *>(EMPTY);
  ++p;
  for (int i = 0; i < idx; ++i) {
    p = strchr(p, ';');
    if (p == nullptr) return const_cast<char *>(EMPTY);
    ++p;
  }
  size_t n = strcspn(p, ";");
  char *token = static_cast<char *>(malloc(n + 1));
  if (token == nullptr) return nullptr;
  memcpy(token, p, n);
  token[n] = '\0';
  return token;
}

char *__set_token(const char *line, int idx, const char *value) {
  const char *eq = strchr(line, '=');
  if (eq == nullptr) return const_cast<char *>(line);
  if (value == nullptr) value = "";
  size_t vlen = strlen(value);
  char *out = static_cast<char *>(calloc(strlen(line) + vlen + 1, 1));
  if (out == nullptr) return nullptr;
  size_t head = static_cast<size_t>(eq - line) + 1;
  memcpy(out, line, head);
  char *w = out + head;
  const char *p = eq + 1;
  for (int i = 0;; ++i) {
    size_t t = strcspn(p, ";");
    if (i == idx) {
      memcpy(w, value, vlen);
      w += vlen;
    } else {
      memcpy(w, p, t);
      w += t;
    }
    p += t;
    if (*p != ';') break;
    *w++ = ';';
    ++p;
  }
  return out;
}

int conf_get_token(const char *key, int idx) {
  if (key == nullptr) PROFILE_FATAL("key");
  if (idx < 0) PROFILE_FATAL("idx >= 0");
  const char *profile = __get_profile(nullptr);
  if (profile == nullptr) PROFILE_FATAL("profile");
  kiv::LockedFile file;
  open_for_read(profile, key, file, __func__, "offset>=0");

  ChunkReader reader(file.fd.get());
  const char *p;
  size_t n;
  if (!find_line(reader, key, &p, &n)) return 0;
  char line[kSearchLimit] = {};
  memcpy(line, p, n);

  char *token = __get_token(line, idx);
  if (token == nullptr) PROFILE_FATAL("buffer");
  puts(token);
  if (token != EMPTY) free(token);
  return 0;
}

int conf_set_token(const char *key, int idx, const char *value) {
  if (key == nullptr) PROFILE_FATAL("key");
  if (idx < 0 || idx >= 32) PROFILE_FATAL("idx >= 0 && idx < 32");
  if (value == nullptr) PROFILE_FATAL("value");
  unsigned char *decoded = nullptr;
  if (__base64) {
    // A token is text: the value runs to the first NUL of the decoded
    // buffer, whatever the decoded length says.
    decoded = base64_decode(reinterpret_cast<const unsigned char *>(value),
                            strlen(value), nullptr);
    if (decoded == nullptr) PROFILE_FATAL("value");
    value = reinterpret_cast<const char *>(decoded);
  }
  const char *profile = __get_profile(nullptr);
  if (profile == nullptr) PROFILE_FATAL("profile", decoded);
  kiv::LockedFile file;
  Image img =
      load_image(profile, file, decoded, __func__, false, "nbytes>=0");
  size_t nbytes = locate_in_image(img.data, img.len, key);

  char *line = img.data + nbytes;
  const char *lf =
      static_cast<const char *>(memchr(line, '\n', img.len - nbytes));
  size_t line_end = lf ? static_cast<size_t>(lf - img.data) : img.len;
  img.data[line_end] = '\0';
  char *changed = __set_token(line, idx, value);
  if (lf) img.data[line_end] = '\n';  // the image stays the old file
  if (changed == nullptr) PROFILE_FATAL("buffer", img.data, decoded);
  if (changed == line) {
    // An absent key: nothing to store, and the file stays as it is.
    free(img.data);
    free(decoded);
    return 0;
  }
  size_t clen = strlen(changed);
  size_t rest = lf ? line_end + 1 : img.len;
  size_t total = nbytes + clen + 1 + (img.len - rest);
  char *out = static_cast<char *>(malloc(total));
  if (out == nullptr) {
    free(changed);
    PROFILE_FATAL("buffer", img.data, decoded);
  }
  memcpy(out, img.data, nbytes);
  memcpy(out + nbytes, changed, clen);
  out[nbytes + clen] = '\n';
  memcpy(out + nbytes + clen + 1, img.data + rest, img.len - rest);
  free(changed);

  commit_image(profile, file, img, out, total, __func__, decoded, out);
  free(out);
  free(img.data);
  free(decoded);
  return 0;
}

}  // extern "C"
