/*
 * Wi-Fi control: code and text conversions, radio and interface names,
 * driver parameters, site survey and staging of wireless settings.
 *
 * Two numberings of the radios exist and are not interchangeable:
 *   ifidx  0, 1, 2     the 2.4, 5 and 6 GHz radios (naming, site survey);
 *   radio  0, 1, 3, 4  the driver's interfaces ra0, rax0, ra1, rax1
 *                      (driver parameters).
 *
 * Nothing here takes a lock.  The two static result buffers (of
 * wifi_mode_to_str() and wifi_idx_to_ifname()) are one for the process and
 * are overwritten by the next call of the same function.
 */
#ifndef KIV_WIFI_H
#define KIV_WIFI_H

#include <stdint.h>

#include "export.h"

KIV_BEGIN_DECLS

/* ---- Codes and texts --------------------------------------------------- */

/*
 * Text of an authentication method code ("WPA2PSK" for 13, "WPA3-192" for
 * 7, "OWE" for 8, "WPANONE" for 18), "UNKNOWN" for a code without text.
 * Never NULL; the text is constant.
 */
KIV_EXPORT const char *wifi_auth_to_str(uint32_t code);

/*
 * Text of a combined security code, the code a scan stores in `security`
 * and SetWifiParaByEncrypt() takes: 0 "none", 1 "WPA", 2 "WPA2PSKAES",
 * 3 "WPAWPA2PSK", 4 "WPA3AES", 5 "WPA2PSKWPA3AES", 6 "UNKNOWENC"; any other
 * code "UNKNOWN".  Never NULL; the text is constant.
 */
KIV_EXPORT const char *wifi_auth_to_str0(uint32_t code);

/*
 * Code of an authentication method text, -1 when none has it.  White space
 * at both ends of `text` is ignored, case counts.  `text` must not be NULL.
 */
KIV_EXPORT int wifi_auth_to_num(const char *text);

/* Text of a cipher code ("AES" for 3), "UNKNOWN" for a code without text. */
KIV_EXPORT const char *wifi_encrypt_to_str(uint32_t code);

/* Code of a cipher text as wifi_auth_to_num() reads it, -1 when unknown. */
KIV_EXPORT int wifi_encrypt_to_num(const char *text);

/*
 * Text of a mode mask (bits 0x01 a, 0x02 b, 0x04 g, 0x08 n, 0x10 ac,
 * 0x20 ax), such as "11g/n" for 0x0C.  The text is in a static 64-byte
 * buffer that the next call overwrites.  A mask without any of these bits
 * gives the constant "UNKNOWN".
 */
KIV_EXPORT const char *wifi_mode_to_str(uint32_t mask);

/*
 * Mode mask of a text such as "11a/n/ac": the first two characters are
 * skipped unread, the letter groups are separated by "/", and groups that
 * name no mode are ignored.  -1 when no group names a mode.  White space at
 * both ends is ignored.  `text` must not be NULL.
 */
KIV_EXPORT int wifi_mode_to_num(const char *text);

/* "NONE", "ABOVE" or "BELOW" for the codes 0 to 2, else "UNKNOWN". */
KIV_EXPORT const char *wifi_ext_ch_to_str(uint32_t code);

/* Code of an extension channel text, -1 when unknown; `text` not NULL. */
KIV_EXPORT int wifi_ext_ch_to_num(const char *text);

/* ---- Radio and interface names ----------------------------------------- */

/*
 * Scan interface of a radio: "mld1", "mld3" or "mld2" for ifidx 0, 1, 2, in
 * a static 32-byte buffer that the next call overwrites.  Another ifidx
 * leaves the buffer as it is: the last valid name, or "" if none yet.
 */
KIV_EXPORT const char *wifi_idx_to_ifname(int ifidx);

/*
 * Radio and AP index of an interface name: "ath03", "ath13", "ath23" give
 * ifidx 0, 1, 2 with apidx 3; "rax<c>" gives ifidx 1 and "ra<c>" ifidx 0,
 * with apidx the character c minus '0' (not checked to be a digit).
 * Returns 0, -1 when a pointer is NULL, -2 for any other name; nothing is
 * written on failure.
 */
KIV_EXPORT int wifi_ifname_to_idx(const char *ifname, int *ifidx_out,
                                  int *apidx_out);

/*
 * Radio of a station interface: "ath03", "ath13", "ath23" store 0, 1, 2 in
 * *idx_out (which must not be NULL) and return 0.  Any other name or a NULL
 * `ifname` returns -1 and stores nothing.
 */
KIV_EXPORT int ifname_to_idx(const char *ifname, unsigned char *idx_out);

/* ---- Driver parameters (radio 0, 1, 3, 4; 2 and above 4 refused) ------- */

/*
 * Reads `key` from the profile of the radio's zone ("2860" for radios 0 and
 * 3, "rtdev" for 1 and 4) into `out` through KivNvram().  `out` is zeroed
 * first (out_size bytes), also when the radio is refused.  Returns -1 for a
 * NULL `key` or `out` (nothing touched) or a refused radio, else KivNvram's
 * result: 0 with `out` zeroed for an absent key.  A fatal error of the
 * profile store ends the process.
 */
KIV_EXPORT int kiv_nvram_get(uint32_t radio, const char *key, char *out,
                             uint32_t out_size);

/*
 * Runs "nvram_set <zone> KEY 'VALUE'" (the value not escaped).  A key that
 * contains "WPAPSK" is run with system() and logged with the value masked
 * as "******"; any other goes through igd_system(), which logs it whole.
 * Returns -1 for a NULL argument or a refused radio (nothing runs), else
 * the command's status.
 */
KIV_EXPORT int kiv_nvram_set(uint32_t radio, const char *key,
                             const char *value);

/*
 * Runs "iwpriv <if> set KEY=VALUE" on ra0, rax0, ra1 or rax1.  Backticks in
 * the value are escaped, and "SSID" takes the value in double quotes.  The
 * key "WPAPSK" (exactly) takes the raw value in single quotes, runs with
 * system() and is logged masked; every other key is logged whole by
 * igd_system().  Other shell characters are the caller's to keep out.
 * Returns -1 for a NULL argument or a refused radio (nothing runs), else
 * the command's status.
 */
KIV_EXPORT int kiv_iwpriv_set(uint32_t radio, const char *key,
                              const char *value);

/*
 * Asks the driver of `ifname` (first 16 characters) for its client
 * connection status with the private request SIOCIWFIRSTPRIV + 0x1C.
 * `status_out` must hold exactly 40 bytes; they are zeroed, then filled by the
 * driver.  Returns 0, or -1 for a NULL pointer (nothing touched), no socket
 * or a failed request (console message).
 */
KIV_EXPORT int kiv_ioctl_get_apclix_connstatus(const char *ifname,
                                               char *status_out);

/* ---- Site survey ------------------------------------------------------- */

/* One network of a site survey. */
typedef struct WifiSiteEntry {
  int32_t valid;      /* 1 once an SSID line reached this record */
  char ssid[36];      /* name as iw prints it, at most 33 characters */
  char bssid[18];     /* "xx:xx:xx:xx:xx:xx" */
  int32_t channel;    /* primary channel, 0 if none was read */
  int32_t rssi;       /* signal in whole dBm, 0 if none was read */
  int32_t auth_seen;  /* 1 once an authentication suites line was read */
  int32_t auth_suite; /* 2 PSK, 4 SAE, 5 PSK SAE, 6 OWE, 7-9 802.1x forms */
  int32_t security;   /* code for wifi_auth_to_str0() / SetWifiParaByEncrypt */
} WifiSiteEntry;

/*
 * Scan frequencies in MHz of each ifidx, separated by single blanks.
 * Writable: each scan reads its row afresh.  A row must end in a NUL.
 */
KIV_EXPORT extern char freq_all[3][256];

/* 384 records for callers of wifi_list_scan_read(); the library leaves it
 * alone otherwise. */
KIV_EXPORT extern WifiSiteEntry wifi_site_arr[384];

/*
 * Asks the Wi-Fi configuration daemon for a scan over the FIFO
 * "/var/run/.wifi_cfgd.fifo": writes the 12-byte request {0, ifidx, apidx}
 * and reads a 4-byte reply on the same descriptor, printing both results on
 * the console.  Blocks until the reply comes.  Returns the reply word, -11
 * when the FIFO can't be opened, -12 when the write fails, -13 when the
 * read doesn't give 4 bytes.
 */
KIV_EXPORT int wifi_list_scan_start(int ifidx, int apidx);

/*
 * Scans radio `ifidx` (0 to 2) with "iw dev <if> scan freq <freq_all row>
 * flush" and fills `sites` (`capacity` records, zeroed first) from its
 * output.  A network whose SSID is empty takes no slot of its own: the next
 * network reuses it.  Blocks until iw ends.
 *
 * Returns the index of the last record filled (a listing of N named
 * networks gives N - 1, so tell an empty listing by sites[0].valid), or -1
 * when iw can't be started.  When the listing has more networks than
 * `capacity`, the records past it are not written, the rest of the output
 * is read and dropped, and the result is the slot of the last network that
 * fit (capacity - 1 for networks of one SSID line each).  An ifidx outside 0
 * to 2, a NULL `sites` or a capacity below 1 runs nothing and returns -1.
 */
KIV_EXPORT int wifi_list_scan_read(int ifidx, int apidx, WifiSiteEntry *sites,
                                   int capacity);

/* ---- Provisioning (stages with `uci set/delete`, never commits) -------- */

/*
 * Stages the security options of security code `enc` (see
 * wifi_auth_to_str0) for the wireless section `ifname`, reading its `sae`
 * option first: the SAE options are cleared unless `enc` is 4 or 5 or the
 * stored `sae` is "1".  Prints the code on the console.  Returns 0 whatever
 * the commands did, 1 for a NULL `ifname` (nothing runs).  `ifname` goes
 * into the shell lines unquoted.
 */
KIV_EXPORT int SetWifiParaByEncrypt(const char *ifname, int enc);

/*
 * Stages SSID, key and role of a station interface ("ath03", "ath13",
 * "ath23") or an access point interface ("ath0", "ath1", "ath2"; SSID not
 * used).  The key is set first when `key` is not NULL, also for a name that
 * is then refused.  Returns 0, or 1 for a NULL `ifname` or `ssid` (nothing
 * runs) or an unknown interface.  Values go into the shell lines unquoted:
 * keeping shell characters out of them is the caller's task.
 */
KIV_EXPORT int SetWifiBasicPara(const char *ifname, const char *ssid,
                                const char *key);

KIV_END_DECLS

#endif /* KIV_WIFI_H */
