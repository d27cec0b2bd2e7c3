// Link, mode and system status against fake files and commands.
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>
#include <vector>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;

namespace {

class Status : public kivtest::SandboxTest {};

using Lines = std::vector<std::string>;

constexpr const char kFifo[] = "/var/run/.work_moded.fifo";

}  // namespace

TEST_F(Status, MessageReachesTheWorkModeDaemon) {
  Sandbox::mkdirs("/var/run");
  ASSERT_EQ(mkfifo(kFifo, 0600), 0);
  std::string got;
  std::thread daemon([&got] {
    int fd = open(kFifo, O_RDONLY);
    if (fd < 0) return;
    char buf[64];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) got.append(buf, n);
    close(fd);
  });
  int fds = kivtest::open_fd_count();
  const char msg[] = "mode\0router";
  EXPECT_EQ(wmode_send_msg(msg, sizeof msg), static_cast<int>(sizeof msg));
  daemon.join();
  EXPECT_EQ(got, std::string(msg, sizeof msg)) << "bytes past a NUL kept";
  EXPECT_EQ(kivtest::open_fd_count(), fds);
  std::string console = Sandbox::console();
  EXPECT_EQ(console.rfind("[kiv-info][wmode_send_msg:", 0), 0u) << console;
  EXPECT_NE(console.find("] ret:12, msg-len:12\n\n"), std::string::npos)
      << console;
}

TEST_F(Status, MissingWorkModeFifoIsReported) {
  EXPECT_EQ(wmode_send_msg("x", 1), -1);
  std::string console = Sandbox::console();
  EXPECT_EQ(console.rfind("[kiv-err][wmode_send_msg:", 0), 0u) << console;
  EXPECT_NE(console.find("] open /var/run/.work_moded.fifo failed(No such "
                         "file or directory).\n\n"),
            std::string::npos)
      << console;
  EXPECT_EQ(wmode_send_msg(nullptr, 4), -1) << "must not block or write";
}

TEST_F(Status, WorkModeLinkStatusLooksBehindTheFirstColon) {
  EXPECT_EQ(wmode_link_status(), 0) << "no status file";
  const char *path = "/tmp/.work_moded_link_status";
  Sandbox::write_file(path, "link:1\n");
  EXPECT_EQ(wmode_link_status(), 1);
  Sandbox::write_file(path, "link:0 wan:1\n");
  EXPECT_EQ(wmode_link_status(), 0);
  Sandbox::write_file(path, "link: 1");
  EXPECT_EQ(wmode_link_status(), 0);
  Sandbox::write_file(path, "1");
  EXPECT_EQ(wmode_link_status(), 0);
}

TEST_F(Status, EthernetPortsAreCycled) {
  // Port 4's status is the result.
  Sandbox::fake_command("mii_mgr", "[ \"$3\" = 4 ] && exit 3; exit 0");
  int r = down_up_eth_interface(1);
  EXPECT_TRUE(WIFEXITED(r) && WEXITSTATUS(r) == 3) << r;
  EXPECT_EQ(Sandbox::calls("mii_mgr"),
            (Lines{"-s -p 1 -r 0 -v 8000", "-s -p 2 -r 0 -v 8000",
                   "-s -p 3 -r 0 -v 8000", "-s -p 4 -r 0 -v 8000"}));
  // Each command is logged; the log reader keeps only a few datagrams.
  Sandbox::syslog();
  down_up_eth_interface(0);
  Sandbox::syslog();
  EXPECT_EQ(Sandbox::calls("mii_mgr").size(), 9u);
  EXPECT_EQ(Sandbox::calls("mii_mgr")[4], "-s -p 0 -r 0 -v 8000");
  down_up_eth_interface(2);
  EXPECT_EQ(Sandbox::calls("mii_mgr").size(), 14u);
}

TEST_F(Status, SwitchPortLink) {
  Sandbox::fake_command("swconfig",
                        "[ \"$2 $4\" = 'switch0 2' ] && "
                        "echo 'port:2 link:up speed:1000baseT full-duplex' "
                        "|| echo 'port:x link:down'");
  EXPECT_EQ(kiv_get_port_link_status(0), 1);
  EXPECT_EQ(kiv_get_port_link_status(2), 0);
  EXPECT_EQ(Sandbox::calls("swconfig"),
            (Lines{"dev switch0 port 2 get link",
                   "dev switch1 port 2 get link"}));
  Sandbox::fake_command("swconfig", "exit 1");
  EXPECT_EQ(kiv_get_port_link_status(3), 0);
}

TEST_F(Status, PortStatusFileFirstStatedLineDecides) {
  EXPECT_EQ(kiv_port_link_status(1), 0) << "no file";
  Sandbox::write_file("/tmp/portStatus",
                      "port 10: linkup\n"
                      "port 1: linkdown\n"
                      "port 2: unknown\n"
                      "port 2: linkdown\n"
                      "port 2: linkup\n"
                      "port 3: linkup");
  // "port 1" is found inside "port 10".
  EXPECT_EQ(kiv_port_link_status(1), 1);
  EXPECT_EQ(kiv_port_link_status(2), 0);
  EXPECT_EQ(kiv_port_link_status(3), 1);
  EXPECT_EQ(kiv_port_link_status(4), 0);

  // The search word holds at most 14 characters.
  Sandbox::write_file("/tmp/portStatus", "port 100000000: linkup\n");
  EXPECT_EQ(kiv_port_link_status(1000000000), 1);
  EXPECT_EQ(kiv_port_link_status(100000000), 1);
  EXPECT_EQ(kiv_port_link_status(100000001), 0);
}

TEST_F(Status, ReadersCloseTheirFilesOnEveryPath) {
  Sandbox::write_file("/tmp/portStatus", "port 1: linkup\nport 2: linkdown\n");
  Sandbox::write_file("/sys/class/net/eth1/carrier", "1\n");
  Sandbox::write_file("/var/resolv.conf.d/resolv.conf.auto",
                      "nameserver 1.1.1.1\nnameserver 2.2.2.2\n"
                      "nameserver 3.3.3.3\n");
  Sandbox::write_file("/etc/version", "VERSION=\"1\"\nVERSION=\"2\"\n");
  int fds = kivtest::open_fd_count();
  unsigned char link = 0;
  char slots[2][64] = {};
  char version[246] = {};
  for (int port = 1; port <= 3; ++port) kiv_port_link_status(port);
  EXPECT_EQ(GetWanLinkStatus(&link), 0);
  EXPECT_EQ(getWanDnsAdress(slots), 2);
  EXPECT_EQ(kiv_get_software_version(version), 0);
  Sandbox::write_file("/etc/version", "VERSION=none\n");
  EXPECT_EQ(kiv_get_software_version(version), 1);
  EXPECT_EQ(kivtest::open_fd_count(), fds);
}

TEST_F(Status, WanCarrier) {
  unsigned char link = 0xaa;
  EXPECT_EQ(GetWanLinkStatus(&link), -1) << "no carrier file";
  EXPECT_EQ(link, 0xaa);
  EXPECT_EQ(GetWanLinkStatus(nullptr), -1);

  const char *path = "/sys/class/net/eth1/carrier";
  Sandbox::write_file(path, "");
  EXPECT_EQ(GetWanLinkStatus(&link), 0);
  EXPECT_EQ(link, 0xaa) << "nothing read leaves the byte";
  Sandbox::write_file(path, "1\n");
  EXPECT_EQ(GetWanLinkStatus(&link), 0);
  EXPECT_EQ(link, 1);
  Sandbox::write_file(path, "0\n");
  EXPECT_EQ(GetWanLinkStatus(&link), 0);
  EXPECT_EQ(link, 0);
  link = 7;
  Sandbox::write_file(path, "x1\n");
  EXPECT_EQ(GetWanLinkStatus(&link), 0);
  EXPECT_EQ(link, 7);
}

TEST_F(Status, DnsServersOfTheWan) {
  const char *path = "/var/resolv.conf.d/resolv.conf.auto";
  char slots[3][64] = {};
  EXPECT_EQ(getWanDnsAdress(slots), -1) << "no resolver file";

  Sandbox::write_file(path,
                      "# Interface wan\n"
                      "search lan\n"
                      "nameserver 2001:db8::1\n"
                      "nameserver 10.0.0.1\n"
                      "nameserver\n"
                      "nameserver 10.0.0.2\n"
                      "nameserver 10.0.0.3\n");
  EXPECT_EQ(getWanDnsAdress(slots), 2);
  EXPECT_STREQ(slots[0], "10.0.0.1");
  EXPECT_STREQ(slots[1], "10.0.0.2");
  EXPECT_STREQ(slots[2], "");

  // The last line loses its last character, newline or not.
  memset(slots, 0, sizeof slots);
  Sandbox::write_file(path, "nameserver 10.0.0.1\nnameserver 10.0.0.25");
  EXPECT_EQ(getWanDnsAdress(slots), 2);
  EXPECT_STREQ(slots[1], "10.0.0.2");

  memset(slots, 0, sizeof slots);
  Sandbox::write_file(path, "nameserver 10.0.0.1");
  EXPECT_EQ(getWanDnsAdress(slots), 0) << "10.0.0. is no address";
}

TEST_F(Status, RunTimeDnsFillsBelowTheLastByte) {
  char dns1[8], dns2[8];
  memset(dns1, 'x', sizeof dns1);
  memset(dns2, 'x', sizeof dns2);
  getRunTimeDns(dns1, sizeof dns1, dns2, sizeof dns2);
  EXPECT_EQ(std::string(dns1, 8), std::string(7, '\0') + "x");
  EXPECT_EQ(std::string(dns2, 8), std::string(7, '\0') + "x");

  Sandbox::write_file("/var/resolv.conf.d/resolv.conf.auto",
                      "nameserver 1.1.1.1\n");
  char a[16] = {}, b[16];
  memset(b, 'x', sizeof b);
  getRunTimeDns(a, sizeof a, b, sizeof b);
  EXPECT_STREQ(a, "1.1.1.1");
  EXPECT_EQ(std::string(b, 16), std::string(15, '\0') + "x");

  Sandbox::write_file("/var/resolv.conf.d/resolv.conf.auto",
                      "nameserver 10.10.10.10\nnameserver 8.8.8.8\n");
  memset(dns1, 'x', sizeof dns1);
  memset(b, 0, sizeof b);
  getRunTimeDns(dns1, sizeof dns1, b, sizeof b);
  EXPECT_EQ(std::string(dns1, 8), "10.10.1x") << "cut below the last byte";
  EXPECT_STREQ(b, "8.8.8.8");
  getRunTimeDns(dns1, 0, nullptr, 0);  // nothing to write into
}

TEST_F(Status, FactoryResetRunsBothCommands) {
  Sandbox::fake_command("fact", "exit 1");
  Sandbox::fake_command("jffs2reset", "exit 2");
  int r = kiv_restore_default();
  EXPECT_TRUE(WIFEXITED(r) && WEXITSTATUS(r) == 2) << r;
  EXPECT_EQ(Sandbox::calls("fact"), Lines{"telnet 0"});
  EXPECT_EQ(Sandbox::calls("jffs2reset"), Lines{"-y -r"});
}

TEST_F(Status, SoftwareVersion) {
  char out[300];
  memset(out, 'x', sizeof out);
  EXPECT_EQ(kiv_get_software_version(out), 1) << "no version file";
  EXPECT_EQ(out[0], 'x');

  Sandbox::write_file("/etc/version",
                      "NAME=\"router\"\n"
                      " VERSION=\"0.1\"\n"
                      "VERSION=\"1.0.0\n"
                      "VERSION=\"V2.0.1 build 7\" extra\"\n");
  EXPECT_EQ(kiv_get_software_version(out), 0);
  EXPECT_STREQ(out, "V2.0.1 build 7");

  memset(out, 'x', sizeof out);
  Sandbox::write_file("/etc/version", "VERSION=1.0\nVERSION=\"\"\n");
  EXPECT_EQ(kiv_get_software_version(out), 0);
  EXPECT_EQ(std::string(out, 2), std::string("\0x", 2));

  // The longest version a line can hold fills exactly 246 bytes.
  std::string longest(245, 'v');
  memset(out, 'x', sizeof out);
  Sandbox::write_file("/etc/version", "VERSION=\"" + longest + "\"\n");
  EXPECT_EQ(kiv_get_software_version(out), 0);
  EXPECT_EQ(std::string(out), longest);
  EXPECT_EQ(out[246], 'x');

  // A longer one is split by the line limit and never found whole.
  memset(out, 'x', sizeof out);
  Sandbox::write_file("/etc/version",
                      "VERSION=\"" + std::string(400, 'w') + "\"\n");
  EXPECT_EQ(kiv_get_software_version(out), 1);
  EXPECT_EQ(out[0], 'x');
  EXPECT_EQ(kiv_get_software_version(nullptr), 1);
}
