/*
 * libuci - Unified Configuration Interface library
 *
 * Reads, changes and writes the configuration files of /etc/config.  Changes
 * are staged as delta files in a save directory until they are committed.
 * Every function returning int gives UCI_OK (0) or one of the UCI_ERR_*
 * codes, which is also stored in the context.
 */
#ifndef __LIBUCI_H
#define __LIBUCI_H

#ifdef __cplusplus
extern "C" {
#endif

#include "uci_config.h"

#include <stdbool.h>
#include <setjmp.h>
#include <stdio.h>
#include <stdint.h>
#include <stddef.h>

#define UCI_CONFDIR "/etc/config"
#define UCI_SAVEDIR "/tmp/.uci"
#define UCI_CONF2DIR "/var/run/uci"
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum
{
	UCI_OK = 0,
	UCI_ERR_MEM,
	UCI_ERR_INVAL,
	UCI_ERR_NOTFOUND,
	UCI_ERR_IO,
	UCI_ERR_PARSE,
	UCI_ERR_DUPLICATE,
	UCI_ERR_UNKNOWN,
	UCI_ERR_LAST
};

struct uci_list;
struct uci_list
{
	struct uci_list *next;
	struct uci_list *prev;
};

struct uci_ptr;
struct uci_element;
struct uci_package;
struct uci_section;
struct uci_option;
struct uci_delta;
struct uci_context;
struct uci_backend;
struct uci_parse_option;
struct uci_parse_context;

/* Allocates a context with the default directories; NULL when out of
 * memory.  Free it with uci_free_context. */
extern struct uci_context *uci_alloc_context(void);

/* Frees the context and every package still loaded in it (unsaved changes
 * are dropped, nothing is written).  ctx must not be NULL. */
extern void uci_free_context(struct uci_context *ctx);

/* Prints the last error to stderr: "PREFIX: " (when prefix is not NULL),
 * the error string and, for a parse error, " (REASON) at line L, byte B". */
extern void uci_perror(struct uci_context *ctx, const char *str);

/* Builds the uci_perror text (without line feed) in a newly allocated
 * string stored in *dest, which the caller frees; *dest is NULL when out
 * of memory. */
extern void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *str);

/* Parses a stream in the configuration file format.  name: package of the
 * lines before any "package" line; single: ignore "package" lines; with
 * *package an existing package and single, the input is merged into it as
 * changes.  New packages are added to the context. */
extern int uci_import(struct uci_context *ctx, FILE *stream, const char *name, struct uci_package **package, bool single);

/* Writes package (all loaded packages when NULL) to stream in the
 * canonical form, with a "package NAME" line first when header is true. */
extern int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);

/* Loads a package by name from the configuration directory (staged changes
 * applied) or, for a name starting with "/" or "./", from that path.  The
 * package is appended to ctx->root and stored in *package if not NULL.
 * UCI_ERR_NOTFOUND: no such file; UCI_ERR_PARSE: syntax error;
 * UCI_ERR_DUPLICATE: a package of that name is already loaded. */
extern int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);

/* Unlinks and frees a package with all its contents; nothing is written. */
extern int uci_unload(struct uci_context *ctx, struct uci_package *p);

/* Splits str ("package[.section[.option]][=value]") in place into *ptr and
 * looks it up, loading the package when it is not loaded yet.  With str
 * NULL the fields already in *ptr are used.  extended allows the section
 * forms "@type[n]" and "@[n]".  A missing section or option is not an
 * error: flags then lacks UCI_LOOKUP_COMPLETE.  str must outlive *ptr. */
extern int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

/* Appends an anonymous section of the given type to p; *res (if not NULL)
 * receives it.  Records an add change. */
extern int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type, struct uci_section **res);

/* Sets the option (or creates/retypes the section) named by ptr to
 * ptr->value.  An empty value deletes the target. */
extern int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);

/* Appends ptr->value to the list option named by ptr, creating the list or
 * converting a string option into a list. */
extern int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);

/* Removes every item equal to ptr->value from the list option named by
 * ptr. */
extern int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);

/* Moves section s to position pos (0-based; past the end means last). */
extern int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos);

/* Renames the option or section named by ptr to ptr->value. */
extern int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr);

/* Deletes the option or section named by ptr; with a numeric ptr->value
 * and a list option, only the list item at that index. */
extern int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);

/* Appends the package's pending changes to its delta file in the save
 * directory.  A package loaded by path is written directly instead. */
extern int uci_save(struct uci_context *ctx, struct uci_package *p);

/* Applies every staged change of the package to its configuration file
 * (atomically, under a file lock) and clears the save directory's delta
 * file.  *p is replaced by the re-read package; pointers into the old one
 * dangle afterwards. */
extern int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);

/* The package names of the configuration directory, sorted, as one
 * allocated NULL-terminated array (strings inside the same block) that the
 * caller frees with a single free(). */
extern int uci_list_configs(struct uci_context *ctx, char ***list);

/* Sets the directory staged changes are written to; it is also read. */
extern int uci_set_savedir(struct uci_context *ctx, const char *dir);

/* Sets the configuration directory. */
extern int uci_set_confdir(struct uci_context *ctx, const char *dir);

/* Sets the override directory whose files replace configuration files;
 * NULL or "" disables it. */
extern int uci_set_conf2dir(struct uci_context *ctx, const char *dir);

/* Adds a directory of delta files that are read (before the save
 * directory's). */
extern int uci_add_delta_path(struct uci_context *ctx, const char *dir);

/* Drops the staged changes of the package, section or option named by ptr
 * and reloads the package into ptr->p. */
extern int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr);

/* Reads one shell-like word of a line of stream into *result; at the end
 * of the line *result is "" and *str NULL, and the next call reads the next
 * line (also when *str is NULL).  The line and its words belong to the
 * context and stay valid until the next line is read.  A quote left open
 * at the end of a line goes on to the next. */
extern int uci_parse_argument(struct uci_context *ctx, FILE *stream, char **str, char **result);

/* Selects a backend by name; only "file" exists. */
extern int uci_set_backend(struct uci_context *ctx, const char *name);

/* True when str holds no control character other than TAB, LF and CR. */
extern bool uci_validate_text(const char *str);

/* Splits str into *ptr without looking anything up. */
extern int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str);

/* Searches list for an element called name: 0 with *e set, or
 * UCI_ERR_NOTFOUND with *e NULL. */
extern int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name);

/* Fills tb[i] with the option of s named opts[i].name (NULL when absent
 * or of another type). */
extern void uci_parse_section(struct uci_section *s, const struct uci_parse_option *opts,
		int n_opts, struct uci_option **tb);

/* A hash over the values of tb[0..n_opts-1]. */
extern uint32_t uci_hash_options(struct uci_option **tb, int n_opts);

/* UCI data structures */
enum uci_type {
	UCI_TYPE_UNSPEC = 0,
	UCI_TYPE_DELTA = 1,
	UCI_TYPE_PACKAGE = 2,
	UCI_TYPE_SECTION = 3,
	UCI_TYPE_OPTION = 4,
	UCI_TYPE_PATH = 5,
	UCI_TYPE_BACKEND = 6,
	UCI_TYPE_ITEM = 7,
	UCI_TYPE_HOOK = 8
};

enum uci_option_type {
	UCI_TYPE_STRING = 0,
	UCI_TYPE_LIST = 1
};

enum uci_flags {
	UCI_FLAG_STRICT =        (1 << 0), /* strict mode for the parser */
	UCI_FLAG_PERROR =        (1 << 1), /* print parser error messages */
	UCI_FLAG_EXPORT_NAME =   (1 << 2), /* when exporting, name unnamed sections */
	UCI_FLAG_SAVED_DELTA =   (1 << 3) /* store the saved delta in memory as well */
};

struct uci_element
{
	struct uci_list list;
	enum uci_type type;
	char *name;
};

struct uci_backend
{
	struct uci_element e;
	char **(*list_configs)(struct uci_context *ctx);
	struct uci_package *(*load)(struct uci_context *ctx, const char *name);
	void (*commit)(struct uci_context *ctx, struct uci_package **p, bool overwrite);

	/* private: */
	const void *ptr;
	void *priv;
};

struct uci_context
{
	/* list of config packages */
	struct uci_list root;

	/* parser context, use for error handling only */
	struct uci_parse_context *pctx;

	/* backend for import and export */
	struct uci_backend *backend;
	struct uci_list backends;

	/* uci runtime flags */
	enum uci_flags flags;

	char *confdir;
	char *savedir;
	char *conf2dir;

	/* search path for delta files */
	struct uci_list delta_path;

	/* private: */
	int err;
	const char *func;
	jmp_buf trap;
	bool internal, nested;
	char *buf;
	int bufsz;
};

struct uci_package
{
	struct uci_element e;
	struct uci_list sections;
	struct uci_context *ctx;
	bool has_delta, uses_conf2;
	char *path;

	/* private: */
	struct uci_backend *backend;
	void *priv;
	int n_section;
	struct uci_list delta;
	struct uci_list saved_delta;
};

struct uci_section
{
	struct uci_element e;
	struct uci_list options;
	struct uci_package *package;
	bool anonymous;
	char *type;
};

struct uci_option
{
	struct uci_element e;
	struct uci_section *section;
	enum uci_option_type type;
	union {
		struct uci_list list;
		char *string;
	} v;
};

/*
 * UCI_CMD_ADD is used for anonymous sections or list values
 */
enum uci_command {
	UCI_CMD_ADD,
	UCI_CMD_REMOVE,
	UCI_CMD_CHANGE,
	UCI_CMD_RENAME,
	UCI_CMD_REORDER,
	UCI_CMD_LIST_ADD,
	UCI_CMD_LIST_DEL,
	__UCI_CMD_MAX,
	__UCI_CMD_LAST = __UCI_CMD_MAX - 1
};
/* Delta line prefix of each command, indexed by enum uci_command (0 for a
 * change, which has none). */
extern const char uci_command_char[];

struct uci_delta
{
	struct uci_element e;
	enum uci_command cmd;
	char *section;
	char *value;
};

struct uci_ptr
{
	enum uci_type target;
	enum {
		UCI_LOOKUP_DONE =     (1 << 0),
		UCI_LOOKUP_COMPLETE = (1 << 1),
		UCI_LOOKUP_EXTENDED = (1 << 2)
	} flags;

	struct uci_package *p;
	struct uci_section *s;
	struct uci_option *o;
	struct uci_element *last;

	const char *package;
	const char *section;
	const char *option;
	const char *value;
};

struct uci_parse_option {
	const char *name;
	enum uci_option_type type;
};


/* linked list handling */
#ifndef offsetof
#define offsetof(TYPE, MEMBER) ((size_t) &((TYPE *)0)->MEMBER)
#endif

/**
 * container_of - cast a member of a structure out to the containing structure
 * @ptr:	the pointer to the member.
 * @type:	the type of the container struct this is embedded in.
 * @member:	the name of the member within the struct.
 */
#ifndef container_of
#define container_of(ptr, type, member) \
	((type *) ((char *)(ptr) - offsetof(type, member)))
#endif


/* The element whose list member is ptr. */
#define list_to_element(ptr) \
	container_of(ptr, struct uci_element, list)

/* Walks every element of a list head, in order:
 *   struct uci_element *e;
 *   uci_foreach_element(&p->sections, e) { ... } */
#define uci_foreach_element(_list, _ptr)		\
	for(_ptr = list_to_element((_list)->next);	\
		&_ptr->list != (_list);			\
		_ptr = list_to_element(_ptr->list.next))

/* The same, with _tmp holding the next element so _ptr may be unlinked. */
#define uci_foreach_element_safe(_list, _tmp, _ptr)		\
	for(_ptr = list_to_element((_list)->next),		\
		_tmp = list_to_element(_ptr->list.next);	\
		&_ptr->list != (_list);			\
		_ptr = _tmp, _tmp = list_to_element(_ptr->list.next))

/**
 * uci_list_empty: returns true if a list is empty
 * @list: list head
 */
#define uci_list_empty(list) ((list)->next == (list))

/* wrappers for dynamic type handling */
#define uci_type_backend UCI_TYPE_BACKEND
#define uci_type_delta UCI_TYPE_DELTA
#define uci_type_package UCI_TYPE_PACKAGE
#define uci_type_section UCI_TYPE_SECTION
#define uci_type_option UCI_TYPE_OPTION

/* element typecasting */
#ifdef UCI_DEBUG_TYPECAST
static inline void uci_typecast_error(int from, int to)
{
	static const char *const names[] = {
		"unspecified", "delta", "package", "section", "option",
		"path", "backend", "item", "hook",
	};
	fprintf(stderr, "Invalid typecast from '%s' to '%s'\n", names[from], names[to]);
}

#define BUILD_CAST(_type) \
	static inline struct uci_ ## _type *uci_to_ ## _type (struct uci_element *e) \
	{ \
		if (e->type != uci_type_ ## _type) { \
			uci_typecast_error(e->type, uci_type_ ## _type); \
		} \
		return (struct uci_ ## _type *) e; \
	}

BUILD_CAST(backend)
BUILD_CAST(delta)
BUILD_CAST(package)
BUILD_CAST(section)
BUILD_CAST(option)

#else
#define uci_to_backend(ptr) container_of(ptr, struct uci_backend, e)
#define uci_to_delta(ptr) container_of(ptr, struct uci_delta, e)
#define uci_to_package(ptr) container_of(ptr, struct uci_package, e)
#define uci_to_section(ptr) container_of(ptr, struct uci_section, e)
#define uci_to_option(ptr)  container_of(ptr, struct uci_option, e)
#endif

/* The address just past *ptr, where the library keeps a node's strings. */
#define uci_dataptr(ptr) \
	(((char *) ptr) + sizeof(*ptr))

/**
 * uci_lookup_package: look up a package
 * @ctx: uci context
 * @name: name of the package
 */
static inline struct uci_package *
uci_lookup_package(struct uci_context *ctx, const char *name)
{
	struct uci_element *e = NULL;
	if (uci_lookup_next(ctx, &e, &ctx->root, name) == 0)
		return uci_to_package(e);
	else
		return NULL;
}

/**
 * uci_lookup_section: look up a section
 * @ctx: uci context
 * @p: package that the section belongs to
 * @name: name of the section
 */
static inline struct uci_section *
uci_lookup_section(struct uci_context *ctx, struct uci_package *p, const char *name)
{
	struct uci_element *e = NULL;
	if (uci_lookup_next(ctx, &e, &p->sections, name) == 0)
		return uci_to_section(e);
	else
		return NULL;
}

/**
 * uci_lookup_option: look up an option
 * @ctx: uci context
 * @section: section that the option belongs to
 * @name: name of the option
 */
static inline struct uci_option *
uci_lookup_option(struct uci_context *ctx, struct uci_section *s, const char *name)
{
	struct uci_element *e = NULL;
	if (uci_lookup_next(ctx, &e, &s->options, name) == 0)
		return uci_to_option(e);
	else
		return NULL;
}

/**
 * uci_lookup_option_string: the string value of an option, NULL when the
 * option is absent or a list
 */
static inline const char *
uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s, const char *name)
{
	struct uci_option *o;

	o = uci_lookup_option(ctx, s, name);
	if (!o || o->type != UCI_TYPE_STRING)
		return NULL;

	return o->v.string;
}

#ifndef BITS_PER_LONG
#define BITS_PER_LONG (8 * sizeof(unsigned long))
#endif

static inline void uci_bitfield_set(unsigned long *bits, int bit)
{
	bits[bit / BITS_PER_LONG] |= (1UL << (bit % BITS_PER_LONG));
}

#ifdef __cplusplus
}
#endif

#endif
