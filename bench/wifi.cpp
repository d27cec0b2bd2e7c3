// Site survey parse: wifi_list_scan_read over a 384-network `iw` listing,
// next to the floor of only reading the same output through popen().
//
//   scan_parse:  wifi_list_scan_read, which runs the command and parses
//                every line;
//   popen_fgets: the same command, its output read line by line with
//                fgets() and dropped;
//   popen_fread: the same, read in large blocks (a lower floor still).
//
// A fake `iw` that cats the listing from a file is put in a temporary
// directory first on PATH, so all three start the same shell line and the
// same command.  The console lines of the scan go to /dev/null when the
// process may make a private mount namespace (root); otherwise they go to
// the machine's console.  Times are real times: the command's own work
// counts.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kiv/runtime.h"
#include "kiv/wifi.h"

namespace {

constexpr int kNetworks = 384;
char g_dir[] = "/tmp/kiv-bench-wifi-XXXXXX";
std::string g_cmd;  // the line wifi_list_scan_read runs for ifidx 0

// One network as `iw dev <if> scan` prints it, about 1.2 KiB.
std::string network(int i) {
  char bssid[18];
  snprintf(bssid, sizeof bssid, "02:5a:%02x:%02x:%02x:%02x", i >> 8 & 0xff,
           i & 0xff, (i * 7) & 0xff, (i * 13) & 0xff);
  static const char *const kSuites[] = {"PSK", "SAE", "PSK SAE", "OWE",
                                        "IEEE 802.1X"};
  int channel = 1 + i % 11;
  std::string s = std::string("BSS ") + bssid + "(on mld1)\n";
  s += "\tlast seen: 1841.532s [boottime]\n";
  s += "\tTSF: 1861302813 usec (0d, 00:31:01)\n";
  s += "\tfreq: " + std::to_string(2407 + 5 * channel) + "\n";
  s += "\tbeacon interval: 100 TUs\n";
  s += "\tcapability: ESS Privacy ShortSlotTime RadioMeasure (0x1411)\n";
  s += "\tsignal: -" + std::to_string(30 + i % 60) + ".00 dBm\n";
  s += "\tlast seen: 120 ms ago\n";
  s += "\tInformation elements from Probe Response frame:\n";
  s += "\tSSID: " + (i % 17 == 5 ? std::string() : "network-" + std::to_string(i)) + "\n";
  s += "\tSupported rates: 1.0* 2.0* 5.5* 11.0* 6.0 9.0 12.0 18.0 \n";
  s += "\tDS Parameter set: channel " + std::to_string(channel) + "\n";
  s += "\tERP: Barker_Preamble_Mode\n";
  s += "\tExtended supported rates: 24.0 36.0 48.0 54.0 \n";
  if (i % 9 != 0) {
    s += "\tRSN:\t * Version: 1\n";
    s += "\t\t * Group cipher: CCMP\n";
    s += "\t\t * Pairwise ciphers: CCMP\n";
    s += std::string("\t\t * Authentication suites: ") + kSuites[i % 5] + "\n";
    s += "\t\t * Capabilities: 16-PTKSA-RC 1-GTKSA-RC MFP-capable (0x00ac)\n";
  }
  s += "\tBSS Load:\n\t\t * station count: 2\n";
  s += "\t\t * channel utilisation: 31/255\n\t\t * available admission "
       "capacity: 0 [*32us]\n";
  s += "\tHT capabilities:\n\t\tCapabilities: 0x19ef\n\t\t\tRX LDPC\n";
  s += "\t\t\tHT20/HT40\n\t\t\tSM Power Save disabled\n\t\t\tRX HT20 SGI\n";
  s += "\t\t\tRX HT40 SGI\n\t\t\tTX STBC\n\t\t\tRX STBC 1-stream\n";
  s += "\t\tMaximum RX AMPDU length 65535 bytes (exponent: 0x003)\n";
  s += "\t\tMinimum RX AMPDU time spacing: No restriction (0x00)\n";
  s += "\t\tHT TX/RX MCS rate indexes supported: 0-15\n";
  s += "\tHT operation:\n";
  s += "\t\t * primary channel: " + std::to_string(channel) + "\n";
  s += "\t\t * secondary channel offset: no secondary\n";
  s += "\t\t * STA channel width: 20 MHz\n";
  s += "\tExtended capabilities:\n\t\t * Extended Channel Switching\n";
  s += "\t\t * BSS Transition\n\t\t * Operating Mode Notification\n";
  s += "\tWMM:\t * Parameter version 1\n";
  s += "\t\t * BE: CW 15-1023, AIFSN 3\n\t\t * BK: CW 15-1023, AIFSN 7\n";
  s += "\t\t * VI: CW 7-15, AIFSN 2, TXOP 3008 usec\n";
  s += "\t\t * VO: CW 3-7, AIFSN 2, TXOP 1504 usec\n";
  return s;
}

bool write_text(const std::string &path, const std::string &text, mode_t mode) {
  FILE *f = fopen(path.c_str(), "w");
  if (!f) return false;
  bool ok = fwrite(text.data(), 1, text.size(), f) == text.size();
  ok = fclose(f) == 0 && ok;
  return ok && chmod(path.c_str(), mode) == 0;
}

bool prepare() {
  if (!mkdtemp(g_dir)) return false;
  std::string listing;
  for (int i = 0; i < kNetworks; ++i) listing += network(i);
  std::string dir = g_dir;
  if (!write_text(dir + "/listing", listing, 0644)) return false;
  if (!write_text(dir + "/iw", "#!/bin/sh\nexec cat " + dir + "/listing\n",
                  0755))
    return false;
  std::string path = dir + ":" + (getenv("PATH") ? getenv("PATH") : "");
  setenv("PATH", path.c_str(), 1);
  g_cmd = std::string("iw dev mld1 scan freq ") + freq_all[0] + " flush";
  fprintf(stderr, "listing: %d networks, %zu bytes\n", kNetworks,
          listing.size());
  return true;
}

void cleanup() {
  std::string dir = g_dir;
  unlink((dir + "/listing").c_str());
  unlink((dir + "/iw").c_str());
  rmdir(g_dir);
}

// Keeps the scan's console lines off the machine's console.
void quiet_console() {
  if (unshare(CLONE_NEWNS) != 0) return;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return;
  mount("/dev/null", "/dev/console", nullptr, MS_BIND, nullptr);
}

void parse(benchmark::State &state) {
  int last = 0;
  for (auto _ : state) {
    last = wifi_list_scan_read(0, 0, wifi_site_arr, kNetworks);
    benchmark::DoNotOptimize(last);
  }
  // 384 blocks, one in 17 unnamed: the last slot is the named count - 1.
  if (last < 300 || !wifi_site_arr[last].valid)
    state.SkipWithError("the listing did not parse");
  state.SetItemsProcessed(state.iterations() * kNetworks);
}

// The floor: the same command, its output read line by line and dropped.
void floor_fgets(benchmark::State &state) {
  size_t lines = 0;
  for (auto _ : state) {
    FILE *p = popen(g_cmd.c_str(), "r");
    if (!p) {
      state.SkipWithError("popen failed");
      break;
    }
    char line[256];
    while (fgets(line, sizeof line, p)) ++lines;
    pclose(p);
    benchmark::DoNotOptimize(lines);
  }
  state.SetItemsProcessed(state.iterations() * kNetworks);
}

// A lower floor still: the output read in large blocks.
void floor_fread(benchmark::State &state) {
  size_t bytes = 0;
  for (auto _ : state) {
    FILE *p = popen(g_cmd.c_str(), "r");
    if (!p) {
      state.SkipWithError("popen failed");
      break;
    }
    char block[65536];
    size_t n;
    while ((n = fread(block, 1, sizeof block, p)) > 0) bytes += n;
    pclose(p);
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations() * kNetworks);
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  quiet_console();
  kiv_dbg_level = 5;  // the scan's INFO line stays off stderr
  if (!prepare()) {
    perror("preparing the listing");
    cleanup();
    return 1;
  }
  benchmark::RegisterBenchmark("scan_parse", parse)->UseRealTime();
  benchmark::RegisterBenchmark("popen_fgets", floor_fgets)->UseRealTime();
  benchmark::RegisterBenchmark("popen_fread", floor_fread)->UseRealTime();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  cleanup();
  return 0;
}
