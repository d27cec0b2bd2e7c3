// Test harness: runs the production library on its real fixed paths inside
// a private mount namespace, so that nothing on the host changes.
//
// Sandbox::enter() (called by SandboxTest::SetUp) gives the calling process
// its own mount namespace with fresh, empty state:
//   /etc, /usr/bin, /usr/sbin, /dev   overlays on the host's directories
//                                     (reads see the host, writes stay here)
//   /tmp, /var, /run, /sys/class      empty tmpfs
//   /dev/console                      a FIFO drained by Sandbox::console()
//   /dev/log                          a datagram socket read by
//                                     Sandbox::syslog()
// Each call of enter() starts again from fresh state, so tests never see
// each other's files.  When the process may not create namespaces (not root,
// or a container that forbids it) enter() returns the reason and
// SandboxTest skips the test with it.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kivtest {

class Sandbox {
 public:
  // Enters (or re-enters) the sandbox.  Returns "" on success, else why not.
  static std::string enter();

  // Creates or replaces a file, creating missing parent directories.
  static void write_file(const std::string &path, std::string_view content,
                         mode_t mode = 0644);
  // Whole content of a file; "" when it cannot be read.
  static std::string read_file(const std::string &path);
  static bool exists(const std::string &path);
  static void mkdirs(const std::string &path);

  // Installs a fake command in /usr/sbin (so it is found both through the
  // caller's PATH and through the fixed PATH that _do_cmd gives its
  // children).  Every run appends its arguments to the command's call log,
  // then runs `script` (a /bin/sh body, "$@" available) if given.
  static void fake_command(const std::string &name,
                           const std::string &script = "");
  // Makes `name` (in /usr/sbin) run the real program at `target`.
  static void install_command(const std::string &name,
                              const std::string &target);
  // The calls of a fake command in order, each its arguments joined by
  // single blanks (argv[0] left out).
  static std::vector<std::string> calls(const std::string &name);
  // The same with the arguments kept apart.
  static std::vector<std::vector<std::string>> calls_argv(
      const std::string &name);

  // Text written to /dev/console since the last call.
  static std::string console();
  // Syslog datagrams received since the last call, e.g.
  // "<29>Nov 22 21:58:18 libkiv[42]: system_cmd: uptime".
  static std::vector<std::string> syslog();
};

// Fixture for tests whose calls must give back every descriptor they took,
// on good and failing paths alike: TearDown counts them.
class FdCheckedTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

 private:
  int fds_ = -1;
};

// Fixture for tests that need the sandbox; skips with the reason when it
// cannot be had.  Descriptors are counted as above.
class SandboxTest : public FdCheckedTest {
 protected:
  void SetUp() override;
};

// Captures what is written to a descriptor (1 or 2) while it lives.
class Capture {
 public:
  explicit Capture(int fd);
  ~Capture();
  Capture(const Capture &) = delete;
  Capture &operator=(const Capture &) = delete;
  // Stops capturing (once) and returns everything captured.
  std::string take();

 private:
  int fd_;
  int saved_ = -1;
  int file_ = -1;
  bool done_ = false;
  std::string text_;
};

// Result of a function run in a forked child.
struct ChildResult {
  bool exited = false;  // ended by exit(); else killed by `signal`
  int exit_code = -1;   // 0..255 when exited
  int signal = 0;
  std::string out;  // the child's stdout
  std::string err;  // the child's stderr
};

// Runs fn in a child process (for calls that end the process) and collects
// its exit and output.  A child that returns from fn exits with 0.
ChildResult run_in_child(const std::function<void()> &fn);

// In a child: drops root for uid and gid (no supplementary groups); a
// failure ends the child with status 99.
void become(uid_t uid, gid_t gid);

// While set, posix_fallocate() fails with EOPNOTSUPP in this program and
// its children, as on file systems that can not reserve room (programs
// that use it export their symbols, so the libraries call this one).
extern bool g_no_reserve;

// Everything fn wrote on stderr, sent to syslog (a line each) and printed on
// the console, in that order: what a call let out.
std::string logged(const std::function<void()> &fn);

// A SIGALRM every `usec` microseconds while the object lives, without
// SA_RESTART, so that blocked reads and writes fail with EINTR or return
// short.  ticks() counts the signals since the start.
class Ticker {
 public:
  explicit Ticker(long usec = 2000);
  ~Ticker();
  Ticker(const Ticker &) = delete;
  Ticker &operator=(const Ticker &) = delete;
  static int ticks();

 private:
  struct sigaction old_ {};
};

// n bytes in a pattern that shows any byte lost, doubled or moved.
std::string stream_pattern(size_t n);

// Number of open descriptors of this process (from /proc/self/fd).
int open_fd_count();

// The names in a directory, "." and ".." left out.
std::set<std::string> dir_names(const std::string &dir);

// stat() of path, expected to succeed.
struct stat stat_of(const std::string &path);

// A file's directory and rights before a rewrite, who rewrites it, and
// whether that may go through: a rewrite needs exactly the right to write
// the file, and keeps its owner, group (owner + 1) and mode.
struct RightsCase {
  const char *what, *dir;
  mode_t dir_mode;
  uid_t owner;
  mode_t mode;
  uid_t caller;
  bool updated;
};
extern const RightsCase kRightsCases[5];

// Makes c's directory and the file `name` in it with content; its path.
std::string make_rights_case(const RightsCase &c, const char *name,
                             std::string_view content);

}  // namespace kivtest
