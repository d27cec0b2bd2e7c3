// Interface addressing against the loopback interface and a missing name.
#include <arpa/inet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include "kiv/device.h"
#include "sandbox.hpp"

namespace {

class Inet : public kivtest::FdCheckedTest {};

const uint32_t kLoIp = htonl(0x7f000001), kLoMask = htonl(0xff000000);

TEST_F(Inet, DottedAddressAndMaskOfLoopback) {
  // The text's first len bytes, terminated only when shorter; a failure
  // after the buffer was cleared leaves it empty.
  const struct {
    const char *ifname;
    unsigned request;
    size_t len;
    int ret;
    std::string bytes;  // the first 17 bytes of 'x' after the call
  } cases[] = {
      {"lo", SIOCGIFADDR, 16, 0, "127.0.0.1" + std::string(7, '\0') + "x"},
      {"lo", SIOCGIFNETMASK, 16, 0, "255.0.0.0" + std::string(7, '\0') + "x"},
      {"lo", SIOCGIFADDR, 4, 0, "127." + std::string(13, 'x')},
      {"nosuchif0", SIOCGIFADDR, 16, -1, std::string(16, '\0') + "x"},
      {nullptr, SIOCGIFADDR, 16, -1, std::string(17, 'x')},
  };
  for (const auto &c : cases) {
    char buf[17];
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(get_ip_or_mask_by_ifname(c.ifname, c.request, buf, c.len), c.ret);
    EXPECT_EQ(std::string(buf, 17), c.bytes);
  }
  EXPECT_EQ(get_ip_or_mask_by_ifname("lo", SIOCGIFADDR, nullptr, 16), -1);
}

TEST_F(Inet, AddressWordsOfLoopback) {
  uint32_t ip = 0, mask = 0;
  EXPECT_EQ(get_ip_and_mask_by_ifname("lo", &ip, &mask), 0);
  EXPECT_EQ(ip, kLoIp);
  EXPECT_EQ(mask, kLoMask);
  ip = mask = 42;
  EXPECT_EQ(get_ip_and_mask_by_ifname("lo", &ip, nullptr), -1);
  EXPECT_EQ(get_ip_and_mask_by_ifname("nosuchif0", &ip, &mask), -1);
  EXPECT_EQ(ip + mask, 84u) << "nothing written";

  unsigned char mac[7];
  memset(mac, 0xee, sizeof mac);
  ip = mask = 0;
  EXPECT_EQ(get_interface_addr("lo", &ip, &mask, mac), 0);
  EXPECT_EQ(ip, kLoIp);
  EXPECT_EQ(mask, kLoMask);
  EXPECT_EQ(std::string(reinterpret_cast<char *>(mac), 7),
            std::string(6, '\0') + "\xee");
  // Only what is asked for is read; nothing asked is a success.
  EXPECT_EQ(get_interface_addr("nosuchif0", nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(get_interface_addr("nosuchif0", nullptr, nullptr, mac), -1);
  EXPECT_EQ(get_interface_addr("nosuchif0", nullptr, &mask, nullptr), -1);
  ip = 42;
  EXPECT_EQ(get_interface_addr("nosuchif0", &ip, nullptr, nullptr), -1);
  EXPECT_EQ(ip, 42u);
  EXPECT_EQ(get_interface_addr(nullptr, &ip, &mask, mac), -1);

  // Names longer than the request's field must neither overrun it nor find
  // the loopback interface by a prefix.
  const char *longname = "lo-but-a-much-longer-name-than-sixteen";
  char buf[16];
  EXPECT_EQ(get_ip_or_mask_by_ifname(longname, SIOCGIFADDR, buf, 16), -1);
  EXPECT_EQ(get_ip_and_mask_by_ifname(longname, &ip, &mask), -1);
  EXPECT_EQ(get_interface_addr(longname, &ip, &mask, mac), -1);
}

TEST_F(Inet, FifteenByteNameReachesTheKernelWhole) {
  // In a network namespace of its own the child renames its loopback
  // interface to a name of 15 bytes, the most an interface name can have.
  kivtest::ChildResult r = kivtest::run_in_child([] {
    const char name[] = "lo-fifteen-byte";
    static_assert(sizeof name == 16, "15 bytes and the terminator");
    if (unshare(CLONE_NEWNET) != 0) _exit(77);
    int s = socket(AF_INET, SOCK_DGRAM, 0);
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    strcpy(ifr.ifr_name, "lo");
    strcpy(ifr.ifr_newname, name);
    if (s < 0 || ioctl(s, SIOCSIFNAME, &ifr) != 0) _exit(77);
    memset(&ifr, 0, sizeof ifr);
    strcpy(ifr.ifr_name, name);
    ifr.ifr_flags = IFF_UP;
    if (ioctl(s, SIOCSIFFLAGS, &ifr) != 0) _exit(77);
    close(s);

    char buf[16] = {0};
    uint32_t ip = 0, mask = 0;
    unsigned char mac[6];
    if (get_ip_or_mask_by_ifname(name, SIOCGIFADDR, buf, sizeof buf) < 0 ||
        strcmp(buf, "127.0.0.1") != 0)
      _exit(1);
    if (get_ip_and_mask_by_ifname(name, &ip, &mask) < 0 || ip != kLoIp)
      _exit(2);
    if (get_interface_addr(name, &ip, &mask, mac) != 0) _exit(3);
    _exit(0);
  });
  if (r.exited && r.exit_code == 77)
    GTEST_SKIP() << "no network namespace to rename an interface in";
  EXPECT_TRUE(r.exited) << r.signal;
  EXPECT_EQ(r.exit_code, 0) << "1, 2, 3: the function that missed the name";
}

}  // namespace
