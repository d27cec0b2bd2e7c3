// Sandbox harness: private mount namespace over the library's fixed paths.
#include "sandbox.hpp"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <poll.h>
#include <pthread.h>

#include <fstream>
#include <mutex>
#include <sstream>

namespace kivtest {
namespace {

// Scratch space for overlay layers and call logs; a tmpfs mounted here.
constexpr const char kScratch[] = "/mnt";
constexpr const char kCalls[] = "/mnt/calls";

struct State {
  bool active = false;
  std::vector<std::string> mounts;  // in mount order
  int console_fd = -1;
  int log_fd = -1;
  // The kernel queues only a few datagrams on a socket, and a full queue
  // blocks the writer: a thread drains /dev/log all the time.
  std::mutex log_mutex;
  std::vector<std::string> log_msgs;
  pthread_t log_thread{};
  bool log_thread_running = false;
  int log_stop[2] = {-1, -1};
};

State &state() {
  // Never destroyed: the syslog reader may still run while the process
  // exits.
  static State *s = new State;
  return *s;
}

std::string errtext(const std::string &what) {
  return what + ": " + strerror(errno);
}

bool do_mount(const char *src, const std::string &target, const char *type,
              unsigned long flags, const std::string &data,
              std::string *why) {
  if (mount(src, target.c_str(), type, flags,
            data.empty() ? nullptr : data.c_str()) != 0) {
    *why = errtext("mount " + std::string(type ? type : "bind") + " on " +
                   target);
    return false;
  }
  state().mounts.push_back(target);
  return true;
}

// Moves every queued datagram into log_msgs; the caller holds log_mutex.
void drain_log_locked(State &s) {
  char buf[8192];
  for (;;) {
    ssize_t r = recv(s.log_fd, buf, sizeof buf, MSG_DONTWAIT);
    if (r < 0) break;
    std::string msg(buf, static_cast<size_t>(r));
    while (!msg.empty() && (msg.back() == '\n' || msg.back() == '\0'))
      msg.pop_back();
    s.log_msgs.push_back(std::move(msg));
  }
}

void *log_drainer(void *arg) {
  State *s = static_cast<State *>(arg);
  pollfd fds[2] = {{s->log_fd, POLLIN, 0}, {s->log_stop[0], POLLIN, 0}};
  for (;;) {
    if (poll(fds, 2, -1) < 0 && errno != EINTR) return nullptr;
    if (fds[1].revents) return nullptr;
    if (fds[0].revents) {
      std::lock_guard<std::mutex> lock(s->log_mutex);
      drain_log_locked(*s);
    }
  }
}

void leave() {
  State &s = state();
  if (s.log_thread_running) {
    char c = 0;
    ssize_t w = write(s.log_stop[1], &c, 1);
    (void)w;
    pthread_join(s.log_thread, nullptr);
    s.log_thread_running = false;
  }
  for (int &fd : s.log_stop) {
    if (fd >= 0) close(fd);
    fd = -1;
  }
  s.log_msgs.clear();
  if (s.console_fd >= 0) close(s.console_fd);
  if (s.log_fd >= 0) close(s.log_fd);
  s.console_fd = s.log_fd = -1;
  for (auto it = s.mounts.rbegin(); it != s.mounts.rend(); ++it)
    umount2(it->c_str(), MNT_DETACH);
  s.mounts.clear();
  s.active = false;
}

bool under(const std::string &path, const char *dir) {
  size_t n = strlen(dir);
  return path.compare(0, n, dir) == 0 && (path.size() == n || path[n] == '/');
}

}  // namespace

bool Sandbox::active() { return state().active; }

std::string Sandbox::enter() {
  if (geteuid() != 0)
    return "the sandbox needs root to make a private mount namespace";

  char exe[4096] = {0};
  if (readlink("/proc/self/exe", exe, sizeof exe - 1) < 0)
    return errtext("readlink /proc/self/exe");
  for (const char *d : {"/etc", "/tmp", "/var", "/run", "/usr", "/dev",
                        "/sys", "/mnt"}) {
    if (under(exe, d))
      return std::string("the test program lives under ") + d +
             ", which the sandbox covers; build outside it";
  }
  if (access(kScratch, F_OK) != 0)
    return std::string("no ") + kScratch + " for the sandbox's scratch space";

  if (state().active) {
    leave();
  } else if (unshare(CLONE_NEWNS) != 0) {
    return errtext("unshare(CLONE_NEWNS) refused");
  }
  std::string why;
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return errtext("making / private");

  if (!do_mount("kivtest", kScratch, "tmpfs", 0, "mode=0755", &why))
    return why;

  // Overlays: reads see the host, writes stay in the scratch tmpfs.
  const char *overlays[] = {"/etc", "/usr/bin", "/usr/sbin", "/dev"};
  int n = 0;
  for (const char *dir : overlays) {
    std::string base = std::string(kScratch) + "/ov" + std::to_string(n++);
    mkdirs(base + "/up");
    mkdirs(base + "/work");
    std::string opts = std::string("lowerdir=") + dir + ",upperdir=" + base +
                       "/up,workdir=" + base + "/work";
    if (!do_mount("overlay", dir, "overlay", 0, opts, &why)) {
      leave();
      return why;
    }
  }
  for (const char *dir : {"/tmp", "/var", "/run", "/sys/class", "/dev/shm"}) {
    mkdirs(dir);
    if (!do_mount("kivtest", dir, "tmpfs", 0, "mode=1777", &why)) {
      leave();
      return why;
    }
  }
  chmod("/var", 0755);
  chmod("/run", 0755);
  chmod("/sys/class", 0755);
  if (symlink("/run", "/var/run") != 0) {
    leave();
    return errtext("symlink /var/run");
  }
  mkdirs(kCalls);

  // The console: a FIFO that this process keeps open for reading, so that
  // every fopen("/dev/console", "w") succeeds at once.
  unlink("/dev/console");
  if (mkfifo("/dev/console", 0622) != 0) {
    leave();
    return errtext("mkfifo /dev/console");
  }
  State &s = state();
  s.console_fd = open("/dev/console", O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (s.console_fd < 0) {
    leave();
    return errtext("open /dev/console");
  }
  fcntl(s.console_fd, F_SETPIPE_SZ, 1 << 20);

  // Syslog: a datagram socket at /dev/log.
  unlink("/dev/log");
  s.log_fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strcpy(addr.sun_path, "/dev/log");
  if (s.log_fd < 0 ||
      bind(s.log_fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
    leave();
    return errtext("bind /dev/log");
  }
  int rcv = 1 << 20;
  setsockopt(s.log_fd, SOL_SOCKET, SO_RCVBUF, &rcv, sizeof rcv);
  if (pipe2(s.log_stop, O_CLOEXEC) != 0) {
    leave();
    return errtext("pipe");
  }
  // A plain pthread: it may still run when the process exits, and forked
  // children that call exit() must not try to stop it.
  if (pthread_create(&s.log_thread, nullptr, log_drainer, &s) != 0) {
    leave();
    return "cannot start the syslog reader";
  }
  s.log_thread_running = true;

  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  s.active = true;
  return "";
}

void Sandbox::mkdirs(const std::string &path) {
  std::string cur;
  size_t pos = 0;
  while (pos != std::string::npos) {
    pos = path.find('/', pos + 1);
    cur = path.substr(0, pos);
    if (!cur.empty()) mkdir(cur.c_str(), 0755);
  }
}

void Sandbox::write_file(const std::string &path, std::string_view content,
                         mode_t mode) {
  size_t slash = path.rfind('/');
  if (slash != std::string::npos && slash > 0) mkdirs(path.substr(0, slash));
  int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
  ASSERT_GE(fd, 0) << "open " << path << ": " << strerror(errno);
  size_t off = 0;
  while (off < content.size()) {
    ssize_t w = write(fd, content.data() + off, content.size() - off);
    if (w <= 0) break;
    off += static_cast<size_t>(w);
  }
  fchmod(fd, mode);
  close(fd);
  EXPECT_EQ(off, content.size()) << "short write to " << path;
}

std::string Sandbox::read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

bool Sandbox::exists(const std::string &path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

void Sandbox::fake_command(const std::string &name, const std::string &script) {
  std::string log = std::string(kCalls) + "/" + name;
  std::string body =
      "#!/bin/sh\n"
      "{ for a in \"$@\"; do printf '%s\\037' \"$a\"; done; printf '\\036'; } "
      ">> '" + log + "'\n" + script + "\n";
  write_file("/usr/sbin/" + name, body, 0755);
}

void Sandbox::install_command(const std::string &name,
                              const std::string &target) {
  std::string path = "/usr/sbin/" + name;
  unlink(path.c_str());
  ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0)
      << "symlink " << path << ": " << strerror(errno);
}

std::vector<std::vector<std::string>> Sandbox::calls_argv(
    const std::string &name) {
  std::vector<std::vector<std::string>> out;
  std::string text = read_file(std::string(kCalls) + "/" + name);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\036', start);
    if (end == std::string::npos) end = text.size();
    std::vector<std::string> args;
    size_t a = start;
    while (a < end) {
      size_t b = text.find('\037', a);
      if (b == std::string::npos || b > end) b = end;
      args.push_back(text.substr(a, b - a));
      a = b + 1;
    }
    out.push_back(std::move(args));
    start = end + 1;
  }
  return out;
}

std::vector<std::string> Sandbox::calls(const std::string &name) {
  std::vector<std::string> out;
  for (const auto &args : calls_argv(name)) {
    std::string line;
    for (size_t i = 0; i < args.size(); ++i) {
      if (i) line += ' ';
      line += args[i];
    }
    out.push_back(line);
  }
  return out;
}

std::string Sandbox::console() {
  std::string out;
  char buf[4096];
  for (;;) {
    ssize_t r = read(state().console_fd, buf, sizeof buf);
    if (r <= 0) break;
    out.append(buf, static_cast<size_t>(r));
  }
  return out;
}

std::vector<std::string> Sandbox::syslog() {
  State &s = state();
  std::lock_guard<std::mutex> lock(s.log_mutex);
  drain_log_locked(s);
  std::vector<std::string> out;
  out.swap(s.log_msgs);
  return out;
}

void SandboxTest::SetUp() {
  std::string why = Sandbox::enter();
  if (!why.empty()) GTEST_SKIP() << "sandbox unavailable: " << why;
}

// ---- Capture ---------------------------------------------------------------

Capture::Capture(int fd) : fd_(fd) {
  fflush(stdout);
  fflush(stderr);
  file_ = memfd_create("kivtest-capture", MFD_CLOEXEC);
  saved_ = dup(fd_);
  dup2(file_, fd_);
}

Capture::~Capture() { take(); }

std::string Capture::take() {
  if (done_) return text_;
  done_ = true;
  fflush(stdout);
  fflush(stderr);
  dup2(saved_, fd_);
  close(saved_);
  char buf[4096];
  off_t off = 0;
  for (;;) {
    ssize_t r = pread(file_, buf, sizeof buf, off);
    if (r <= 0) break;
    text_.append(buf, static_cast<size_t>(r));
    off += r;
  }
  close(file_);
  return text_;
}

// ---- Children --------------------------------------------------------------

namespace {

std::string read_memfd(int fd) {
  std::string out;
  char buf[4096];
  off_t off = 0;
  for (;;) {
    ssize_t r = pread(fd, buf, sizeof buf, off);
    if (r <= 0) break;
    out.append(buf, static_cast<size_t>(r));
    off += r;
  }
  return out;
}

}  // namespace

ChildResult run_in_child(const std::function<void()> &fn) {
  ChildResult res;
  int out = memfd_create("kivtest-out", MFD_CLOEXEC);
  int err = memfd_create("kivtest-err", MFD_CLOEXEC);
  fflush(stdout);
  fflush(stderr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out, 1);
    dup2(err, 2);
    fn();
    fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  if (pid > 0) waitpid(pid, &status, 0);
  if (WIFEXITED(status)) {
    res.exited = true;
    res.exit_code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    res.signal = WTERMSIG(status);
  }
  res.out = read_memfd(out);
  res.err = read_memfd(err);
  close(out);
  close(err);
  return res;
}

bool g_no_reserve = false;

void become(uid_t uid, gid_t gid) {
  if (setgroups(0, nullptr) != 0 || setresgid(gid, gid, gid) != 0 ||
      setresuid(uid, uid, uid) != 0)
    _exit(99);
}

int open_fd_count() {
  int n = 0;
  DIR *d = opendir("/proc/self/fd");
  if (!d) return -1;
  while (dirent *e = readdir(d))
    if (e->d_name[0] != '.') ++n;
  closedir(d);
  return n - 1;  // the descriptor of the listing itself
}

}  // namespace kivtest

// LeakSanitizer's check at exit stops the world and takes the allocator's
// locks.  In a child forked from this process (which runs the syslog reader
// thread) a lock that thread held at the fork is never released, and the
// child hangs in exit().  Children that exit -- run_in_child and death tests
// -- therefore skip the check; the test process itself keeps it.
namespace {
const pid_t g_test_pid = getpid();
}  // namespace

extern "C" __attribute__((visibility("default"), used)) int
__lsan_is_turned_off() {
  return getpid() != g_test_pid;
}

// With 64-bit file offsets on a 32-bit system the header names the call
// posix_fallocate64, and so does this definition.
extern "C" __attribute__((visibility("default"))) int posix_fallocate(
    int fd, off_t at, off_t len) {
  if (kivtest::g_no_reserve) return EOPNOTSUPP;
  using Fn = int (*)(int, off_t, off_t);
  static const Fn real = reinterpret_cast<Fn>(dlsym(
      RTLD_NEXT, sizeof(off_t) > sizeof(long) ? "posix_fallocate64"
                                              : "posix_fallocate"));
  return real(fd, at, len);
}
