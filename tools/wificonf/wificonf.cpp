// wificonf: select a wireless profile, read and change its keys.
//
//   wificonf [-e] [-f PATH] [-q] use <profile>
//   wificonf [-e] [-f PATH] [-q] get <key> [idx]
//   wificonf [-e] [-f PATH] [-q] set <key> [idx] <value>
//
// Options come before the command.  The store itself prints the changed
// flag of "set" and the token of "get <key> <idx>"; a failure of the store
// ends the program with status 255.  A wrong command line prints the usage
// text and exits with status 1.
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "kiv/profile.h"

namespace {

int bad_usage() {
  usage();
  return 1;
}

// A whole decimal integer that fits an int.
bool parse_index(const char *text, int *out) {
  if (*text == '\0') return false;
  char *end = nullptr;
  errno = 0;
  long v = strtol(text, &end, 10);
  if (errno != 0 || *end != '\0' || v < INT_MIN || v > INT_MAX) return false;
  *out = static_cast<int>(v);
  return true;
}

}  // namespace

int main(int argc, char **argv) {
  int opt;
  opterr = 0;
  while ((opt = getopt(argc, argv, "+ef:qh")) != -1) {
    switch (opt) {
      case 'e':
        __base64 = 1;
        break;
      case 'f':
        __profile = optarg;  // argv lives as long as the program
        break;
      case 'q':
        __quiet = 1;
        break;
      case 'h':
        usage();
        return 0;
      default:
        return bad_usage();
    }
  }
  int nargs = argc - optind;
  char **args = argv + optind;
  if (nargs < 2) return bad_usage();
  const char *cmd = args[0];

  if (strcmp(cmd, "use") == 0 && nargs == 2) {
    return use_profile(args[1], nullptr);
  }
  if (strcmp(cmd, "get") == 0 && nargs == 2) {
    char value[1024] = {};
    conf_get(args[1], value, sizeof value);
    puts(value);
    return 0;
  }
  int idx = 0;
  if (strcmp(cmd, "get") == 0 && nargs == 3) {
    if (!parse_index(args[2], &idx)) return bad_usage();
    return conf_get_token(args[1], idx);
  }
  if (strcmp(cmd, "set") == 0 && nargs == 3) {
    return conf_set(args[1], args[2]);
  }
  if (strcmp(cmd, "set") == 0 && nargs == 4) {
    if (!parse_index(args[2], &idx)) return bad_usage();
    return conf_set_token(args[1], idx, args[3]);
  }
  return bad_usage();
}
