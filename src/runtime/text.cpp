// Text and value helpers: numbers and MAC addresses as text, trimming,
// string and file tests, uptime and whole-buffer descriptor I/O.
#include "kiv/runtime.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <unistd.h>

#include "util.hpp"

namespace {

char number_text[128];
char mac_text[64];
uint32_t last_uptime = 0;

bool is_cut_space(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' ||
         c == '\r';
}

}  // namespace

char *igd_number_to_str(int value) {
  kiv::format_into(number_text, "%d", value);
  return number_text;
}

char *igd_mac2str(const unsigned char *mac) {
  memset(mac_text, 0, sizeof mac_text);
  kiv::format_into(mac_text, "%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1],
                   mac[2], mac[3], mac[4], mac[5]);
  return mac_text;
}

int igd_str2mac(const char *str, unsigned char *mac) {
  memset(mac, 0, 6);
  const char *fmt;
  if (strchr(str, ':')) {
    if (strlen(str) <= 16) return -1;
    fmt = "%02hhx:%02hhx:%02hhx:%02hhx:%02hhx:%02hhx";
  } else if (strchr(str, '-')) {
    if (strlen(str) <= 16) return -1;
    fmt = "%02hhx-%02hhx-%02hhx-%02hhx-%02hhx-%02hhx";
  } else {
    if (strlen(str) < 12) return -2;
    fmt = "%02hhx%02hhx%02hhx%02hhx%02hhx%02hhx";
  }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  sscanf(str, fmt, &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]);
#pragma GCC diagnostic pop
  for (int i = 0; i < 6; ++i)
    if (mac[i] != 0) return 0;
  return -3;
}

char *igd_cut_space(const char *src, unsigned int srcLen, char *dst,
                    int dstSize) {
  if (srcLen < 2) return dst;
  const char *last = src + srcLen - 1;
  const char *start = src;
  while (*start && is_cut_space(*start)) ++start;
  const char *end = last;
  while (end > start && is_cut_space(*end)) --end;
  if (end < start || *start == '\0') return dst;
  size_t count = static_cast<size_t>(end - start) + 1;
  size_t room = dstSize > 0 ? static_cast<size_t>(dstSize) - 1 : 0;
  if (count > room) count = room;
  memcpy(dst, start, count);
  return dst;
}

int isIPv4Str(const char *str) {
  if (str == nullptr) return 0;
  int a, b, c, d;
  if (sscanf(str, "%d.%d.%d.%d", &a, &b, &c, &d) != 4) return 0;
  const int parts[] = {a, b, c, d};
  for (int v : parts)
    if (v < 0 || v > 255) return 0;
  return 1;
}

int removeNewLines(char *str) {
  if (str == nullptr) return 0;
  size_t len = strlen(str);
  char *out = str;
  for (const char *in = str; *in; ++in)
    if (*in != '\n') *out++ = *in;
  *out = '\0';
  return static_cast<int>(len);
}

int is_file_exist(const char *path) {
  struct stat st;
  return stat(path, &st) == 0 ? 1 : 0;
}

int kiv_is_file_exist(const char *path) { return is_file_exist(path); }

int isFileExist(const char *path) {
  if (path == nullptr) return 0;
  return access(path, F_OK) == 0 ? 1 : 0;
}

int kiv_create_file(const char *path) {
  char cmd[64] = {0};
  kiv::format_into(cmd, "touch %s", path);
  int ignored = system(cmd);
  (void)ignored;
  return 0;
}

uint32_t igd_system_uptime(void) {
  struct sysinfo info;
  memset(&info, 0, sizeof info);
  sysinfo(&info);
  return static_cast<uint32_t>(info.uptime);
}

uint32_t kiv_get_system_up_time(void) {
  struct sysinfo info;
  memset(&info, 0, sizeof info);
  if (sysinfo(&info) == 0) last_uptime = static_cast<uint32_t>(info.uptime);
  return last_uptime;
}

int readall(int fd, void *buf, int len) {
  char *p = static_cast<char *>(buf);
  int left = len;
  while (left > 0) {
    ssize_t r = read(fd, p, static_cast<size_t>(left));
    if (r > 0) {
      p += r;
      left -= static_cast<int>(r);
    } else if (r == 0) {
      break;
    } else if (errno == EAGAIN || errno == EINTR) {
      continue;
    } else {
      KIV_CONSOLE_ERR("read err! %s\n", strerror(errno));
      return -1;
    }
  }
  return len > 0 ? len - left : 0;
}

int writeall(int fd, const void *buf, int len) {
  const char *p = static_cast<const char *>(buf);
  int left = len;
  while (left > 0) {
    ssize_t r = write(fd, p, static_cast<size_t>(left));
    if (r > 0) {
      p += r;
      left -= static_cast<int>(r);
    } else if (r < 0 && errno == EINTR) {
      continue;
    } else {
      return -1;
    }
  }
  return len;
}
