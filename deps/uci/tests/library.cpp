// The library: parsing and writing, lookups, changes, deltas, commit.
#include "helpers.hpp"

#include <dirent.h>

#include <cstring>
#include <string>

using namespace ucitest;
using namespace std::string_literals;

namespace {

const char kNetwork[] =
    "config interface 'lan'\n"
    "\toption ifname eth0\n"
    "\toption proto static\n"
    "\tlist dns 1.1.1.1\n"
    "\tlist dns 8.8.8.8\n"
    "\n"
    "config interface 'wan'\n"
    "\toption proto dhcp\n"
    "\n"
    "config route\n"
    "\toption target 10.0.0.0\n"
    "\n"
    "config route\n"
    "\toption target 10.1.0.0\n";

std::string exported(uci_context *ctx, uci_package *p, bool header = false) {
  char *buf = nullptr;
  size_t len = 0;
  FILE *f = open_memstream(&buf, &len);
  uci_export(ctx, f, p, header);
  fclose(f);
  std::string s(buf, len);
  free(buf);
  return s;
}

std::string errorstr(uci_context *ctx) {
  char *s = nullptr;
  uci_get_errorstr(ctx, &s, "uci");
  std::string r = s ? s : "(null)";
  free(s);
  return r;
}

// Looks a tuple up (extended) in ctx and returns the record.
uci_ptr lookup(uci_context *ctx, const char *tuple, int *rc = nullptr) {
  static char buf[256];
  snprintf(buf, sizeof(buf), "%s", tuple);
  uci_ptr ptr;
  int r = uci_lookup_ptr(ctx, &ptr, buf, true);
  if (rc) *rc = r;
  return ptr;
}

// Looks tuple up and hands the record to op (uci_set, uci_delete, ...).
int apply(uci_context *ctx, int (*op)(uci_context *, uci_ptr *), const char *tuple) {
  uci_ptr ptr = lookup(ctx, tuple);
  return op(ctx, &ptr);
}

std::string value(uci_context *ctx, const char *tuple) {
  uci_ptr p = lookup(ctx, tuple);
  if (!(p.flags & uci_ptr::UCI_LOOKUP_COMPLETE) || !p.o) return "<none>";
  if (p.o->type == UCI_TYPE_STRING) return p.o->v.string;
  std::string r;
  uci_element *e;
  uci_foreach_element(&p.o->v.list, e) r += std::string(r.empty() ? "" : "|") + e->name;
  return "[" + r + "]";
}

class Library : public UciDirs {};

}  // namespace

TEST(LibraryAbi, LayoutMatchesTheInstalledHeaderOfTheRealLibrary) {
  if (kOwnLibuci && sizeof(void *) == 8) {
    EXPECT_EQ(sizeof(uci_element), 32u);
    EXPECT_EQ(offsetof(uci_element, name), 24u);
    EXPECT_EQ(sizeof(uci_option), 64u);
    EXPECT_EQ(offsetof(uci_option, v), 48u);
    EXPECT_EQ(sizeof(uci_section), 72u);
    EXPECT_EQ(offsetof(uci_section, type), 64u);
    EXPECT_EQ(sizeof(uci_package), 128u);
    EXPECT_EQ(offsetof(uci_package, n_section), 88u);
    EXPECT_EQ(sizeof(uci_ptr), 72u);
    EXPECT_EQ(offsetof(uci_ptr, package), 40u);
    EXPECT_EQ(offsetof(uci_context, flags), 48u);
    EXPECT_EQ(offsetof(uci_context, delta_path), 80u);
    EXPECT_EQ(offsetof(uci_context, err), 96u);
  }
  EXPECT_EQ(std::string(uci_command_char, 7), std::string("+-\0@^|~", 7));
  uci_context *ctx = uci_alloc_context();
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->flags, UCI_FLAG_STRICT | UCI_FLAG_SAVED_DELTA);
  EXPECT_STREQ(ctx->confdir, "/etc/config");
  EXPECT_STREQ(ctx->savedir, "/tmp/.uci");
  uci_element *e = list_to_element(ctx->delta_path.next);
  EXPECT_STREQ(e->name, "/tmp/.uci");
  EXPECT_EQ(uci_add_delta_path(ctx, "/tmp/.uci"), UCI_ERR_DUPLICATE);
  uci_free_context(ctx);
}

extern "C" int uci_test_count_options(uci_context *ctx, const char *pkg);

TEST_F(Library, HeaderHelpersWorkFromC) {
  write_file(conf("n"), kNetwork);
  EXPECT_EQ(uci_test_count_options(ctx, "n"), -1);
  ASSERT_EQ(uci_load(ctx, "n", nullptr), 0);
  EXPECT_EQ(uci_test_count_options(ctx, "n"), 6);
}

TEST_F(Library, ParserReadsQuotingEscapesCommentsAndContinuations) {
  write_file(conf("q"),
             "# comment line\n"
             "config t a # trailing comment\n"
             "\toption dq \"say \\\"hi\\\" \\\\ back\"\n"
             "\toption sq 'it'\\''s \\n literal'\n"
             "\toption cont abc\\\n"
             "def\n"
             "\toption hash abc#def\n"
             "\toption one 1; option two 2\n"
             "\toption ml 'two\n"
             "lines'\n"
             "\toption empty ''\n"
             "\toption noval\n"
             "\tlist e ''\n"
             "c t a\n"
             "\to one again\n"
             "\tl two x\n");
  uci_package *p = nullptr;
  ASSERT_EQ(uci_load(ctx, "q", &p), 0) << errorstr(ctx);
  EXPECT_EQ(value(ctx, "q.a.dq"), "say \"hi\" \\ back");
  EXPECT_EQ(value(ctx, "q.a.sq"), "it's \\n literal");
  EXPECT_EQ(value(ctx, "q.a.cont"), "abcdef");
  EXPECT_EQ(value(ctx, "q.a.hash"), "abc");
  EXPECT_EQ(value(ctx, "q.a.ml"), "two\nlines");
  EXPECT_EQ(value(ctx, "q.a.empty"), "<none>");
  EXPECT_EQ(value(ctx, "q.a.noval"), "<none>");
  EXPECT_EQ(value(ctx, "q.a.e"), "[]");
  // A repeated section merges; a repeated option keeps its place.
  EXPECT_EQ(value(ctx, "q.a.one"), "again");
  EXPECT_EQ(value(ctx, "q.a.two"), "[2|x]");
  EXPECT_EQ(exported(ctx, p),
            "\nconfig t 'a'\n"
            "\toption dq 'say \"hi\" \\ back'\n"
            "\toption sq 'it'\\''s \\n literal'\n"
            "\toption cont 'abcdef'\n"
            "\toption hash 'abc'\n"
            "\toption one 'again'\n"
            "\tlist two '2'\n"
            "\tlist two 'x'\n"
            "\toption ml 'two\nlines'\n"
            "\tlist e ''\n\n");
}

TEST_F(Library, WriterOutputReadsBackToTheSameTree) {
  // Values with every awkward character survive export + reparse.
  const char *vals[] = {"it's", "'", "''\\'", "a\tb", "x\ny", "\"q\"", "#;", "\\", " lead", "trail "};
  uci_package *p = nullptr;
  write_file(conf("r"), "");
  ASSERT_EQ(uci_load(ctx, "r", &p), 0);
  uci_section *s = nullptr;
  ASSERT_EQ(uci_add_section(ctx, p, "t", &s), 0);
  for (size_t i = 0; i < sizeof(vals) / sizeof(vals[0]); i++) {
    uci_ptr ptr{};
    std::string name = "o" + std::to_string(i);
    ptr.p = p;
    ptr.s = s;
    ptr.option = name.c_str();
    ptr.value = vals[i];
    ASSERT_EQ(uci_set(ctx, &ptr), 0);
    ptr = {};
    ptr.p = p;
    ptr.s = s;
    ptr.option = "l";
    ptr.value = vals[i];
    ASSERT_EQ(uci_add_list(ctx, &ptr), 0);
  }
  // A type the reader would take apart is quoted so that it reads back
  // (by our writer: the real one writes it bare).
  uci_section *odd = nullptr;
  if (kOwnLibuci) {
    ASSERT_EQ(uci_add_section(ctx, p, "a\"b#c", &odd), 0);
  }
  std::string first = exported(ctx, p, true);
  FILE *f = fmemopen(first.data(), first.size(), "r");
  uci_context *c2 = new_context();
  uci_package *p2 = nullptr;
  ASSERT_EQ(uci_import(c2, f, nullptr, &p2, false), 0) << errorstr(c2);
  fclose(f);
  ASSERT_NE(p2, nullptr);
  EXPECT_STREQ(p2->e.name, "r");
  EXPECT_EQ(exported(c2, p2, true), first);
  if (kOwnLibuci) {
    EXPECT_STREQ(uci_to_section(p2->sections.prev)->type, "a\"b#c");
  }
  uci_section *s2 = uci_to_section(p2->sections.next);
  for (size_t i = 0; i < sizeof(vals) / sizeof(vals[0]); i++)
    EXPECT_STREQ(uci_lookup_option_string(c2, s2, ("o" + std::to_string(i)).c_str()), vals[i]);
}

TEST_F(Library, ParseErrorsNameReasonLineAndByte) {
  // Lines count when their line feed is read; a byte is where the parser
  // stood: at the keyword, past a keyword that ends the text, or past the
  // argument it checked and the blank or line feed after it.
  struct {
    std::string text;
    const char *msg;
  } cases[] = {
      {"config t a\n\toption o 1\n\tbogus line\n", "(invalid command) at line 3, byte 1"},
      {"option o x\n", "(option/list command found before the first section) at line 1, byte 0"},
      {"config 't y'\n", "(invalid character in type field) at line 1, byte 13"},
      {"config t a\n\toption o-x 1\n", "(invalid character in name field) at line 2, byte 12"},
      {"config t a\n\toption o 1 2\n", "(too many arguments) at line 2, byte 14"},
      {"config t a\nconfig u a\n", "(section of different type overwrites prior section with same name) at line 2, byte 11"},
      {"config t a\n\toption o 'unterminated\n", "(EOF with unterminated ') at line 2, byte 24"},
      {"config t a\n\toption o \"open\n", "(EOF with unterminated \") at line 2, byte 16"},
      {"config\n", "(invalid command) at line 1, byte 0"},
      {"config t a\n\tlist x\n", "(insufficient arguments) at line 2, byte 8"},
      {"config t a\npackage a.b\n", "(invalid character in name field) at line 2, byte 12"},
      {"config t a\n\toption o 'x\ny\n", "(EOF with unterminated ') at line 3, byte 15"},
      {"config t a\npackage", "(package without name) at line 1, byte 8"},
      {"\tconfig", "(config without name) at line 0, byte 8"},
      {"config t a\n\tlist", "(option without name) at line 1, byte 6"},
      {"option", "(option/list command found before the first section) at line 0, byte 0"},
      // A NUL byte ends its line: the quote behind it never opens.
      {"config t a\n\toption o x\0'\n\tbogus\n"s, "(invalid command) at line 3, byte 1"},
  };
  for (auto &c : cases) {
    write_file(conf("bad"), c.text);
    uci_package *p = nullptr;
    EXPECT_EQ(uci_load(ctx, "bad", &p), UCI_ERR_PARSE) << c.text;
    EXPECT_EQ(p, nullptr);
    EXPECT_EQ(errorstr(ctx), std::string("uci: Parse error ") + c.msg) << c.text;
  }
  EXPECT_TRUE(uci_list_empty(&ctx->root));
  // Lenient: the bad line is skipped, the rest loads.
  ctx->flags = uci_flags(ctx->flags & ~UCI_FLAG_STRICT);
  write_file(conf("bad"), "config t a\n\tbogus\n\toption o 1\n");
  ASSERT_EQ(uci_load(ctx, "bad", nullptr), 0);
  EXPECT_EQ(value(ctx, "bad.a.o"), "1");
}

TEST(LibraryBatch, WordsOfALineEndWithAnEmptyOneAndQuotesSpanLines) {
  // '|' ends each word, '^' stands for the empty word that ends a line.
  std::string in = "set p.s.o=\"Hello,\n  World\" 'a b'\\\nc # it's\n\n x\\ y\0'\nlast"s;
  FILE *f = fmemopen(in.data(), in.size(), "r");
  uci_context *ctx = uci_alloc_context();
  std::string got;
  char *line = nullptr, *w = nullptr;
  while (!feof(f)) {
    ASSERT_EQ(uci_parse_argument(ctx, f, &line, &w), 0);
    ASSERT_NE(w, nullptr);
    got += *w ? std::string(w) + "|" : "^";
    EXPECT_EQ(line == nullptr, !*w) << got;  // the next call reads a new line
  }
  EXPECT_EQ(got, "set|p.s.o=Hello,\n  World|a bc|^^x y|^last|");
  std::string open_quote = "a 'b\nc";  // another stream: lines count anew
  FILE *g = fmemopen(open_quote.data(), open_quote.size(), "r");
  EXPECT_EQ(uci_parse_argument(ctx, g, &line, &w), UCI_ERR_PARSE);
  EXPECT_EQ(errorstr(ctx), "uci: Parse error (EOF with unterminated ') at line 1, byte 6");
  fclose(g);
  fclose(f);
  uci_free_context(ctx);
}

TEST_F(Library, LookupFormsFlagsAndRecord) {
  write_file(conf("p"), "config t a\n\toption o 1\nconfig t\n\toption o 2\nconfig u\nconfig t\n\toption o 3\n");
  int rc;
  char buf[64];

  strcpy(buf, "p.a.zz");
  uci_ptr ptr;
  EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, buf, true), 0);
  EXPECT_EQ(ptr.flags, uci_ptr::UCI_LOOKUP_DONE);
  EXPECT_NE(ptr.s, nullptr);
  EXPECT_EQ(ptr.o, nullptr);
  EXPECT_EQ(ptr.last, &ptr.s->e);
  EXPECT_STREQ(buf, "p");

  ptr = lookup(ctx, "p.zz.o", &rc);
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(ptr.flags, uci_ptr::UCI_LOOKUP_DONE);
  EXPECT_EQ(ptr.s, nullptr);

  ptr = lookup(ctx, "none.a.o", &rc);
  EXPECT_EQ(rc, UCI_ERR_NOTFOUND);
  EXPECT_EQ(ptr.flags, uci_ptr::UCI_LOOKUP_DONE);
  EXPECT_EQ(ptr.p, nullptr);
  EXPECT_STREQ(ptr.package, "none");

  ptr = lookup(ctx, "p.@t[9].o", &rc);
  EXPECT_EQ(rc, 0);
  EXPECT_EQ(int(ptr.flags), 5);
  EXPECT_STREQ(ptr.section, "@t[9]");

  for (const char *bad : {"p.a.o.x", "p.a.o-x", "p.a.o=\x01", "=x"}) {
    strcpy(buf, bad);
    EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, buf, true), UCI_ERR_PARSE) << bad;
    EXPECT_EQ(ptr.p, nullptr);
    EXPECT_EQ(ptr.package, nullptr);
  }
  for (const char *bad : {"p.@t[x].o", "p.@t", "p.@t[0]x", "p..o", "p.a b"}) {
    strcpy(buf, bad);
    EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, buf, true), UCI_ERR_INVAL) << bad;
    EXPECT_EQ(ptr.package, nullptr);
    EXPECT_STREQ(buf, "p");
  }
  // Non-extended lookups refuse @type[n] but keep the record.
  strcpy(buf, "p.@t[0]");
  EXPECT_EQ(uci_lookup_ptr(ctx, &ptr, buf, false), UCI_ERR_INVAL);
  EXPECT_NE(ptr.p, nullptr);

  ptr = lookup(ctx, "p.@t[1].o", &rc);
  EXPECT_EQ(int(ptr.flags), 7);
  EXPECT_STREQ(ptr.section, "cfg02b619");
  EXPECT_STREQ(ptr.o->v.string, "2");
  EXPECT_EQ(value(ctx, "p.@t[-1].o"), "3");
  EXPECT_EQ(value(ctx, "p.@t[0].o"), "1");  // the named one counts
  ptr = lookup(ctx, "p.@[2]");
  EXPECT_STREQ(ptr.s->type, "u");
  ptr = lookup(ctx, "p.a.o=v=w");
  EXPECT_STREQ(ptr.value, "v=w");
  ptr = lookup(ctx, "p.a=");
  EXPECT_STREQ(ptr.value, "");
  ptr = lookup(ctx, "p");
  EXPECT_EQ(int(ptr.flags), 3);
  EXPECT_EQ(ptr.target, UCI_TYPE_PACKAGE);

  // The inline helpers compare names exactly.
  uci_package *p = uci_lookup_package(ctx, "p");
  ASSERT_NE(p, nullptr);
  EXPECT_EQ(uci_lookup_section(ctx, p, "@t[0]"), nullptr);
  EXPECT_EQ(ctx->err, UCI_ERR_NOTFOUND);
  EXPECT_STREQ(uci_lookup_option_string(ctx, uci_lookup_section(ctx, p, "a"), "o"), "1");
  // An already loaded package is not read again.
  EXPECT_EQ(uci_load(ctx, "p", nullptr), UCI_ERR_DUPLICATE);
}

TEST_F(Library, AnonymousNamesFollowTheSectionCounterAndTypeHash) {
  write_file(conf("n"), kNetwork);
  uci_package *p = nullptr;
  ASSERT_EQ(uci_load(ctx, "n", &p), 0);
  EXPECT_STREQ(lookup(ctx, "n.@route[0]").section, "cfg03c8b4");
  EXPECT_STREQ(lookup(ctx, "n.@route[1]").section, "cfg04c8b4");
  uci_section *s = nullptr;
  ASSERT_EQ(uci_add_section(ctx, p, "interface", &s), 0);
  EXPECT_STREQ(s->e.name, "cfg056d96");
  EXPECT_TRUE(s->anonymous);
  // Deleting never lowers the counter.
  ASSERT_EQ(apply(ctx, uci_delete, "n.@route[0]"), 0);
  EXPECT_STREQ(lookup(ctx, "n.@route[0]").section, "cfg04c8b4");
  ASSERT_EQ(uci_add_section(ctx, p, "wifi-iface", &s), 0);
  EXPECT_STREQ(s->e.name, "cfg063579");
  p->n_section = 299;
  ASSERT_EQ(uci_add_section(ctx, p, "rule", &s), 0);
  EXPECT_STREQ(s->e.name, "cfg12c92bd");
}

TEST_F(Library, ChangesAreStagedAndSeenByOtherContextsBeforeCommit) {
  write_file(conf("n"), kNetwork, 0640);
  uci_ptr ptr = lookup(ctx, "n.lan.proto=dhcp");
  ASSERT_EQ(uci_set(ctx, &ptr), 0);
  EXPECT_STREQ(ptr.o->v.string, "dhcp");
  ASSERT_EQ(apply(ctx, uci_add_list, "n.lan.dns=9.9.9.9"), 0);
  ASSERT_EQ(apply(ctx, uci_set, "n.guest=interface"), 0);
  ASSERT_EQ(apply(ctx, uci_set, "n.guest.mtu=1400"), 0);
  ASSERT_EQ(apply(ctx, uci_delete, "n.@route[0]"), 0);
  ASSERT_EQ(apply(ctx, uci_set, "n.wan.proto=it's"), 0);
  ASSERT_EQ(apply(ctx, uci_set, "n.wan=bridge"), 0);
  ptr = lookup(ctx, "n.lan.ifname=device");
  ASSERT_EQ(uci_rename(ctx, &ptr), 0);
  EXPECT_FALSE(exists(save("n")));
  ASSERT_EQ(uci_save(ctx, ptr.p), 0);
  EXPECT_EQ(read_file(save("n")),
            "n.lan.proto='dhcp'\n"
            "|n.lan.dns='9.9.9.9'\n"
            "n.guest='interface'\n"
            "n.guest.mtu='1400'\n"
            "-n.cfg03c8b4\n"
            "n.wan.proto='it'\\''s'\n"
            "n.wan='bridge'\n"
            "@n.lan.ifname='device'\n");
  EXPECT_EQ(file_mode(save("n")), 0640u);
  // Saving again appends nothing.
  ASSERT_EQ(uci_save(ctx, ptr.p), 0);

  uci_context *other = new_context();
  EXPECT_EQ(value(other, "n.lan.proto"), "dhcp");
  EXPECT_EQ(value(other, "n.lan.dns"), "[1.1.1.1|8.8.8.8|9.9.9.9]");
  EXPECT_EQ(value(other, "n.guest.mtu"), "1400");
  EXPECT_EQ(value(other, "n.wan.proto"), "it's");
  EXPECT_EQ(value(other, "n.lan.device"), "eth0");
  EXPECT_STREQ(lookup(other, "n.wan").s->type, "bridge");
  EXPECT_STREQ(lookup(other, "n.@route[0]").section, "cfg04c8b4");
  uci_package *p = uci_lookup_package(other, "n");
  int lines = 0;
  uci_element *e;
  uci_foreach_element(&p->saved_delta, e) lines++;
  EXPECT_EQ(lines, 8);
  EXPECT_EQ(read_file(conf("n")), kNetwork);  // nothing committed yet

  // Commit from the other context writes what the first one staged.
  ASSERT_EQ(uci_commit(other, &p, false), 0);
  EXPECT_EQ(read_file(save("n")), "");
  EXPECT_EQ(file_mode(conf("n")), 0640u);
  EXPECT_EQ(read_file(conf("n")),
            "\nconfig interface 'lan'\n"
            "\toption device 'eth0'\n"
            "\toption proto 'dhcp'\n"
            "\tlist dns '1.1.1.1'\n\tlist dns '8.8.8.8'\n\tlist dns '9.9.9.9'\n"
            "\nconfig bridge 'wan'\n"
            "\toption proto 'it'\\''s'\n"
            "\nconfig route\n\toption target '10.1.0.0'\n"
            "\nconfig interface 'guest'\n\toption mtu '1400'\n\n");
  DIR *d = opendir(confdir().c_str());
  int files = 0;
  while (dirent *de = readdir(d)) files += de->d_name[0] != '.' || strncmp(de->d_name, ".n.uci-", 7) == 0;
  closedir(d);
  EXPECT_EQ(files, 1);  // no temporary file left
}

TEST_F(Library, CommitWithNothingStagedKeepsTheFileAndRevertFilters) {
  const std::string text = "# keep me\nconfig t 'a'\n\toption x \"1\"\n\toption y 2\nconfig t 'b'\n\toption x 3\n";
  write_file(conf("c"), text);
  uci_package *p = nullptr;
  ASSERT_EQ(uci_load(ctx, "c", &p), 0);
  ASSERT_EQ(uci_commit(ctx, &p, false), 0);
  EXPECT_EQ(read_file(conf("c")), text);
  ASSERT_NE(p, nullptr);

  // A NUL byte ends its delta line too.
  mkdir(savedir().c_str(), 0755);
  write_file(save("c"), "c.a.z='0'\0'\n"s);
  ASSERT_EQ(uci_unload(ctx, p), 0);
  for (const char *t : {"c.a.x=9", "c.a.y=8", "c.b.x=7"}) {
    uci_ptr ptr = lookup(ctx, t);
    ASSERT_EQ(uci_set(ctx, &ptr), 0);
  }
  EXPECT_EQ(value(ctx, "c.a.z"), "0");
  uci_ptr ptr = lookup(ctx, "c.a.x");
  ASSERT_EQ(uci_revert(ctx, &ptr), 0);  // saves first, then filters
  EXPECT_EQ(read_file(save("c")), "c.a.z='0'\nc.a.y='8'\nc.b.x='7'\n");
  EXPECT_EQ(value(ctx, "c.a.x"), "1");
  EXPECT_EQ(value(ctx, "c.a.y"), "8");
  ASSERT_EQ(apply(ctx, uci_revert, "c.a"), 0);
  EXPECT_EQ(read_file(save("c")), "c.b.x='7'\n");
  ASSERT_EQ(apply(ctx, uci_revert, "c"), 0);
  EXPECT_TRUE(exists(save("c")));
  EXPECT_EQ(read_file(save("c")), "");
  EXPECT_EQ(value(ctx, "c.b.x"), "3");
  EXPECT_EQ(read_file(conf("c")), text);
}

TEST_F(Library, ListOperations) {
  write_file(conf("n"), kNetwork);
  uci_ptr ptr = lookup(ctx, "n.lan.ifname=eth1");
  ASSERT_EQ(uci_add_list(ctx, &ptr), 0);  // string becomes a list in place
  EXPECT_EQ(value(ctx, "n.lan.ifname"), "[eth0|eth1]");
  EXPECT_STREQ(list_to_element(ptr.s->options.next)->name, "ifname");
  ASSERT_EQ(apply(ctx, uci_add_list, "n.lan.dns=1.1.1.1"), 0);
  EXPECT_EQ(value(ctx, "n.lan.dns"), "[1.1.1.1|8.8.8.8|1.1.1.1]");
  ASSERT_EQ(apply(ctx, uci_del_list, "n.lan.dns=1.1.1.1"), 0);
  EXPECT_EQ(value(ctx, "n.lan.dns"), "[8.8.8.8]");
  ASSERT_EQ(apply(ctx, uci_del_list, "n.lan.proto=static"), 0);  // a string: untouched
  EXPECT_EQ(value(ctx, "n.lan.proto"), "static");
  ASSERT_EQ(apply(ctx, uci_delete, "n.lan.ifname=1"), 0);  // an index, not a value
  EXPECT_EQ(value(ctx, "n.lan.ifname"), "[eth0]");
  ASSERT_EQ(apply(ctx, uci_delete, "n.lan.ifname=5"), 0);
  EXPECT_EQ(apply(ctx, uci_delete, "n.lan.ifname=x"), 1);
  EXPECT_EQ(value(ctx, "n.lan.ifname"), "[eth0]");
  ASSERT_EQ(apply(ctx, uci_set, "n.lan.dns=9.9.9.9"), 0);  // a list becomes a string in place
  EXPECT_EQ(value(ctx, "n.lan.dns"), "9.9.9.9");
  ASSERT_EQ(apply(ctx, uci_del_list, "n.lan.dns"), UCI_ERR_INVAL);
  ptr = lookup(ctx, "n.nope.dns=1");
  EXPECT_EQ(uci_add_list(ctx, &ptr), UCI_ERR_INVAL);
  ASSERT_EQ(uci_save(ctx, ptr.p), 0);
  EXPECT_EQ(read_file(save("n")),
            "|n.lan.ifname='eth1'\n|n.lan.dns='1.1.1.1'\n~n.lan.dns='1.1.1.1'\n"
            "-n.lan.ifname='1'\nn.lan.dns='9.9.9.9'\n");
  uci_context *other = new_context();
  EXPECT_EQ(value(other, "n.lan.ifname"), "[eth0]");
  EXPECT_EQ(value(other, "n.lan.dns"), "9.9.9.9");
}

TEST_F(Library, SetAndDeleteEdgeCases) {
  write_file(conf("n"), kNetwork);
  uci_ptr ptr = lookup(ctx, "n.lan.proto=static");
  ASSERT_EQ(uci_set(ctx, &ptr), 0);  // same value: no change recorded
  ptr = lookup(ctx, "n.wan=interface");
  ASSERT_EQ(uci_set(ctx, &ptr), 0);
  EXPECT_TRUE(uci_list_empty(&ptr.p->delta));
  EXPECT_EQ(apply(ctx, uci_set, "n.nope.x=1"), UCI_ERR_INVAL);
  EXPECT_EQ(apply(ctx, uci_set, "n=foo"), UCI_ERR_INVAL);
  EXPECT_EQ(apply(ctx, uci_set, "n.x=bad type"), UCI_ERR_INVAL);
  EXPECT_EQ(apply(ctx, uci_set, "n.lan.nope="), 0);
  EXPECT_EQ(apply(ctx, uci_set, "n.wan="), 0);  // empty value deletes the section
  EXPECT_EQ(lookup(ctx, "n.wan").s, nullptr);
  // Retyping: same length keeps an anonymous section anonymous.
  ptr = lookup(ctx, "n.@route[0]=xxxxx");
  ASSERT_EQ(uci_set(ctx, &ptr), 0);
  EXPECT_TRUE(ptr.s->anonymous);
  ptr = lookup(ctx, "n.@route[0]=hostroute");
  ASSERT_EQ(uci_set(ctx, &ptr), 0);
  EXPECT_FALSE(ptr.s->anonymous);
  EXPECT_EQ(apply(ctx, uci_delete, "n.lan.zz"), UCI_ERR_NOTFOUND);
  EXPECT_EQ(apply(ctx, uci_delete, "n"), UCI_ERR_INVAL);
  ptr = lookup(ctx, "n.lan.proto=1");
  ASSERT_EQ(uci_delete(ctx, &ptr), 0);  // a string option goes whatever the value
  EXPECT_EQ(ptr.o, nullptr);
  EXPECT_EQ(apply(ctx, uci_rename, "n.lan.ifname"), UCI_ERR_INVAL);
  ptr = lookup(ctx, "n.lan.dns");
  ptr.value = nullptr;
  EXPECT_EQ(uci_del_list(ctx, &ptr), UCI_ERR_INVAL);
  // A failing line stays out of the tree but is listed as a change.
  uci_section *s = nullptr;
  ASSERT_EQ(uci_add_section(ctx, ptr.p, "bad type", &s), 0);
  ASSERT_EQ(uci_save(ctx, ptr.p), 0);
  uci_context *other = new_context();
  uci_package *p = nullptr;
  ASSERT_EQ(uci_load(other, "n", &p), 0);
  int sections = 0;
  uci_element *e;
  uci_foreach_element(&p->sections, e) sections++;
  EXPECT_EQ(sections, 3);  // lan, two routes, and no "bad type"
  EXPECT_STREQ(uci_to_delta(p->saved_delta.prev)->value, "bad type");
}

TEST_F(Library, HandFilledRecordsAndNullArguments) {
  write_file(conf("n"), kNetwork);
  uci_ptr ptr{};
  ptr.package = "n";
  ptr.section = "lan";
  ptr.option = "mtu";
  ptr.value = "1500";
  ASSERT_EQ(uci_set(ctx, &ptr), 0);  // loads the package itself
  EXPECT_EQ(ptr.flags, uci_ptr::UCI_LOOKUP_DONE);
  ASSERT_NE(ptr.p, nullptr);
  uci_package *old = ptr.p;
  ASSERT_EQ(uci_commit(ctx, &ptr.p, false), 0);
  EXPECT_NE(ptr.p, nullptr);
  (void)old;
  EXPECT_NE(read_file(conf("n")).find("option mtu '1500'"), std::string::npos);

  uci_ptr miss{};
  miss.package = "none";
  miss.section = "a";
  miss.option = "b";
  miss.value = "1";
  EXPECT_EQ(uci_set(ctx, &miss), UCI_ERR_NOTFOUND);
  EXPECT_EQ(miss.p, nullptr);
  EXPECT_EQ(uci_commit(ctx, &miss.p, false), UCI_ERR_INVAL);
  EXPECT_EQ(uci_unload(ctx, miss.p), UCI_ERR_INVAL);
  EXPECT_EQ(uci_set(nullptr, &ptr), UCI_ERR_INVAL);
  EXPECT_EQ(uci_save(ctx, nullptr), UCI_ERR_INVAL);
  EXPECT_EQ(uci_add_section(ctx, nullptr, "t", nullptr), UCI_ERR_INVAL);
  EXPECT_EQ(uci_load(ctx, ".hidden", nullptr), UCI_ERR_NOTFOUND);
  EXPECT_EQ(uci_load(ctx, "missing", nullptr), UCI_ERR_NOTFOUND);
  mkdir(conf("dir").c_str(), 0755);
  EXPECT_EQ(uci_load(ctx, "dir", nullptr), UCI_ERR_NOTFOUND);
  EXPECT_EQ(uci_set_confdir(ctx, nullptr), UCI_ERR_INVAL);
  EXPECT_EQ(uci_add_delta_path(ctx, savedir().c_str()), UCI_ERR_DUPLICATE);

  // Packages loaded by path: no deltas, revert refused, saved directly.
  write_file(tmp_ / "byp", "config t a\n");
  uci_package *p = nullptr;
  ASSERT_EQ(uci_load(ctx, (tmp_ / "byp").c_str(), &p), 0);
  EXPECT_STREQ(p->e.name, "byp");
  EXPECT_FALSE(p->has_delta);
  uci_ptr r = lookup(ctx, "byp.a.k=v");
  ASSERT_EQ(uci_set(ctx, &r), 0);
  ASSERT_EQ(uci_save(ctx, p), 0);
  EXPECT_EQ(read_file(tmp_ / "byp"), "\nconfig t 'a'\n\toption k 'v'\n\n");
  r = lookup(ctx, "byp.a");
  EXPECT_EQ(uci_revert(ctx, &r), UCI_ERR_INVAL);

  char **list = nullptr;
  write_file(conf("x.bak"), "");
  ASSERT_EQ(uci_list_configs(ctx, &list), 0);
  ASSERT_NE(list, nullptr);
  EXPECT_STREQ(list[0], "n");
  EXPECT_EQ(list[1], nullptr);
  free(list);

  // Callers may point a value at their own text; our library never frees
  // it (the real one would).
  if (!kOwnLibuci) return;
  static char mine[] = "caller's own";
  uci_ptr own = lookup(ctx, "n.lan.proto");
  ASSERT_NE(own.o, nullptr);
  own.o->v.string = mine;
  EXPECT_EQ(value(ctx, "n.lan.proto"), "caller's own");
  own = lookup(ctx, "n.lan.proto=replaced");
  ASSERT_EQ(uci_set(ctx, &own), 0);
  EXPECT_EQ(value(ctx, "n.lan.proto"), "replaced");
  EXPECT_STREQ(mine, "caller's own");
  own = lookup(ctx, "n.wan.proto");
  own.o->v.string = mine;
  own = lookup(ctx, "n.wan");
  ASSERT_EQ(uci_delete(ctx, &own), 0);
}

TEST_F(Library, LongLivedContextKeepsTheOldAnonymousNumbering) {
  write_file(conf("p"), "config t\n\toption o a\nconfig t\n\toption o b\nconfig t\n\toption o a\n");
  auto remove_at = [&](const char *tuple, const char *expect_name) {
    uci_ptr ptr = lookup(ctx, tuple);
    ASSERT_TRUE(ptr.flags & uci_ptr::UCI_LOOKUP_COMPLETE);
    EXPECT_STREQ(ptr.section, expect_name);
    ASSERT_EQ(uci_delete(ctx, &ptr), 0);
    ASSERT_EQ(uci_save(ctx, ptr.p), 0);
    ASSERT_EQ(uci_commit(ctx, &ptr.p, false), 0);
  };
  remove_at("p.@t[0]", "cfg01b619");
  EXPECT_EQ(read_file(conf("p")), "\nconfig t\n\toption o 'b'\n\nconfig t\n\toption o 'a'\n\n");
  // In memory the survivors keep the names of the old numbering ...
  remove_at("p.@t[1]", "cfg03b619");
  // ... so this removal applied to nothing, wrote nothing and stays staged.
  EXPECT_EQ(read_file(conf("p")), "\nconfig t\n\toption o 'b'\n\nconfig t\n\toption o 'a'\n\n");
  EXPECT_EQ(read_file(save("p")), "-p.cfg03b619\n");
  remove_at("p.@t[1]", "cfg02b619");
  EXPECT_EQ(read_file(conf("p")), "\nconfig t\n\toption o 'b'\n\n");
  EXPECT_EQ(read_file(save("p")), "");
}

TEST_F(Library, ImportMergesAsChangesAndReorderMoves) {
  write_file(conf("n"), kNetwork);
  uci_package *p = nullptr;
  ASSERT_EQ(uci_load(ctx, "n", &p), 0);
  std::string in = "config extra 'x'\n\toption k 'v'\n\tlist l 1\nconfig anon\n";
  FILE *f = fmemopen(in.data(), in.size(), "r");
  ASSERT_EQ(uci_import(ctx, f, "n", &p, true), 0);
  fclose(f);
  uci_section *s = uci_lookup_section(ctx, p, "lan");
  ASSERT_EQ(uci_reorder_section(ctx, s, 99), 0);
  ASSERT_EQ(uci_save(ctx, p), 0);
  EXPECT_EQ(read_file(save("n")),
            "n.x='extra'\nn.x.k='v'\n|n.x.l='1'\n+n.cfg0622f1='anon'\n^n.lan='99'\n");
  uci_context *other = new_context();
  uci_package *q = nullptr;
  ASSERT_EQ(uci_load(other, "n", &q), 0);
  EXPECT_STREQ(list_to_element(q->sections.prev)->name, "lan");
  EXPECT_EQ(value(other, "n.x.l"), "[1]");
  // A plain import of a stream without a package name fails, before the
  // arguments are looked at.
  std::string noname = "config 't y'\n";
  f = fmemopen(noname.data(), noname.size(), "r");
  uci_package *np = nullptr;
  EXPECT_EQ(uci_import(other, f, nullptr, &np, false), UCI_ERR_PARSE);
  fclose(f);
  EXPECT_EQ(errorstr(other), "uci: Parse error (attempting to import a file without a package name) at line 1, byte 0");
  // An imported package has no file yet: overwriting writes <confdir>/<name>.
  std::string fresh = "config t a\n";
  f = fmemopen(fresh.data(), fresh.size(), "r");
  ASSERT_EQ(uci_import(other, f, "fresh", &np, true), 0);
  fclose(f);
  EXPECT_EQ(uci_commit(other, &np, false), UCI_ERR_INVAL);
  ASSERT_EQ(uci_commit(other, &np, true), 0);
  EXPECT_EQ(read_file(conf("fresh")), "\nconfig t 'a'\n\n");
  EXPECT_EQ(file_mode(conf("fresh")), 0600u);
}
