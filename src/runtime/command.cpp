// Command execution: shell lines, captured output and direct program runs.
#include "kiv/runtime.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "util.hpp"

int igd_system(const char *fmt, ...) {
  char cmd[1024] = {0};
  va_list ap;
  va_start(ap, fmt);
  kiv::vformat_into(cmd, sizeof cmd - 1, fmt, ap);
  va_end(ap);
  _kiv_debug(kiv::kUnitUtils, "igd_system", __LINE__, kiv::kNotice,
             "system_cmd: %s", cmd);
  return system(cmd);
}

int exe_cmd(const char *command, char *buf, int n) {
  if (n > 1024) {
    KIV_CONSOLE_ERR("Invalid length(len:%d, %s)!\n\n", n, command);
    return 0;
  }
  kiv::Pipe pipe(popen(command, "r"));
  if (!pipe) {
    KIV_CONSOLE_ERR("error(%s)!\n\n", command);
    return 0;
  }
  if (n <= 0 || buf == nullptr) return 0;

  size_t got = fread(buf, 1, static_cast<size_t>(n), pipe.get());
  pipe.close();
  if (got > 0 && buf[got - 1] == '\n') buf[got - 1] = '\0';
  buf[n - 1] = '\0';
  return static_cast<int>(got);
}

int _do_cmd(char *const argv[], const char *path) {
  pid_t pid = fork();
  if (pid < 0) {
    int err = errno;
    perror("fork");
    return err;
  }
  if (pid == 0) {
    signal(SIGINT, SIG_IGN);
    if (path) {
      int fd = open(path, O_RDWR | O_CREAT | O_TRUNC, 0644);
      if (fd < 0) {
        char msg[32] = {0};
        kiv::format_into(msg, sizeof msg - 1, "open %s", path);
        int err = errno;
        perror(msg);
        _exit(err);
      }
      dup2(fd, 1);
      dup2(fd, 2);
      if (fd > 2) close(fd);  // a caller without stdout got it as fd 1
    }
    setenv("PATH", "/sbin:/bin:/usr/sbin:/usr/bin", 1);
    execvp(argv[0], argv);
    int err = errno;
    perror(argv[0]);
    _exit(err);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  if ((status & 0x7f) == 0) return (status >> 8) & 0xff;
  return status;
}

int kiv_run_system_cmd(const char *path, ...) {
  enum { kMaxArgs = 23 };
  char *argv[kMaxArgs + 1] = {nullptr};
  char line[256] = {0};
  strcpy(line, "system_cmd: ");
  size_t total = strlen(line) + 1;
  size_t len = total - 1;
  int argc = 0;

  va_list ap;
  va_start(ap, path);
  while (argc < kMaxArgs) {
    const char *arg = va_arg(ap, const char *);
    if (arg == nullptr) {
      KIV_LOG(kiv::kUnitUtils, kiv::kError, "system para is NULL!");
      break;
    }
    if (*arg == '\0') break;
    argv[argc++] = const_cast<char *>(arg);
    size_t arg_len = strlen(arg);
    total += arg_len + 1;
    if (total <= 255) {
      memcpy(line + len, arg, arg_len);
      line[len + arg_len] = ' ';
      len += arg_len + 1;
    }
  }
  va_end(ap);

  KIV_LOG(kiv::kUnitUtils, kiv::kInfo, "%s\n", line);
  if (argc == 0) {
    // Nothing to start: an empty argument list is refused.
    errno = EINVAL;
    return -1;
  }
  return _do_cmd(argv, path);
}

void special_character_processing(const char *src, char *dst, int dstSize) {
  if (src == nullptr) {
    KIV_CONSOLE_ERR("src = NULL!\n");
    return;
  }
  if (dstSize < 1) {  // no room even for the terminator: leave dst alone
    KIV_CONSOLE_INFO("dstSize is too small!\n");
    return;
  }
  int pos = 0;
  for (; *src; ++src) {
    if (pos + 2 >= dstSize) {
      KIV_CONSOLE_INFO("dstSize is too small!\n");
      dst[pos] = '\0';
      return;
    }
    if (*src == '`') dst[pos++] = '\\';
    dst[pos++] = *src;
  }
  dst[pos] = '\0';
}
