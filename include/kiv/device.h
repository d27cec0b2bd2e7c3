/*
 * Device and network status: GPIO pins and port LEDs, interface addresses,
 * link, work mode and system state, and the firewall rule journal.
 *
 * Nothing here keeps state between calls.  Most functions run shell
 * commands (through igd_system() or exe_cmd()) or read fixed files under
 * /sys, /tmp, /var and /etc; each says which.
 */
#ifndef KIV_DEVICE_H
#define KIV_DEVICE_H

#include <stdint.h>
#include <stddef.h>

#include "export.h"

KIV_BEGIN_DECLS

/* ---- GPIO and port LEDs ----------------------------------------------- */

/*
 * Sets up a sysfs GPIO pin.  When /sys/class/gpio/gpio<gpio>/value exists
 * already the pin is taken as set up and 1 is returned, nothing run.
 * Otherwise runs "echo <gpio> > /sys/class/gpio/export" and then "echo in"
 * (direction != 0) or "echo out" (direction == 0) into the pin's direction
 * file, and returns igd_system()'s status of the direction command.
 */
KIV_EXPORT int GPIOInit(int gpio, int direction);

/*
 * Reads the pin's value with "cat /sys/class/gpio/gpio<gpio>/value" and
 * returns it as an integer; 0 when nothing could be read.  The first
 * argument is not used.
 */
KIV_EXPORT int GetKeyValue(int unused, int gpio);

/*
 * Writes value to the pin with "echo <value> > /sys/class/gpio/gpio<gpio>/
 * value".  The outcome is not checked: always 0.  The first argument is not
 * used.
 */
KIV_EXPORT int SetKeyValue(int unused, int gpio, int value);

/*
 * Programs the port LED mode (0, 1 or 2) with one command line of five
 * "switch reg w" writes.  Any other mode writes no register and runs an
 * empty command.  Returns igd_system()'s status.
 */
KIV_EXPORT int PortLedIOModeRegInit(int mode);

/*
 * Always runs "uci get network.workmode.mode".  on == 1 sets LED mode 1 in
 * "router" work mode and 0 otherwise; on == 0 sets LED mode 2.  Returns
 * PortLedIOModeRegInit()'s result, or for any other `on` the number of bytes
 * the uci query printed (no register written).
 */
KIV_EXPORT int WanPortLedEn(int on);

/* PortLedIOModeRegInit(mode). */
KIV_EXPORT int LanPortLedEn(int mode);

/* ---- Interface addressing --------------------------------------------- */

/*
 * Issues the ioctl `request` (SIOCGIFADDR, SIOCGIFNETMASK or another one
 * that returns an IPv4 address in ifr_addr) for interface ifname (cut to 16
 * bytes) and writes the address as dotted text into dst: dst is zero-filled
 * first and receives at most len bytes (no terminator when the text has len
 * bytes or more; len 16 always suffices).  Returns the ioctl result (>= 0),
 * or -1 on a NULL argument or any failure, dst then holding "".
 */
KIV_EXPORT int get_ip_or_mask_by_ifname(const char *ifname,
                                        unsigned int request, char *dst,
                                        size_t len);

/*
 * Reads the IPv4 address and then the network mask of ifname (cut to 16
 * bytes) into *ip and *mask, in network byte order.  Returns the result of
 * the mask ioctl (>= 0), or -1 on a NULL argument or any failure; *ip may
 * already be written when the mask request fails.
 */
KIV_EXPORT int get_ip_and_mask_by_ifname(const char *ifname, uint32_t *ip,
                                         uint32_t *mask);

/*
 * Reads whichever of the IPv4 address, network mask (network byte order)
 * and six-byte hardware address is asked for by a non-NULL pointer, for
 * ifname cut to 15 bytes.  Returns 0, or -1 on a NULL ifname or a failed
 * request (what was read before stays written).  A socket that cannot be
 * opened is logged ("Socket creat fail!").
 */
KIV_EXPORT int get_interface_addr(const char *ifname, uint32_t *ip,
                                  uint32_t *mask, unsigned char *mac);

/* ---- Link, mode and system status ------------------------------------- */

/* Work modes as get_work_mode() returns them. */
#define KIV_WORK_MODE_NONE 0
#define KIV_WORK_MODE_ROUTER 1
#define KIV_WORK_MODE_BRIDGE 2
#define KIV_WORK_MODE_REPEATER 3
#define KIV_WORK_MODE_WISP 4

/*
 * Writes the len bytes of buf with one write() to the work mode daemon's
 * FIFO "/var/run/.work_moded.fifo".  Blocks in open() until the daemon has
 * the FIFO open for reading.  Prints the outcome on the console.  Returns
 * write()'s result, or -1 when the FIFO cannot be opened (or buf is NULL
 * with len > 0, or len < 0: then nothing is opened).
 */
KIV_EXPORT int wmode_send_msg(const void *buf, int len);

/*
 * 1 when the character right behind the first ':' of
 * "/tmp/.work_moded_link_status" (read with "cat") is '1', else 0.
 */
KIV_EXPORT int wmode_link_status(void);

/*
 * Restarts the Ethernet ports 0 to 4 with "mii_mgr -s -p N -r 0 -v 8000",
 * leaving out port 0 when skip_port0 is 1.  Returns igd_system()'s status of
 * the port 4 command.
 */
KIV_EXPORT int down_up_eth_interface(int32_t skip_port0);

/*
 * Asks "swconfig dev switch1 port <port> get link" (port 0: "swconfig dev
 * switch0 port 2 get link"); 1 when the output holds "link:up", else 0.
 */
KIV_EXPORT int kiv_get_port_link_status(int port);

/*
 * 1 when the first line of "/tmp/portStatus" that holds "port <port>" and
 * "linkup" or "linkdown" says "linkup"; 0 otherwise, also without the file.
 * The word is looked for anywhere in the line, so port 1 also matches a
 * "port 10" line.
 */
KIV_EXPORT int kiv_port_link_status(int port);

/*
 * Reads "/sys/class/net/eth1/carrier": stores 1 or 0 in *link_out when the
 * file begins with '1' or '0', and leaves it alone otherwise.  Returns 0
 * when the file was read, -1 when link_out is NULL or the file can't be
 * opened.
 */
KIV_EXPORT int GetWanLinkStatus(unsigned char *link_out);

/*
 * Stores up to two IPv4 "nameserver" addresses of
 * "/var/resolv.conf.d/resolv.conf.auto" in the caller's 64-byte slots (at
 * least two).  Returns the number stored (0..2), or -1 when the file is
 * missing or can't be opened (then "Read DNS file error!" on stderr).
 */
KIV_EXPORT int getWanDnsAdress(char (*dns_slots)[64]);

/*
 * The first two DNS servers of getWanDnsAdress() copied with strncpy(...,
 * size - 1) into dns1 and dns2; a missing one is zero-filled up to size - 1.
 * The last byte of each buffer is never written, so pass zeroed buffers.  A
 * buffer with a size below 1 is left alone.
 */
KIV_EXPORT void getRunTimeDns(char *dns1, int dns1_size, char *dns2,
                              int dns2_size);

/*
 * Factory reset: runs "fact telnet 0" and then "jffs2reset -y -r" with
 * system().  Returns the second command's status.
 */
KIV_EXPORT int kiv_restore_default(void);

/*
 * Copies the text between the double quotes of the first line of
 * "/etc/version" that begins with VERSION= and holds two quotes, terminated,
 * into version_out (at most 246 bytes are written).  Returns 0, or 1 when no
 * such line (or file) exists or version_out is NULL; then nothing is
 * written.
 */
KIV_EXPORT int kiv_get_software_version(char *version_out);

/*
 * The work mode named by option mode of section workmode in
 * "/etc/config/network": 1 "router", 2 "bridge", 3 "repeater", 4 "wisp",
 * 0 for any other text.  When the option can't be read, prints
 * "get workmode failed" on the console and returns 0.
 */
KIV_EXPORT int get_work_mode(void);

/* ---- Firewall rule journal -------------------------------------------- */

/*
 * One firewall rule.  Text fields hold no blanks; chain and ACTION at most
 * 31 characters, the others at most 15.
 */
typedef struct iptbl_rule {
  const char *chain;
  const char *proto;
  const char *in;
  const char *out;
  const char *ACTION;
  int32_t sport;
  int32_t dport;
  const char *sip;
  const char *dip;
} iptbl_rule;

/* Applies one rule; a negative result is a failure. */
typedef int (*iptbl_rule_exec_fn)(iptbl_rule *rule);

/*
 * Writes the count rules to the journal "/tmp/.iptbl_save" (replacing an
 * earlier one): a header line, then one line per rule.  NULL text pointers
 * in the caller's array are replaced by a pointer to the constant string
 * "NULL", which is what is written.  Returns 0, or -1 when the file can't
 * be opened (logged) or rules is NULL with count > 0.
 */
KIV_EXPORT int recoder_iptables(iptbl_rule *rules, int count);

/*
 * Replays the journal at path: skips its header line and calls callback
 * once for each further line, pausing 100 microseconds after each success.
 * The record and its strings belong to this function and are valid during
 * the call only.  A longer field than a rule may hold is cut.  Stops at the
 * first negative callback result (logged).  The file is deleted after the
 * replay, whatever its outcome.  Returns 0 when every line was applied, -1
 * otherwise (also for a NULL callback or path, or a missing file, which
 * then stays).
 */
KIV_EXPORT int iptabes_exe_from_file(iptbl_rule_exec_fn callback,
                                     const char *path);

KIV_END_DECLS

#endif /* KIV_DEVICE_H */
