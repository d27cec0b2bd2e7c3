// Sandbox harness: private mount namespace over the library's fixed paths.
#include "sandbox.hpp"

#include <dirent.h>
#include <dlfcn.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <grp.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <mutex>
#include <sstream>

#include "util.hpp"

namespace kivtest {
namespace {

// Scratch space for overlay layers and call logs; a tmpfs mounted here.
constexpr const char kScratch[] = "/mnt";
constexpr const char kCalls[] = "/mnt/calls";

struct State {
  bool active = false;
  std::vector<std::string> mounts;  // in mount order
  kiv::Fd console, log, stop_read, stop_write;
  // The kernel queues only a few datagrams on a socket, and a full queue
  // blocks the writer: a thread drains /dev/log all the time.
  std::mutex log_mutex;
  std::vector<std::string> log_msgs;
  pthread_t log_thread{};
  bool log_thread_running = false;
  sem_t log_thread_ready;
};

// A child forked while the syslog reader allocates would find the
// allocator's lock taken for good (AddressSanitizer's allocator has no fork
// handlers).  The reader allocates only under log_mutex, and only once it
// has said it is ready, so a fork that holds log_mutex is safe.
void lock_log_for_fork();
void unlock_log_after_fork();

State &state() {
  // Never destroyed: the syslog reader may still run while the process
  // exits.
  static State *s = [] {
    State *st = new State;
    sem_init(&st->log_thread_ready, 0, 0);
    pthread_atfork(lock_log_for_fork, unlock_log_after_fork,
                   unlock_log_after_fork);
    return st;
  }();
  return *s;
}

void lock_log_for_fork() { state().log_mutex.lock(); }
void unlock_log_after_fork() { state().log_mutex.unlock(); }

std::string errtext(const std::string &what) {
  return what + ": " + strerror(errno);
}

// "" when mounted, else why not.
std::string do_mount(const char *src, const std::string &target,
                     const char *type, const std::string &data) {
  if (mount(src, target.c_str(), type, 0, data.c_str()) != 0)
    return errtext(std::string("mount ") + type + " on " + target);
  state().mounts.push_back(target);
  return "";
}

// Moves every queued datagram into log_msgs; the caller holds log_mutex.
void drain_log_locked(State &s) {
  char buf[8192];
  for (ssize_t r;
       (r = recv(s.log.get(), buf, sizeof buf, MSG_DONTWAIT)) >= 0;) {
    std::string msg(buf, static_cast<size_t>(r));
    while (!msg.empty() && (msg.back() == '\n' || msg.back() == '\0'))
      msg.pop_back();
    s.log_msgs.push_back(std::move(msg));
  }
}

void *log_drainer(void *arg) {
  State *s = static_cast<State *>(arg);
  pollfd fds[2] = {{s->log.get(), POLLIN, 0}, {s->stop_read.get(), POLLIN, 0}};
  sem_post(&s->log_thread_ready);
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
    if (write(s.stop_write.get(), "", 1) < 0) {
    }
    pthread_join(s.log_thread, nullptr);
    s.log_thread_running = false;
  }
  for (kiv::Fd *fd : {&s.stop_read, &s.stop_write, &s.console, &s.log})
    fd->reset();
  s.log_msgs.clear();
  for (auto it = s.mounts.rbegin(); it != s.mounts.rend(); ++it)
    umount2(it->c_str(), MNT_DETACH);
  s.mounts.clear();
  s.active = false;
}

// Builds the sandbox in a private namespace; "" on success, else why not.
std::string build(State &s) {
  if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
    return errtext("making / private");
  std::string why = do_mount("kivtest", kScratch, "tmpfs", "mode=0755");
  // Overlays: reads see the host, writes stay in the scratch tmpfs.
  int n = 0;
  for (const char *dir : {"/etc", "/usr/bin", "/usr/sbin", "/dev"}) {
    if (!why.empty()) return why;
    std::string base = std::string(kScratch) + "/ov" + std::to_string(n++);
    Sandbox::mkdirs(base + "/up");
    Sandbox::mkdirs(base + "/work");
    why = do_mount("overlay", dir, "overlay",
                   std::string("lowerdir=") + dir + ",upperdir=" + base +
                       "/up,workdir=" + base + "/work");
  }
  for (const char *dir : {"/tmp", "/var", "/run", "/sys/class", "/dev/shm"}) {
    if (!why.empty()) return why;
    Sandbox::mkdirs(dir);
    why = do_mount("kivtest", dir, "tmpfs", "mode=1777");
  }
  if (!why.empty()) return why;
  for (const char *dir : {"/var", "/run", "/sys/class"}) chmod(dir, 0755);
  if (symlink("/run", "/var/run") != 0) return errtext("symlink /var/run");
  Sandbox::mkdirs(kCalls);

  // The console: a FIFO that this process keeps open for reading, so that
  // every fopen("/dev/console", "w") succeeds at once.
  unlink("/dev/console");
  if (mkfifo("/dev/console", 0622) != 0) return errtext("mkfifo /dev/console");
  s.console.reset(open("/dev/console", O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!s.console) return errtext("open /dev/console");
  fcntl(s.console.get(), F_SETPIPE_SZ, 1 << 20);

  // Syslog: a datagram socket at /dev/log.
  unlink("/dev/log");
  s.log.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  strcpy(addr.sun_path, "/dev/log");
  if (!s.log ||
      bind(s.log.get(), reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0)
    return errtext("bind /dev/log");
  int rcv = 1 << 20;
  setsockopt(s.log.get(), SOL_SOCKET, SO_RCVBUF, &rcv, sizeof rcv);
  int stop[2];
  if (pipe2(stop, O_CLOEXEC) != 0) return errtext("pipe");
  s.stop_read.reset(stop[0]);
  s.stop_write.reset(stop[1]);
  // A plain pthread: it may still run when the process exits, and forked
  // children that call exit() must not try to stop it.
  if (pthread_create(&s.log_thread, nullptr, log_drainer, &s) != 0)
    return "cannot start the syslog reader";
  s.log_thread_running = true;
  while (sem_wait(&s.log_thread_ready) != 0 && errno == EINTR) {
  }
  return "";
}

// Everything in a memory file (from its start).
std::string read_memfd(int fd) {
  std::string out;
  char buf[4096];
  for (ssize_t r; (r = pread(fd, buf, sizeof buf, out.size())) > 0;)
    out.append(buf, static_cast<size_t>(r));
  return out;
}

}  // namespace

std::string Sandbox::enter() {
  if (geteuid() != 0)
    return "the sandbox needs root to make a private mount namespace";
  char exe[4096] = {0};
  if (readlink("/proc/self/exe", exe, sizeof exe - 1) < 0)
    return errtext("readlink /proc/self/exe");
  for (const char *d :
       {"/etc/", "/tmp/", "/var/", "/run/", "/usr/", "/dev/", "/sys/", "/mnt/"})
    if (strncmp(exe, d, strlen(d)) == 0)
      return std::string("the test program lives under ") + d +
             ", which the sandbox covers; build outside it";
  if (access(kScratch, F_OK) != 0)
    return std::string("no ") + kScratch + " for the sandbox's scratch space";

  State &s = state();
  if (s.active)
    leave();
  else if (unshare(CLONE_NEWNS) != 0)
    return errtext("unshare(CLONE_NEWNS) refused");
  std::string why = build(s);
  if (!why.empty()) {
    leave();
    return why;
  }
  setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
  s.active = true;
  return "";
}

void Sandbox::mkdirs(const std::string &path) {
  for (size_t pos = path.find('/', 1);; pos = path.find('/', pos + 1)) {
    mkdir(path.substr(0, pos).c_str(), 0755);
    if (pos == std::string::npos) return;
  }
}

void Sandbox::write_file(const std::string &path, std::string_view content,
                         mode_t mode) {
  size_t slash = path.rfind('/');
  if (slash != std::string::npos && slash > 0) mkdirs(path.substr(0, slash));
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  ASSERT_TRUE(out && chmod(path.c_str(), mode) == 0)
      << "write " << path << ": " << strerror(errno);
}

std::string Sandbox::read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream ss;
  if (in) ss << in.rdbuf();
  return ss.str();
}

bool Sandbox::exists(const std::string &path) {
  struct stat st;
  return lstat(path.c_str(), &st) == 0;
}

void Sandbox::fake_command(const std::string &name, const std::string &script) {
  write_file("/usr/sbin/" + name,
             "#!/bin/sh\n{ for a in \"$@\"; do printf '%s\\037' \"$a\"; done; "
             "printf '\\036'; } >> '" +
                 std::string(kCalls) + "/" + name + "'\n" + script + "\n",
             0755);
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
  // Each argument ends in \037, each call in \036.
  std::vector<std::vector<std::string>> out;
  std::istringstream log(read_file(std::string(kCalls) + "/" + name));
  for (std::string call, arg; std::getline(log, call, '\036');) {
    std::istringstream args(call);
    out.emplace_back();
    while (std::getline(args, arg, '\037')) out.back().push_back(arg);
  }
  return out;
}

std::vector<std::string> Sandbox::calls(const std::string &name) {
  std::vector<std::string> out;
  for (const auto &args : calls_argv(name)) {
    std::string line;
    for (size_t i = 0; i < args.size(); ++i) line += (i ? " " : "") + args[i];
    out.push_back(line);
  }
  return out;
}

std::string Sandbox::console() {
  std::string out;
  char buf[4096];
  for (ssize_t r; (r = read(state().console.get(), buf, sizeof buf)) > 0;)
    out.append(buf, static_cast<size_t>(r));
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
  FdCheckedTest::SetUp();
}

void FdCheckedTest::SetUp() { fds_ = open_fd_count(); }

void FdCheckedTest::TearDown() {
  if (fds_ >= 0) {
    EXPECT_EQ(fds_, open_fd_count()) << "descriptors left open by the calls";
  }
}

std::string logged(const std::function<void()> &fn) {
  Capture err(2);
  fn();
  std::string all = err.take();
  for (const std::string &line : Sandbox::syslog()) all += line + "\n";
  return all + Sandbox::console();
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
  text_ = read_memfd(file_);
  close(file_);
  return text_;
}

// ---- Signals ---------------------------------------------------------------

namespace {
volatile sig_atomic_t g_ticks = 0;
}  // namespace

Ticker::Ticker(long usec) {
  struct sigaction sa {};
  sa.sa_handler = [](int) { g_ticks = g_ticks + 1; };
  sigaction(SIGALRM, &sa, &old_);
  g_ticks = 0;
  itimerval it{{0, usec}, {0, usec}};
  setitimer(ITIMER_REAL, &it, nullptr);
}

Ticker::~Ticker() {
  itimerval off{};
  setitimer(ITIMER_REAL, &off, nullptr);
  // A signal still on its way is dropped, not delivered to the default
  // action once the old handler is back.
  signal(SIGALRM, SIG_IGN);
  sigaction(SIGALRM, &old_, nullptr);
}

int Ticker::ticks() { return g_ticks; }

std::string stream_pattern(size_t n) {
  std::string s(n, '\0');
  for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + i * 7 % 26);
  return s;
}

// ---- Children --------------------------------------------------------------

ChildResult run_in_child(const std::function<void()> &fn) {
  ChildResult res;
  kiv::Fd out(memfd_create("kivtest-out", MFD_CLOEXEC));
  kiv::Fd err(memfd_create("kivtest-err", MFD_CLOEXEC));
  fflush(stdout);
  fflush(stderr);
  pid_t pid = fork();
  if (pid == 0) {
    dup2(out.get(), 1);
    dup2(err.get(), 2);
    fn();
    fflush(nullptr);
    _exit(0);
  }
  int status = 0;
  if (pid > 0) waitpid(pid, &status, 0);
  res.exited = WIFEXITED(status);
  res.exit_code = res.exited ? WEXITSTATUS(status) : -1;
  res.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  res.out = read_memfd(out.get());
  res.err = read_memfd(err.get());
  return res;
}

bool g_no_reserve = false;

void become(uid_t uid, gid_t gid) {
  if (setgroups(0, nullptr) != 0 || setresgid(gid, gid, gid) != 0 ||
      setresuid(uid, uid, uid) != 0)
    _exit(99);
}

std::set<std::string> dir_names(const std::string &dir) {
  std::set<std::string> names;
  kiv::Dir d(opendir(dir.c_str()));
  while (dirent *e = d ? readdir(d.get()) : nullptr)
    if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0)
      names.insert(e->d_name);
  return names;
}

struct stat stat_of(const std::string &path) {
  struct stat st {};
  EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
  return st;
}

// /tmp/open is writable by all, /tmp/closed by root only, and /tmp/sticky
// by all but sticky, as /tmp is.
const RightsCase kRightsCases[5] = {
    {"root keeps another user's file", "/tmp/closed", 0755, 1234, 0600, 0,
     true},
    {"read-only file in an open directory", "/tmp/open", 0777, 0, 0444, 1000,
     false},
    {"own file in a closed directory", "/tmp/closed", 0755, 1000, 0640, 1000,
     true},
    {"another's writable file in a sticky directory", "/tmp/sticky", 01777,
     2000, 0666, 1000, true},
    {"own file in a sticky directory", "/tmp/sticky", 01777, 1000, 0600, 1000,
     true},
};

std::string make_rights_case(const RightsCase &c, const char *name,
                             std::string_view content) {
  Sandbox::mkdirs(c.dir);
  EXPECT_EQ(chmod(c.dir, c.dir_mode), 0);
  std::string path = std::string(c.dir) + "/" + name;
  Sandbox::write_file(path, content, c.mode);
  EXPECT_EQ(chown(path.c_str(), c.owner, c.owner + 1), 0);
  return path;
}

int open_fd_count() {
  int n = 0;
  kiv::Dir d(opendir("/proc/self/fd"));
  while (dirent *e = d ? readdir(d.get()) : nullptr)
    if (e->d_name[0] != '.') ++n;
  return d ? n - 1 : -1;  // less the descriptor of the listing itself
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
