/* The public header from strict C99: its macros and inline helpers compile
 * without warnings and work from C. */
#include <uci.h>

int uci_test_count_options(struct uci_context *ctx, const char *pkg);

/* Options of every section of a loaded package, walked with the header's
 * iteration macros and looked up again through its helpers; -1 when the
 * package is not loaded or a lookup disagrees. */
int uci_test_count_options(struct uci_context *ctx, const char *pkg)
{
	struct uci_package *p = uci_lookup_package(ctx, pkg);
	struct uci_element *e, *o, *tmp;
	int n = 0;

	if (!p)
		return -1;
	uci_foreach_element(&p->sections, e) {
		struct uci_section *s = uci_to_section(e);
		if (uci_lookup_section(ctx, p, s->e.name) == NULL)
			return -1;
		uci_foreach_element_safe(&s->options, tmp, o) {
			struct uci_option *opt = uci_to_option(o);
			if (uci_lookup_option(ctx, s, o->name) != opt)
				return -1;
			if (opt->type == UCI_TYPE_STRING &&
			    uci_lookup_option_string(ctx, s, o->name) != opt->v.string)
				return -1;
			n++;
		}
	}
	return n;
}
