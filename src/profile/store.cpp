// Profile store: the process-wide words, the fatal report, selection of the
// profile, the key search and the scalar read, and the zone door KivNvram.
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

extern "C" {
char *__profile = nullptr;
int __quiet = 0;
int __base64 = 0;
int base64 = 0;
const char *EMPTY = "";
}

namespace kiv::profile {

namespace {

constexpr const char kHint[] = "use \"wificonf use <profile>\" first\n";
constexpr const char kZone2860[] = "/etc/wireless/kiv/dbdc.b0.dat";
constexpr const char kZoneRtdev[] = "/etc/wireless/kiv/dbdc.b1.dat";

// Every link text __get_profile() has handed out, each text once.  Callers
// never free the result and may keep it, so a text stays for the life of
// the process; asking again for a selection already seen allocates nothing.
struct LinkText {
  LinkText *next;
  char *text;  // in the same allocation, behind the node
};
LinkText *g_link_texts = nullptr;

}  // namespace

void fatal(const char *cond, const char *func, int line, void *a, void *b) {
  int err = errno;
  free(a);
  free(b);
  if (!__quiet)
    fprintf(stderr, "assert failure: %s, %s, %s L%d.\n", cond,
            err ? strerror(err) : "", func, line);
  exit(-1);
}

}  // namespace kiv::profile

namespace kiv::profile {

// Every search reports a missing stream or key as the key search's own.
void check_search_args(bool has_fp, const char *key) {
  if (!has_fp) fatal("fp", "__locate_key", __LINE__);
  if (!key) fatal("key", "__locate_key", __LINE__);
}

bool chunk_matches(const char *p, size_t n, const char *key, size_t klen) {
  const char *eq = static_cast<const char *>(memchr(p, '=', n));
  if (!eq) return false;
  const char *q = p;
  while (q < eq && is_blank(static_cast<unsigned char>(*q))) ++q;
  if (q == eq || *q == '#' || *q == '\0') return false;
  // A NUL inside the name can never equal the key, which holds none.
  return static_cast<size_t>(eq - q) == klen && memcmp(q, key, klen) == 0;
}

namespace {

// The first place of key[0..klen) in p[0..n), or null: each place of the
// key's first byte is found with memchr, which outruns a general search
// for the short keys of a profile.
const char *find_key(const char *p, size_t n, const char *key, size_t klen) {
  const char *end = p + n;
  while (static_cast<size_t>(end - p) >= klen) {
    p = static_cast<const char *>(
        memchr(p, key[0], static_cast<size_t>(end - p) - klen + 1));
    if (p == nullptr || memcmp(p + 1, key + 1, klen - 1) == 0) return p;
    ++p;
  }
  return nullptr;
}

}  // namespace

size_t locate_in_image(const char *img, size_t len, const char *key) {
  // Look for the key itself rather than at every line: a place where it
  // stands is the key's line when only blanks lead up to it from the start
  // of its piece of line (lines are taken 1023 bytes at a time) and a '='
  // follows it within that piece.
  KeyMatcher matcher(key);
  if (!matcher.possible()) return len;
  size_t klen = strlen(key);
  const char *end = img + len;
  const char *from = img;
  while (from < end) {
    const char *at =
        find_key(from, static_cast<size_t>(end - from), key, klen);
    if (at == nullptr) break;
    from = at + 1;
    if (at + klen >= end || at[klen] != '=') continue;
    const char *line = static_cast<const char *>(
        memrchr(img, '\n', static_cast<size_t>(at - img)));
    line = line ? line + 1 : img;
    const char *piece =
        line + static_cast<size_t>(at - line) / (kSearchLimit - 1) *
                   (kSearchLimit - 1);
    if (static_cast<size_t>(at + klen - piece) >= kSearchLimit - 1) continue;
    const char *q = piece;
    while (q < at && is_blank(static_cast<unsigned char>(*q))) ++q;
    if (q == at) return static_cast<size_t>(piece - img);
  }
  return len;
}

bool ChunkReader::load_all() {
  while (end_ < sizeof buf_) {
    ssize_t r = read(fd_, buf_ + end_, sizeof buf_ - end_);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0) {
      eof_ = true;
      return true;
    }
    end_ += static_cast<size_t>(r);
  }
  return false;
}

bool find_line(ChunkReader &reader, const char *key, const char **text,
               size_t *len) {
  if (reader.load_all()) {
    size_t off = locate_in_image(reader.data(), reader.size(), key);
    if (off == reader.size()) return false;
    *text = reader.data() + off;
    *len = chunk_len(*text, reader.size() - off, kReadLimit);
    return true;
  }
  KeyMatcher matches(key);
  bool found = false;
  while (!found && reader.next(kSearchLimit, text, len))
    found = matches(*text, *len);
  if (!found) return false;
  reader.rewind_last();
  return reader.next(kReadLimit, text, len);
}

bool ChunkReader::next(size_t limit, const char **text, size_t *len) {
  for (;;) {
    size_t avail = end_ - pos_;
    const char *p = buf_ + pos_;
    size_t n = chunk_len(p, avail, limit);
    bool lf = n > 0 && p[n - 1] == '\n';
    if (lf || avail >= limit - 1 || (eof_ && avail > 0)) {
      last_ = pos_;
      pos_ += n;
      *text = p;
      *len = n;
      return true;
    }
    if (eof_) return false;
    if (pos_ > 0) {
      memmove(buf_, buf_ + pos_, avail);
      end_ = avail;
      pos_ = last_ = 0;
    }
    ssize_t r = read(fd_, buf_ + end_, sizeof buf_ - end_);
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0)
      eof_ = true;
    else
      end_ += static_cast<size_t>(r);
  }
}

}  // namespace kiv::profile

using namespace kiv::profile;

extern "C" {

int use_profile(const char *path, const char *alias) {
  struct stat st;
  if (stat(kSelectDir, &st) != 0 && mkdir(kSelectDir, 0700) != 0)
    PROFILE_FATAL("ret == 0");
  if (lstat(kCurrentLink, &st) == 0 && unlink(kCurrentLink) != 0)
    PROFILE_FATAL("ret == 0");
  if (symlink(path, kCurrentLink) != 0) PROFILE_FATAL("ret == 0");
  if (alias == nullptr) return 0;

  char name[512] = {};
  kiv::format_into(name, "%s/%s", kSelectDir, alias);
  bool ok = true;
  int line = 0;
  if (lstat(name, &st) == 0) {
    if (!__quiet)
      fprintf(stderr, "you are overwritting %s to %s\n", name, path);
    if (unlink(name) != 0) {
      ok = false;
      line = __LINE__;
    }
  }
  if (ok && symlink(path, name) != 0) {
    ok = false;
    line = __LINE__;
  }
  if (!ok) {
    // No half-made selection: the new current link goes with the alias.
    int err = errno;
    unlink(kCurrentLink);
    errno = err;
    fatal("ret == 0", __func__, line);
  }
  return 0;
}

char *__get_profile(const char *link) {
  if (__profile) return __profile;
  if (link == nullptr) link = kCurrentLink;

  struct stat st;
  if (lstat(link, &st) != 0) {
    if (!__quiet) fputs(kHint, stderr);
    exit(-1);
  }
  size_t cap = static_cast<size_t>(st.st_size) + 1;
  LinkText *node = static_cast<LinkText *>(malloc(sizeof(LinkText) + cap));
  if (node == nullptr) PROFILE_FATAL("profile");
  char *text = reinterpret_cast<char *>(node + 1);
  ssize_t r = readlink(link, text, cap);
  if (r < 0) {
    free(node);
    if (!__quiet) fputs(kHint, stderr);
    return nullptr;
  }
  text[static_cast<size_t>(r) < cap ? static_cast<size_t>(r) : cap - 1] = '\0';
  for (LinkText *t = g_link_texts; t != nullptr; t = t->next) {
    if (strcmp(t->text, text) == 0) {
      free(node);
      return t->text;
    }
  }
  node->text = text;
  node->next = g_link_texts;
  g_link_texts = node;
  return text;
}

int __locate_key(FILE *fp, const char *key) {
  check_search_args(fp != nullptr, key);
  if (fseek(fp, 0, SEEK_SET) != 0) return -1;
  char buf[kSearchLimit];
  size_t klen = strlen(key);
  long offset;
  for (;;) {
    offset = ftell(fp);
    if (offset < 0) return -1;
    memset(buf, 0, sizeof buf);
    if (fgets(buf, sizeof buf, fp) == nullptr) break;
    // fgets() hides how much it read when a NUL came in; the name check
    // only needs the text up to that NUL.
    if (chunk_matches(buf, strlen(buf), key, klen)) break;
  }
  fseek(fp, offset, SEEK_SET);
  return static_cast<int>(offset);
}

int conf_get(const char *key, char *out, size_t size) {
  if (out == nullptr) {
    KIV_CONSOLE_ERR("out is NULL!\n");
    return -1;
  }
  const char *profile = __get_profile(nullptr);
  if (profile == nullptr) PROFILE_FATAL("profile");
  kiv::LockedFile file;
  open_for_read(profile, key, file, __func__, "offset >= 0");

  ChunkReader reader(file.fd.get());
  const char *p;
  size_t n;
  if (!find_line(reader, key, &p, &n)) return 0;

  size_t len = strnlen(p, n);
  const char *eq = static_cast<const char *>(memchr(p, '=', len));
  if (eq == nullptr) return 0;
  const char *v = eq + 1;
  size_t vlen = len - static_cast<size_t>(v - p);
  bool keep_blanks =
      strncmp(key, "SSID", 4) == 0 || strncmp(key, "WPAPSK", 6) == 0;
  auto trimmed = [keep_blanks](char c) {
    return keep_blanks ? (c == '\n' || c == '\r')
                       : is_blank(static_cast<unsigned char>(c));
  };
  while (vlen > 0 && trimmed(v[0])) {
    ++v;
    --vlen;
  }
  while (vlen > 0 && trimmed(v[vlen - 1])) --vlen;
  if (vlen < size) {
    memcpy(out, v, vlen);
    out[vlen] = '\0';
  }
  return 0;
}

int usage(void) {
  puts(
      "Usage:\n"
      "    wificonf [option] use <profile>\n"
      "    wificonf [option] get <key>\n"
      "    wificonf [option] get <key> [idx]\n"
      "    wificonf [option] set <key> <value>\n"
      "    wificonf [option] set <key> <idx> <value>\n"
      "\n"
      "Options:\n"
      "    -e   use base64 encoded <value>.\n"
      "    -f   specify the profile.\n"
      "    -q   be quiet, no error will be reported.\n"
      "\n"
      "\n"
      "Examples:\n"
      "  1. set the default profile you want to access\n"
      "    wificonf use /etc/wireless/wlan0.dat\n"
      "    wificonf get SSID1\n"
      "  2. change the default profile you want to access\n"
      "    wificonf use /etc/wireless/wlan1.dat\n"
      "    wificonf set SSID1 MasterNet\n"
      "    wificonf set SSID2 GuestNet\n"
      "    wificonf set BssidNum 2\n"
      "  3. also you can specify the profile with each command\n"
      "    wificonf -f /etc/wireless/wlan0.dat set SSID1 WiFi-wlan0\n"
      "  4. access a key that has a list of values\n"
      "    wificonf set TestKey \"1;2;3;4\"\n"
      "    wificonf get TestKey                --> 1;2;3;4\n"
      "    wificonf set TestKey 0 99\n"
      "    wificonf get TestKey                --> 99;2;3;4");
  return 0;
}

int KivNvram(const char *cmd, const char *zone, const char *key, char *buf,
             size_t size) {
  const char *path;
  if (zone != nullptr && strcmp(zone, "2860") == 0) {
    path = kZone2860;
  } else if (zone != nullptr && strcmp(zone, "rtdev") == 0) {
    path = kZoneRtdev;
  } else {
    KIV_CONSOLE_ERR("ifname err!\n");
    return -1;
  }
  __profile = const_cast<char *>(path);
  if (cmd != nullptr && strcmp(cmd, "get") == 0)
    return conf_get(key, buf, size);
  if (cmd != nullptr && strcmp(cmd, "set") == 0) return conf_set(key, buf);
  KIV_CONSOLE_ERR("cmd err!\n");
  return -1;
}

}  // extern "C"
