// Site survey: the scan request on the daemon's FIFO, and the parse of an
// `iw` scan listing, against a fake `iw` and a fake daemon in the sandbox.
#include "kiv/wifi.h"

#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "sandbox.hpp"

namespace {

using kivtest::Sandbox;

constexpr const char kFifo[] = "/var/run/.wifi_cfgd.fifo";
constexpr const char kListing[] = "/tmp/iw-scan.txt";

class WifiSurvey : public kivtest::SandboxTest {
 protected:
  void SetUp() override {
    kivtest::SandboxTest::SetUp();
    if (IsSkipped()) return;
    Sandbox::fake_command("iw", std::string("cat ") + kListing);
  }
};

// One network of a listing as `iw dev <if> scan` prints it.
struct Net {
  std::string bssid;
  std::string ssid;
  std::string signal;             // "" for no signal line
  int channel = 0;                // 0 for no channel line
  std::vector<std::string> suites;  // RSN / WPA authentication suites
  std::string ifname = "mld1";
};

std::string block(const Net &n) {
  std::string s = "BSS " + n.bssid + "(on " + n.ifname + ")\n";
  s += "\tlast seen: 1841.532s [boottime]\n";
  s += "\tTSF: 1861302813 usec (0d, 00:31:01)\n";
  s += "\tfreq: 2437\n";
  s += "\tbeacon interval: 100 TUs\n";
  s += "\tcapability: ESS Privacy ShortSlotTime RadioMeasure (0x1411)\n";
  if (!n.signal.empty()) s += "\tsignal: " + n.signal + " dBm\n";
  s += "\tlast seen: 120 ms ago\n";
  s += "\tInformation elements from Probe Response frame:\n";
  s += "\tSSID: " + n.ssid + "\n";
  s += "\tSupported rates: 1.0* 2.0* 5.5* 11.0* 6.0 9.0 12.0 18.0 \n";
  if (n.channel) s += "\tDS Parameter set: channel " + std::to_string(n.channel) + "\n";
  s += "\tBSS Load:\n\t\t * station count: 2\n\t\t * channel utilisation: 31/255\n";
  for (const std::string &suites : n.suites) {
    s += "\tRSN:\t * Version: 1\n";
    s += "\t\t * Group cipher: CCMP\n";
    s += "\t\t * Pairwise ciphers: CCMP\n";
    s += "\t\t * Authentication suites: " + suites + "\n";
    s += "\t\t * Capabilities: 16-PTKSA-RC 1-GTKSA-RC MFP-capable (0x00ac)\n";
  }
  s += "\tHT capabilities:\n\t\tCapabilities: 0x19ef\n\t\t\tRX LDPC\n";
  if (n.channel) {
    s += "\tHT operation:\n";
    s += "\t\t * primary channel: " + std::to_string(n.channel) + "\n";
    s += "\t\t * secondary channel offset: no secondary\n";
  }
  s += "\tExtended capabilities:\n\t\t * BSS Transition\n";
  return s;
}

std::string listing(const std::vector<Net> &nets) {
  std::string s;
  for (const Net &n : nets) s += block(n);
  return s;
}

TEST_F(WifiSurvey, RealisticListing) {
  std::vector<Net> nets = {
      {"02:11:22:33:44:01", "HomeNet", "-45.00", 1, {"PSK"}},
      // Hidden network: its slot is taken again by the next one.
      {"02:11:22:33:44:02", "", "-81.00", 6, {"PSK"}},
      {"02:11:22:33:44:03", "Cafe Guest", "-60.50", 11, {}},
      {"02:11:22:33:44:04", "Wpa3Only", "-52.00", 13, {"SAE"}},
      {"02:11:22:33:44:05", "Mixed", "-58.00", 3, {"PSK SAE"}},
      {"02:11:22:33:44:06", "OweNet", "-70.00", 9, {"OWE"}},
      {"02:11:22:33:44:07", "Corp", "-66.00", 4, {"802.1x"}},
      // iw's own name of the 802.1X suite is in no row.
      {"02:11:22:33:44:08", "Corp2", "-67.00", 5, {"IEEE 802.1X"}},
      {"02:11:22:33:44:09", "Legacy", "-77.00", 2, {"PSK", "PSK SAE"}},
  };
  std::string text = listing(nets);
  // A network of another interface opens no record; its signal line lands
  // in the record being filled.
  text += "BSS 02:11:22:33:44:99(on mld3)\n\tsignal: -30.00 dBm\n";
  Sandbox::write_file(kListing, text);

  WifiSiteEntry sites[16];
  memset(sites, 0x5A, sizeof sites);
  kivtest::Capture out(1);
  int last = wifi_list_scan_read(0, 5, sites, 16);
  std::string printed = out.take();
  ASSERT_EQ(last, 7);

  auto check = [&](int i, const char *ssid, const char *bssid, int channel,
                   int rssi, int auth_seen, int suite, int security) {
    SCOPED_TRACE(i);
    EXPECT_EQ(sites[i].valid, 1);
    EXPECT_STREQ(sites[i].ssid, ssid);
    EXPECT_STREQ(sites[i].bssid, bssid);
    EXPECT_EQ(sites[i].channel, channel);
    EXPECT_EQ(sites[i].rssi, rssi);
    EXPECT_EQ(sites[i].auth_seen, auth_seen);
    EXPECT_EQ(sites[i].auth_suite, suite);
    EXPECT_EQ(sites[i].security, security);
  };
  check(0, "HomeNet", "02:11:22:33:44:01", 1, -45, 1, 2, 2);
  // The open network reuses the hidden one's slot; the suite number stays.
  check(1, "Cafe Guest", "02:11:22:33:44:03", 11, -60, 0, 2, 0);
  check(2, "Wpa3Only", "02:11:22:33:44:04", 13, -52, 1, 4, 4);
  check(3, "Mixed", "02:11:22:33:44:05", 3, -58, 1, 5, 5);
  check(4, "OweNet", "02:11:22:33:44:06", 9, -70, 1, 6, 0);
  check(5, "Corp", "02:11:22:33:44:07", 4, -66, 1, 7, 6);
  check(6, "Corp2", "02:11:22:33:44:08", 5, -67, 1, 0, 0);
  // The later suites line decides; the foreign signal overwrote rssi.
  check(7, "Legacy", "02:11:22:33:44:09", 2, -30, 1, 5, 5);
  // Every record of the array was zeroed, also those never reached.
  WifiSiteEntry zero;
  memset(&zero, 0, sizeof zero);
  for (int i = 8; i < 16; ++i)
    EXPECT_EQ(memcmp(&sites[i], &zero, sizeof zero), 0) << i;
  EXPECT_EQ(printed, "");

  std::string freq = freq_all[0];
  EXPECT_EQ(Sandbox::calls("iw"),
            std::vector<std::string>{"dev mld1 scan freq " + freq + " flush"});
  std::string console = Sandbox::console();
  EXPECT_NE(console.find("[      wifi_list_scan_read]["), std::string::npos)
      << console;
  EXPECT_NE(console.find("]: cmdline=iw dev mld1 scan freq 2412 2417 "),
            std::string::npos)
      << console;
  EXPECT_NE(console.find(" flush ifidx=0 apidx=5, ifname=mld1\n"),
            std::string::npos)
      << console;
  bool logged = false;
  for (const std::string &line : Sandbox::syslog())
    if (line.find("libkiv") != std::string::npos &&
        line.find(": iw dev mld1 scan freq 2412 ") != std::string::npos)
      logged = true;
  EXPECT_TRUE(logged);
}

TEST_F(WifiSurvey, CountsAndEmptyNames) {
  WifiSiteEntry sites[8];

  // No output at all: 0, and nothing valid.
  Sandbox::write_file(kListing, "");
  EXPECT_EQ(wifi_list_scan_read(1, 0, sites, 8), 0);
  EXPECT_EQ(sites[0].valid, 0);
  // One network gives 0 as well, told apart by valid.
  Sandbox::write_file(kListing, listing({{"02:00:00:00:00:01", "One", "-40.00", 36, {}, "mld3"}}));
  EXPECT_EQ(wifi_list_scan_read(1, 0, sites, 8), 0);
  EXPECT_EQ(sites[0].valid, 1);
  EXPECT_STREQ(sites[0].ssid, "One");
  EXPECT_EQ(Sandbox::calls("iw").back(),
            std::string("dev mld3 scan freq ") + freq_all[1] + " flush");

  // A last network with an empty name keeps its slot, valid and unnamed.
  Sandbox::write_file(
      kListing, listing({{"02:00:00:00:00:01", "A", "-40.00", 1, {}},
                         {"02:00:00:00:00:02", "B", "-41.00", 2, {}},
                         {"02:00:00:00:00:03", "", "-42.00", 3, {}}}));
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 8), 2);
  EXPECT_EQ(sites[2].valid, 1);
  EXPECT_STREQ(sites[2].ssid, "");
  EXPECT_STREQ(sites[2].bssid, "02:00:00:00:00:03");

  // A second SSID line in one block counts again, leaving a zeroed slot.
  Sandbox::write_file(kListing,
                      "BSS 02:00:00:00:00:01(on mld1)\n\tSSID: First\n"
                      "\tSSID: Again\n"
                      "BSS 02:00:00:00:00:02(on mld1)\n\tSSID: Next\n");
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 8), 2);
  EXPECT_STREQ(sites[0].ssid, "Again");
  EXPECT_EQ(sites[1].valid, 0);
  EXPECT_STREQ(sites[1].bssid, "");
  EXPECT_STREQ(sites[2].ssid, "Next");

  // Names are cut at 33 characters; a name without its newline at the end
  // of the output loses its last character.
  std::string long_name(40, 'n');
  Sandbox::write_file(kListing, "BSS 02:00:00:00:00:01(on mld2)\n\tSSID: " +
                                    long_name + "\nBSS 02:00:00:00:00:02(on mld2)\n"
                                    "\tSSID: tail");
  EXPECT_EQ(wifi_list_scan_read(2, 0, sites, 8), 1);
  EXPECT_EQ(std::string(sites[0].ssid), std::string(33, 'n'));
  EXPECT_STREQ(sites[1].ssid, "tai");
}

TEST_F(WifiSurvey, LinesThatDontParse) {
  // Malformed lines print their message and change no number; a suites
  // line with nothing behind it applies the last good suites text again.
  Sandbox::write_file(kListing,
                      "BSS 02:00:00:00:00:01(on mld1)\n"
                      "\tsignal: -50.00 dBm\n\tSSID: A\n"
                      "\t\t * primary channel: 7\n"
                      "\t\t * Authentication suites: SAE\n"
                      "BSS 02:00:00:00:00:02(on mld1)\n"
                      "\tsignal: unknown\n\tSSID: B\n"
                      "\t\t * primary channel: none\n"
                      "\t\t * Authentication suites: \n"
                      "BSS 02:00:00:00:00:03(on mld1)\n\tSSID: C\n"
                      "\t\t * Authentication suites: FT/PSK\n"
                      "(on mld1) BSS\n");
  WifiSiteEntry sites[4];
  kivtest::Capture out(1);
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 4), 3);
  EXPECT_EQ(out.take(),
            "get rssi error!\nget Channel error!\n"
            "get Authentication suites error!\n");
  EXPECT_EQ(sites[1].rssi, 0);
  EXPECT_EQ(sites[1].channel, 0);
  EXPECT_EQ(sites[1].auth_seen, 1);
  EXPECT_EQ(sites[1].auth_suite, 4);
  EXPECT_EQ(sites[1].security, 4);
  // An unknown suite leaves both codes as the BSS line left them.
  EXPECT_EQ(sites[2].auth_seen, 1);
  EXPECT_EQ(sites[2].auth_suite, 0);
  EXPECT_EQ(sites[2].security, 0);
  // A cut BSS line: the address is what there is of it.
  EXPECT_STREQ(sites[3].bssid, "");
  EXPECT_EQ(sites[3].valid, 0);
}

TEST_F(WifiSurvey, KeyWordsAnywhereFirstTestWins) {
  Sandbox::write_file(kListing,
                      "Bx BSS 02:00:00:00:00:07(on mld1) SSID: no BSS\n"
                      "\tBSSID: named\n"
                      "see signal: -12 dBm, primary channel: 3\n"
                      "\t\t * Authentication suites:   PSK SAE\n"
                      "\tSSID: later\n" +
                      // Lines come in pieces of 255 bytes: an SSID line
                      // with nothing behind the word, then "sig", "nal".
                      std::string(251, 'x') + "SSID: cut\n" +
                      std::string(252, 'y') + "signal: -5 dBm\n");
  WifiSiteEntry sites[3];
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 3), 0);
  // The BSS test comes first, and the address follows the word's first
  // place; a BSSID line is an SSID line; the channel test comes before the
  // signal test.
  EXPECT_STREQ(sites[0].bssid, "02:00:00:00:00:07");
  EXPECT_STREQ(sites[0].ssid, "");
  EXPECT_EQ(sites[0].channel, 3);
  EXPECT_EQ(sites[0].rssi, 0);
  EXPECT_EQ(sites[0].auth_suite, 5);
  EXPECT_EQ(sites[0].security, 5);
  EXPECT_EQ(sites[1].valid, 0);
  // A word may also open its line.
  Sandbox::write_file(kListing, "BSS 02:00:00:00:00:08(on mld1)\n"
                                "signal: -33.00 dBm\nSSID: top\n");
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 3), 0);
  EXPECT_EQ(sites[0].rssi, -33);
  EXPECT_STREQ(sites[0].ssid, "top");
}

TEST_F(WifiSurvey, NeverWritesPastCapacity) {
  // Far more networks than records, and more output than a pipe holds: the
  // records past the capacity stay untouched and iw runs to its end.
  std::vector<Net> nets;
  for (int i = 0; i < 300; ++i) {
    char bssid[18];
    snprintf(bssid, sizeof bssid, "02:00:00:00:%02x:%02x", i / 256, i % 256);
    nets.push_back({bssid, "net" + std::to_string(i), "-50.00", 1, {"PSK"}});
  }
  Sandbox::write_file(kListing, listing(nets));
  Sandbox::fake_command("iw", std::string("cat ") + kListing +
                                  " && touch /tmp/iw-finished");

  WifiSiteEntry sites[8];
  memset(sites, 0x5A, sizeof sites);
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 5), 4);
  EXPECT_STREQ(sites[4].ssid, "net4");
  EXPECT_EQ(sites[4].rssi, -50);
  for (int i = 5; i < 8; ++i)
    for (size_t b = 0; b < sizeof sites[i]; ++b)
      ASSERT_EQ(reinterpret_cast<unsigned char *>(&sites[i])[b], 0x5A) << i;
  EXPECT_TRUE(Sandbox::exists("/tmp/iw-finished"));

  // A capacity of one: only the first network.
  memset(sites, 0x5A, sizeof sites);
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 1), 0);
  EXPECT_STREQ(sites[0].ssid, "net0");
  EXPECT_EQ(sites[1].valid, 0x5A5A5A5A);
}

TEST_F(WifiSurvey, RefusesWhatHasNoRadio) {
  WifiSiteEntry sites[2];
  memset(sites, 0x5A, sizeof sites);
  EXPECT_EQ(wifi_list_scan_read(3, 0, sites, 2), -1);
  EXPECT_EQ(wifi_list_scan_read(-1, 0, sites, 2), -1);
  EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 0), -1);
  EXPECT_EQ(wifi_list_scan_read(0, 0, nullptr, 2), -1);
  EXPECT_TRUE(Sandbox::calls("iw").empty());
  EXPECT_EQ(sites[0].valid, 0x5A5A5A5A);
  // No descriptor left for the command's pipe: -1.
  auto r = kivtest::run_in_child([] {
    const rlimit lim{64, 64};
    setrlimit(RLIMIT_NOFILE, &lim);
    while (open("/dev/null", O_RDONLY) >= 0) {
    }
    WifiSiteEntry site;
    printf("%d", wifi_list_scan_read(0, 0, &site, 1));
  });
  EXPECT_EQ(r.out, "-1");
}

TEST_F(WifiSurvey, ReadsFrequenciesAtEachCall) {
  char saved[256];
  memcpy(saved, freq_all[2], sizeof saved);
  strcpy(freq_all[2], "5955 6015");
  WifiSiteEntry sites[1];
  Sandbox::write_file(kListing, "");
  wifi_list_scan_read(2, 1, sites, 1);
  memcpy(freq_all[2], saved, sizeof saved);
  EXPECT_EQ(Sandbox::calls("iw"),
            std::vector<std::string>{"dev mld2 scan freq 5955 6015 flush"});
}

// ---- the scan request ------------------------------------------------------

// A daemon that answers after it has read the request.  Request and reply
// share the FIFO, so the daemon must take the request before the caller
// reads: it is a real-time thread on the caller's processor, which runs
// the moment the request is written.
TEST_F(WifiSurvey, DaemonAnswersAfterTheRequest) {
  ASSERT_EQ(mkfifo(kFifo, 0600), 0);
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  cpu_set_t saved;
  ASSERT_EQ(sched_getaffinity(0, sizeof saved, &saved), 0);
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);

  int fd = open(kFifo, O_RDWR | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  std::atomic<int> state{0};  // 1 waiting for the request, -1 no priority
  int32_t request[3] = {-1, -1, -1};
  std::thread daemon([&] {
    sched_param prio{};
    prio.sched_priority = 1;
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &prio) != 0) {
      state = -1;
      return;
    }
    state = 1;
    ssize_t got = read(fd, request, sizeof request);
    int32_t reply = got == 12 ? request[1] * 100 + request[2] : -99;
    EXPECT_EQ(write(fd, &reply, sizeof reply), 4);
  });
  while (state == 0) sched_yield();
  int result = state == 1 ? wifi_list_scan_start(3, 4) : 0;
  daemon.join();
  close(fd);
  sched_setaffinity(0, sizeof saved, &saved);
  if (state == -1) GTEST_SKIP() << "no real-time priority for the daemon";

  EXPECT_EQ(result, 304);
  EXPECT_EQ(request[0], 0);
  EXPECT_EQ(request[1], 3);
  EXPECT_EQ(request[2], 4);
  std::string console = Sandbox::console();
  EXPECT_NE(console.find("[kiv-info][wifi_scan_msg_send_recv:"),
            std::string::npos);
  EXPECT_NE(console.find("] snd_ret:12, msglen:12\n\n"), std::string::npos)
      << console;
  EXPECT_NE(console.find("] rcv_ret:4, rcv_len:4, result:304\n\n"),
            std::string::npos)
      << console;

  // No daemon: the FIFO still opens, and the caller reads back the first
  // word of its own request.
  EXPECT_EQ(wifi_list_scan_start(1, 1), 0);
}

TEST_F(WifiSurvey, ScanRequestFailures) {
  EXPECT_EQ(wifi_list_scan_start(0, 0), -11);
  EXPECT_NE(Sandbox::console().find(
                "] open /var/run/.wifi_cfgd.fifo failed(No such file or "
                "directory).\n\n"),
            std::string::npos);

  // The write fails.
  ASSERT_EQ(symlink("/dev/full", kFifo), 0);
  EXPECT_EQ(wifi_list_scan_start(0, 0), -12);
  std::string console = Sandbox::console();
  EXPECT_NE(console.find("] snd_ret:-1, msglen:12\n\n"), std::string::npos)
      << console;
  EXPECT_EQ(console.find("rcv_ret"), std::string::npos);

  // The write goes through but the read finds nothing.
  unlink(kFifo);
  Sandbox::write_file(kFifo, "");
  EXPECT_EQ(wifi_list_scan_start(0, 0), -13);
  EXPECT_NE(Sandbox::console().find("] rcv_ret:0, rcv_len:4, result:0\n\n"),
            std::string::npos);
}

TEST_F(WifiSurvey, LineAcrossTheEndOfAReadBlockIsWhole) {
  // The output is read in blocks of 4096 bytes.
  for (size_t before : {1u, 5u, 9u}) {
    std::string text = "BSS 02:00:00:00:00:01(on mld1)\n";
    while (text.size() < 4096 - before - 100)
      text += "\tlast seen: 1 ms ago\n";
    text += "\tTSF: " + std::string(4096 - before - text.size() - 7, '0') + "\n";
    Sandbox::write_file(kListing, text + "\tSSID: Straddling\n");
    WifiSiteEntry sites[2];
    EXPECT_EQ(wifi_list_scan_read(0, 0, sites, 2), 0);
    EXPECT_STREQ(sites[0].ssid, "Straddling") << before;
  }
}

}  // namespace
