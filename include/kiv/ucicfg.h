/*
 * UCI access layer: one-call access to UCI configuration through libuci.
 *
 * Conventions:
 * - Every function but uci_set_option_string() opens a configuration context
 *   of its own, does its one job and releases the context before it returns;
 *   nothing is kept between calls.
 * - A "tuple" is the text form of a place in the configuration,
 *   "package.section.option" (section by name or as "@type[n]").  Tuples are
 *   built in 128-byte buffers and cut without a word at 126 characters (127
 *   in set_uci_option()); the cut tuple is what is looked up.
 * - confdir, where a function takes it, is the configuration directory; NULL
 *   keeps the library's default (/etc/config).
 * - Result codes differ from function to function; each comment says which.
 * - Messages go to stdout (with the prefixes "%25s[%05d]: ", "[%s][%d]: " or
 *   "[%s]: " carrying the function's name and source line) or, for
 *   get_uci_option(), to /dev/console.  The layer does no quoting: values go
 *   to the library as they are.
 * - Changes are committed (written to the package file) by every function
 *   that makes one, except uci_set_option_string().
 */
#ifndef KIV_UCICFG_H
#define KIV_UCICFG_H

#include <stddef.h>

#include "export.h"

KIV_BEGIN_DECLS

struct uci_context;
struct uci_section;

/* One option of a new section: both strings stay the caller's; an entry with
 * a NULL name or value is skipped. */
typedef struct uci_option_pair {
  const char *name;
  const char *value;
} uci_option_pair;

/* The options of a new section: the first `count` entries of `pairs` are
 * read (at most 32). */
typedef struct uci_section_options {
  uci_option_pair pairs[32];
  int count;
} uci_section_options;

/* ---- Single options ---------------------------------------------------- */

/*
 * Reads the string option package.section.option (section by name or
 * "@type[n]") from confdir (NULL: default) into value, cut to
 * value_size - 1 characters and always terminated.  Returns 0, or -1 with a
 * message on the console ("uci_lookup_ptr %s failed.", "find tuple %s.%s.%s
 * failed.", "alloc uci context failed"); on failure value is left as it was.
 * A list option, a NULL argument or a value_size of 0 is a failure too.
 */
KIV_EXPORT int get_uci_option(const char *confdir, const char *package,
                              const char *section, const char *option,
                              char *value, size_t value_size);

/*
 * Sets package.section.option to value (the value may hold any character)
 * and commits the package.  Returns 0, or -1 with a "[%s][%d]: " message on
 * stdout when the lookup, the set or the commit fails.
 */
KIV_EXPORT int set_uci_option(const char *package, const char *section,
                              const char *option, const char *value);

/*
 * Sets package.section.option to value and commits, without reporting what
 * the library answered.  Returns -1 (and prints "Parameter error!!!") only
 * when an argument is NULL, else 0, even when nothing was set.
 */
KIV_EXPORT int set_uci_option_value(const char *package, const char *section,
                                    const char *option, const char *value);

/*
 * Loads config (a package name or the path of a configuration file) and
 * reads the string option `option` of the section named `section` (exact
 * name; "@type[n]" does not work here).  value is zero-filled first, then
 * receives at most value_size bytes of the text: a text of value_size or
 * more characters fills the buffer WITHOUT a terminator.  Returns 1 when the
 * value was found, 0 when it was not (also for a list option), -1 for a NULL
 * argument or a package that does not load (with a message on stdout).
 */
KIV_EXPORT int get_uci_option_value(const char *config, const char *section,
                                    const char *option, char *value,
                                    size_t value_size);

/*
 * Points the string option `option` of a section loaded in the caller's
 * context at value.  The pointer itself is stored: nothing is copied, the old
 * text is not released, nothing is saved or committed, and value must stay
 * valid for as long as the option refers to it.  libuci frees an option's
 * text when the package is unloaded or the context released, so value should
 * come from malloc() (it then belongs to the library), or the caller puts the
 * old pointer back before that.  Returns 0, or -1 when the option is absent
 * or is a list (or an argument is NULL).  Prints nothing.
 */
KIV_EXPORT int uci_set_option_string(struct uci_context *ctx,
                                     struct uci_section *section,
                                     const char *option, char *value);

/*
 * Deletes what package.section.option names (in confdir, NULL: default) and
 * commits.  Returns 0, or 1 when the lookup (with a "[%s]: " message) or the
 * deletion fails; an absent option is a silent failure.
 */
KIV_EXPORT int delUciOption(const char *confdir, const char *package,
                            const char *section, const char *option);

/* ---- List options ------------------------------------------------------ */

/*
 * Appends value to the list option package.section.option (made a list if
 * it was a string, created if absent) and commits.  The value travels in the
 * tuple and counts against its length.  Returns 0, or 1 with a message on
 * stdout.
 */
KIV_EXPORT int add_uci_list(const char *confdir, const char *package,
                            const char *section, const char *option,
                            const char *value);

/*
 * Removes every item equal to value from the list option and commits.
 * Returns 0, or 1 with a message on stdout.
 */
KIV_EXPORT int del_uci_list(const char *confdir, const char *package,
                            const char *section, const char *option,
                            const char *value);

/*
 * Copies the items of the list option package.section.option into the
 * caller's flat array `items` of max_items slots of item_size bytes (slot i
 * at byte i * item_size), in list order, and stores the number of filled
 * slots in *count (count may be NULL).  An item of item_size or more
 * characters fills its slot WITHOUT a terminator; items beyond max_items are
 * left out without notice; bytes not copied keep what the caller left.
 * Returns 0, or 1 with a message on stdout (absent option, not a list, lookup
 * failure); on failure neither items nor count is written.
 */
KIV_EXPORT int get_uci_list(const char *confdir, const char *package,
                            const char *section, const char *option,
                            char *items, size_t item_size,
                            unsigned int max_items, unsigned int *count);

/* ---- Sections ---------------------------------------------------------- */

/*
 * Adds an anonymous section of section_type to package (a bare package name
 * in the default directory) with the options given, and commits.  Returns -1
 * when package or section_type is NULL, no context can be had or the package
 * does not load; otherwise 0, also when nothing could be added.  Prints
 * nothing.
 */
KIV_EXPORT int add_new_uci_section_and_option(const char *package,
                                              const char *section_type,
                                              uci_section_options options);

/*
 * Deletes the options (at most 32 per call, in order) of the section named
 * section_name of package_name (a package name or a file path) and commits;
 * the section itself stays.  Reports every step on stdout.  Returns 1 when
 * the commit worked (even if some deletions failed), else 0; a failed commit
 * reverts the staged changes.
 */
KIV_EXPORT int delete_section_options(const char *package_name,
                                      const char *section_name);

/*
 * The next three load `config` (package name or file path) and change the
 * package named `package` (a bare name: the package that config loads), then
 * commit.  They return -1 for a NULL argument or a failed load (with a
 * message on stdout), otherwise 0 whatever the library answered after the
 * load.
 */

/* Deletes option `option` of section `section`. */
KIV_EXPORT int del_uci_options(const char *config, const char *package,
                               const char *section, const char *option);

/* Deletes section `section` with its options. */
KIV_EXPORT int del_uci_sections(const char *config, const char *package,
                                const char *section);

/* Adds a section of section_type named section_name. */
KIV_EXPORT int add_uci_sections(const char *config, const char *package,
                                const char *section_type,
                                const char *section_name);

/* ---- Removal of sections by type and option values --------------------- */

/*
 * The three walk the sections of section_type in package (a bare name, in
 * the default directory) by position ("package.@type[n]"), saving and
 * committing after every single removal; earlier removals stay when a later
 * step fails.  The filter is on only when all its option and value arguments
 * are non-NULL; a section is a hit when each option is a string equal to its
 * value.  Words go to stdout.  package and section_type are required.
 * Results: 0 when the walk ended in order (whether or not anything went),
 * -1 for a NULL package or section_type, otherwise the library's non-zero
 * code of the failed step.
 */

/* Removes every hit; with the filter off, every section of the type. */
KIV_EXPORT int del_uci_anonymous_section_by_option(const char *package,
                                                   const char *section_type,
                                                   const char *option,
                                                   const char *value);

/* Removes the first section where option1 equals value1 and option2 equals
 * value2; with the filter off, every section of the type. */
KIV_EXPORT int del_uci_anonymous_section_by_option2(const char *package,
                                                    const char *section_type,
                                                    const char *option1,
                                                    const char *option2,
                                                    const char *value1,
                                                    const char *value2);

/*
 * First counts the matching option lines with the shell command
 * "uci show PACKAGE | grep SECTION_TYPE | grep -c \"OPTION='VALUE'\"" (the
 * arguments enter it bare), then removes hits, a fresh context per pass,
 * until as many as counted are gone; the first hit goes even when the count
 * is 0, so with the filter off only the first section of the type goes.  A
 * failed lookup ends the walk with 0.
 */
KIV_EXPORT int del_uci_anonymous_section_by_option3(const char *package,
                                                    const char *section_type,
                                                    const char *option,
                                                    const char *value);

KIV_END_DECLS

#endif /* KIV_UCICFG_H */
