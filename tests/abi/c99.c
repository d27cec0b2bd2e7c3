/* The public headers must compile as strict C99 and link from C. */
#include <kiv/kiv.h>
#include <stdio.h>

int main(void) {
  char mac[6];
  kiv_dbg_level = 3;
  if (igd_str2mac("00:11:22:33:44:55", (unsigned char *)mac) != 0) return 1;
  printf("%s\n", igd_mac2str((const unsigned char *)mac));
  return 0;
}
