/* The configuration file grammar (reading and writing) and delta lines. */
#define _GNU_SOURCE
#include "internal.h"

struct parser {
	struct uci_context *ctx;
	const char *buf;
	size_t len;
	size_t pos;
	size_t line_start;   /* start of the logical line */
	int line;
	bool cmd_done;       /* the current command has no more arguments */
	bool line_done;      /* the logical line was consumed */
	const char *reason;  /* error */
	/* word scratch, and the kept arguments of the current command */
	char *w;
	size_t wlen, wcap;
	char *slot[2];
	size_t slotcap[2];
};

static int peek(struct parser *ps, size_t off)
{
	return ps->pos + off < ps->len ? (unsigned char)ps->buf[ps->pos + off] : -1;
}

/* Counts the physical line starting at pos when it ends with a line feed. */
static void count_line(struct parser *ps)
{
	if (ps->pos < ps->len && memchr(ps->buf + ps->pos, '\n', ps->len - ps->pos))
		ps->line++;
}

static void consume_lf(struct parser *ps)
{
	ps->pos++;
	count_line(ps);
}

static void begin_line(struct parser *ps)
{
	ps->line_start = ps->pos;
	ps->line_done = false;
	ps->cmd_done = false;
	count_line(ps);
}

static bool wput(struct parser *ps, char c)
{
	return ucii_buf_put(&ps->w, &ps->wlen, &ps->wcap, c);
}

/* Appends n bytes of the input at pos and moves past them. */
static bool wtake(struct parser *ps, size_t n)
{
	if (ps->wlen + n + 1 > ps->wcap) {
		size_t cap = ps->wcap ? ps->wcap : 64;
		char *w;
		while (ps->wlen + n + 1 > cap)
			cap *= 2;
		w = realloc(ps->w, cap);
		if (!w)
			return false;
		ps->w = w;
		ps->wcap = cap;
	}
	memcpy(ps->w + ps->wlen, ps->buf + ps->pos, n);
	ps->wlen += n;
	ps->w[ps->wlen] = 0;
	ps->pos += n;
	return true;
}

/* Bytes that end a run of plain text, and a run inside single quotes. */
static const unsigned char plain_stop[256] = {
	[' '] = 1, ['\t'] = 1, ['\n'] = 1, [';'] = 1, ['#'] = 1,
	['\''] = 1, ['"'] = 1, ['\\'] = 1,
};
static const unsigned char squote_stop[256] = {
	['\''] = 1, ['\n'] = 1,
};

/* Length of the run at pos holding none of the stop bytes. */
static size_t run_length(struct parser *ps, const unsigned char *stop)
{
	size_t i = ps->pos;
	while (i < ps->len && !stop[(unsigned char)ps->buf[i]])
		i++;
	return i - ps->pos;
}

static void skip_rest_of_line(struct parser *ps)
{
	const char *nl;
	if (ps->line_done)
		return;
	nl = ps->pos < ps->len ? memchr(ps->buf + ps->pos, '\n', ps->len - ps->pos) : NULL;
	ps->pos = nl ? (size_t)(nl - ps->buf) + 1 : ps->len;
	ps->line_done = true;
	ps->cmd_done = true;
}

/* The text the parsers read.  A NUL byte ends its line: the bytes after it
 * up to the line feed are not read.  Returns buf, or when it holds a NUL a
 * copy without those bytes (also in *own, to be freed; *len updated), or
 * NULL when out of memory. */
static const char *readable_text(const char *buf, size_t *len, char **own)
{
	const char *p = buf, *end = buf + *len, *nul;
	char *o;

	*own = NULL;
	if (!*len || !memchr(buf, 0, *len))
		return buf;
	o = *own = malloc(*len + 1);
	if (!o)
		return NULL;
	while ((nul = memchr(p, 0, (size_t)(end - p))) != NULL) {
		const char *nl = memchr(nul, '\n', (size_t)(end - nul));
		memcpy(o, p, (size_t)(nul - p));
		o += nul - p;
		p = nl ? nl : end;
	}
	memcpy(o, p, (size_t)(end - p));
	o += end - p;
	*o = 0;
	*len = (size_t)(o - *own);
	return *own;
}

/* Reads the next argument of the command into ps->w: 1 read, 0 none left,
 * -1 error (ps->reason set). */
static int read_arg(struct parser *ps)
{
	int c;

	if (ps->cmd_done)
		return 0;
	while ((c = peek(ps, 0)) == ' ' || c == '\t')
		ps->pos++;
	switch (c) {
	case -1:
		ps->cmd_done = ps->line_done = true;
		return 0;
	case '\n':
		ps->pos++;
		ps->cmd_done = ps->line_done = true;
		return 0;
	case '#':
		skip_rest_of_line(ps);
		return 0;
	case ';':
		ps->pos++;
		ps->cmd_done = true;
		return 0;
	}

	ps->wlen = 0;
	if (!wput(ps, 0))
		goto nomem;
	ps->wlen = 0;
	for (;;) {
		c = peek(ps, 0);
		if (c == -1 || c == ' ' || c == '\t' || c == '\n' || c == ';' || c == '#')
			break;
		if (c == '\'') {
			ps->pos++;
			for (;;) {
				c = peek(ps, 0);
				if (c == -1) {
					ps->reason = "EOF with unterminated '";
					return -1;
				}
				if (c == '\'') {
					ps->pos++;
					break;
				}
				if (c == '\n') {
					if (!wput(ps, (char)c))
						goto nomem;
					consume_lf(ps);
					continue;
				}
				if (!wtake(ps, run_length(ps, squote_stop)))
					goto nomem;
			}
		} else if (c == '"') {
			ps->pos++;
			for (;;) {
				c = peek(ps, 0);
				if (c == -1) {
					ps->reason = "EOF with unterminated \"";
					return -1;
				}
				if (c == '"') {
					ps->pos++;
					break;
				}
				if (c == '\\') {
					int n = peek(ps, 1);
					ps->pos++;
					if (n == '\n') {
						consume_lf(ps);
						continue;
					}
					if (n == -1)
						continue;
					c = n;
				}
				if (!wput(ps, (char)c))
					goto nomem;
				if (c == '\n')
					consume_lf(ps);
				else
					ps->pos++;
			}
		} else if (c == '\\') {
			int n = peek(ps, 1);
			ps->pos++;
			if (n == '\n') {
				consume_lf(ps);
			} else if (n != -1) {
				if (!wput(ps, (char)n))
					goto nomem;
				ps->pos++;
			}
		} else {
			if (!wtake(ps, run_length(ps, plain_stop)))
				goto nomem;
		}
	}
	c = peek(ps, 0);
	if (c == ' ' || c == '\t') {
		ps->pos++;
	} else if (c == '\n') {
		ps->pos++;
		ps->cmd_done = ps->line_done = true;
	}
	return 1;

nomem:
	ps->reason = NULL;
	return -1;
}

/* Copy of the current word (NULL when out of memory). */
static char *take_word(struct parser *ps)
{
	return strdup(ps->wlen ? ps->w : "");
}

/* Keeps the current word as argument k of the command, valid until the
 * next command; its buffer is swapped in, nothing is copied. */
static char *keep_word(struct parser *ps, int k)
{
	char *w = ps->w;
	size_t cap = ps->wcap;
	if (!ps->wlen)
		w[0] = 0;
	ps->w = ps->slot[k];
	ps->wcap = ps->slotcap[k];
	ps->slot[k] = w;
	ps->slotcap[k] = cap;
	return w;
}

static bool valid_package_line(const char *s)
{
	if (!*s)
		return false;
	for (; *s; s++)
		if (!((*s >= 'a' && *s <= 'z') || (*s >= 'A' && *s <= 'Z') ||
		      (*s >= '0' && *s <= '9') || *s == '_' || *s == '-'))
			return false;
	return true;
}

struct cfg_state {
	struct ucii_parse_job *job;
	struct uci_package *pkg;
	struct uci_section *sec;
	char *secname;        /* MERGE: name of the current section */
	int nomem;
};

static struct uci_package *import_package(struct parser *ps, struct cfg_state *st, const char *name)
{
	struct uci_context *ctx = ps->ctx;
	struct uci_package *p;
	struct uci_element *e;

	uci_foreach_element(&ctx->root, e) {
		if (!strcmp(e->name, name)) {
			ps->reason = NULL;
			st->nomem = UCI_ERR_DUPLICATE;
			return NULL;
		}
	}
	p = ucii_package_new(ctx, name);
	if (!p) {
		st->nomem = UCI_ERR_MEM;
		return NULL;
	}
	ucii_list_add(&ctx->root, &p->e.list);
	if (!st->job->pkg)
		st->job->pkg = p;
	st->job->last = p;
	return p;
}

static int merge_set(struct uci_context *ctx, struct uci_package *p, const char *sec, const char *opt,
		const char *value, bool list)
{
	struct uci_ptr ptr;
	memset(&ptr, 0, sizeof(ptr));
	ptr.p = p;
	ptr.package = p->e.name;
	ptr.section = sec;
	ptr.option = opt;
	ptr.value = value;
	return list ? uci_add_list(ctx, &ptr) : uci_set(ctx, &ptr);
}

/* One command; the keyword has been read and starts at kw_at. */
static int run_command(struct parser *ps, struct cfg_state *st, char kw, size_t kw_at)
{
	struct ucii_parse_job *job = st->job;
	char *a = NULL, *b = NULL;
	int rc = -1, r;

	/* Checked before any argument is read: reported at the keyword. */
	if (kw == 'o' || kw == 'l') {
		if (!st->pkg && !job->name)
			ps->reason = "attempting to import a file without a package name";
		else if (!st->sec && !st->secname)
			ps->reason = "option/list command found before the first section";
	} else if (kw == 'c' && !st->pkg) {
		if (job->name)
			st->pkg = import_package(ps, st, job->name);
		else
			ps->reason = "attempting to import a file without a package name";
		if (!st->pkg && !ps->reason)
			return -1;
	}
	if (ps->reason) {
		ps->pos = kw_at;
		return -1;
	}
	/* A keyword that ends the text: reported where the name would be. */
	if (ps->pos > ps->len) {
		ps->reason = kw == 'p' ? "package without name" :
			kw == 'c' ? "config without name" : "option without name";
		return -1;
	}

	r = read_arg(ps);
	if (r < 0)
		return -1;
	if (r == 0) {
		ps->reason = "insufficient arguments";
		return -1;
	}
	a = keep_word(ps, 0);

	switch (kw) {
	case 'p':
		if (!valid_package_line(a)) {
			ps->reason = "invalid character in name field";
			goto out;
		}
		if ((r = read_arg(ps)) != 0) {
			if (r > 0)
				ps->reason = "too many arguments";
			goto out;
		}
		if (job->mode == UCII_PARSE_IMPORT && !job->single) {
			st->pkg = import_package(ps, st, a);
			st->sec = NULL;
			if (!st->pkg)
				goto out;
		}
		rc = 0;
		break;

	case 'c': {
		struct uci_section *s = NULL;
		if (!ucii_valid_type(a)) {
			ps->reason = "invalid character in type field";
			goto out;
		}
		r = read_arg(ps);
		if (r < 0)
			goto out;
		if (r > 0) {
			b = keep_word(ps, 1);
			if (!ucii_valid_name(b)) {
				ps->reason = "invalid character in name field";
				goto out;
			}
			if ((r = read_arg(ps)) != 0) {
				if (r > 0)
					ps->reason = "too many arguments";
				goto out;
			}
		}
		st->sec = NULL;
		if (job->mode == UCII_PARSE_MERGE) {
			free(st->secname);
			st->secname = NULL;
			if (b) {
				int e = merge_set(ps->ctx, st->pkg, b, NULL, a, false);
				if (e) {
					st->nomem = e;
					goto out;
				}
				st->secname = strdup(b);
				if (!st->secname)
					goto nomem;
			} else {
				int e = uci_add_section(ps->ctx, st->pkg, a, &s);
				if (e) {
					st->nomem = e;
					goto out;
				}
				st->secname = strdup(s->e.name);
				if (!st->secname)
					goto nomem;
			}
			rc = 0;
			break;
		}
		if (b) {
			s = ucii_find_section(st->pkg, b);
			if (s && strcmp(s->type, a)) {
				ps->reason = "section of different type overwrites prior section with same name";
				goto out;
			}
		}
		if (!s)
			s = ucii_section_new(st->pkg, a, b);
		if (!s)
			goto nomem;
		st->sec = s;
		rc = 0;
		break;
	}

	case 'o':
	case 'l':
		if (!ucii_valid_name(a)) {
			ps->reason = "invalid character in name field";
			goto out;
		}
		r = read_arg(ps);
		if (r < 0)
			goto out;
		if (r == 0 && kw == 'l') {
			ps->reason = "insufficient arguments";
			goto out;
		}
		if (r > 0) {
			b = keep_word(ps, 1);
			if ((r = read_arg(ps)) != 0) {
				if (r > 0)
					ps->reason = "too many arguments";
				goto out;
			}
		}
		if (kw == 'o' && (!b || !*b)) {
			rc = 0;
			break;
		}
		if (job->mode == UCII_PARSE_MERGE) {
			int e = merge_set(ps->ctx, st->pkg, st->secname, a, b, kw == 'l');
			if (e) {
				st->nomem = e;
				goto out;
			}
		} else {
			struct uci_option *o = ucii_find_option(st->sec, a);
			if (kw == 'o')
				o = ucii_option_set(st->sec, o, a, b);
			else
				o = ucii_option_add_item(st->sec, o, a, b);
			if (!o)
				goto nomem;
		}
		rc = 0;
		break;
	}
out:
	return rc;
nomem:
	st->nomem = UCI_ERR_MEM;
	ps->reason = NULL;
	return -1;
}

/* Reads the keyword at pos (split at blank or TAB only): *kw is 'c', 'o',
 * 'l' or 'p', or 0 for a comment (the line is skipped); *at is where the
 * word starts.  -1 for any other word. */
static int read_keyword(struct parser *ps, char *kw, size_t *at)
{
	size_t start = ps->pos, end = start, n;
	char c = ps->buf[start];
	const char *word = c == 'c' ? "config" : c == 'o' ? "option" :
		c == 'l' ? "list" : c == 'p' ? "package" : NULL;

	while (end < ps->len && ps->buf[end] != ' ' && ps->buf[end] != '\t') {
		if (ps->buf[end++] == '\n')
			break;
	}
	*at = start;
	*kw = 0;
	if (c == '#') {
		skip_rest_of_line(ps);
		return 0;
	}
	n = end - start;
	if (word && (n == 1 || (n == strlen(word) && !memcmp(ps->buf + start, word, n)))) {
		*kw = c;
		/* past the keyword and the blank after it (past the end of the
		 * text when nothing follows) */
		ps->pos = end + 1;
		return 0;
	}
	ps->reason = "invalid command";
	return -1;
}

int ucii_parse_config(struct uci_context *ctx, const char *buf, size_t len, struct ucii_parse_job *job)
{
	struct parser ps;
	struct cfg_state st;
	char *own;
	int rc = 0;

	ucii_pctx_clear(ctx);
	buf = readable_text(buf, &len, &own);
	if (!buf)
		return UCI_ERR_MEM;
	memset(&ps, 0, sizeof(ps));
	memset(&st, 0, sizeof(st));
	ps.ctx = ctx;
	ps.buf = buf;
	ps.len = len;
	st.job = job;
	if (job->mode != UCII_PARSE_IMPORT)
		st.pkg = job->pkg;

	while (ps.pos < ps.len) {
		begin_line(&ps);
		while (!ps.line_done) {
			char kw = 0;
			size_t at = 0;
			int c;

			ps.cmd_done = false;
			ps.reason = NULL;
			while ((c = peek(&ps, 0)) == ' ' || c == '\t')
				ps.pos++;
			if (c == -1)
				break;
			if (c == '\n') {
				ps.pos++;
				break;
			}
			if (read_keyword(&ps, &kw, &at) == 0) {
				if (!kw)
					break;
				if (run_command(&ps, &st, kw, at) == 0) {
					if (!ps.cmd_done) {
						/* the command ended without its separator */
						ps.cmd_done = true;
					}
					continue;
				}
			}
			if (st.nomem) {
				rc = st.nomem;
				goto done;
			}
			ucii_parse_error(ctx, ps.reason, ps.line, (int)(ps.pos - ps.line_start));
			if (ctx->flags & UCI_FLAG_STRICT) {
				rc = UCI_ERR_PARSE;
				goto done;
			}
			if (ctx->flags & UCI_FLAG_PERROR)
				fprintf(stderr, "Parse error (%s) at line %d, byte %d\n",
					ps.reason, ps.line, (int)(ps.pos - ps.line_start));
			if (kw == 'c')
				st.sec = NULL;
			skip_rest_of_line(&ps);
		}
	}
done:
	free(own);
	free(st.secname);
	free(ps.w);
	free(ps.slot[0]);
	free(ps.slot[1]);
	return rc;
}

/* ---- delta lines ---- */

int ucii_parse_delta_lines(struct uci_context *ctx, const char *buf, size_t len, ucii_delta_line_fn fn, void *arg)
{
	struct parser ps;
	char *own;
	int rc = 0;

	buf = readable_text(buf, &len, &own);
	if (!buf)
		return UCI_ERR_MEM;
	memset(&ps, 0, sizeof(ps));
	ps.ctx = ctx;
	ps.buf = buf;
	ps.len = len;
	while (ps.pos < ps.len) {
		size_t start = ps.pos;
		int r;
		begin_line(&ps);
		r = read_arg(&ps);
		if (r < 0) {
			if (!ps.reason) {
				rc = UCI_ERR_MEM;
				break;
			}
			break;  /* unterminated quote: the rest is unusable */
		}
		if (r > 0) {
			char *w = take_word(&ps);
			if (!w) {
				rc = UCI_ERR_MEM;
				break;
			}
			skip_rest_of_line(&ps);
			r = fn(arg, w, buf + start, ps.pos - start);
			free(w);
			if (r)
				break;
		} else {
			skip_rest_of_line(&ps);
		}
	}
	free(own);
	free(ps.w);
	return rc;
}

static enum uci_command delta_cmd(char **word)
{
	switch (**word) {
	case '+': (*word)++; return UCI_CMD_ADD;
	case '-': (*word)++; return UCI_CMD_REMOVE;
	case '@': (*word)++; return UCI_CMD_RENAME;
	case '^': (*word)++; return UCI_CMD_REORDER;
	case '|': (*word)++; return UCI_CMD_LIST_ADD;
	case '~': (*word)++; return UCI_CMD_LIST_DEL;
	default: return UCI_CMD_CHANGE;
	}
}

struct replay {
	struct uci_context *ctx;
	struct uci_package *p;
	int applied;
};

static int replay_line(void *arg, char *word, const char *line, size_t n)
{
	struct replay *r = arg;
	struct uci_ptr ptr;
	enum uci_command cmd = delta_cmd(&word);
	int err = r->ctx->err;
	(void)line;
	(void)n;

	if (uci_parse_ptr(r->ctx, &ptr, word)) {
		r->ctx->err = err;
		return 0;
	}
	r->ctx->err = err;
	if (strcmp(ptr.package, r->p->e.name) || !ptr.section || !ucii_valid_name(ptr.section))
		return 0;
	if (cmd != UCI_CMD_REMOVE && !ptr.value)
		return 0;
	if (r->ctx->flags & UCI_FLAG_SAVED_DELTA)
		ucii_delta_add(&r->p->saved_delta, cmd, ptr.section, ptr.option, ptr.value);
	if (ucii_apply_delta(r->ctx, r->p, cmd, ptr.section, ptr.option, ptr.value) == 0)
		r->applied++;
	return 0;
}

int ucii_delta_replay(struct uci_context *ctx, struct uci_package *p, const char *buf, size_t len)
{
	struct replay r = { ctx, p, 0 };
	ucii_parse_delta_lines(ctx, buf, len, replay_line, &r);
	return r.applied;
}

/* ---- writer ---- */

void ucii_write_escaped(FILE *f, const char *s)
{
	const char *q;
	while ((q = strchr(s, '\'')) != NULL) {
		fwrite(s, 1, (size_t)(q - s), f);
		fputs("'\\''", f);
		s = q + 1;
	}
	fputs(s, f);
}

static void write_quoted(FILE *f, const char *s)
{
	fputc('\'', f);
	ucii_write_escaped(f, s);
	fputc('\'', f);
}

void ucii_write_package(struct uci_context *ctx, FILE *f, struct uci_package *p, bool header)
{
	struct uci_element *se, *oe, *ie;

	if (header) {
		fputs("package ", f);
		ucii_write_escaped(f, p->e.name);
		fputc('\n', f);
	}
	uci_foreach_element(&p->sections, se) {
		struct uci_section *s = uci_to_section(se);
		fputs("\nconfig ", f);
		/* Types are written bare; one the reader would take apart
		 * (quotes, backslash, comment or command separators) is quoted. */
		if (strpbrk(s->type, "'\"\\#;"))
			write_quoted(f, s->type);
		else
			fputs(s->type, f);
		if (!s->anonymous || (ctx->flags & UCI_FLAG_EXPORT_NAME)) {
			fputc(' ', f);
			write_quoted(f, s->e.name);
		}
		fputc('\n', f);
		uci_foreach_element(&s->options, oe) {
			struct uci_option *o = uci_to_option(oe);
			if (o->type == UCI_TYPE_STRING) {
				fputs("\toption ", f);
				ucii_write_escaped(f, o->e.name);
				fputc(' ', f);
				write_quoted(f, o->v.string);
				fputc('\n', f);
				continue;
			}
			uci_foreach_element(&o->v.list, ie) {
				fputs("\tlist ", f);
				ucii_write_escaped(f, o->e.name);
				fputc(' ', f);
				write_quoted(f, ie->name);
				fputc('\n', f);
			}
		}
	}
	fputc('\n', f);
}

void ucii_write_delta(FILE *f, const char *pkg, struct uci_delta *d)
{
	char prefix = uci_command_char[d->cmd];
	if (prefix)
		fputc(prefix, f);
	fputs(pkg, f);
	fputc('.', f);
	fputs(d->section, f);
	if (d->e.name) {
		fputc('.', f);
		fputs(d->e.name, f);
	}
	if (d->value) {
		fputc('=', f);
		write_quoted(f, d->value);
	}
	fputc('\n', f);
}
