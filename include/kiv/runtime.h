/*
 * Runtime foundation: logging, command execution and small text and value
 * helpers shared by the whole library.
 *
 * Conventions: every function runs on the caller's thread and keeps no state
 * but the static result buffers named below, which the next call of the same
 * function overwrites.  Buffers handed to exe_cmd() and igd_cut_space() must
 * be zero-filled by the caller: those functions write no terminator directly
 * behind the data.
 */
#ifndef KIV_RUNTIME_H
#define KIV_RUNTIME_H

#include <stdint.h>

#include "export.h"

KIV_BEGIN_DECLS

/* ---- Diagnostics ------------------------------------------------------ */

/* Threshold of the stderr output of _kiv_debug(); initially 7 (LOG_DEBUG). */
KIV_EXPORT extern int kiv_dbg_level;

/*
 * Levelled log line.  Writes "[stamp][libkiv][LEVEL](func)[line] message\n"
 * to stderr when pri <= kiv_dbg_level, and always sends the bare message to
 * syslog (identity "libkiv", LOG_PID, LOG_DAEMON).  `file` is the caller's
 * source unit name; no output uses it.
 */
KIV_EXPORT void _kiv_debug(const char *file, const char *func, int line,
                           int pri, const char *fmt, ...) KIV_PRINTF(5, 6);

/*
 * Formatted print on /dev/console, opened and closed for each call.  Returns
 * what vfprintf returned, or -1 when the console cannot be opened.
 */
KIV_EXPORT int console_printf(const char *fmt, ...) KIV_PRINTF(1, 2);

/* ---- Command execution ------------------------------------------------ */

/*
 * Formats a shell line (at most 1022 characters, longer lines are cut), logs
 * it at NOTICE and runs it with system().  Returns system()'s raw result.
 */
KIV_EXPORT int igd_system(const char *fmt, ...) KIV_PRINTF(1, 2);

/*
 * Runs a shell line through popen() and reads at most n bytes (n <= 1024) of
 * its output into buf.  A final newline is replaced by 0 and buf[n-1] is
 * always set to 0.  Returns the number of bytes read; 0 when buf is NULL or
 * n is 0 (the command still runs), when n > 1024 (nothing runs) or when the
 * command cannot be started.
 */
KIV_EXPORT int exe_cmd(const char *command, char *buf, int n);

/*
 * Runs argv[0] with argv (NULL-terminated) in a child, without a shell, with
 * PATH set to "/sbin:/bin:/usr/sbin:/usr/bin".  When path is given, the
 * child's stdout and stderr go to that file, truncated first.  Returns the
 * exit code, the raw wait status if the child was killed by a signal, or
 * errno if fork() failed.
 */
KIV_EXPORT int _do_cmd(char *const argv[], const char *path);

/*
 * Runs a program with the string arguments that follow `path`, up to an end
 * mark "" (or NULL, which is logged as an error).  At most 23 arguments.
 * Logs the command line at INFO and returns _do_cmd()'s result.
 */
KIV_EXPORT int kiv_run_system_cmd(const char *path, ...);

/*
 * Copies src to dst, escaping every backtick with a backslash.  Stops with a
 * console message when dst has no room; dst is always terminated (a dstSize
 * below 1 leaves dst untouched).
 */
KIV_EXPORT void special_character_processing(const char *src, char *dst,
                                             int dstSize);

/* ---- Text and value helpers ------------------------------------------- */

/* "%d" of value in a static 128-byte buffer. */
KIV_EXPORT char *igd_number_to_str(int value);

/* "XX-XX-XX-XX-XX-XX" of six bytes in a static 64-byte buffer. */
KIV_EXPORT char *igd_mac2str(const unsigned char *mac);

/*
 * Reads a MAC address written with colons, hyphens or no separator.
 * Returns 0, -1 (separated form shorter than 17), -2 (plain form shorter
 * than 12) or -3 (all six bytes zero).
 */
KIV_EXPORT int igd_str2mac(const char *str, unsigned char *mac);

/*
 * Copies src without leading and trailing whitespace (space, \t \n \v \f
 * \r), at most dstSize - 1 bytes, into the zero-filled dst.  Sources shorter
 * than 2 bytes copy nothing.  Returns dst.
 */
KIV_EXPORT char *igd_cut_space(const char *src, unsigned int srcLen,
                               char *dst, int dstSize);

/* 1 when str reads as four numbers 0..255 separated by dots, else 0. */
KIV_EXPORT int isIPv4Str(const char *str);

/* Removes every '\n' in place; returns the length before the removal. */
KIV_EXPORT int removeNewLines(char *str);

/* 1 when stat() succeeds on path, else 0. */
KIV_EXPORT int is_file_exist(const char *path);
KIV_EXPORT int kiv_is_file_exist(const char *path);

/* 1 when access(path, F_OK) succeeds, 0 otherwise and for NULL. */
KIV_EXPORT int isFileExist(const char *path);

/* Runs "touch PATH" (cut to 63 bytes) through the shell; always 0. */
KIV_EXPORT int kiv_create_file(const char *path);

/* Seconds since boot; 0 when sysinfo() fails. */
KIV_EXPORT uint32_t igd_system_uptime(void);

/* Seconds since boot; the last good value when sysinfo() fails. */
KIV_EXPORT uint32_t kiv_get_system_up_time(void);

/*
 * Reads until len bytes or end of file, retrying EAGAIN and EINTR.
 * Returns the bytes read, or -1 on another error.
 */
KIV_EXPORT int readall(int fd, void *buf, int len);

/* Writes all len bytes, retrying EINTR.  Returns len, or -1. */
KIV_EXPORT int writeall(int fd, const void *buf, int len);

KIV_END_DECLS

#endif /* KIV_RUNTIME_H */
