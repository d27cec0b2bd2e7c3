#include "helpers.hpp"

#include <fcntl.h>
#include <ftw.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

namespace ucitest {

TempDir::TempDir() {
  char tmpl[] = "/tmp/libuci-test.XXXXXX";
  char *p = mkdtemp(tmpl);
  EXPECT_NE(p, nullptr);
  path_ = p ? p : "/nonexistent";
}

TempDir::~TempDir() {
  nftw(
      path_.c_str(),
      [](const char *p, const struct stat *, int, struct FTW *) {
        return remove(p);
      },
      16, FTW_DEPTH | FTW_PHYS);
}

void write_file(const std::string &path, const std::string &text, mode_t mode) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f << text;
  f.close();
  chmod(path.c_str(), mode);
}

std::string read_file(const std::string &path) {
  std::ifstream f(path, std::ios::binary);
  std::stringstream ss;
  ss << f.rdbuf();
  return ss.str();
}

bool exists(const std::string &path) {
  struct stat st;
  return stat(path.c_str(), &st) == 0;
}

mode_t file_mode(const std::string &path) {
  struct stat st;
  if (stat(path.c_str(), &st)) return 0;
  return st.st_mode & 07777;
}

void UciDirs::SetUp() {
  kivtest::FdCheckedTest::SetUp();
  mkdir(confdir().c_str(), 0755);
  ctx = new_context();
}

uci_context *UciDirs::new_context() {
  uci_context *c = uci_alloc_context();
  EXPECT_NE(c, nullptr);
  EXPECT_EQ(uci_set_confdir(c, confdir().c_str()), 0);
  EXPECT_EQ(uci_set_savedir(c, savedir().c_str()), 0);
  uci_set_conf2dir(c, nullptr);
  if (c != ctx && ctx) extra_.push_back(c);
  return c;
}

void UciDirs::TearDown() {
  for (auto *c : extra_) uci_free_context(c);
  if (ctx) uci_free_context(ctx);
  kivtest::FdCheckedTest::TearDown();
}

namespace {
void drain(int fd, std::string *into) {
  char buf[4096];
  ssize_t n;
  while ((n = read(fd, buf, sizeof(buf))) > 0) into->append(buf, size_t(n));
}
}  // namespace

Result run(const std::vector<std::string> &argv, const std::string &in) {
  Result r;
  int pin[2], pout[2], perr[2];
  if (pipe(pin) || pipe(pout) || pipe(perr)) return r;
  pid_t pid = fork();
  if (pid == 0) {
    dup2(pin[0], 0);
    dup2(pout[1], 1);
    dup2(perr[1], 2);
    for (int fd : {pin[0], pin[1], pout[0], pout[1], perr[0], perr[1]}) close(fd);
    std::vector<char *> args;
    args.push_back(const_cast<char *>("uci"));
    for (size_t i = 1; i < argv.size(); i++)
      args.push_back(const_cast<char *>(argv[i].c_str()));
    args.push_back(nullptr);
    execv(argv[0].c_str(), args.data());
    _exit(127);
  }
  close(pin[0]);
  close(pout[1]);
  close(perr[1]);
  if (!in.empty() && write(pin[1], in.data(), in.size()) < 0) {
  }
  close(pin[1]);
  // Outputs are small; read stdout then stderr.
  drain(pout[0], &r.out);
  drain(perr[0], &r.err);
  close(pout[0]);
  close(perr[0]);
  int st = 0;
  waitpid(pid, &st, 0);
  r.rc = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

}  // namespace ucitest
