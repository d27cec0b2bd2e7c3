/* A program of the firmware, built against an installed libkiv: it must
 * compile as C99 from the installed headers, link, and run. */
#include <kiv/kiv.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  unsigned char mac[6];
  const char *text;

  kiv_dbg_level = 0; /* an exported data word */
  if (igd_str2mac("00:1a:2b:3c:4d:5e", mac) != 0) {
    fprintf(stderr, "igd_str2mac failed\n");
    return 1;
  }
  text = igd_mac2str(mac);
  if (text == NULL || strcmp(text, "00-1A-2B-3C-4D-5E") != 0) {
    fprintf(stderr, "igd_mac2str gave %s\n", text ? text : "(null)");
    return 1;
  }
  if (!isIPv4Str("192.168.1.1") || isIPv4Str("192.168.1") || isIPv4Str("256.1.1.1")) {
    fprintf(stderr, "isIPv4Str is wrong\n");
    return 1;
  }
  printf("libkiv consumer: %s\n", text);
  return 0;
}
