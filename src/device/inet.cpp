// IPv4 address, network mask and hardware address of an interface, asked of
// the kernel with ioctl requests on a datagram socket.
#include "kiv/device.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "util.hpp"

namespace {

// strncpy of the name into the zeroed request: a name of `limit` bytes or
// more is cut there and left unterminated, as the kernel accepts it.
void set_name(struct ifreq &ifr, const char *ifname, size_t limit) {
  size_t n = strnlen(ifname, limit);
  memcpy(ifr.ifr_name, ifname, n);
}

// The IPv4 address carried in the request's address field, as the kernel
// gave it (network byte order).
uint32_t address_of(const struct ifreq &ifr) {
  struct sockaddr_in sin;
  memcpy(&sin, &ifr.ifr_addr, sizeof sin);
  return sin.sin_addr.s_addr;
}

}  // namespace

int get_ip_or_mask_by_ifname(const char *ifname, unsigned int request,
                             char *dst, size_t len) {
  if (dst == nullptr || ifname == nullptr) return -1;
  memset(dst, 0, len);

  struct ifreq ifr;
  memset(&ifr, 0, sizeof ifr);
  int ret;
  {
    kiv::Fd sock(socket(AF_INET, SOCK_DGRAM, 0));
    if (!sock) return -1;
    set_name(ifr, ifname, sizeof ifr.ifr_name);
    ret = ioctl(sock.get(), request, &ifr);
  }
  if (ret < 0) return -1;

  struct in_addr addr;
  addr.s_addr = address_of(ifr);
  const char *text = inet_ntoa(addr);
  if (text == nullptr) return -1;
  // strncpy: the text's first len bytes, terminated only if it is shorter.
  memcpy(dst, text, strnlen(text, len));
  return ret;
}

int get_ip_and_mask_by_ifname(const char *ifname, uint32_t *ip,
                              uint32_t *mask) {
  if (ifname == nullptr || ip == nullptr || mask == nullptr) return -1;

  kiv::Fd sock(socket(AF_INET, SOCK_DGRAM, 0));
  if (!sock) return -1;

  struct ifreq ifr;
  memset(&ifr, 0, sizeof ifr);
  set_name(ifr, ifname, sizeof ifr.ifr_name);
  if (ioctl(sock.get(), SIOCGIFADDR, &ifr) < 0) return -1;
  *ip = address_of(ifr);

  int ret = ioctl(sock.get(), SIOCGIFNETMASK, &ifr);
  if (ret < 0) return -1;
  *mask = address_of(ifr);
  return ret;
}

int get_interface_addr(const char *ifname, uint32_t *ip, uint32_t *mask,
                       unsigned char *mac) {
  if (ifname == nullptr) return -1;

  kiv::Fd sock(socket(AF_INET, SOCK_DGRAM, 0));
  if (!sock) {
    KIV_LOG(kiv::kUnitInet, kiv::kError, "Socket creat fail!");
    return -1;
  }

  struct ifreq ifr;
  memset(&ifr, 0, sizeof ifr);
  set_name(ifr, ifname, sizeof ifr.ifr_name - 1);

  if (ip != nullptr) {
    if (ioctl(sock.get(), SIOCGIFADDR, &ifr) < 0) return -1;
    *ip = address_of(ifr);
  }
  if (mask != nullptr) {
    if (ioctl(sock.get(), SIOCGIFNETMASK, &ifr) < 0) return -1;
    *mask = address_of(ifr);
  }
  if (mac != nullptr) {
    if (ioctl(sock.get(), SIOCGIFHWADDR, &ifr) < 0) return -1;
    memcpy(mac, ifr.ifr_hwaddr.sa_data, 6);
  }
  return 0;
}
