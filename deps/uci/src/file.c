/* The file backend: loading, saving deltas, committing, reverting. */
#define _GNU_SOURCE
#include "internal.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

char *ucii_read_fd(int fd, size_t *len)
{
	size_t cap = 4096, n = 0;
	char *buf = malloc(cap);
	if (!buf)
		return NULL;
	for (;;) {
		ssize_t r;
		if (n + 1 >= cap) {
			char *nb = realloc(buf, cap * 2);
			if (!nb) {
				free(buf);
				return NULL;
			}
			buf = nb;
			cap *= 2;
		}
		r = read(fd, buf + n, cap - n - 1);
		if (r < 0) {
			if (errno == EINTR)
				continue;
			free(buf);
			return NULL;
		}
		if (r == 0)
			break;
		n += (size_t)r;
	}
	buf[n] = 0;
	*len = n;
	return buf;
}

static void close_keep_errno(int fd)
{
	int e = errno;
	close(fd);
	errno = e;
}

/* Reads a whole file under a shared lock; NULL with errno on failure
 * (ENOENT also for a file that is not regular). */
static char *read_locked(const char *path, size_t *len)
{
	struct stat st;
	char *buf;
	int fd = open(path, O_RDONLY | O_CLOEXEC);
	if (fd < 0)
		return NULL;
	if (fstat(fd, &st) || !S_ISREG(st.st_mode)) {
		close(fd);
		errno = ENOENT;
		return NULL;
	}
	flock(fd, LOCK_SH);
	buf = ucii_read_fd(fd, len);
	close_keep_errno(fd);
	return buf;
}

int ucii_load_deltas(struct uci_context *ctx, struct uci_package *p, int savefd)
{
	struct uci_element *e;
	struct stat held, st;
	int applied = 0;

	if (savefd >= 0 && fstat(savefd, &held))
		savefd = -1;
	uci_foreach_element(&ctx->delta_path, e) {
		size_t len;
		char *path = ucii_path(e->name, p->e.name);
		char *buf;
		if (!path)
			continue;
		if (savefd >= 0 && !stat(path, &st) && st.st_dev == held.st_dev && st.st_ino == held.st_ino)
			/* locked by the caller, under whatever name: read through it */
			buf = lseek(savefd, 0, SEEK_SET) ? NULL : ucii_read_fd(savefd, &len);
		else
			buf = read_locked(path, &len);
		free(path);
		if (!buf)
			continue;
		applied += ucii_delta_replay(ctx, p, buf, len);
		free(buf);
	}
	return applied;
}

static struct uci_package *find_loaded(struct uci_context *ctx, const char *name)
{
	struct uci_element *e;
	uci_foreach_element(&ctx->root, e)
		if (!strcmp(e->name, name))
			return uci_to_package(e);
	return NULL;
}

/* Parses buf as the package name; *res is the new package (not yet in the
 * context). */
static int parse_package(struct uci_context *ctx, const char *name, const char *path,
		const char *buf, size_t len, bool has_delta, struct uci_package **res)
{
	struct ucii_parse_job job;
	struct uci_package *p = ucii_package_new(ctx, name);
	int rc;

	*res = NULL;
	if (!p)
		return UCI_ERR_MEM;
	p->path = UCII_OWN(p)->str = strdup(path);
	if (!p->path) {
		ucii_package_free(p);
		return UCI_ERR_MEM;
	}
	p->has_delta = has_delta;
	memset(&job, 0, sizeof(job));
	job.mode = UCII_PARSE_LOAD;
	job.pkg = p;
	rc = ucii_parse_config(ctx, buf, len, &job);
	if (rc) {
		ucii_package_free(p);
		return rc;
	}
	*res = p;
	return 0;
}

int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package)
{
	const char *pname = name;
	char *path = NULL, *buf;
	bool has_delta = true, conf2 = false;
	struct uci_package *p;
	size_t len;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (package)
		*package = NULL;
	if (!name)
		return ucii_err(ctx, UCI_ERR_INVAL);

	if (name[0] == '/' || (name[0] == '.' && name[1] == '/')) {
		const char *slash = strrchr(name, '/');
		pname = slash + 1;
		has_delta = false;
		if (!ucii_valid_package(pname))
			return ucii_err(ctx, UCI_ERR_INVAL);
		path = strdup(name);
	} else if (name[0] == '.') {
		return ucii_err(ctx, UCI_ERR_NOTFOUND);
	} else {
		if (!ucii_valid_package(name))
			return ucii_err(ctx, UCI_ERR_INVAL);
		if (ctx->conf2dir && ctx->conf2dir[0]) {
			struct stat st;
			path = ucii_path(ctx->conf2dir, name);
			if (path && !stat(path, &st) && S_ISREG(st.st_mode)) {
				conf2 = true;
			} else {
				free(path);
				path = NULL;
			}
		}
		if (!conf2)
			path = ucii_path(ctx->confdir, name);
	}
	if (!path)
		return ucii_err(ctx, UCI_ERR_MEM);
	if (find_loaded(ctx, pname)) {
		free(path);
		return ucii_err(ctx, UCI_ERR_DUPLICATE);
	}

	buf = read_locked(path, &len);
	if (!buf) {
		rc = (errno == ENOMEM) ? UCI_ERR_MEM : (errno == ENOENT || errno == ENOTDIR) ? UCI_ERR_NOTFOUND : UCI_ERR_IO;
		free(path);
		return ucii_err(ctx, rc);
	}
	rc = parse_package(ctx, pname, path, buf, len, has_delta, &p);
	free(buf);
	free(path);
	if (rc)
		return ucii_err(ctx, rc);
	p->uses_conf2 = conf2;
	if (has_delta)
		ucii_load_deltas(ctx, p, -1);
	ucii_list_add(&ctx->root, &p->e.list);
	if (package)
		*package = p;
	return ucii_err(ctx, 0);
}

int uci_unload(struct uci_context *ctx, struct uci_package *p)
{
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!p)
		return ucii_err(ctx, UCI_ERR_INVAL);
	ucii_package_free(p);
	return ucii_err(ctx, 0);
}

static mode_t mode_of(const char *path, mode_t dflt)
{
	struct stat st;
	if (path && !stat(path, &st))
		return st.st_mode & 07777;
	return dflt;
}

/* Makes sure the save directory exists. */
static int ensure_savedir(struct uci_context *ctx)
{
	struct stat st;
	if (!stat(ctx->savedir, &st))
		return S_ISDIR(st.st_mode) ? 0 : UCI_ERR_IO;
	if (mkdir(ctx->savedir, mode_of(ctx->confdir, UCI_DIRMODE)) && errno != EEXIST)
		return UCI_ERR_IO;
	return 0;
}

/* Appends the pending changes of p to its delta file. */
static int save_deltas(struct uci_context *ctx, struct uci_package *p)
{
	char *path, *conf;
	mode_t mode;
	FILE *f;
	int fd, rc;
	struct uci_element *e, *tmp;

	if (uci_list_empty(&p->delta))
		return 0;
	rc = ensure_savedir(ctx);
	if (rc)
		return rc;
	path = ucii_path(ctx->savedir, p->e.name);
	conf = ucii_path(ctx->confdir, p->e.name);
	if (!path || !conf) {
		free(path);
		free(conf);
		return UCI_ERR_MEM;
	}
	mode = mode_of(conf, UCI_FILEMODE);
	free(conf);
	fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode);
	free(path);
	if (fd < 0)
		return UCI_ERR_IO;
	flock(fd, LOCK_EX);
	f = fdopen(fd, "a");
	if (!f) {
		close(fd);
		return UCI_ERR_IO;
	}
	uci_foreach_element(&p->delta, e)
		ucii_write_delta(f, p->e.name, uci_to_delta(e));
	rc = fflush(f) ? UCI_ERR_IO : 0;
	if (fclose(f))
		rc = UCI_ERR_IO;
	if (rc)
		return rc;
	uci_foreach_element_safe(&p->delta, tmp, e) {
		ucii_list_del(&e->list);
		if (ctx->flags & UCI_FLAG_SAVED_DELTA)
			ucii_list_add(&p->saved_delta, &e->list);
		else
			ucii_delta_free(uci_to_delta(e));
	}
	return 0;
}

/* Opens path read-write (created if missing) under an exclusive lock and
 * makes sure that the path still names the locked file: a committer that
 * waited for the lock while another renamed a new file over the path would
 * otherwise read and replace a file that is already gone. */
static int open_locked(const char *path, struct stat *st)
{
	for (;;) {
		struct stat now;
		int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, UCI_FILEMODE);
		if (fd < 0)
			return -1;
		while (flock(fd, LOCK_EX) && errno == EINTR)
			;
		if (fstat(fd, st)) {
			close_keep_errno(fd);
			return -1;
		}
		if (!stat(path, &now) && now.st_dev == st->st_dev && now.st_ino == st->st_ino)
			return fd;
		close(fd);
	}
}

static int pwrite_all(int fd, const char *buf, size_t len)
{
	off_t at = 0;
	while (len) {
		ssize_t w = pwrite(fd, buf, len, at);
		if (w < 0 && errno == EINTR)
			continue;
		if (w <= 0)
			return -1;
		buf += w;
		at += w;
		len -= (size_t)w;
	}
	return 0;
}

/* A new file beside the old one, synced and renamed over it: 0 when done,
 * 1 when that would change the file's owner, group, mode or links (the
 * caller then rewrites in place), UCI_ERR_IO when it could not be written. */
static int replace_by_rename(struct uci_context *ctx, struct uci_package *p,
		const char *target, const struct stat *st, const char *buf, size_t len)
{
	struct stat now;
	char *tmp, *real;
	size_t n;
	int fd, rc = 1;

	if (!S_ISREG(st->st_mode) || st->st_nlink != 1)
		return 1;
	n = strlen(ctx->confdir) + strlen(p->e.name) + 16;
	tmp = malloc(n);
	real = realpath(target, NULL);
	if (!tmp || !real)
		goto out;
	snprintf(tmp, n, "%s/.%s.uci-XXXXXX", ctx->confdir, p->e.name);
	fd = mkostemp(tmp, O_CLOEXEC);
	if (fd < 0)
		goto out;
	/* Owner first: a change of owner clears the set-id bits of the mode. */
	if (!fstat(fd, &now) &&
	    ((now.st_uid == st->st_uid && now.st_gid == st->st_gid) ||
	     !fchown(fd, st->st_uid, st->st_gid)) &&
	    !fchmod(fd, st->st_mode & 07777)) {
		rc = UCI_ERR_IO;
		if (!pwrite_all(fd, buf, len) && !fsync(fd)) {
			/* A sticky directory may still refuse to drop the old name. */
			rc = rename(tmp, real) ? 1 : 0;
		}
	}
	close(fd);
	if (rc)
		unlink(tmp);
out:
	free(real);
	free(tmp);
	return rc;
}

/* Rewrites the locked file fd in place, after reserving the room for the
 * new content; a write that fails puts the old content back. */
static int rewrite_in_place(int fd, const struct stat *st, const char *buf, size_t len)
{
	size_t oldlen;
	char *old;
	int err;

	if (lseek(fd, 0, SEEK_SET) || !(old = ucii_read_fd(fd, &oldlen)))
		return UCI_ERR_IO;
	err = (off_t)len > st->st_size ? posix_fallocate(fd, 0, (off_t)len) : 0;
	if (err && err != EOPNOTSUPP && err != ENOSYS && err != EINVAL) {
		if (ftruncate(fd, (off_t)oldlen)) {
			/* the old bytes are intact; only the reserved tail stays */
		}
		free(old);
		return UCI_ERR_IO;
	}
	if (!pwrite_all(fd, buf, len) && !ftruncate(fd, (off_t)len) && !fsync(fd)) {
		free(old);
		return 0;
	}
	if (!pwrite_all(fd, old, oldlen) && !ftruncate(fd, (off_t)oldlen))
		fsync(fd);
	free(old);
	return UCI_ERR_IO;
}

/* Writes p in the canonical form over target, whose file fd is open and
 * locked: the file stays the same file (owner, group, mode, hard links and
 * the target of a link), and a failure leaves the old content. */
static int write_package_file(struct uci_context *ctx, struct uci_package *p,
		const char *target, int fd, const struct stat *st)
{
	char *buf = NULL;
	size_t len = 0;
	FILE *f = open_memstream(&buf, &len);
	int rc;

	if (!f)
		return UCI_ERR_MEM;
	ucii_write_package(ctx, f, p, false);
	if (fclose(f)) {
		free(buf);
		return UCI_ERR_MEM;
	}
	rc = replace_by_rename(ctx, p, target, st, buf, len);
	if (rc == 1)
		rc = rewrite_in_place(fd, st, buf, len);
	free(buf);
	return rc;
}

/* Commits a package loaded by path: written as it is, under the lock. */
static int commit_by_path(struct uci_context *ctx, struct uci_package *p)
{
	struct stat st;
	int fd, rc;

	if (!p->path)
		return UCI_ERR_INVAL;
	fd = open_locked(p->path, &st);
	if (fd < 0)
		return UCI_ERR_IO;
	rc = write_package_file(ctx, p, p->path, fd, &st);
	close(fd);
	return rc;
}

int uci_save(struct uci_context *ctx, struct uci_package *p)
{
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!p)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!p->has_delta)
		return ucii_err(ctx, commit_by_path(ctx, p));
	return ucii_err(ctx, save_deltas(ctx, p));
}

/* Opens the delta file of the save directory under an exclusive lock, so
 * that no change saved by another process falls between the commit's read
 * of the file and its truncation; -1 when there is none. */
static int lock_savefile(struct uci_context *ctx, const char *name)
{
	char *path = ucii_path(ctx->savedir, name);
	int fd;
	if (!path)
		return -1;
	fd = open(path, O_RDWR | O_CLOEXEC);
	free(path);
	if (fd >= 0)
		while (flock(fd, LOCK_EX) && errno == EINTR)
			;
	return fd;
}

static void clear_saved(struct uci_package *p)
{
	struct uci_element *e, *tmp;
	uci_foreach_element_safe(&p->saved_delta, tmp, e)
		ucii_delta_free(uci_to_delta(e));
}

int uci_commit(struct uci_context *ctx, struct uci_package **package, bool overwrite)
{
	struct uci_package *p;
	char *name = NULL, *path = NULL, *buf;
	struct stat st;
	size_t len;
	int fd, savefd = -1, rc, applied;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!package || !*package)
		return ucii_err(ctx, UCI_ERR_INVAL);
	p = *package;
	/* A package with no file yet (an import) is written over
	 * <confdir>/<name>, when the caller asks to overwrite. */
	if (!p->path && overwrite) {
		free(UCII_OWN(p)->str);
		p->path = UCII_OWN(p)->str = ucii_path(ctx->confdir, p->e.name);
		if (!p->path)
			return ucii_err(ctx, UCI_ERR_MEM);
	}
	if (!p->path)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!p->has_delta)
		return ucii_err(ctx, commit_by_path(ctx, p));

	fd = open_locked(p->path, &st);
	if (fd < 0)
		return ucii_err(ctx, errno == ENOENT ? UCI_ERR_NOTFOUND : UCI_ERR_IO);

	rc = save_deltas(ctx, p);
	if (rc)
		goto out;
	savefd = lock_savefile(ctx, p->e.name);

	if (!overwrite) {
		struct uci_package *np;
		name = strdup(p->e.name);
		path = strdup(p->path);
		if (!name || !path) {
			rc = UCI_ERR_MEM;
			goto out;
		}
		buf = ucii_read_fd(fd, &len);
		if (!buf) {
			rc = UCI_ERR_IO;
			goto out;
		}
		ucii_package_free(p);
		*package = NULL;
		rc = parse_package(ctx, name, path, buf, len, true, &np);
		free(buf);
		if (rc)
			goto out;
		np->uses_conf2 = false;
		ucii_list_add(&ctx->root, &np->e.list);
		*package = p = np;
	}
	applied = ucii_load_deltas(ctx, p, savefd);
	if (!applied)
		goto out;

	rc = write_package_file(ctx, p, p->path, fd, &st);
	if (rc)
		goto out;
	if (savefd >= 0 && ftruncate(savefd, 0)) {
		/* nothing more to do: the changes are in the file already */
	}
	clear_saved(p);
out:
	if (savefd >= 0)
		close(savefd);
	close(fd);
	free(name);
	free(path);
	return ucii_err(ctx, rc);
}

/* ---- revert ---- */

struct revert_filter {
	struct uci_context *ctx;
	const char *pkg, *sec, *opt;
	char *out;
	size_t outlen;
};

static int revert_line(void *arg, char *word, const char *line, size_t n)
{
	struct revert_filter *r = arg;
	struct uci_ptr ptr;
	int err = r->ctx->err;
	bool drop = false;
	char *w = word;

	if (strchr("+-@^|~", *w) && *w)
		w++;
	if (!uci_parse_ptr(r->ctx, &ptr, w) && !strcmp(ptr.package, r->pkg)) {
		if (!r->sec)
			drop = true;
		else if (ptr.section && !strcmp(ptr.section, r->sec))
			drop = !r->opt || (ptr.option && !strcmp(ptr.option, r->opt));
	}
	r->ctx->err = err;
	if (!drop) {
		memcpy(r->out + r->outlen, line, n);
		r->outlen += n;
	}
	return 0;
}

static int filter_savefile(struct uci_context *ctx, const char *pkg, const char *sec, const char *opt)
{
	struct revert_filter r;
	char *path = ucii_path(ctx->savedir, pkg);
	char *buf;
	size_t len;
	int fd, rc = 0;

	if (!path)
		return UCI_ERR_MEM;
	fd = open(path, O_RDWR | O_CLOEXEC);
	free(path);
	if (fd < 0)
		return 0;
	flock(fd, LOCK_EX);
	buf = ucii_read_fd(fd, &len);
	if (!buf) {
		close(fd);
		return UCI_ERR_IO;
	}
	memset(&r, 0, sizeof(r));
	r.ctx = ctx;
	r.pkg = pkg;
	r.sec = sec;
	r.opt = opt;
	r.out = malloc(len + 1);
	if (!r.out) {
		free(buf);
		close(fd);
		return UCI_ERR_MEM;
	}
	rc = ucii_parse_delta_lines(ctx, buf, len, revert_line, &r);
	if (!rc && r.outlen != len) {
		if (ftruncate(fd, 0) || pwrite(fd, r.out, r.outlen, 0) != (ssize_t)r.outlen)
			rc = UCI_ERR_IO;
	}
	free(r.out);
	free(buf);
	close(fd);
	return rc;
}

int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr)
{
	struct uci_package *p;
	char *pkg = NULL, *sec = NULL, *opt = NULL;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!ptr)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!(ptr->flags & UCI_LOOKUP_DONE)) {
		rc = uci_lookup_ptr(ctx, ptr, NULL, true);
		if (rc)
			return rc;
	}
	p = ptr->p;
	if (!p || !p->has_delta)
		return ucii_err(ctx, UCI_ERR_INVAL);
	pkg = strdup(p->e.name);
	if (ptr->s)
		sec = strdup(ptr->s->e.name);
	else if (ptr->section)
		sec = strdup(ptr->section);
	if (ptr->option)
		opt = strdup(ptr->option);
	if (!pkg || (ptr->section && !sec) || (ptr->option && !opt)) {
		rc = UCI_ERR_MEM;
		goto out;
	}
	rc = save_deltas(ctx, p);
	if (rc)
		goto out;
	ucii_package_free(p);
	ptr->p = NULL;
	ptr->s = NULL;
	ptr->o = NULL;
	ptr->last = NULL;
	rc = filter_savefile(ctx, pkg, sec, opt);
	if (rc)
		goto out;
	rc = uci_load(ctx, pkg, &ptr->p);
	if (!rc)
		ptr->package = ptr->p->e.name;
	ptr->section = NULL;
	ptr->option = NULL;
out:
	free(pkg);
	free(sec);
	free(opt);
	return ucii_err(ctx, rc);
}

/* ---- listing ---- */

static int cmp_str(const void *a, const void *b)
{
	return strcmp(*(char *const *)a, *(char *const *)b);
}

int uci_list_configs(struct uci_context *ctx, char ***list)
{
	DIR *d;
	struct dirent *de;
	char **names = NULL, **res, *strs;
	size_t n = 0, cap = 0, total = 0, i;
	int rc = 0;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!list)
		return ucii_err(ctx, UCI_ERR_INVAL);
	*list = NULL;
	d = opendir(ctx->confdir);
	if (!d)
		return ucii_err(ctx, UCI_ERR_NOTFOUND);
	while ((de = readdir(d)) != NULL) {
		struct stat st;
		char *path;
		if (de->d_name[0] == '.' || strchr(de->d_name, '.') || !ucii_valid_package(de->d_name))
			continue;
		path = ucii_path(ctx->confdir, de->d_name);
		if (!path) {
			rc = UCI_ERR_MEM;
			break;
		}
		if (stat(path, &st) || !S_ISREG(st.st_mode)) {
			free(path);
			continue;
		}
		free(path);
		if (n == cap) {
			char **nn = realloc(names, (cap = cap ? cap * 2 : 16) * sizeof(*names));
			if (!nn) {
				rc = UCI_ERR_MEM;
				break;
			}
			names = nn;
		}
		names[n] = strdup(de->d_name);
		if (!names[n]) {
			rc = UCI_ERR_MEM;
			break;
		}
		total += strlen(names[n]) + 1;
		n++;
	}
	closedir(d);
	if (!rc && !n)
		rc = UCI_ERR_NOTFOUND;
	if (!rc) {
		qsort(names, n, sizeof(*names), cmp_str);
		res = malloc((n + 1) * sizeof(char *) + total);
		if (!res) {
			rc = UCI_ERR_MEM;
		} else {
			strs = (char *)(res + n + 1);
			for (i = 0; i < n; i++) {
				size_t l = strlen(names[i]) + 1;
				memcpy(strs, names[i], l);
				res[i] = strs;
				strs += l;
			}
			res[n] = NULL;
			*list = res;
		}
	}
	for (i = 0; i < n; i++)
		free(names[i]);
	free(names);
	return ucii_err(ctx, rc);
}

/* ---- import, export ---- */

static char *read_stream(FILE *f, size_t *len)
{
	size_t cap = 4096, n = 0, r;
	char *buf = malloc(cap);
	if (!buf)
		return NULL;
	while ((r = fread(buf + n, 1, cap - n - 1, f)) > 0) {
		n += r;
		if (n + 1 >= cap) {
			char *nb = realloc(buf, cap * 2);
			if (!nb) {
				free(buf);
				return NULL;
			}
			buf = nb;
			cap *= 2;
		}
	}
	buf[n] = 0;
	*len = n;
	return buf;
}

int uci_import(struct uci_context *ctx, FILE *stream, const char *name, struct uci_package **package, bool single)
{
	struct ucii_parse_job job;
	char *buf;
	size_t len;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!stream)
		return ucii_err(ctx, UCI_ERR_INVAL);
	memset(&job, 0, sizeof(job));
	if (package && *package && single) {
		job.mode = UCII_PARSE_MERGE;
		job.pkg = *package;
	} else {
		job.mode = UCII_PARSE_IMPORT;
		job.name = name;
		job.single = single;
		if (name && find_loaded(ctx, name))
			return ucii_err(ctx, UCI_ERR_DUPLICATE);
	}
	buf = read_stream(stream, &len);
	if (!buf)
		return ucii_err(ctx, UCI_ERR_MEM);
	rc = ucii_parse_config(ctx, buf, len, &job);
	free(buf);
	if (!rc && job.mode == UCII_PARSE_IMPORT && !job.pkg && name) {
		/* an input without sections still makes the named package */
		job.pkg = ucii_package_new(ctx, name);
		if (job.pkg)
			ucii_list_add(&ctx->root, &job.pkg->e.list);
		else
			rc = UCI_ERR_MEM;
	}
	if (package && job.mode == UCII_PARSE_IMPORT)
		*package = job.pkg;
	return ucii_err(ctx, rc);
}

int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header)
{
	struct uci_element *e;
	if (!ctx)
		return UCI_ERR_INVAL;
	if (!stream)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (package) {
		ucii_write_package(ctx, stream, package, header);
	} else {
		uci_foreach_element(&ctx->root, e)
			ucii_write_package(ctx, stream, uci_to_package(e), header);
	}
	return ucii_err(ctx, ferror(stream) ? UCI_ERR_IO : 0);
}

/* ---- batch argument reader ---- */

/* Reads the next logical line of f into pc->abuf: a quote left open at the
 * end of a line, or a backslash ending one outside single quotes, goes on
 * to the next; a comment runs to the line feed; a NUL byte ends its line.
 * 0, or an error code (with the parse detail for an open quote at EOF). */
static int read_batch_line(struct uci_context *ctx, FILE *f)
{
	struct uci_parse_context *pc = ctx->pctx;
	char quote = 0;
	bool esc = false, comment = false, word_start = true, nul = false;
	int c;

	pc->alen = pc->apos = 0;
	if (!ucii_buf_put(&pc->abuf, &pc->alen, &pc->acap, 0))
		return UCI_ERR_MEM;
	pc->alen = 0;
	while ((c = getc(f)) != EOF) {
		if (nul && c != '\n')
			continue;
		nul = false;
		if (c == 0) {
			nul = true;
			continue;
		}
		if (!ucii_buf_put(&pc->abuf, &pc->alen, &pc->acap, (char)c))
			return UCI_ERR_MEM;
		if (c == '\n') {
			pc->aline++;
			if (!quote && !esc)
				return 0;
			esc = false;
		} else if (comment) {
			continue;
		} else if (esc) {
			esc = false;
		} else if (quote) {
			if (c == quote)
				quote = 0;
			else if (c == '\\' && quote == '"')
				esc = true;
		} else {
			if (c == '\'' || c == '"')
				quote = (char)c;
			else if (c == '\\')
				esc = true;
			else if (c == '#' && word_start)
				comment = true;
			word_start = c == ' ' || c == '\t';
		}
	}
	if (ferror(f))
		return UCI_ERR_IO;
	if (quote) {
		ucii_parse_error(ctx, quote == '"' ? "EOF with unterminated \"" :
				 "EOF with unterminated '", pc->aline, (int)pc->alen);
		return UCI_ERR_PARSE;
	}
	return 0;
}

/* Unquotes the word at in in place; returns where the next one may start. */
static char *unquote_word(char *in, char *end, char **word)
{
	char *out = *word = in;
	char quote = 0;

	for (; in < end; in++) {
		if (!quote && (*in == ' ' || *in == '\t' || *in == '\n'))
			break;
		if (*in == quote) {
			quote = 0;
			continue;
		}
		if (!quote && (*in == '\'' || *in == '"')) {
			quote = *in;
			continue;
		}
		if (*in == '\\' && quote != '\'' && in + 1 < end) {
			if (*++in == '\n')
				continue;  /* a continued line */
		}
		*out++ = *in;
	}
	if (in < end)
		in++;
	*out = 0;
	return in;
}

int uci_parse_argument(struct uci_context *ctx, FILE *stream, char **str, char **result)
{
	struct uci_parse_context *pc;
	char *in, *end;
	int rc;

	if (!ctx)
		return UCI_ERR_INVAL;
	if (!stream || !str || !result)
		return ucii_err(ctx, UCI_ERR_INVAL);
	if (!ctx->pctx && !(ctx->pctx = calloc(1, sizeof(*ctx->pctx))))
		return ucii_err(ctx, UCI_ERR_MEM);
	pc = ctx->pctx;
	*result = NULL;
	if (pc->astream != stream) {
		pc->astream = stream;
		pc->aline = 0;
		*str = NULL;
	}
	if (!*str || !pc->abuf) {
		rc = read_batch_line(ctx, stream);
		if (rc)
			return ucii_err(ctx, rc);
	}

	/* The words are unquoted in place and stay valid until the next line
	 * is read.  At the end of the line the result is "" and *str NULL, so
	 * the next call reads a new line. */
	in = pc->abuf + pc->apos;
	end = pc->abuf + pc->alen;
	while (in < end && (*in == ' ' || *in == '\t'))
		in++;
	if (in == end || *in == '\n' || *in == '#') {
		pc->apos = pc->alen;
		*result = end;
		*str = NULL;
		return ucii_err(ctx, 0);
	}
	in = unquote_word(in, end, result);
	pc->apos = (size_t)(in - pc->abuf);
	*str = in;
	return ucii_err(ctx, 0);
}
