// Fault injection: a full disk under uci commits, unreadable and missing
// files under every reader, commands that are missing, fail, hang up early
// or flood their reader, and a timer signal interrupting timed reads and
// writes.
#include <errno.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <dirent.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "sandbox.hpp"
#include "kiv/kiv.h"
#include "uci.h"

namespace kivtest {
namespace {
// Replaces whatever is at path by a directory: open() for reading works,
// every read fails with EISDIR.
void make_unreadable_dir(const std::string &path) {
  unlink(path.c_str());
  rmdir(path.c_str());
  Sandbox::mkdirs(path);
}

// Shell bodies of fake commands that misbehave.
constexpr char kFloodBody[] =  // 1 MiB of lines, then success
    "yes 'link:down port flood line of a command that never stops' | "
    "head -c 1048576; exit 0";
constexpr char kHangUpBody[] =  // closes its output, lives on
    "exec >&- 2>&-; sleep 0.3; exit 0";
constexpr char kFailBody[] = "echo partial; exit 7";
constexpr char kKilledBody[] = "echo partial; kill -9 $$";


class Faults : public SandboxTest {};

std::string network_text() {
  std::string t =
      "config interface 'lan'\n"
      "\toption proto 'static'\n"
      "\tlist dns '1.1.1.1'\n"
      "\n"
      "config workmode 'workmode'\n"
      "\toption mode 'router'\n";
  // Long enough that a rewrite needs more than the space that is left.
  for (int i = 0; t.size() < 3000; ++i)
    t += "\nconfig rule\n\toption name 'r" + std::to_string(i) + "'\n";
  return t;
}

// Fills the file system of dir up to the last byte.
void fill(const std::string &dir) {
  int fd = open((dir + "/filler").c_str(), O_WRONLY | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  char block[512];
  memset(block, 'x', sizeof block);
  while (write(fd, block, sizeof block) > 0) {
  }
  while (write(fd, block, 1) > 0) {
  }
  close(fd);
}

TEST_F(Faults, FullDiskDuringUciCommitsLeavesTheOldPackage) {
  Sandbox::mkdirs("/etc/config");
  ASSERT_EQ(0, mount("tmpfs", "/etc/config", "tmpfs", 0, "size=16k,nr_inodes=32"))
      << strerror(errno);
  const std::string old = network_text();
  Sandbox::write_file("/etc/config/network", old, 0644);
  fill("/etc/config");
  const std::set<std::string> names{"filler", "network"};

  uci_section_options opts{};
  opts.pairs[0] = {"name", "new"};
  opts.count = 1;
  {
    Capture out(1);
    EXPECT_NE(0, set_uci_option("network", "lan", "proto", "dhcp"));
    add_uci_list(nullptr, "network", "lan", "dns", "8.8.8.8");
    del_uci_sections(nullptr, "network", "lan");
    add_uci_sections(nullptr, "network", "interface", "guest");
    add_new_uci_section_and_option("network", "rule", opts);
    del_uci_anonymous_section_by_option("network", "rule", "name", "r3");
    delete_section_options("network", "lan");
  }
  EXPECT_EQ(old, Sandbox::read_file("/etc/config/network"));
  EXPECT_EQ(names, dir_names("/etc/config")) << "no temporary file is left";

  // With room again a commit goes through.
  unlink("/etc/config/filler");
  Sandbox::console();
  {
    Capture out(1);
    EXPECT_EQ(0, set_uci_option("network", "lan", "proto", "dhcp"));
  }
  char value[16] = {0};
  EXPECT_EQ(0, get_uci_option(nullptr, "network", "lan", "proto", value,
                              sizeof value));
  EXPECT_STREQ("dhcp", value);
  umount("/etc/config");
}

// A reader and what it gives when there is nothing to read.
struct Reader {
  const char *name;
  const char *path;
  int (*call)();
  int nothing;
  int opened_nothing;  // when it could open the path but read nothing
};

int read_version() {
  char v[256];
  memset(v, 'u', sizeof v);
  int r = kiv_get_software_version(v);
  return v[0] == 'u' ? r : 100;  // 100: something was written
}
int read_carrier() {
  unsigned char link = 7;
  int r = GetWanLinkStatus(&link);
  return link == 7 ? (r == 0 ? 0 : -1) : 100;
}
int read_dns() {
  char slots[2][64] = {};
  int r = getWanDnsAdress(slots);
  return slots[0][0] ? 100 : (r <= 0 ? -1 : r);
}
int read_runtime_dns() {
  char d1[16] = {0}, d2[16] = {0};
  getRunTimeDns(d1, sizeof d1, d2, sizeof d2);
  return d1[0] || d2[0] ? 100 : 0;
}
int read_port() { return kiv_port_link_status(1); }
int read_wmode() { return wmode_link_status(); }
int read_gpio() { return GetKeyValue(0, 7); }
int read_work_mode() { return get_work_mode(); }
int read_uci() {
  char v[16] = {0};
  int r = get_uci_option(nullptr, "network", "workmode", "mode", v, sizeof v);
  return v[0] ? 100 : r;
}
int read_journal() {
  static int calls;
  calls = 0;
  iptabes_exe_from_file([](iptbl_rule *) { return ++calls, 0; },
                        "/tmp/.iptbl_save");
  return calls;
}

const Reader kReaders[] = {
    {"kiv_get_software_version", "/etc/version", read_version, 1, 1},
    {"GetWanLinkStatus", "/sys/class/net/eth1/carrier", read_carrier, -1, 0},
    {"getWanDnsAdress", "/var/resolv.conf.d/resolv.conf.auto", read_dns, -1,
     -1},
    {"getRunTimeDns", "/var/resolv.conf.d/resolv.conf.auto", read_runtime_dns,
     0, 0},
    {"kiv_port_link_status", "/tmp/portStatus", read_port, 0, 0},
    {"wmode_link_status", "/tmp/.work_moded_link_status", read_wmode, 0, 0},
    {"GetKeyValue", "/sys/class/gpio/gpio7/value", read_gpio, 0, 0},
    {"get_work_mode", "/etc/config/network", read_work_mode, 0, 0},
    {"get_uci_option", "/etc/config/network", read_uci, -1, -1},
    {"iptabes_exe_from_file", "/tmp/.iptbl_save", read_journal, 0, 0},
};

constexpr char kGoodContent[] =
    "VERSION=\"9\"\nnameserver 1.1.1.1\nport 1 linkup\nlink:1\n";

// Runs fn as the user nobody in a child; returns its result, or -999.
int as_nobody(int (*fn)()) {
  ChildResult r = run_in_child([fn] {
    become(65534, 65534);
    printf("%d", fn());
  });
  return r.exited && r.exit_code == 0 ? atoi(r.out.c_str()) : -999;
}

TEST_F(Faults, MissingAndUnreadableFilesReadAsNothing) {
  for (const Reader &rd : kReaders) {
    SCOPED_TRACE(rd.name);
    Capture err(2);
    unlink(rd.path);
    EXPECT_EQ(rd.nothing, rd.call());

    // Open works, every read fails (EISDIR).
    make_unreadable_dir(rd.path);
    EXPECT_EQ(rd.opened_nothing, rd.call());
    rmdir(rd.path);

    // Open fails with EACCES: the file is there, but not for this user.
    Sandbox::write_file(rd.path, kGoodContent, 0);
    chmod(rd.path, 0);
    EXPECT_EQ(rd.nothing, as_nobody(rd.call));
    unlink(rd.path);
  }
  Sandbox::console();
}

TEST_F(Faults, UnreadableProfileIsAFatalReportNotACrash) {
  Sandbox::write_file("/tmp/p.dat", "SSID1=Home\n", 0);
  chmod("/tmp/p.dat", 0);
  static char path[] = "/tmp/p.dat";
  __profile = path;
  ChildResult r = run_in_child([] {
    become(65534, 65534);
    char out[16] = {0};
    conf_get("SSID1", out, sizeof out);
  });
  EXPECT_EQ(255, r.exit_code);
  EXPECT_TRUE(r.err.starts_with("assert failure: fp, Permission denied, "))
      << r.err;

  // A directory in its place: opened, nothing read, nothing found.
  unlink(path);
  make_unreadable_dir(path);
  char out[16] = {0};
  EXPECT_EQ(0, conf_get("SSID1", out, sizeof out));
  EXPECT_STREQ("", out);
  __profile = nullptr;
}

// A buffer with guard bytes behind the part handed to the library.
struct Guarded {
  static constexpr size_t kGuard = 64;
  explicit Guarded(size_t n) : size(n), bytes(n + kGuard, 0) {
    memset(bytes.data() + n, 0x5a, kGuard);
  }
  char *data() { return bytes.data(); }
  bool intact() const {
    for (size_t i = size; i < bytes.size(); ++i)
      if (bytes[i] != 0x5a) return false;
    return true;
  }
  size_t size;
  std::vector<char> bytes;
};

TEST_F(Faults, MisbehavingCommandsNeitherOverrunNorHang) {
  Sandbox::fake_command("flood", kFloodBody);
  Sandbox::fake_command("hangup", kHangUpBody);
  Sandbox::fake_command("fails", kFailBody);
  Sandbox::fake_command("killed", kKilledBody);
  for (const char *cmd :
       {"flood", "hangup", "fails", "killed", "no_such_command_here"}) {
    SCOPED_TRACE(cmd);
    Guarded buf(64);
    Capture err(2);
    int n = exe_cmd(cmd, buf.data(), 64);
    EXPECT_GE(n, 0);
    EXPECT_LE(n, 64);
    EXPECT_EQ('\0', buf.data()[63]);
    EXPECT_TRUE(buf.intact());
  }

  // Scans: iw missing, failing, killed, silent, or listing far more
  // networks than the caller has records.
  std::string listing;
  for (int i = 0; i < 2000; ++i)
    listing += "BSS 00:11:22:33:44:55(on mld1)\n\tSSID: net" +
               std::to_string(i) + "\n\tsignal: -50.00 dBm\n";
  Sandbox::write_file("/tmp/listing", listing);
  static WifiSiteEntry sites[8];
  EXPECT_EQ(0, wifi_list_scan_read(0, 0, sites, 4)) << "no iw at all";
  EXPECT_EQ(0, sites[0].valid);
  for (const char *body : {kFailBody, kKilledBody, kHangUpBody, kFloodBody}) {
    Sandbox::fake_command("iw", body);
    memset(sites, 0x5a, sizeof sites);
    int r = wifi_list_scan_read(0, 0, sites, 4);
    EXPECT_GE(r, 0);
    EXPECT_LT(r, 4);
    EXPECT_EQ(0x5a5a5a5a, sites[4].valid) << body;
  }
  Sandbox::fake_command("iw", "cat /tmp/listing");
  memset(sites, 0x5a, sizeof sites);
  EXPECT_EQ(3, wifi_list_scan_read(0, 0, sites, 4));
  EXPECT_STREQ("net3", sites[3].ssid);
  EXPECT_EQ(0x5a5a5a5a, sites[4].valid);
  EXPECT_EQ(383, wifi_list_scan_read(0, 0, wifi_site_arr, 384));
  EXPECT_STREQ("net383", wifi_site_arr[383].ssid);

  // Status commands that flood, fail or vanish read as "down".
  for (const char *body :
       {kFloodBody, kFailBody, kKilledBody, kHangUpBody, ""}) {
    SCOPED_TRACE(body);
    if (*body)
      Sandbox::fake_command("swconfig", body);
    EXPECT_EQ(0, kiv_get_port_link_status(1));
    Sandbox::fake_command("uci", body);
    Sandbox::fake_command("switch");
    int printed = WanPortLedEn(5);
    EXPECT_GE(printed, 0);
    EXPECT_LE(printed, 128);
    Capture out(1);
    EXPECT_EQ(0, SetWifiParaByEncrypt("ath0", 2));
  }
  // A pin file far longer than any buffer.
  Sandbox::write_file("/sys/class/gpio/gpio7/value",
                      "1" + std::string(1 << 20, '0') + "\n");
  GetKeyValue(0, 7);
  Sandbox::console();
}

// A stream through a pipe to or from a slow child, under a timer signal:
// a cut wait or write gives the count so far (or EINTR), and the caller's
// resumption moves the stream whole, never more than asked.
TEST(FaultsSignals, TimedReadsAndWritesThroughATimerSignal) {
  const std::string data = stream_pattern(256 * 1024);
  for (bool reading : {true, false}) {
    SCOPED_TRACE(reading ? "treadn" : "writen");
    int p[2];
    ASSERT_EQ(0, pipe(p));
    const int mine = reading ? p[0] : p[1], theirs = reading ? p[1] : p[0];
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
      close(mine);
      std::string in;
      char b[1024];
      ssize_t n;
      for (size_t off = 0; reading && off < data.size(); off += sizeof b) {
        if (off % 16384 == 0) usleep(2000);
        if (write(theirs, data.data() + off, sizeof b) != sizeof b) _exit(1);
      }
      while (!reading && (n = read(theirs, b, sizeof b)) > 0) {
        in.append(b, static_cast<size_t>(n));
        if (in.size() % 65536 < sizeof b) usleep(2000);
      }
      _exit(reading || in == data ? 0 : 1);
    }
    close(theirs);
    std::string got(data.size() + 64, '\0');
    size_t done = 0;
    {
      Ticker ticker;
      for (int round = 0; done < data.size() && round < 100000; ++round) {
        const size_t left = data.size() - done;
        errno = 0;
        int r = reading ? treadn(mine, got.data() + done, left, 5)
                        : writen(mine, data.data() + done, left);
        if (r < 0) {
          ASSERT_EQ(EINTR, errno);
          continue;
        }
        ASSERT_LE(static_cast<size_t>(r), left);
        if (r == 0 && reading) break;
        done += static_cast<size_t>(r);
      }
      EXPECT_GT(Ticker::ticks(), 0);
    }
    close(mine);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    EXPECT_EQ(data.size(), done);
    if (reading) {
      EXPECT_EQ(data + std::string(64, '\0'), got);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << "the other end got or gave the stream whole";
  }
}

}  // namespace
}  // namespace kivtest
