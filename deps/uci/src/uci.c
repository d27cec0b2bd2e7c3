/* Contexts, errors, the in-memory tree, lookups and the change functions. */
#define _GNU_SOURCE
#include "internal.h"

#include <ctype.h>
#include <errno.h>

const char uci_command_char[] = {
	[UCI_CMD_ADD] = '+',
	[UCI_CMD_REMOVE] = '-',
	[UCI_CMD_CHANGE] = 0,
	[UCI_CMD_RENAME] = '@',
	[UCI_CMD_REORDER] = '^',
	[UCI_CMD_LIST_ADD] = '|',
	[UCI_CMD_LIST_DEL] = '~',
};

static const char *const uci_errstr[] = {
	[UCI_OK] = "Success",
	[UCI_ERR_MEM] = "Out of memory",
	[UCI_ERR_INVAL] = "Invalid argument",
	[UCI_ERR_NOTFOUND] = "Entry not found",
	[UCI_ERR_IO] = "I/O error",
	[UCI_ERR_PARSE] = "Parse error",
	[UCI_ERR_DUPLICATE] = "Duplicate entry",
	[UCI_ERR_UNKNOWN] = "Unknown error",
};

int ucii_err(struct uci_context *ctx, int code)
{
	ctx->err = code;
	return code;
}

void ucii_pctx_clear(struct uci_context *ctx)
{
	if (ctx->pctx)
		ctx->pctx->reason = NULL;
}

void ucii_parse_error(struct uci_context *ctx, const char *reason, int line, int byte)
{
	if (!ctx->pctx) {
		ctx->pctx = calloc(1, sizeof(*ctx->pctx));
		if (!ctx->pctx)
			return;
	}
	ctx->pctx->reason = reason;
	ctx->pctx->line = line;
	ctx->pctx->byte = byte;
}

/* ---- names ---- */

bool ucii_valid_name(const char *s)
{
	if (!s || !*s)
		return false;
	for (; *s; s++)
		if (!isalnum((unsigned char)*s) && *s != '_')
			return false;
	return true;
}

bool ucii_valid_type(const char *s)
{
	if (!s || !*s)
		return false;
	for (; *s; s++)
		if ((unsigned char)*s < 33 || (unsigned char)*s > 126)
			return false;
	return true;
}

bool ucii_valid_package(const char *s)
{
	if (!ucii_valid_type(s))
		return false;
	return !strpbrk(s, ".=/");
}

bool uci_validate_text(const char *str)
{
	if (!str)
		return false;
	for (; *str; str++) {
		unsigned char c = (unsigned char)*str;
		if (c < 32 && c != '\t' && c != '\n' && c != '\r')
			return false;
	}
	return true;
}

char *ucii_strdup(const char *s)
{
	return s ? strdup(s) : NULL;
}

char *ucii_path(const char *dir, const char *name)
{
	size_t a = strlen(dir), b = strlen(name);
	char *r = malloc(a + b + 2);
	if (!r)
		return NULL;
	memcpy(r, dir, a);
	r[a] = '/';
	memcpy(r + a + 1, name, b + 1);
	return r;
}

/* ---- tree ---- */

static void index_put(struct uci_package *p, struct uci_section *s);

struct uci_package *ucii_package_new(struct uci_context *ctx, const char *name)
{
	struct uci_package *p = calloc(1, sizeof(*p));
	if (!p)
		return NULL;
	p->e.type = UCI_TYPE_PACKAGE;
	p->e.name = strdup(name);
	if (!p->e.name) {
		free(p);
		return NULL;
	}
	ucii_list_init(&p->e.list);
	ucii_list_init(&p->sections);
	ucii_list_init(&p->delta);
	ucii_list_init(&p->saved_delta);
	p->ctx = ctx;
	p->backend = ctx->backend;
	return p;
}

void ucii_delta_free(struct uci_delta *d)
{
	ucii_list_del(&d->e.list);
	free(d->e.name);
	free(d->section);
	free(d->value);
	free(d);
}

static void delta_list_free(struct uci_list *l)
{
	struct uci_element *e, *tmp;
	uci_foreach_element_safe(l, tmp, e)
		ucii_delta_free(uci_to_delta(e));
}

void ucii_package_free(struct uci_package *p)
{
	struct uci_element *e, *tmp;
	if (!p)
		return;
	uci_foreach_element_safe(&p->sections, tmp, e)
		ucii_section_free(uci_to_section(e));
	delta_list_free(&p->delta);
	delta_list_free(&p->saved_delta);
	ucii_index_drop(p);
	ucii_list_del(&p->e.list);
	free(p->e.name);
	free(p->path);
	free(p);
}

void ucii_anon_name(char *buf, size_t size, int n, const char *type)
{
	uint32_t h = 5381;
	for (; *type; type++)
		h = h * 33 + (uint32_t)(int)(signed char)*type;
	snprintf(buf, size, "cfg%02x%04x", (unsigned)n, (unsigned)(h & 0xffff));
}

struct uci_section *ucii_section_new(struct uci_package *p, const char *type, const char *name)
{
	char gen[32];
	struct uci_section *s = calloc(1, sizeof(*s));
	if (!s)
		return NULL;
	p->n_section++;
	if (!name) {
		ucii_anon_name(gen, sizeof(gen), p->n_section, type);
		name = gen;
		s->anonymous = true;
	}
	s->e.type = UCI_TYPE_SECTION;
	s->e.name = strdup(name);
	s->type = strdup(type);
	if (!s->e.name || !s->type) {
		free(s->e.name);
		free(s->type);
		free(s);
		return NULL;
	}
	ucii_list_init(&s->options);
	s->package = p;
	ucii_list_add(&p->sections, &s->e.list);
	index_put(p, s);
	return s;
}

void ucii_section_free(struct uci_section *s)
{
	struct uci_element *e, *tmp;
	if (s->package)
		ucii_index_drop(s->package);
	uci_foreach_element_safe(&s->options, tmp, e)
		ucii_option_free(uci_to_option(e));
	ucii_list_del(&s->e.list);
	free(s->e.name);
	free(s->type);
	free(s);
}

int ucii_section_retype(struct uci_section *s, const char *type)
{
	char *t = strdup(type);
	if (!t)
		return UCI_ERR_MEM;
	if (strlen(t) != strlen(s->type))
		s->anonymous = false;
	free(s->type);
	s->type = t;
	return 0;
}

/* Name index of a package's sections, kept in p->priv so that lookups
 * and parsing stay linear in the size of the package.  Built on first use,
 * extended when a section is appended, dropped when a section is removed
 * or renamed.  Holds the first section of each name in list order, which
 * is what a walk of the list would find. */
struct section_index {
	size_t cap;    /* power of two */
	size_t count;
	struct uci_section *slot[];
};

static uint32_t name_hash(const char *s)
{
	uint32_t h = 2166136261u;
	for (; *s; s++)
		h = (h ^ (unsigned char)*s) * 16777619u;
	return h;
}

void ucii_index_drop(struct uci_package *p)
{
	free(p->priv);
	p->priv = NULL;
}

/* Adds s unless a section of that name is indexed already. */
static void index_put(struct uci_package *p, struct uci_section *s)
{
	struct section_index *ix = p->priv;
	size_t i;

	if (!ix)
		return;
	if ((ix->count + 1) * 2 > ix->cap) {
		ucii_index_drop(p);  /* rebuilt larger on the next lookup */
		return;
	}
	for (i = name_hash(s->e.name) & (ix->cap - 1); ix->slot[i]; i = (i + 1) & (ix->cap - 1))
		if (!strcmp(ix->slot[i]->e.name, s->e.name))
			return;
	ix->slot[i] = s;
	ix->count++;
}

static struct section_index *index_build(struct uci_package *p)
{
	struct section_index *ix;
	struct uci_element *e;
	size_t n = 0, cap = 16;

	uci_foreach_element(&p->sections, e)
		n++;
	while (cap < (n + 1) * 4)
		cap *= 2;
	ix = calloc(1, sizeof(*ix) + cap * sizeof(ix->slot[0]));
	if (!ix)
		return NULL;
	ix->cap = cap;
	p->priv = ix;
	uci_foreach_element(&p->sections, e)
		index_put(p, uci_to_section(e));
	return ix;
}

struct uci_section *ucii_find_section(struct uci_package *p, const char *name)
{
	struct section_index *ix = p->priv;
	struct uci_element *e;
	size_t i;

	if (!ix)
		ix = index_build(p);
	if (ix) {
		for (i = name_hash(name) & (ix->cap - 1); ix->slot[i]; i = (i + 1) & (ix->cap - 1))
			if (!strcmp(ix->slot[i]->e.name, name))
				return ix->slot[i];
		return NULL;
	}
	uci_foreach_element(&p->sections, e)
		if (!strcmp(e->name, name))
			return uci_to_section(e);
	return NULL;
}

struct uci_option *ucii_find_option(struct uci_section *s, const char *name)
{
	struct uci_element *e;
	uci_foreach_element(&s->options, e)
		if (!strcmp(e->name, name))
			return uci_to_option(e);
	return NULL;
}

static void items_free(struct uci_list *l)
{
	struct uci_element *e, *tmp;
	uci_foreach_element_safe(l, tmp, e) {
		ucii_list_del(&e->list);
		free(e->name);
		free(e);
	}
}

void ucii_option_free(struct uci_option *o)
{
	if (o->type == UCI_TYPE_LIST)
		items_free(&o->v.list);
	else
		free(o->v.string);
	ucii_list_del(&o->e.list);
	free(o->e.name);
	free(o);
}

static struct uci_option *option_new(struct uci_section *s, const char *name)
{
	struct uci_option *o = calloc(1, sizeof(*o));
	if (!o)
		return NULL;
	o->e.type = UCI_TYPE_OPTION;
	o->e.name = strdup(name);
	if (!o->e.name) {
		free(o);
		return NULL;
	}
	o->section = s;
	return o;
}

/* Sets o (or a new option called name at the end of s) to the string
 * value, in place. */
struct uci_option *ucii_option_set(struct uci_section *s, struct uci_option *o, const char *name, const char *value)
{
	char *v = strdup(value);
	if (!v)
		return NULL;
	if (!o) {
		o = option_new(s, name);
		if (!o) {
			free(v);
			return NULL;
		}
		ucii_list_add(&s->options, &o->e.list);
	} else if (o->type == UCI_TYPE_LIST) {
		items_free(&o->v.list);
	} else {
		free(o->v.string);
	}
	o->type = UCI_TYPE_STRING;
	o->v.string = v;
	return o;
}

static struct uci_element *item_new(const char *text)
{
	struct uci_element *e = calloc(1, sizeof(*e));
	if (!e)
		return NULL;
	e->type = UCI_TYPE_ITEM;
	e->name = strdup(text);
	if (!e->name) {
		free(e);
		return NULL;
	}
	return e;
}

/* Appends value to the list o (or a new list called name at the end of s);
 * a string option becomes a list with its old value first. */
struct uci_option *ucii_option_add_item(struct uci_section *s, struct uci_option *o, const char *name, const char *value)
{
	struct uci_element *item = item_new(value);
	if (!item)
		return NULL;
	if (!o) {
		o = option_new(s, name);
		if (!o) {
			free(item->name);
			free(item);
			return NULL;
		}
		o->type = UCI_TYPE_LIST;
		ucii_list_init(&o->v.list);
		ucii_list_add(&s->options, &o->e.list);
	} else if (o->type == UCI_TYPE_STRING) {
		struct uci_element *first = item_new(o->v.string);
		if (!first) {
			free(item->name);
			free(item);
			return NULL;
		}
		free(o->v.string);
		o->type = UCI_TYPE_LIST;
		ucii_list_init(&o->v.list);
		ucii_list_add(&o->v.list, &first->list);
	}
	ucii_list_add(&o->v.list, &item->list);
	return o;
}

int ucii_delta_add(struct uci_list *list, enum uci_command cmd, const char *section, const char *option, const char *value)
{
	struct uci_delta *d = calloc(1, sizeof(*d));
	if (!d)
		return UCI_ERR_MEM;
	d->e.type = UCI_TYPE_DELTA;
	d->cmd = cmd;
	d->e.name = ucii_strdup(option);
	d->section = ucii_strdup(section);
	d->value = ucii_strdup(value);
	if ((option && !d->e.name) || (section && !d->section) || (value && !d->value)) {
		free(d->e.name);
		free(d->section);
		free(d->value);
		free(d);
		return UCI_ERR_MEM;
	}
	ucii_list_add(list, &d->e.list);
	return 0;
}

/* ---- context ---- */

static char **backend_list_configs(struct uci_context *ctx)
{
	char **list = NULL;
	if (uci_list_configs(ctx, &list))
		return NULL;
	return list;
}

static struct uci_package *backend_load(struct uci_context *ctx, const char *name)
{
	struct uci_package *p = NULL;
	if (uci_load(ctx, name, &p))
		return NULL;
	return p;
}

static void backend_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite)
{
	uci_commit(ctx, p, overwrite);
}

static int path_add(struct uci_list *before, const char *dir)
{
	struct uci_element *e = calloc(1, sizeof(*e));
	if (!e)
		return UCI_ERR_MEM;
	e->type = UCI_TYPE_PATH;
	e->name = strdup(dir);
	if (!e->name) {
		free(e);
		return UCI_ERR_MEM;
	}
	ucii_list_insert_before(before, &e->list);
	return 0;
}

static struct uci_element *path_find(struct uci_context *ctx, const char *dir)
{
	struct uci_element *e;
	uci_foreach_element(&ctx->delta_path, e)
		if (!strcmp(e->name, dir))
			return e;
	return NULL;
}

struct uci_context *uci_alloc_context(void)
{
	struct uci_context *ctx = calloc(1, sizeof(*ctx));
	struct uci_backend *b;
	if (!ctx)
		return NULL;
	ucii_list_init(&ctx->root);
	ucii_list_init(&ctx->backends);
	ucii_list_init(&ctx->delta_path);
	ctx->flags = UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA;
	ctx->confdir = strdup(UCI_CONFDIR);
	ctx->savedir = strdup(UCI_SAVEDIR);
	ctx->conf2dir = strdup(UCI_CONF2DIR);
	b = calloc(1, sizeof(*b));
	if (b) {
		b->e.type = UCI_TYPE_BACKEND;
		b->e.name = strdup("file");
		b->list_configs = backend_list_configs;
		b->load = backend_load;
		b->commit = backend_commit;
		ucii_list_add(&ctx->backends, &b->e.list);
		ctx->backend = b;
	}
	if (!ctx->confdir || !ctx->savedir || !ctx->conf2dir || !b || !b->e.name ||
	    path_add(&ctx->delta_path, UCI_SAVEDIR)) {
		uci_free_context(ctx);
		return NULL;
	}
	return ctx;
}

void uci_free_context(struct uci_context *ctx)
{
	struct uci_element *e, *tmp;
	if (!ctx)
		return;
	uci_foreach_element_safe(&ctx->root, tmp, e)
		ucii_package_free(uci_to_package(e));
	uci_foreach_element_safe(&ctx->delta_path, tmp, e) {
		free(e->name);
		free(e);
	}
	uci_foreach_element_safe(&ctx->backends, tmp, e) {
		free(e->name);
		free(e);
	}
	if (ctx->pctx)
		free(ctx->pctx->abuf);
	free(ctx->pctx);
	free(ctx->confdir);
	free(ctx->savedir);
	free(ctx->conf2dir);
	free(ctx->buf);
	free(ctx);
}

static int set_dir(struct uci_context *ctx, char **field, const char *dir)
{
	char *d;
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!dir || !*dir)
		return ucii_err(ctx, UCI_ERR_INVAL);
	d = strdup(dir);
	if (!d)
		return ucii_err(ctx, UCI_ERR_MEM);
	free(*field);
	*field = d;
	return ucii_err(ctx, 0);
}

int uci_set_confdir(struct uci_context *ctx, const char *dir)
{
	return set_dir(ctx, ctx ? &ctx->confdir : NULL, dir);
}

int uci_set_savedir(struct uci_context *ctx, const char *dir)
{
	struct uci_element *e;
	int rc = set_dir(ctx, ctx ? &ctx->savedir : NULL, dir);
	if (rc)
		return rc;
	e = path_find(ctx, dir);
	if (e) {
		ucii_list_del(&e->list);
		ucii_list_add(&ctx->delta_path, &e->list);
		return 0;
	}
	return ucii_err(ctx, path_add(&ctx->delta_path, dir));
}

int uci_set_conf2dir(struct uci_context *ctx, const char *dir)
{
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!dir || !*dir) {
		free(ctx->conf2dir);
		ctx->conf2dir = NULL;
		return ucii_err(ctx, 0);
	}
	return set_dir(ctx, &ctx->conf2dir, dir);
}

int uci_add_delta_path(struct uci_context *ctx, const char *dir)
{
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!dir || !*dir)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (path_find(ctx, dir) || !strcmp(dir, UCI_SAVEDIR))
		return ucii_err(ctx, UCI_ERR_DUPLICATE);
	return ucii_err(ctx, path_add(ctx->delta_path.prev, dir));
}

int uci_set_backend(struct uci_context *ctx, const char *name)
{
	struct uci_element *e;
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!name)
		return ucii_err(ctx, UCI_ERR_INVAL);
	uci_foreach_element(&ctx->backends, e) {
		if (!strcmp(e->name, name)) {
			ctx->backend = uci_to_backend(e);
			return ucii_err(ctx, 0);
		}
	}
	return ucii_err(ctx, UCI_ERR_NOTFOUND);
}

/* ---- error reporting ---- */

void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *prefix)
{
	int err = ctx ? ctx->err : UCI_ERR_INVAL;
	const char *msg;
	char detail[256] = "";
	size_t n;
	char *r;

	if (err < 0 || err >= UCI_ERR_LAST)
		err = UCI_ERR_UNKNOWN;
	msg = uci_errstr[err];
	if (ctx && err == UCI_ERR_PARSE && ctx->pctx && ctx->pctx->reason)
		snprintf(detail, sizeof(detail), " (%s) at line %d, byte %d",
			 ctx->pctx->reason, ctx->pctx->line, ctx->pctx->byte);
	n = (prefix ? strlen(prefix) + 2 : 0) + strlen(msg) + strlen(detail) + 1;
	r = malloc(n);
	if (r)
		snprintf(r, n, "%s%s%s%s", prefix ? prefix : "", prefix ? ": " : "", msg, detail);
	if (dest)
		*dest = r;
	else
		free(r);
}

void uci_perror(struct uci_context *ctx, const char *prefix)
{
	char *s = NULL;
	uci_get_errorstr(ctx, &s, prefix);
	if (s) {
		fprintf(stderr, "%s\n", s);
		free(s);
	}
}

/* ---- lookups ---- */

int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name)
{
	struct uci_element *it;
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!e || !list || !name)
		return ucii_err(ctx, UCI_ERR_INVAL);
	*e = NULL;
	uci_foreach_element(list, it) {
		if (!strcmp(it->name, name)) {
			*e = it;
			return ucii_err(ctx, 0);
		}
	}
	return ucii_err(ctx, UCI_ERR_NOTFOUND);
}

int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str)
{
	char *eq, *dot, *names[4] = { 0 };
	int n = 0;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr || !str)
		return ucii_err(ctx, UCI_ERR_INVAL);
	memset(ptr, 0, sizeof(*ptr));
	ucii_pctx_clear(ctx);

	eq = strchr(str, '=');
	if (eq) {
		*eq = 0;
		ptr->value = eq + 1;
	}
	names[n++] = str;
	for (dot = str; (dot = strchr(dot, '.')) != NULL; ) {
		*dot++ = 0;
		if (n == 3)
			goto error;
		names[n++] = dot;
	}
	ptr->package = names[0];
	ptr->section = names[1];
	ptr->option = names[2];
	ptr->target = n == 1 ? UCI_TYPE_PACKAGE : n == 2 ? UCI_TYPE_SECTION : UCI_TYPE_OPTION;

	if (!ucii_valid_package(ptr->package))
		goto error;
	if (ptr->option && !ucii_valid_name(ptr->option))
		goto error;
	if (ptr->value && !uci_validate_text(ptr->value))
		goto error;
	return ucii_err(ctx, 0);

error:
	memset(ptr, 0, sizeof(*ptr));
	return ucii_err(ctx, UCI_ERR_PARSE);
}

/* Parses "@type[n]" / "@[n]": 0 with *type (NULL for any, pointing into a
 * copy in tbuf) and *idx, or -1 when malformed. */
static int parse_extended(const char *s, char *tbuf, size_t tsize, const char **type, int *idx)
{
	const char *open, *p;
	char *end;
	long v;
	size_t tl;

	if (s[0] != '@')
		return -1;
	open = strchr(s, '[');
	if (!open)
		return -1;
	tl = (size_t)(open - s - 1);
	if (tl >= tsize)
		return -1;
	memcpy(tbuf, s + 1, tl);
	tbuf[tl] = 0;
	if (tl && !ucii_valid_type(tbuf))
		return -1;
	p = open + 1;
	if (!*p || *p == ']')
		return -1;
	errno = 0;
	v = strtol(p, &end, 10);
	if (end == p || errno || *end != ']' || end[1] != 0 || v > 1000000 || v < -1000000)
		return -1;
	*type = tl ? tbuf : NULL;
	*idx = (int)v;
	return 0;
}

static struct uci_section *find_indexed(struct uci_package *p, const char *type, int idx)
{
	struct uci_element *e;
	int count = 0, i = 0;

	if (idx < 0) {
		uci_foreach_element(&p->sections, e)
			if (!type || !strcmp(uci_to_section(e)->type, type))
				count++;
		idx += count;
		if (idx < 0)
			return NULL;
	}
	uci_foreach_element(&p->sections, e) {
		struct uci_section *s = uci_to_section(e);
		if (type && strcmp(s->type, type))
			continue;
		if (i++ == idx)
			return s;
	}
	return NULL;
}

/* The lookup proper on the record's fields; p and s are used when set. */
static int lookup_fields(struct uci_context *ctx, struct uci_ptr *ptr, bool extended)
{
	char tbuf[256];
	const char *type = NULL;
	int idx = 0, rc;
	bool ext = false;
	struct uci_package *p = ptr->p;
	struct uci_section *s = ptr->s;

	if (!p && !ptr->package)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!s && ptr->section && !ucii_valid_name(ptr->section)) {
		if (parse_extended(ptr->section, tbuf, sizeof(tbuf), &type, &idx)) {
			memset(ptr, 0, sizeof(*ptr));
			return ucii_err(ctx, UCI_ERR_INVAL);
		}
		ext = true;
	}

	if (!p) {
		struct uci_element *e;
		uci_foreach_element(&ctx->root, e)
			if (!strcmp(e->name, ptr->package)) {
				p = uci_to_package(e);
				break;
			}
	}
	if (!p) {
		rc = uci_load(ctx, ptr->package, &p);
		if (rc) {
			ptr->p = NULL;
			ptr->s = NULL;
			ptr->o = NULL;
			ptr->last = NULL;
			if (rc == UCI_ERR_NOTFOUND)
				ptr->flags = UCI_LOOKUP_DONE;
			return ucii_err(ctx, rc);
		}
	}
	if (ext && !extended) {
		ptr->p = p;
		return ucii_err(ctx, UCI_ERR_INVAL);
	}

	ptr->flags = UCI_LOOKUP_DONE;
	if (ext)
		ptr->flags |= UCI_LOOKUP_EXTENDED;
	ptr->p = p;
	ptr->s = NULL;
	ptr->o = NULL;
	ptr->last = &p->e;

	if (!s && ptr->section) {
		if (ext)
			s = find_indexed(p, type, idx);
		else
			s = ucii_find_section(p, ptr->section);
	}
	if (!s) {
		if (!ptr->section)
			ptr->flags |= UCI_LOOKUP_COMPLETE;
		return ucii_err(ctx, 0);
	}
	ptr->s = s;
	ptr->section = s->e.name;
	ptr->last = &s->e;
	if (ptr->option) {
		ptr->o = ucii_find_option(s, ptr->option);
		if (!ptr->o)
			return ucii_err(ctx, 0);
		ptr->last = &ptr->o->e;
	}
	ptr->flags |= UCI_LOOKUP_COMPLETE;
	return ucii_err(ctx, 0);
}

int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended)
{
	int rc;
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (str) {
		rc = uci_parse_ptr(ctx, ptr, str);
		if (rc)
			return rc;
	}
	return lookup_fields(ctx, ptr, extended);
}

/* Makes a record usable by the change functions (see the header). */
static int expand_ptr(struct uci_context *ctx, struct uci_ptr *ptr, bool complete)
{
	int rc;
	if (!(ptr->flags & UCI_LOOKUP_DONE)) {
		rc = lookup_fields(ctx, ptr, true);
		if (rc)
			return rc;
	}
	if (ptr->p && !ptr->package)
		ptr->package = ptr->p->e.name;
	if (ptr->s && !ptr->section)
		ptr->section = ptr->s->e.name;
	if (ptr->o && !ptr->option)
		ptr->option = ptr->o->e.name;
	if (complete && !(ptr->flags & UCI_LOOKUP_COMPLETE))
		return ucii_err(ctx, UCI_ERR_NOTFOUND);
	if (!ptr->p)
		return ucii_err(ctx, UCI_ERR_INVAL);
	return 0;
}

static int record(struct uci_package *p, enum uci_command cmd, const char *section, const char *option, const char *value)
{
	if (!p->has_delta)
		return 0;
	return ucii_delta_add(&p->delta, cmd, section, option, value);
}

/* ---- changes ---- */

static int do_delete(struct uci_context *ctx, struct uci_package *p, struct uci_ptr *ptr)
{
	int rc;
	if (ptr->o) {
		rc = record(p, UCI_CMD_REMOVE, ptr->s->e.name, ptr->o->e.name, NULL);
		if (rc)
			return ucii_err(ctx, rc);
		ucii_option_free(ptr->o);
		ptr->o = NULL;
	} else {
		rc = record(p, UCI_CMD_REMOVE, ptr->s->e.name, NULL, NULL);
		if (rc)
			return ucii_err(ctx, rc);
		ucii_section_free(ptr->s);
		ptr->s = NULL;
	}
	return ucii_err(ctx, 0);
}

int uci_set(struct uci_context *ctx, struct uci_ptr *ptr)
{
	struct uci_package *p;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr || !ptr->value)
		return ucii_err(ctx, UCI_ERR_INVAL);
	rc = expand_ptr(ctx, ptr, false);
	if (rc)
		return rc;
	p = ptr->p;
	if (!ptr->section)
		return ucii_err(ctx, UCI_ERR_INVAL);

	if (ptr->option) {
		if (!ptr->s)
			return ucii_err(ctx, UCI_ERR_INVAL);
		if (!ptr->o)
			ptr->o = ucii_find_option(ptr->s, ptr->option);
		if (!ptr->value[0]) {
			if (!ptr->o)
				return ucii_err(ctx, 0);
			return do_delete(ctx, p, ptr);
		}
		if (ptr->o && ptr->o->type == UCI_TYPE_STRING && !strcmp(ptr->o->v.string, ptr->value))
			return ucii_err(ctx, 0);
		rc = record(p, UCI_CMD_CHANGE, ptr->s->e.name, ptr->option, ptr->value);
		if (rc)
			return ucii_err(ctx, rc);
		{
			struct uci_option *o = ucii_option_set(ptr->s, ptr->o, ptr->option, ptr->value);
			if (!o)
				return ucii_err(ctx, UCI_ERR_MEM);
			ptr->o = o;
		}
		return ucii_err(ctx, 0);
	}

	if (!ptr->value[0]) {
		if (!ptr->s)
			return ucii_err(ctx, 0);
		return do_delete(ctx, p, ptr);
	}
	if (!ucii_valid_type(ptr->value))
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!ptr->s) {
		struct uci_section *s;
		if (!ucii_valid_name(ptr->section))
			return ucii_err(ctx, UCI_ERR_INVAL);
		rc = record(p, UCI_CMD_CHANGE, ptr->section, NULL, ptr->value);
		if (rc)
			return ucii_err(ctx, rc);
		s = ucii_section_new(p, ptr->value, ptr->section);
		if (!s)
			return ucii_err(ctx, UCI_ERR_MEM);
		ptr->s = s;
		return ucii_err(ctx, 0);
	}
	if (!strcmp(ptr->s->type, ptr->value))
		return ucii_err(ctx, 0);
	rc = record(p, UCI_CMD_CHANGE, ptr->s->e.name, NULL, ptr->value);
	if (!rc)
		rc = ucii_section_retype(ptr->s, ptr->value);
	return ucii_err(ctx, rc);
}

int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
	struct uci_option *o;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr || !ptr->value)
		return ucii_err(ctx, UCI_ERR_INVAL);
	rc = expand_ptr(ctx, ptr, false);
	if (rc)
		return rc;
	if (!ptr->s || !ptr->option)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!ptr->o)
		ptr->o = ucii_find_option(ptr->s, ptr->option);
	rc = record(ptr->p, UCI_CMD_LIST_ADD, ptr->s->e.name, ptr->option, ptr->value);
	if (rc)
		return ucii_err(ctx, rc);
	o = ucii_option_add_item(ptr->s, ptr->o, ptr->option, ptr->value);
	if (!o)
		return ucii_err(ctx, UCI_ERR_MEM);
	ptr->o = o;
	return ucii_err(ctx, 0);
}

static void list_remove_value(struct uci_option *o, const char *value)
{
	struct uci_element *e, *tmp;
	uci_foreach_element_safe(&o->v.list, tmp, e) {
		if (!strcmp(e->name, value)) {
			ucii_list_del(&e->list);
			free(e->name);
			free(e);
		}
	}
}

int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr)
{
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr || !ptr->value)
		return ucii_err(ctx, UCI_ERR_INVAL);
	rc = expand_ptr(ctx, ptr, false);
	if (rc)
		return rc;
	if (!ptr->s || !ptr->option)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!ptr->o)
		ptr->o = ucii_find_option(ptr->s, ptr->option);
	if (!ptr->o || ptr->o->type != UCI_TYPE_LIST)
		return ucii_err(ctx, 0);
	rc = record(ptr->p, UCI_CMD_LIST_DEL, ptr->s->e.name, ptr->option, ptr->value);
	if (rc)
		return ucii_err(ctx, rc);
	list_remove_value(ptr->o, ptr->value);
	return ucii_err(ctx, 0);
}

/* Removes item idx of list o: 1 removed, 0 out of range. */
static int list_remove_index(struct uci_option *o, int idx)
{
	struct uci_element *e;
	int i = 0;
	if (idx < 0)
		return 0;
	uci_foreach_element(&o->v.list, e) {
		if (i++ == idx) {
			ucii_list_del(&e->list);
			free(e->name);
			free(e);
			return 1;
		}
	}
	return 0;
}

int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr)
{
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr)
		return ucii_err(ctx, UCI_ERR_INVAL);
	rc = expand_ptr(ctx, ptr, true);
	if (rc)
		return rc;
	if (!ptr->s)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (ptr->o && ptr->value && ptr->value[0] && ptr->o->type == UCI_TYPE_LIST) {
		int idx;
		char num[16];
		if (sscanf(ptr->value, "%d", &idx) != 1)
			return ucii_err(ctx, UCI_ERR_MEM);
		snprintf(num, sizeof(num), "%d", idx);
		if (!list_remove_index(ptr->o, idx))
			return ucii_err(ctx, 0);
		rc = record(ptr->p, UCI_CMD_REMOVE, ptr->s->e.name, ptr->o->e.name, num);
		return ucii_err(ctx, rc);
	}
	return do_delete(ctx, ptr->p, ptr);
}

int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr)
{
	char *n;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr)
		return ucii_err(ctx, UCI_ERR_INVAL);
	rc = expand_ptr(ctx, ptr, true);
	if (rc)
		return rc;
	if (!ptr->s || !ptr->value)
		return ucii_err(ctx, UCI_ERR_INVAL);
	n = strdup(ptr->value);
	if (!n)
		return ucii_err(ctx, UCI_ERR_MEM);
	rc = record(ptr->p, UCI_CMD_RENAME, ptr->s->e.name, ptr->o ? ptr->o->e.name : NULL, ptr->value);
	if (rc) {
		free(n);
		return ucii_err(ctx, rc);
	}
	if (ptr->o) {
		free(ptr->o->e.name);
		ptr->o->e.name = n;
		ptr->option = n;
	} else {
		free(ptr->s->e.name);
		ptr->s->e.name = n;
		ptr->s->anonymous = false;
		ucii_index_drop(ptr->p);
		ptr->section = n;
	}
	return ucii_err(ctx, 0);
}

int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type, struct uci_section **res)
{
	struct uci_section *s;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (res)
		*res = NULL;
	if (!p || !type)
		return ucii_err(ctx, UCI_ERR_INVAL);
	s = ucii_section_new(p, type, NULL);
	if (!s)
		return ucii_err(ctx, UCI_ERR_MEM);
	rc = record(p, UCI_CMD_ADD, s->e.name, NULL, type);
	if (rc) {
		ucii_section_free(s);
		return ucii_err(ctx, rc);
	}
	if (res)
		*res = s;
	return ucii_err(ctx, 0);
}

/* Moves s to position pos; true when it moved. */
static bool move_section(struct uci_section *s, int pos)
{
	struct uci_package *p = s->package;
	struct uci_element *e;
	struct uci_list *before = &p->sections;
	int i = 0;

	if (pos < 0)
		pos = 0;
	uci_foreach_element(&p->sections, e) {
		if (e == &s->e)
			continue;
		if (i++ == pos) {
			before = &e->list;
			break;
		}
	}
	if (s->e.list.next == before)
		return false;
	ucii_list_del(&s->e.list);
	ucii_list_insert_before(before, &s->e.list);
	return true;
}

int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos)
{
	char num[16];
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!s)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!move_section(s, pos))
		return ucii_err(ctx, 0);
	snprintf(num, sizeof(num), "%d", pos);
	return ucii_err(ctx, record(s->package, UCI_CMD_REORDER, s->e.name, NULL, num));
}

/* Replays one parsed change on p without recording it: 0 when it applied. */
int ucii_apply_delta(struct uci_context *ctx, struct uci_package *p, enum uci_command cmd,
		const char *section, const char *option, const char *value)
{
	struct uci_section *s = ucii_find_section(p, section);
	struct uci_option *o = (s && option) ? ucii_find_option(s, option) : NULL;
	(void)ctx;

	switch (cmd) {
	case UCI_CMD_ADD:
		if (option || !value || !ucii_valid_type(value))
			return -1;
		if (s)
			return ucii_section_retype(s, value);
		s = ucii_section_new(p, value, section);
		if (!s)
			return -1;
		s->anonymous = true;
		return 0;
	case UCI_CMD_REMOVE:
		if (!s || (option && !o))
			return -1;
		if (o) {
			if (value && value[0] && o->type == UCI_TYPE_LIST) {
				int idx;
				if (sscanf(value, "%d", &idx) != 1)
					return -1;
				list_remove_index(o, idx);
				return 0;
			}
			ucii_option_free(o);
		} else {
			ucii_section_free(s);
		}
		return 0;
	case UCI_CMD_CHANGE:
		if (!value)
			return -1;
		if (option) {
			if (!s)
				return -1;
			if (!value[0]) {
				if (o)
					ucii_option_free(o);
				return 0;
			}
			return ucii_option_set(s, o, option, value) ? 0 : -1;
		}
		if (!value[0]) {
			if (!s)
				return -1;
			ucii_section_free(s);
			return 0;
		}
		if (!ucii_valid_type(value))
			return -1;
		if (s)
			return strcmp(s->type, value) ? ucii_section_retype(s, value) : 0;
		return ucii_section_new(p, value, section) ? 0 : -1;
	case UCI_CMD_RENAME: {
		char *n;
		if (!s || !value || !ucii_valid_name(value) || (option && !o))
			return -1;
		n = strdup(value);
		if (!n)
			return -1;
		if (o) {
			free(o->e.name);
			o->e.name = n;
		} else {
			free(s->e.name);
			s->e.name = n;
			s->anonymous = false;
			ucii_index_drop(p);
		}
		return 0;
	}
	case UCI_CMD_REORDER:
		if (!s || option || !value)
			return -1;
		move_section(s, atoi(value));
		return 0;
	case UCI_CMD_LIST_ADD:
		if (!s || !option || !value)
			return -1;
		return ucii_option_add_item(s, o, option, value) ? 0 : -1;
	case UCI_CMD_LIST_DEL:
		if (!s || !option || !value)
			return -1;
		if (o && o->type == UCI_TYPE_LIST)
			list_remove_value(o, value);
		return 0;
	default:
		return -1;
	}
}

/* ---- section tables ---- */

void uci_parse_section(struct uci_section *s, const struct uci_parse_option *opts,
		int n_opts, struct uci_option **tb)
{
	struct uci_element *e;
	int i;

	memset(tb, 0, sizeof(*tb) * (size_t)(n_opts > 0 ? n_opts : 0));
	uci_foreach_element(&s->options, e) {
		struct uci_option *o = uci_to_option(e);
		for (i = 0; i < n_opts; i++) {
			if (tb[i] || strcmp(opts[i].name, o->e.name))
				continue;
			if (opts[i].type == o->type)
				tb[i] = o;
			break;
		}
	}
}

static uint32_t hash_str(uint32_t h, const char *s)
{
	for (; *s; s++)
		h = h * 33 + (unsigned char)*s;
	return h * 33;
}

uint32_t uci_hash_options(struct uci_option **tb, int n_opts)
{
	uint32_t h = 0xdeadc0de;
	int i;
	for (i = 0; i < n_opts; i++) {
		struct uci_option *o = tb[i];
		struct uci_element *e;
		if (!o)
			continue;
		h = hash_str(h, o->e.name);
		if (o->type == UCI_TYPE_STRING) {
			h = hash_str(h, o->v.string);
		} else {
			uci_foreach_element(&o->v.list, e)
				h = hash_str(h, e->name);
		}
	}
	return h;
}
