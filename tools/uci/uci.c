/* uci: read, stage, commit and export configuration from the shell. */
#define _GNU_SOURCE
#include <uci.h>

#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <unistd.h>

enum {
	CLI_QUIET = 1 << 0,
	CLI_NOCOMMIT = 1 << 1,
	CLI_MERGE = 1 << 2,
	CLI_SHOW_EXT = 1 << 3,
};

static const char *appname = "uci";
static const char *delimiter = " ";
static int cli_flags;
static struct uci_context *ctx;
static FILE *input;

static void usage(void)
{
	fprintf(stderr,
		"Usage: %s [<options>] <command> [<arguments>]\n\n"
		"Commands:\n"
		"\tbatch\n"
		"\texport     [<config>]\n"
		"\timport     [<config>]\n"
		"\tchanges    [<config>]\n"
		"\tcommit     [<config>]\n"
		"\tadd        <config> <section-type>\n"
		"\tadd_list   <config>.<section>.<option>=<string>\n"
		"\tdel_list   <config>.<section>.<option>=<string>\n"
		"\tshow       [<config>[.<section>[.<option>]]]\n"
		"\tget        <config>.<section>[.<option>]\n"
		"\tset        <config>.<section>[.<option>]=<value>\n"
		"\tdelete     <config>.<section>[.<option>]\n"
		"\trename     <config>.<section>[.<option>]=<name>\n"
		"\trevert     <config>[.<section>[.<option>]]\n"
		"\treorder    <config>.<section>=<position>\n"
		"\n"
		"Options:\n"
		"\t-c <path>  set the search path for config files (default: /etc/config)\n"
		"\t-C <path>  set the search path for config override files (default: /var/run/uci)\n"
		"\t-d <str>   set the delimiter for list values in uci show\n"
		"\t-f <file>  use <file> as input instead of stdin\n"
		"\t-m         when importing, merge data into an existing package\n"
		"\t-n         name unnamed sections on export (default)\n"
		"\t-N         don't name unnamed sections\n"
		"\t-p <path>  add a search path for config change files\n"
		"\t-P <path>  add a search path for config change files and use as default\n"
		"\t-t <path>  set save path for config change files\n"
		"\t-q         quiet mode (don't print error messages)\n"
		"\t-s         force strict mode (stop on parser errors, default)\n"
		"\t-S         disable strict mode\n"
		"\t-X         do not use extended syntax on 'show'\n"
		"\n",
		appname);
}

static void cli_perror(void)
{
	if (!(cli_flags & CLI_QUIET))
		uci_perror(ctx, appname);
}

static int fail(int err)
{
	ctx->err = err;
	cli_perror();
	return 1;
}

/* ---- output ---- */

static void print_quoted(const char *s)
{
	putchar('\'');
	for (; *s; s++) {
		if (*s == '\'')
			fputs("'\\''", stdout);
		else
			putchar(*s);
	}
	putchar('\'');
}

static void print_value(struct uci_option *o, bool show)
{
	struct uci_element *e;
	bool first = true;

	if (o->type == UCI_TYPE_STRING) {
		if (show)
			print_quoted(o->v.string);
		else
			fputs(o->v.string, stdout);
		return;
	}
	uci_foreach_element(&o->v.list, e) {
		if (!first)
			fputs(delimiter, stdout);
		first = false;
		if (show || strpbrk(e->name, " \t\r\n"))
			print_quoted(e->name);
		else
			fputs(e->name, stdout);
	}
}

/* The show reference of s: its name, or @type[n] for an anonymous one. */
static void section_ref(struct uci_section *s, char *buf, size_t size)
{
	struct uci_element *e;
	int n = 0;

	if (!s->anonymous || (cli_flags & CLI_SHOW_EXT)) {
		snprintf(buf, size, "%s", s->e.name);
		return;
	}
	uci_foreach_element(&s->package->sections, e) {
		struct uci_section *x = uci_to_section(e);
		if (x == s)
			break;
		if (!strcmp(x->type, s->type))
			n++;
	}
	snprintf(buf, size, "@%s[%d]", s->type, n);
}

static void show_option(struct uci_option *o, const char *ref)
{
	printf("%s.%s.%s=", o->section->package->e.name, ref, o->e.name);
	print_value(o, true);
	putchar('\n');
}

static void show_section(struct uci_section *s, const char *ref)
{
	struct uci_element *e;
	printf("%s.%s=%s\n", s->package->e.name, ref, s->type);
	uci_foreach_element(&s->options, e)
		show_option(uci_to_option(e), ref);
}

static void show_package(struct uci_package *p)
{
	struct uci_element *e;
	uci_foreach_element(&p->sections, e) {
		struct uci_section *s = uci_to_section(e);
		char ref[512];
		section_ref(s, ref, sizeof(ref));
		show_section(s, ref);
	}
}

static void show_changes(struct uci_package *p)
{
	struct uci_element *e;
	uci_foreach_element(&p->saved_delta, e) {
		struct uci_delta *d = uci_to_delta(e);
		const char *op = "";
		if (d->cmd == UCI_CMD_REMOVE)
			putchar('-');
		printf("%s.%s", p->e.name, d->section);
		if (d->e.name)
			printf(".%s", d->e.name);
		if (d->cmd == UCI_CMD_REMOVE || !d->value) {
			putchar('\n');
			continue;
		}
		if (d->cmd == UCI_CMD_LIST_ADD)
			op = "+";
		else if (d->cmd == UCI_CMD_LIST_DEL)
			op = "-";
		printf("%s=", op);
		print_quoted(d->value);
		putchar('\n');
	}
}

/* ---- package-wide commands ---- */

enum pkg_cmd { PKG_SHOW, PKG_CHANGES, PKG_COMMIT, PKG_EXPORT };

static int package_cmd(enum pkg_cmd cmd, struct uci_package *p)
{
	switch (cmd) {
	case PKG_SHOW:
		show_package(p);
		break;
	case PKG_CHANGES:
		show_changes(p);
		break;
	case PKG_COMMIT:
		if (cli_flags & CLI_NOCOMMIT)
			break;
		if (uci_commit(ctx, &p, false)) {
			cli_perror();
			return 1;
		}
		break;
	case PKG_EXPORT:
		uci_export(ctx, stdout, p, true);
		break;
	}
	return 0;
}

static struct uci_package *find_loaded(const char *name)
{
	struct uci_element *e;
	uci_foreach_element(&ctx->root, e)
		if (!strcmp(e->name, name))
			return uci_to_package(e);
	return NULL;
}

static int all_packages(enum pkg_cmd cmd)
{
	char **configs = NULL, **name;

	if (cmd == PKG_COMMIT && (cli_flags & CLI_NOCOMMIT))
		return 0;
	if (uci_list_configs(ctx, &configs)) {
		cli_perror();
		return 1;
	}
	for (name = configs; *name; name++) {
		struct uci_package *p = find_loaded(*name);
		if (!p && uci_load(ctx, *name, &p)) {
			cli_perror();
			continue;
		}
		package_cmd(cmd, p);
		if (cmd != PKG_COMMIT)
			uci_unload(ctx, p);
	}
	free(configs);
	return 0;
}

static int one_package(enum pkg_cmd cmd, char *arg)
{
	struct uci_ptr ptr;

	if (cmd == PKG_COMMIT && (cli_flags & CLI_NOCOMMIT))
		return 0;
	if (uci_lookup_ptr(ctx, &ptr, arg, true)) {
		cli_perror();
		return 1;
	}
	if (cmd == PKG_SHOW) {
		if (!(ptr.flags & UCI_LOOKUP_COMPLETE))
			return fail(UCI_ERR_NOTFOUND);
		if (ptr.o)
			show_option(ptr.o, ptr.s->e.name);
		else if (ptr.s)
			show_section(ptr.s, ptr.s->e.name);
		else
			show_package(ptr.p);
		return 0;
	}
	if (!ptr.p)
		return fail(UCI_ERR_NOTFOUND);
	return package_cmd(cmd, ptr.p);
}

/* ---- import ---- */

static int cmd_import(char *name)
{
	struct uci_package *p = NULL;
	struct uci_element *e, *tmp;

	if (cli_flags & CLI_MERGE) {
		if (!name)
			return fail(UCI_ERR_INVAL);
		if (uci_load(ctx, name, &p)) {
			cli_perror();
			return 1;
		}
		if (uci_import(ctx, input, name, &p, true) || uci_save(ctx, p)) {
			cli_perror();
			return 1;
		}
		return 0;
	}
	if (uci_import(ctx, input, name, &p, false)) {
		cli_perror();
		return 1;
	}
	/* each package read replaces <confdir>/<name> */
	uci_foreach_element_safe(&ctx->root, tmp, e) {
		p = uci_to_package(e);
		if (uci_commit(ctx, &p, true)) {
			cli_perror();
			return 1;
		}
	}
	return 0;
}

/* ---- tuple commands ---- */

enum tuple_cmd { T_GET, T_SET, T_DEL, T_ADD_LIST, T_DEL_LIST, T_RENAME, T_REVERT, T_REORDER };

static int tuple_cmd(enum tuple_cmd cmd, char *arg)
{
	struct uci_ptr ptr;
	int rc = 0;

	if (uci_lookup_ptr(ctx, &ptr, arg, true)) {
		cli_perror();
		return 1;
	}
	if (ptr.value && (cmd == T_GET || cmd == T_REVERT))
		return 1;

	switch (cmd) {
	case T_GET:
		if (!(ptr.flags & UCI_LOOKUP_COMPLETE))
			return fail(UCI_ERR_NOTFOUND);
		if (ptr.o) {
			print_value(ptr.o, false);
			putchar('\n');
		} else if (ptr.s) {
			printf("%s\n", ptr.s->type);
		}
		return 0;
	case T_SET:
		rc = ptr.value ? uci_set(ctx, &ptr) : (ctx->err = UCI_ERR_INVAL);
		break;
	case T_DEL:
		if (ptr.value && ptr.value[0]) {
			int idx;
			if (sscanf(ptr.value, "%d", &idx) != 1)
				return 1;
		}
		rc = uci_delete(ctx, &ptr);
		break;
	case T_ADD_LIST:
		rc = uci_add_list(ctx, &ptr);
		break;
	case T_DEL_LIST:
		rc = uci_del_list(ctx, &ptr);
		break;
	case T_RENAME:
		rc = uci_rename(ctx, &ptr);
		break;
	case T_REVERT:
		rc = uci_revert(ctx, &ptr);
		if (rc) {
			cli_perror();
			return 1;
		}
		return 0;
	case T_REORDER:
		if (!ptr.s || !ptr.value || ptr.o)
			return fail(ptr.s ? UCI_ERR_INVAL : UCI_ERR_NOTFOUND);
		rc = uci_reorder_section(ctx, ptr.s, (int)strtol(ptr.value, NULL, 10));
		break;
	}
	if (rc) {
		cli_perror();
		return 1;
	}
	if (ptr.p && uci_save(ctx, ptr.p)) {
		cli_perror();
		return 1;
	}
	return 0;
}

static int cmd_add(char *pkg, const char *type)
{
	struct uci_package *p = find_loaded(pkg);
	struct uci_section *s = NULL;
	int rc;

	if (!p) {
		rc = uci_load(ctx, pkg, &p);
		if (rc) {
			cli_perror();
			return rc;
		}
	}
	rc = uci_add_section(ctx, p, type, &s);
	if (!rc)
		rc = uci_save(ctx, p);
	if (rc) {
		cli_perror();
		return rc;
	}
	printf("%s\n", s->e.name);
	return 0;
}

/* ---- dispatch ---- */

static int run(int argc, char **argv);

/* Runs one command per line of the input, each as if given on the command
 * line: the packages it loaded are dropped afterwards. */
static int cmd_batch(void)
{
	enum { MAX_ARGS = 8 };
	char *line = NULL;
	int rc = 0;

	while (!feof(input)) {
		struct uci_element *e, *tmp;
		char *args[MAX_ARGS], *w;
		int n;

		if (uci_parse_argument(ctx, input, &line, &args[0])) {
			cli_perror();
			return 1;
		}
		if (!args[0][0])
			continue;
		/* every word of the line is read; past MAX_ARGS they only count */
		for (n = 1;; n++) {
			if (uci_parse_argument(ctx, input, &line, &w)) {
				cli_perror();
				return 1;
			}
			if (!w[0])
				break;
			if (n < MAX_ARGS)
				args[n] = w;
		}
		if (!strcmp(args[0], "exit"))
			break;
		rc = run(n < MAX_ARGS ? n : MAX_ARGS, args);
		fflush(stdout);
		uci_foreach_element_safe(&ctx->root, tmp, e)
			uci_unload(ctx, uci_to_package(e));
	}
	return rc;
}

static int run(int argc, char **argv)
{
	const char *c = argv[0];
	char *arg = argc > 1 ? argv[1] : NULL;

	if (!strcasecmp(c, "batch") && argc == 1)
		return cmd_batch();
	if (!strcasecmp(c, "show") || !strcasecmp(c, "changes") ||
	    !strcasecmp(c, "commit") || !strcasecmp(c, "export")) {
		enum pkg_cmd pc = !strcasecmp(c, "show") ? PKG_SHOW :
			!strcasecmp(c, "changes") ? PKG_CHANGES :
			!strcasecmp(c, "commit") ? PKG_COMMIT : PKG_EXPORT;
		if (argc > 2)
			goto bad;
		return arg ? one_package(pc, arg) : all_packages(pc);
	}
	if (!strcasecmp(c, "import")) {
		if (argc > 2)
			goto bad;
		return cmd_import(arg);
	}
	if (!strcasecmp(c, "add")) {
		if (argc != 3)
			goto bad;
		return cmd_add(argv[1], argv[2]);
	}
	{
		static const struct { const char *name; enum tuple_cmd cmd; } tc[] = {
			{ "get", T_GET }, { "set", T_SET }, { "delete", T_DEL }, { "del", T_DEL },
			{ "add_list", T_ADD_LIST }, { "del_list", T_DEL_LIST },
			{ "rename", T_RENAME }, { "ren", T_RENAME },
			{ "revert", T_REVERT }, { "reorder", T_REORDER },
		};
		size_t i;
		for (i = 0; i < sizeof(tc) / sizeof(tc[0]); i++) {
			if (strcasecmp(c, tc[i].name))
				continue;
			if (argc != 2)
				goto bad;
			return tuple_cmd(tc[i].cmd, arg);
		}
	}
	if (!strcasecmp(c, "help")) {
		usage();
		return 0;
	}
bad:
	usage();
	return 255;
}

int main(int argc, char **argv)
{
	int opt, rc;

	appname = argv[0];
	input = stdin;
	ctx = uci_alloc_context();
	if (!ctx) {
		fprintf(stderr, "%s: Out of memory\n", appname);
		return 1;
	}
	while ((opt = getopt(argc, argv, "c:C:d:f:LmnNp:P:qsSt:X")) != -1) {
		switch (opt) {
		case 'c':
			uci_set_confdir(ctx, optarg);
			break;
		case 'C':
			uci_set_conf2dir(ctx, optarg);
			break;
		case 'd':
			delimiter = optarg;
			break;
		case 'f':
			if (input != stdin)
				fclose(input);
			input = fopen(optarg, "r");
			if (!input) {
				perror("uci");
				uci_free_context(ctx);
				return 1;
			}
			break;
		case 'm':
			cli_flags |= CLI_MERGE;
			break;
		case 'n':
			ctx->flags |= UCI_FLAG_EXPORT_NAME;
			break;
		case 'N':
			ctx->flags &= ~UCI_FLAG_EXPORT_NAME;
			break;
		case 'p':
			uci_add_delta_path(ctx, optarg);
			break;
		case 'P':
			uci_set_savedir(ctx, optarg);
			cli_flags |= CLI_NOCOMMIT;
			break;
		case 't':
			uci_set_savedir(ctx, optarg);
			break;
		case 'q':
			cli_flags |= CLI_QUIET;
			break;
		case 's':
			ctx->flags |= UCI_FLAG_STRICT;
			break;
		case 'S':
			ctx->flags &= ~UCI_FLAG_STRICT;
			ctx->flags |= UCI_FLAG_PERROR;
			break;
		case 'X':
			cli_flags |= CLI_SHOW_EXT;
			break;
		default:
			usage();
			uci_free_context(ctx);
			return 0;
		}
	}
	if (optind >= argc) {
		usage();
		uci_free_context(ctx);
		return 0;
	}
	rc = run(argc - optind, argv + optind);
	if (input != stdin)
		fclose(input);
	uci_free_context(ctx);
	return rc;
}
