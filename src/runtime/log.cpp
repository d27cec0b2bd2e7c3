// Diagnostics: the levelled log line and the console print.
#include "kiv/runtime.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include "util.hpp"

int kiv_dbg_level = 7;

namespace {

const char *level_word(int pri) {
  static constexpr const char *kWords[] = {"EMERG",   "ALERT",  "CRIT",
                                           "ERROR",   "WARNING", "NOTICE",
                                           "INFO",    "DEBUG"};
  if (pri < 0 || pri > 7) return "UNKOWN";
  return kWords[pri];
}

}  // namespace

void _kiv_debug(const char * /*file*/, const char *func, int line, int pri,
                const char *fmt, ...) {
  // The message may hold %m: it must read the caller's errno, not what the
  // clock, the time zone lookup or the stderr write left behind, and the
  // caller's errno survives the call.
  const int saved_errno = errno;
  time_t now = time(nullptr);
  struct tm tm;
  memset(&tm, 0, sizeof tm);
  localtime_r(&now, &tm);

  char stamp[24] = {0};
  kiv::format_into(stamp, "%d/%d-%d:%d:%d", tm.tm_mon + 1, tm.tm_mday,
                   tm.tm_hour, tm.tm_min, tm.tm_sec);

  va_list ap;
  va_start(ap, fmt);
  if (pri <= kiv_dbg_level) {
    va_list copy;
    va_copy(copy, ap);
    fprintf(stderr, "[%s][libkiv][%s](%s)[%d] ", stamp, level_word(pri), func,
            line);
    errno = saved_errno;
    vfprintf(stderr, fmt, copy);
    fputc('\n', stderr);
    va_end(copy);
  }
  openlog("libkiv", LOG_PID, LOG_DAEMON);
  errno = saved_errno;
  vsyslog(pri, fmt, ap);
  closelog();
  va_end(ap);
  errno = saved_errno;
}

int console_printf(const char *fmt, ...) {
  // As in _kiv_debug: %m reads the caller's errno, which the call keeps.
  const int saved_errno = errno;
  int r = -1;
  {
    kiv::File console(fopen("/dev/console", "w"));
    if (console) {
      va_list ap;
      va_start(ap, fmt);
      errno = saved_errno;
      r = vfprintf(console.get(), fmt, ap);
      va_end(ap);
    }
  }
  errno = saved_errno;
  return r;
}
