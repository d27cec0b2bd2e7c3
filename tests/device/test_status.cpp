// Link, mode and system status against fake files and commands, and the
// work mode from /etc/config/network.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kiv/device.h"
#include "sandbox.hpp"

using kivtest::Sandbox;
using testing::MatchesRegex;

namespace {

class Status : public kivtest::SandboxTest {};

using Lines = std::vector<std::string>;

}  // namespace

TEST_F(Status, MessageReachesTheWorkModeDaemon) {
  const char kFifo[] = "/var/run/.work_moded.fifo";
  EXPECT_EQ(wmode_send_msg("x", 1), -1);
  EXPECT_THAT(Sandbox::console(),
              MatchesRegex("\\[kiv-err\\]\\[wmode_send_msg:[0-9]+\\] open "
                           "/var/run/.work_moded.fifo failed\\(No such file "
                           "or directory\\).\n\n"));
  EXPECT_EQ(wmode_send_msg(nullptr, 4), -1) << "must not block or write";

  ASSERT_EQ(mkfifo(kFifo, 0600), 0);
  std::string got;
  std::atomic<bool> done{false};
  std::thread daemon([&] {
    int fd = open(kFifo, O_RDONLY);
    char buf[64];
    for (ssize_t n; fd >= 0 && (n = read(fd, buf, sizeof buf)) > 0;)
      got.append(buf, n);
    close(fd);
    done = true;
  });
  const char msg[] = "mode\0router";
  EXPECT_EQ(wmode_send_msg(msg, sizeof msg), static_cast<int>(sizeof msg));
  // A daemon still waiting for its writer is let go.
  for (int i = 0; i < 100 && !done; ++i, usleep(10000))
    close(open(kFifo, O_WRONLY | O_NONBLOCK));
  daemon.join();
  EXPECT_EQ(got, std::string(msg, sizeof msg)) << "bytes past a NUL kept";
  EXPECT_THAT(Sandbox::console(),
              MatchesRegex("\\[kiv-info\\]\\[wmode_send_msg:[0-9]+\\] ret:12, "
                           "msg-len:12\n\n"));
}

TEST_F(Status, LinkStatusFiles) {
  // The work mode link status: the character behind the first colon.
  for (auto [text, want] : {std::pair{"link:1\n", 1},
                            {"link:0 wan:1\n", 0},
                            {"link: 1", 0},
                            {"1", 0}}) {
    Sandbox::write_file("/tmp/.work_moded_link_status", text);
    EXPECT_EQ(wmode_link_status(), want) << text;
  }
  // The port status file: the first line with "port N" anywhere in it and
  // a state decides ("port 1" is found inside "port 10").
  Sandbox::write_file("/tmp/portStatus",
                      "port 10: linkup\nport 1: linkdown\nport 2: unknown\n"
                      "port 2: linkup\nport 5: linkdown\nport 5: linkup\n"
                      "port 3: linkup");
  for (auto [port, want] :
       {std::pair{1, 1}, {2, 1}, {5, 0}, {3, 1}, {4, 0}})
    EXPECT_EQ(kiv_port_link_status(port), want) << port;
  // The search word holds at most 14 characters.
  Sandbox::write_file("/tmp/portStatus", "port 100000000: linkup\n");
  for (auto [port, want] :
       {std::pair{1000000000, 1}, {100000000, 1}, {100000001, 0}})
    EXPECT_EQ(kiv_port_link_status(port), want) << port;

  // The WAN carrier: "1" or "0" first in the file, else the byte is left.
  unsigned char link = 0xaa;
  EXPECT_EQ(GetWanLinkStatus(nullptr), -1);
  for (auto [text, want] :
       {std::pair{"", 0xaa}, {"1\n", 1}, {"x1\n", 1}, {"0\n", 0}}) {
    Sandbox::write_file("/sys/class/net/eth1/carrier", text);
    EXPECT_EQ(GetWanLinkStatus(&link), 0);
    EXPECT_EQ(link, want) << text;
  }
}

TEST_F(Status, CommandsForPortsLinksAndReset) {
  // Ports are cycled from 1 for 1, else from 0; port 4's status is the
  // result.
  Sandbox::fake_command("mii_mgr", "[ \"$3\" = 4 ] && exit 3; exit 0");
  int r = down_up_eth_interface(1);
  EXPECT_TRUE(WIFEXITED(r) && WEXITSTATUS(r) == 3) << r;
  down_up_eth_interface(0);
  down_up_eth_interface(2);
  Lines want;
  for (int port : {1, 2, 3, 4, 0, 1, 2, 3, 4, 0, 1, 2, 3, 4})
    want.push_back("-s -p " + std::to_string(port) + " -r 0 -v 8000");
  EXPECT_EQ(Sandbox::calls("mii_mgr"), want);

  Sandbox::fake_command("swconfig",
                        "[ \"$2 $4\" = 'switch0 2' ] && "
                        "echo 'port:2 link:up speed:1000baseT full-duplex' "
                        "|| echo 'port:x link:down'");
  EXPECT_EQ(kiv_get_port_link_status(0), 1);
  EXPECT_EQ(kiv_get_port_link_status(2), 0);
  EXPECT_EQ(Sandbox::calls("swconfig"), (Lines{"dev switch0 port 2 get link",
                                               "dev switch1 port 2 get link"}));

  Sandbox::fake_command("fact", "exit 1");
  Sandbox::fake_command("jffs2reset", "exit 2");
  r = kiv_restore_default();
  EXPECT_TRUE(WIFEXITED(r) && WEXITSTATUS(r) == 2) << r;
  EXPECT_EQ(Sandbox::calls("fact"), Lines{"telnet 0"});
  EXPECT_EQ(Sandbox::calls("jffs2reset"), Lines{"-y -r"});
}

TEST_F(Status, DnsServersOfTheWan) {
  const char *path = "/var/resolv.conf.d/resolv.conf.auto";
  // The first two IPv4 servers; the last line loses its last character,
  // newline or not.
  const struct {
    const char *text;
    int found;
    const char *first, *second;
  } cases[] = {
      {"# Interface wan\nsearch lan\nnameserver 2001:db8::1\n"
       "nameserver 10.0.0.1\nnameserver\nnameserver 10.0.0.2\n"
       "nameserver 10.0.0.3\n",
       2, "10.0.0.1", "10.0.0.2"},
      {"nameserver 10.0.0.1\nnameserver 10.0.0.25", 2, "10.0.0.1", "10.0.0.2"},
      {"nameserver 10.0.0.1", 0, "", ""},  // 10.0.0. is no address
  };
  for (const auto &c : cases) {
    Sandbox::write_file(path, c.text);
    char slots[3][64] = {};
    EXPECT_EQ(getWanDnsAdress(slots), c.found);
    EXPECT_STREQ(slots[0], c.first);
    EXPECT_STREQ(slots[1], c.second);
    EXPECT_STREQ(slots[2], "");
  }

  // getRunTimeDns fills below the last byte, with zeros for what is absent.
  char a[8], b[16];
  memset(a, 'x', sizeof a);
  memset(b, 'x', sizeof b);
  Sandbox::write_file(path, "nameserver 10.10.10.10\n");
  getRunTimeDns(a, sizeof a, b, sizeof b);
  EXPECT_EQ(std::string(a, 8), "10.10.1x");
  EXPECT_EQ(std::string(b, 16), std::string(15, '\0') + "x");
  Sandbox::write_file(path, "nameserver 1.1.1.1\nnameserver 8.8.8.8\n");
  getRunTimeDns(b, sizeof b, a, sizeof a);
  EXPECT_EQ(std::string(b, 16), "1.1.1.1" + std::string(8, '\0') + "x");
  EXPECT_EQ(std::string(a, 8), std::string("8.8.8.8x"));
  getRunTimeDns(a, 0, nullptr, 0);  // nothing to write into
}

TEST_F(Status, SoftwareVersion) {
  // The first VERSION= line with two quotes; the longest a line can hold
  // fills exactly 246 bytes, a longer one is split by the line limit and
  // never found whole.
  const std::string longest(245, 'v');
  const struct {
    std::string text;
    int ret;
    std::string out;  // up to the first 'x' of the buffer after the call
  } cases[] = {
      {"NAME=\"router\"\n VERSION=\"0.1\"\nVERSION=\"1.0.0\n"
       "VERSION=\"V2.0.1 build 7\" extra\"\n",
       0, std::string("V2.0.1 build 7\0", 15)},
      {"VERSION=1.0\nVERSION=\"\"\n", 0, std::string(1, '\0')},
      {"VERSION=\"" + longest + "\"\n", 0, longest + '\0'},
      {"VERSION=\"" + std::string(400, 'w') + "\"\n", 1, ""},
  };
  for (const auto &c : cases) {
    Sandbox::write_file("/etc/version", c.text);
    char out[300];
    memset(out, 'x', sizeof out);
    EXPECT_EQ(kiv_get_software_version(out), c.ret);
    EXPECT_EQ(std::string(out, static_cast<char *>(memchr(out, 'x', 300))),
              c.out);
  }
  EXPECT_EQ(kiv_get_software_version(nullptr), 1);
}

class WorkMode : public kivtest::SandboxTest {};

TEST_F(WorkMode, TextsGiveTheirNumbersAndFailuresAreReported) {
  // Other texts, also near misses and one that fills the whole buffer, are
  // no mode and no failure.  No package, no option, or a list: a failure.
  const struct {
    const char *option_line;
    int mode;
    bool failed;
  } cases[] = {
      {"\toption mode 'repeater'", 3, false},
      {"\toption mode 'wisp'", 4, false},
      {"\toption mode router", 1, false},
      {"\toption mode 'bridge'", 2, false},
      {"\toption mode 'ap'", 0, false},
      {"\toption mode 'Router'", 0, false},
      {"\toption mode 'router2'", 0, false},
      {"\toption mode 'wis'", 0, false},
      {"\toption mode 'routerrouterrouterrouterrouterro'", 0, false},
      {nullptr, 0, true},
      {"\toption other 'router'", 0, true},
      {"\tlist mode 'router'", 0, true},
  };
  for (const auto &c : cases) {
    unlink("/etc/config/network");
    if (c.option_line)
      Sandbox::write_file("/etc/config/network",
                          "config interface 'lan'\n\toption proto 'static'\n\n"
                          "config workmode 'workmode'\n" +
                              std::string(c.option_line) + "\n");
    kivtest::Capture out(1);  // the UCI layer's own words
    EXPECT_EQ(get_work_mode(), c.mode) << c.option_line;
    EXPECT_EQ(
        Sandbox::console(),
        c.failed ? "[kiv-err][get_work_mode:22] get workmode failed\n" : "")
        << c.option_line;
  }
}
