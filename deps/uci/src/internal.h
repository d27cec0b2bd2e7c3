/* Private declarations shared by the parts of libuci. */
#ifndef UCI_INTERNAL_H
#define UCI_INTERNAL_H

#include "uci.h"

#include <stdlib.h>
#include <string.h>

#define UCI_HIDDEN __attribute__((visibility("hidden")))

/* Parser state kept in the context after a parse error (for uci_perror),
 * and the line state of uci_parse_argument. */
struct uci_parse_context {
	const char *reason;
	int line;
	int byte;
	/* uci_parse_argument: the logical line being split, read from
	 * astream, whose lines were counted in aline */
	FILE *astream;
	char *abuf;
	size_t apos, alen, acap;
	int aline;
};

/* Strings a node owns, recorded right behind the node (uci_dataptr); the
 * first copies live in the same allocation, behind this record.  The
 * public fields point at them, but users may point those fields elsewhere
 * (a caller's own buffer as an option value, say): only what is recorded
 * here is ever freed. */
struct ucii_own {
	char *name;
	char *str;   /* section type, string option value, package path */
};
#define UCII_OWN(node) ((struct ucii_own *)uci_dataptr(node))

/* What the configuration parser builds. */
enum ucii_parse_mode {
	UCII_PARSE_LOAD,   /* a file into one package; "package" lines ignored */
	UCII_PARSE_IMPORT, /* a stream into new packages */
	UCII_PARSE_MERGE   /* a stream into an existing package, as changes */
};

struct ucii_parse_job {
	enum ucii_parse_mode mode;
	struct uci_package *pkg;    /* LOAD/MERGE: target; IMPORT: first made */
	const char *name;           /* IMPORT: package of lines before "package" */
	bool single;                /* IMPORT: ignore "package" lines */
	struct uci_package *last;   /* IMPORT: package being filled */
};

/* ---- lists ---- */
static inline void ucii_list_init(struct uci_list *l)
{
	l->next = l->prev = l;
}

static inline void ucii_list_insert_before(struct uci_list *pos, struct uci_list *n)
{
	n->next = pos;
	n->prev = pos->prev;
	pos->prev->next = n;
	pos->prev = n;
}

static inline void ucii_list_add(struct uci_list *head, struct uci_list *n)
{
	ucii_list_insert_before(head, n);
}

static inline void ucii_list_del(struct uci_list *n)
{
	n->prev->next = n->next;
	n->next->prev = n->prev;
	ucii_list_init(n);
}

/* Appends c to a growing, NUL-terminated buffer; false when out of memory. */
static inline bool ucii_buf_put(char **buf, size_t *len, size_t *cap, char c)
{
	if (*len + 1 >= *cap) {
		size_t n = *cap ? *cap * 2 : 64;
		char *b = realloc(*buf, n);
		if (!b)
			return false;
		*buf = b;
		*cap = n;
	}
	(*buf)[(*len)++] = c;
	(*buf)[*len] = 0;
	return true;
}

/* ---- errors ---- */
UCI_HIDDEN int ucii_err(struct uci_context *ctx, int code);
UCI_HIDDEN void ucii_pctx_clear(struct uci_context *ctx);
UCI_HIDDEN void ucii_parse_error(struct uci_context *ctx, const char *reason, int line, int byte);

/* ---- names ---- */
UCI_HIDDEN bool ucii_valid_name(const char *s);     /* [A-Za-z0-9_]+ */
UCI_HIDDEN bool ucii_valid_type(const char *s);     /* printable, no blank */
UCI_HIDDEN bool ucii_valid_package(const char *s);  /* printable, no . = / */
UCI_HIDDEN char *ucii_strdup(const char *s);
UCI_HIDDEN char *ucii_path(const char *dir, const char *name);

/* ---- tree ---- */
UCI_HIDDEN struct uci_package *ucii_package_new(struct uci_context *ctx, const char *name);
UCI_HIDDEN void ucii_package_free(struct uci_package *p);
UCI_HIDDEN struct uci_section *ucii_section_new(struct uci_package *p, const char *type, const char *name);
UCI_HIDDEN void ucii_section_free(struct uci_section *s);
UCI_HIDDEN void ucii_index_drop(struct uci_package *p);
UCI_HIDDEN struct uci_section *ucii_find_section(struct uci_package *p, const char *name);
UCI_HIDDEN struct uci_option *ucii_find_option(struct uci_section *s, const char *name);
UCI_HIDDEN struct uci_option *ucii_option_set(struct uci_section *s, struct uci_option *o, const char *name, const char *value);
UCI_HIDDEN struct uci_option *ucii_option_add_item(struct uci_section *s, struct uci_option *o, const char *name, const char *value);
UCI_HIDDEN void ucii_option_free(struct uci_option *o);
UCI_HIDDEN void ucii_item_free(struct uci_element *e);
UCI_HIDDEN int ucii_section_retype(struct uci_section *s, const char *type);
UCI_HIDDEN void ucii_delta_free(struct uci_delta *d);
UCI_HIDDEN int ucii_delta_add(struct uci_list *list, enum uci_command cmd, const char *section, const char *option, const char *value);
UCI_HIDDEN void ucii_anon_name(char *buf, size_t size, int n, const char *type);

/* ---- changes on resolved nodes (record: add a pending delta) ---- */
UCI_HIDDEN int ucii_apply_delta(struct uci_context *ctx, struct uci_package *p, enum uci_command cmd,
		const char *section, const char *option, const char *value);

/* ---- parser, writer ---- */
UCI_HIDDEN int ucii_parse_config(struct uci_context *ctx, const char *buf, size_t len, struct ucii_parse_job *job);
/* Calls fn for each delta line of buf: word is the line's first argument
 * (modifiable), line and n its bytes as read (a NUL ends a line, so they
 * need not lie in buf).  fn returns non-zero to stop. */
typedef int (*ucii_delta_line_fn)(void *arg, char *word, const char *line, size_t n);
UCI_HIDDEN int ucii_parse_delta_lines(struct uci_context *ctx, const char *buf, size_t len, ucii_delta_line_fn fn, void *arg);
/* Applies the delta lines of buf to p; returns how many applied. */
UCI_HIDDEN int ucii_delta_replay(struct uci_context *ctx, struct uci_package *p, const char *buf, size_t len);
UCI_HIDDEN void ucii_write_escaped(FILE *f, const char *s);
UCI_HIDDEN void ucii_write_package(struct uci_context *ctx, FILE *f, struct uci_package *p, bool header);
UCI_HIDDEN void ucii_write_delta(FILE *f, const char *pkg, struct uci_delta *d);

/* ---- files ---- */
UCI_HIDDEN char *ucii_read_fd(int fd, size_t *len);
UCI_HIDDEN int ucii_load_deltas(struct uci_context *ctx, struct uci_package *p, int savefd);

#endif
