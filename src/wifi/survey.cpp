// Site survey: the scan request to the Wi-Fi configuration daemon, and the
// parse of an `iw ... scan` listing into WifiSiteEntry records.
#include "kiv/wifi.h"

#include <ctype.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "internal.hpp"
#include "lines.hpp"
#include "util.hpp"

char freq_all[3][256] = {
    "2412 2417 2422 2427 2432 2437 2442 2447 2452 2457 2462",
    "5180 5200 5220 5240 5260 5280 5300 5320 5500 5520 5540 5560 5580 5600 "
    "5620 5640 5660 5680 5700 5720",
    "5955 5975 5995 6015 6035 6055 6075 6095 6115 6135 6155 6175 6195 6215 "
    "6235 6255 6275 6295 6315 6335 6375 6395 6415",
};

WifiSiteEntry wifi_site_arr[384];

namespace {

constexpr const char kScanFifo[] = "/var/run/.wifi_cfgd.fifo";

struct ScanRequest {
  int32_t type;  // always 0
  int32_t ifidx;
  int32_t apidx;
};
static_assert(sizeof(ScanRequest) == 12, "the request is three words");

// One request and one reply on the daemon's FIFO, over a single descriptor.
int wifi_scan_msg_send_recv(int ifidx, int apidx) {
  kiv::Fd fd(open(kScanFifo, O_RDWR));
  if (!fd) {
    // Formatted here so that %m still sees open()'s errno.
    char msg[256] = {0};
    kiv::format_into(msg, "[kiv-err][%s:%d] open %s failed(%m).\n\n",
                     __func__, __LINE__, kScanFifo);
    console_printf("%s", msg);
    return -11;
  }

  ScanRequest req = {0, ifidx, apidx};
  ssize_t sent = write(fd.get(), &req, sizeof req);
  KIV_CONSOLE_INFO("snd_ret:%d, msglen:%d\n\n", static_cast<int>(sent),
                   static_cast<int>(sizeof req));
  if (sent <= 0) return -12;

  int32_t result = 0;
  ssize_t got = read(fd.get(), &result, sizeof result);
  KIV_CONSOLE_INFO("rcv_ret:%d, rcv_len:%d, result:%d\n\n",
                   static_cast<int>(got), static_cast<int>(sizeof result),
                   static_cast<int>(result));
  if (got != static_cast<ssize_t>(sizeof result)) return -13;
  return result;
}

// Authentication suites as iw names them, by the beginning of the text.
struct SuiteRow {
  const char *prefix;
  int32_t auth_suite;
  int32_t security;  // combined security code (wifi_auth_to_str0)
};
constexpr SuiteRow kSuites[] = {
    {"SAE", 4, 4},    {"PSK SAE", 5, 5}, {"PSK", 2, 2},   {"OWE", 6, 0},
    {"802.1x", 7, 6}, {"8021X", 8, 6},   {"8021x", 9, 6},
};

constexpr size_t kLineSize = 256;  // the line buffer of the parse
constexpr size_t kSsidTake = 34;   // characters taken behind "SSID: "
constexpr size_t kBssidLen = 17;
constexpr size_t kSuitesTake = 15;

// Parser of one listing.  Records at or past `capacity` are never written:
// once a network would need one, the rest of the output is only drained.
class ScanParser {
 public:
  ScanParser(const char *ifname, WifiSiteEntry *sites, int capacity)
      : ifname_(ifname), sites_(sites), capacity_(capacity) {}

  void line(char *text);
  int result() const { return current_; }
  // line() as a line cutter calls it.
  static bool each(void *parser, char *text) {
    static_cast<ScanParser *>(parser)->line(text);
    return true;
  }

 private:
  void bss_line(char *text, const char *bss);
  void ssid_line(const char *ssid);
  void suites_line(const char *suites);

  const char *ifname_;
  WifiSiteEntry *sites_;
  int capacity_;
  int count_ = 0;    // networks with a name so far
  int current_ = 0;  // slot being filled
  bool full_ = false;
  char suites_[kSuitesTake + 1] = {0};  // text of the last good suites line
};

// Where the key words first stand in one line; null for a word it lacks.
struct KeyWords {
  const char *bss;
  const char *ssid;
  const char *channel;
  const char *signal;
  const char *suites;
};

// Whether the text at p begins with word (stops at the text's end).
template <size_t N>
bool word_at(const char *p, const char (&word)[N]) {
  return p[0] == word[0] && strncmp(p, word, N - 1) == 0;
}

// Reads "<word>: <number>" at p, where the word is known to stand: a colon,
// any white space, then a decimal number, which may be followed by anything
// ("-45.00 dBm" gives -45).  False when no digit follows.
bool number_behind(const char *p, size_t word_len, int *value) {
  p += word_len;
  if (*p != ':') return false;
  ++p;
  char *end = nullptr;
  long n = strtol(p, &end, 10);
  if (end == p) return false;
  *value = static_cast<int>(n);
  return true;
}

// Reads "<word>: <text>" at p into text[size]: a colon, any white space,
// then up to size - 1 characters before the end of the line.  False when
// nothing follows; text is then left as it was.
bool text_behind(const char *p, size_t word_len, char *text, size_t size) {
  p += word_len;
  if (*p != ':') return false;
  ++p;
  while (isspace(static_cast<unsigned char>(*p))) ++p;
  size_t n = 0;
  while (n + 1 < size && p[n] != '\0' && p[n] != '\n') ++n;
  if (n == 0) return false;
  memcpy(text, p, n);
  text[n] = '\0';
  return true;
}

// One pass over the line instead of a search per word: a listing has tens
// of thousands of lines, and most hold none of the words.  Each word is
// found by one of its rarer letters, at a fixed distance behind the word's
// start: B(SS), SS(I)D, primar(y) channel, si(g)nal, (A)uthentication
// suites.  Each pointer is the word's first place in the line, as a search
// for the word would find it.
KeyWords find_key_words(const char *text) {
  const char *bss = nullptr, *ssid = nullptr, *channel = nullptr,
             *signal = nullptr, *suites = nullptr;
  for (const char *p = text; (p = strpbrk(p, "BIygA")) != nullptr; ++p) {
    const size_t before = static_cast<size_t>(p - text);
    switch (*p) {
      case 'B':
        if (!bss && p[1] == 'S' && p[2] == 'S') bss = p;
        break;
      case 'I':
        if (!ssid && before >= 2 && p[1] == 'D' && p[-1] == 'S' &&
            p[-2] == 'S')
          ssid = p - 2;
        break;
      case 'y':
        if (!channel && before >= 6 && word_at(p - 6, "primary channel"))
          channel = p - 6;
        break;
      case 'g':
        if (!signal && before >= 2 && word_at(p - 2, "signal"))
          signal = p - 2;
        break;
      default:  // 'A'
        if (!suites && word_at(p, "Authentication suites")) suites = p;
        break;
    }
  }
  return KeyWords{bss, ssid, channel, signal, suites};
}

void ScanParser::line(char *text) {
  if (full_) return;
  const KeyWords k = find_key_words(text);
  if (k.bss && strstr(text, ifname_) != nullptr) {
    bss_line(text, k.bss);
    return;
  }
  if (k.ssid) {
    ssid_line(k.ssid);
    return;
  }
  if (k.channel) {
    int channel = 0;
    if (number_behind(k.channel, strlen("primary channel"), &channel))
      sites_[current_].channel = channel;
    else
      puts("get Channel error!");
    return;
  }
  if (k.signal) {
    int rssi = 0;
    if (number_behind(k.signal, strlen("signal"), &rssi))
      sites_[current_].rssi = rssi;
    else
      puts("get rssi error!");
    return;
  }
  if (k.suites) suites_line(k.suites);
}

void ScanParser::bss_line(char *text, const char *bss) {
  if (count_ >= capacity_) {
    full_ = true;
    return;
  }
  WifiSiteEntry &site = sites_[count_];
  site.auth_seen = 0;
  site.security = 0;
  size_t at = static_cast<size_t>(bss - text);
  removeNewLines(text);
  // "BSS xx:xx:xx:xx:xx:xx(on mld1)": the address stands behind one blank.
  const char *addr = "";
  if (strnlen(text, at + 4) == at + 4) addr = text + at + 4;
  memset(site.bssid, 0, sizeof site.bssid);
  strncpy(site.bssid, addr, kBssidLen);
  current_ = count_;
}

void ScanParser::ssid_line(const char *ssid) {
  // "SSID: name\n": the name behind the word, a colon and a blank, less its
  // last character (the newline).
  char name[kSsidTake + 1] = {0};
  if (strnlen(ssid, 6) == 6) strncpy(name, ssid + 6, kSsidTake);
  size_t len = strlen(name);
  if (len > 0) name[--len] = '\0';

  WifiSiteEntry &site = sites_[current_];
  memset(site.ssid, 0, sizeof site.ssid);
  memcpy(site.ssid, name, len);
  site.valid = 1;
  if (len > 0) ++count_;
}

void ScanParser::suites_line(const char *suites) {
  WifiSiteEntry &site = sites_[current_];
  site.auth_seen = 1;
  if (!text_behind(suites, strlen("Authentication suites"), suites_,
                   sizeof suites_))
    puts("get Authentication suites error!");
  // A line that didn't read leaves the text of the last one in force.
  for (const SuiteRow &row : kSuites) {
    if (strncmp(suites_, row.prefix, strlen(row.prefix)) == 0) {
      site.auth_suite = row.auth_suite;
      site.security = row.security;
      return;
    }
  }
}

}  // namespace

namespace kiv::wifi {

int parse_scan_listing(const char *ifname, const char *text, size_t len,
                       WifiSiteEntry *sites, int capacity) {
  ScanParser parser(ifname, sites, capacity);
  char line[kLineSize];
  LineCutter lines(line, sizeof line, ScanParser::each, &parser);
  lines.feed(text, len);
  lines.finish();
  return parser.result();
}

}  // namespace kiv::wifi

int wifi_list_scan_start(int ifidx, int apidx) {
  return wifi_scan_msg_send_recv(ifidx, apidx);
}

int wifi_list_scan_read(int ifidx, int apidx, WifiSiteEntry *sites,
                        int capacity) {
  // No radio, no interface name and no frequencies outside 0 to 2.
  if (ifidx < 0 || ifidx > 2 || sites == nullptr || capacity < 1) return -1;
  memset(sites, 0, sizeof *sites * static_cast<size_t>(capacity));

  char ifname[8] = {0};
  strncpy(ifname, wifi_idx_to_ifname(ifidx), sizeof ifname - 1);
  char freq[256] = {0};
  strncpy(freq, freq_all[ifidx], sizeof freq - 1);
  char cmd[256] = {0};
  kiv::format_into(cmd, "iw dev %s scan freq %s flush", ifname, freq);

  console_printf("[%25s][%4d]: cmdline=%s ifidx=%d apidx=%d, ifname=%s\n",
                 __func__, __LINE__, cmd, ifidx, apidx, ifname);
  KIV_LOG(kiv::kUnitWifi, kiv::kInfo, "%s", cmd);

  kiv::Pipe out(popen(cmd, "r"));
  if (!out) {
    console_printf("[%25s][%4d]: popen faild\n", __func__, __LINE__);
    return -1;
  }

  // The output is cut into lines as fgets() with the line buffer would cut
  // it, but read in large blocks.
  ScanParser parser(ifname, sites, capacity);
  char line[kLineSize];
  kiv::LineCutter lines(line, sizeof line, ScanParser::each, &parser);
  lines.feed_stream(out.get());
  out.close();
  return parser.result();
}
