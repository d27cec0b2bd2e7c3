/*
 * Wireless profile store: the driver's KEY=VALUE profile files, the engine
 * of the wificonf command.
 *
 * A profile is a text file of lines "NAME=VALUE\n".  Blanks in this store
 * are TAB, LF, CR and SPACE.  A line whose first non-blank byte is '#' is a
 * comment; a line without '=' is never matched; the first line whose name
 * equals the key wins.  Lines are read 1023 bytes at a time, so the tail of
 * a longer physical line is judged as a line of its own.
 *
 * Which file: __profile when it is set, else the symbolic link
 * /tmp/.wificonf/current made by use_profile().
 *
 * Failures of the store are not returned: a failed check prints
 * "assert failure: <condition>, <strerror(errno)>, <function> L<line>.\n"
 * on stderr (nothing when __quiet is set) and calls exit(-1), so these
 * functions can end the calling process, daemons included.
 */
#ifndef KIV_PROFILE_H
#define KIV_PROFILE_H

#include <stddef.h>
#include <stdio.h>

#include "export.h"

KIV_BEGIN_DECLS

/* ---- Process-wide words ------------------------------------------------ */

/* Path of the profile to use; when set it overrides /tmp/.wificonf/current
 * for the whole process.  Initially NULL; the string must outlive its use. */
KIV_EXPORT extern char *__profile;
/* Non-zero silences the store's fatal reports and hints (not the exits). */
KIV_EXPORT extern int __quiet;
/* Non-zero: the values given to conf_set() and conf_set_token() are Base64
 * text, decoded before they are stored. */
KIV_EXPORT extern int __base64;
/* Free for front ends; the library neither reads nor writes it. */
KIV_EXPORT extern int base64;
/* The empty string returned by __get_token(); never to be freed. */
KIV_EXPORT extern const char *EMPTY;

/* ---- Selection and reading ---------------------------------------------- */

/*
 * Selects the profile: (re)creates /tmp/.wificonf (mode 0700) and the link
 * /tmp/.wificonf/current with `path` as its text (the file need not exist),
 * and, when alias is not NULL, the link /tmp/.wificonf/<alias> as well
 * (printing "you are overwritting <link> to <path>" on stderr when it
 * replaces one, unless __quiet).  Returns 0; every failure is fatal.
 */
KIV_EXPORT int use_profile(const char *path, const char *alias);

/*
 * The profile path: __profile itself when set; else the text of the link
 * `link` (NULL means /tmp/.wificonf/current).  A missing link prints the hint
 * 'use "wificonf use <profile>" first' (unless __quiet) and ends the process
 * with exit(-1); a path that is no link prints the hint and returns NULL.
 * The link text lives in a buffer owned by the store: do not free it.  It
 * stays valid for the life of the process; each distinct text is kept once,
 * so repeated calls for the same selection allocate nothing.
 */
KIV_EXPORT char *__get_profile(const char *link);

/*
 * Finds the line of `key` in the open, seekable stream fp: returns the byte
 * offset of the start of the key's line, or of the end of the file when the
 * key is absent (-1 only when ftell fails), and leaves the stream there.
 * Fatal when fp or key is NULL.
 */
KIV_EXPORT int __locate_key(FILE *fp, const char *key);

/*
 * Reads the value of `key` into out (with its NUL) when it fits in `size`
 * bytes; a value is never cut.  Blanks are trimmed at both ends; for keys
 * beginning with "SSID" or "WPAPSK" only CR and LF are.  Returns 0, also
 * for an absent key or a value too long (out is then left as it was);
 * -1 when out is NULL (a console message).  Prints nothing on stdout.
 */
KIV_EXPORT int conf_get(const char *key, char *out, size_t size);

/* ---- Base64 ------------------------------------------------------------ */

/*
 * Standard Base64 of src[0..len), in lines of 72 characters, each non-empty
 * result ending in one LF.  Returns a NUL-terminated malloc'd text (free()
 * it) and its length in *out_len when out_len is not NULL; NULL when out of
 * memory or len is too large.
 */
KIV_EXPORT unsigned char *base64_encode(const unsigned char *src, size_t len,
                                        size_t *out_len);

/*
 * Decodes Base64 text src[0..len), skipping every byte outside the alphabet
 * and '='.  Decoding stops at the first group with padding.  Returns the
 * malloc'd bytes (free() them) and their number in *out_len when out_len
 * is not NULL; the buffer always holds a NUL somewhere behind those bytes,
 * but a '=' inside a group can leave other bytes between them and it; NULL when the text is refused (no
 * groups, a partial group, a group of three or four '=') or out of memory.
 */
KIV_EXPORT unsigned char *base64_decode(const unsigned char *src, size_t len,
                                        size_t *out_len);

/* ---- Updates ------------------------------------------------------------ */

/*
 * Gives `key` the value `value` (Base64 text when __base64 is set): the
 * key's first line becomes "key=value\n", or the line is added at the end
 * of the file.  The profile must exist; it is replaced as a whole (new
 * content written beside it, flushed, given the old mode, renamed over it),
 * so a failure leaves the old file as it was.  Prints the changed flag,
 * "1\n" or "0\n", on stdout, also when __quiet.  Returns 0; failures are
 * fatal.
 */
KIV_EXPORT int conf_set(const char *key, const char *value);

/* ---- Token lists ("KEY=a;b;c") ---------------------------------------- */

/*
 * Token idx (from 0) of the ';'-separated list behind the first '=' of
 * line, unchanged (blanks and line end included).  Returns a malloc'd copy
 * (free() it), or EMPTY when line has no '=', idx is negative or the list is
 * shorter; NULL when out of memory.
 */
KIV_EXPORT char *__get_token(const char *line, int idx);

/*
 * line (without its line feed) with token idx replaced by value.  Returns a
 * malloc'd line (free() it), or line itself when it holds no '=' (do not
 * free it then); NULL when out of memory.  An idx past the end changes
 * nothing.
 */
KIV_EXPORT char *__set_token(const char *line, int idx, const char *value);

/*
 * Prints token idx of key's value on stdout with puts() (an empty line for
 * an index past the end; nothing for an absent key).  Returns 0; a NULL key
 * or a negative idx and failures of the store are fatal.
 */
KIV_EXPORT int conf_get_token(const char *key, int idx);

/*
 * Replaces token idx (0 to 31) of key's value with value (Base64 text when
 * __base64 is set); the rest of the line keeps its form.  The profile is
 * replaced as a whole as by conf_set(); an absent key leaves it untouched.
 * Prints nothing.  Returns 0; failures are fatal.
 */
KIV_EXPORT int conf_set_token(const char *key, int idx, const char *value);

/* ---- Front ends ---------------------------------------------------------- */

/* Prints the wificonf usage text on stdout; returns 0. */
KIV_EXPORT int usage(void);

/*
 * Reads ("get") or writes ("set") `key` in the profile of a zone: "2860" is
 * /etc/wireless/kiv/dbdc.b0.dat, "rtdev" /etc/wireless/kiv/dbdc.b1.dat.
 * Points __profile at the zone's file (it stays so), then returns
 * conf_get(key, buf, size) or conf_set(key, buf) (size ignored).  Returns -1
 * with a console message for another zone (__profile untouched) or command.
 */
KIV_EXPORT int KivNvram(const char *cmd, const char *zone, const char *key,
                        char *buf, size_t size);

KIV_END_DECLS

#endif /* KIV_PROFILE_H */
