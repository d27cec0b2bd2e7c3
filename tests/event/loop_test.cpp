// The reactor: dispatch over pipes and socketpairs, table upkeep, timers.
#include "kiv/event.h"

#include <gtest/gtest.h>

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

long uptime() {
  struct sysinfo si {};
  sysinfo(&si);
  return si.uptime;
}

struct Pair {
  int fd[2] = {-1, -1};
  Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fd), 0); }
  ~Pair() {
    for (int f : fd)
      if (f >= 0) close(f);
  }
};

struct Loop {
  aeEventLoop *el;
  explicit Loop(int size = 64) : el(aeCreateEventLoop(size)) {}
  ~Loop() { aeDeleteEventLoop(el); }
};

std::string g_log;

void log_read(aeEventLoop *, int fd, void *, int mask) {
  g_log += "r" + std::to_string(fd) + "/" + std::to_string(mask) + " ";
}
void log_write(aeEventLoop *, int fd, void *, int mask) {
  g_log += "w" + std::to_string(fd) + "/" + std::to_string(mask) + " ";
}
void log_both(aeEventLoop *, int fd, void *, int mask) {
  g_log += "b" + std::to_string(fd) + "/" + std::to_string(mask) + " ";
}
void read_drops_write(aeEventLoop *el, int fd, void *, int mask) {
  log_read(el, fd, nullptr, mask);
  aeDeleteFileEvent(el, fd, AE_WRITABLE);
}

TEST(Loop, CreationLimitsAndName) {
  EXPECT_EQ(aeCreateEventLoop(0), nullptr);
  EXPECT_EQ(aeCreateEventLoop(1025), nullptr);
  Loop big(1024);
  ASSERT_NE(big.el, nullptr);
  EXPECT_EQ(aeCreateFileEvent(big.el, 1023, AE_READABLE, log_read, nullptr), 0);
  EXPECT_EQ(aeCreateFileEvent(big.el, 1024, AE_READABLE, log_read, nullptr), -1);
  EXPECT_EQ(big.el->maxfd, 1023);
  EXPECT_STREQ(aeGetApiName(), "select");
  aeDeleteEventLoop(nullptr);
}

TEST(Loop, RegistrationKeepsMaxfdAndGrowsBySteps) {
  Loop l(1);
  aeEventLoop *el = l.el;
  ASSERT_NE(el, nullptr);
  EXPECT_EQ(el->maxfd, -1);
  EXPECT_EQ(aeCreateFileEvent(el, -1, AE_READABLE, log_read, nullptr), -1);
  // Bits beyond the two directions stay in the slot and set no interest.
  ASSERT_EQ(aeCreateFileEvent(el, 0, 4 | AE_READABLE, log_read, nullptr), 0);
  EXPECT_EQ(aeGetFileEvents(el, 0), 5);
  aeDeleteFileEvent(el, 0, 5);
  EXPECT_EQ(aeGetFileEvents(el, 0), AE_NONE);
  EXPECT_FALSE(FD_ISSET(0, &el->selectState->readSet));
  EXPECT_EQ(el->maxfd, -1);

  // Growth doubles from the present size until the descriptor fits.
  ASSERT_EQ(aeCreateFileEvent(el, 5, AE_READABLE | AE_WRITABLE, log_read,
                              nullptr), 0);
  EXPECT_EQ(aeGetSetSize(el), 8);
  EXPECT_EQ(aeGetFileEvents(el, 5), AE_READABLE | AE_WRITABLE);
  EXPECT_EQ(aeGetFileEvents(el, 4), AE_NONE);
  EXPECT_EQ(aeGetFileEvents(el, 8), AE_NONE);
  EXPECT_EQ(aeGetFileEvents(el, -3), AE_NONE);
  ASSERT_EQ(aeCreateFileEvent(el, 300, AE_WRITABLE, log_write, nullptr), 0);
  EXPECT_EQ(aeGetSetSize(el), 512);
  // 512 would double to 1024, which is past what a resize accepts.
  EXPECT_EQ(aeCreateFileEvent(el, 600, AE_READABLE, log_read, nullptr), -1);
  EXPECT_EQ(aeGetSetSize(el), 512);
  EXPECT_EQ(el->maxfd, 300);
  EXPECT_EQ(aeGetFileEvents(el, 5), AE_READABLE | AE_WRITABLE);

  // A resize can't cut below the highest descriptor, nor reach 1024.
  EXPECT_EQ(aeResizeSetSize(el, 300), -1);
  EXPECT_EQ(aeResizeSetSize(el, 1024), -1);
  EXPECT_EQ(aeResizeSetSize(el, 512), 0);
  EXPECT_EQ(aeResizeSetSize(el, 1023), 0);
  EXPECT_EQ(aeResizeSetSize(el, 301), 0);
  EXPECT_EQ(aeGetFileEvents(el, 300), AE_WRITABLE);

  // Deleting one direction of the highest keeps it; the last one moves it.
  aeDeleteFileEvent(el, 5, AE_READABLE);
  EXPECT_EQ(aeGetFileEvents(el, 5), AE_WRITABLE);
  aeDeleteFileEvent(el, 300, AE_READABLE);
  EXPECT_EQ(el->maxfd, 300);
  aeDeleteFileEvent(el, 300, AE_WRITABLE);
  EXPECT_EQ(el->maxfd, 5);
  EXPECT_FALSE(FD_ISSET(300, &el->selectState->writeSet));
  aeDeleteFileEvent(el, 5000, AE_WRITABLE);  // no slot: nothing happens
  aeDeleteFileEvent(el, 5, AE_WRITABLE);
  EXPECT_EQ(el->maxfd, -1);

  // A registration without directions still stores clientData and maxfd.
  int tag = 0;
  ASSERT_EQ(aeCreateFileEvent(el, 7, AE_NONE, log_read, &tag), 0);
  EXPECT_EQ(el->maxfd, 7);
  EXPECT_EQ(el->events[7].clientData, &tag);
  EXPECT_EQ(aeGetFileEvents(el, 7), AE_NONE);
}

TEST(Loop, PassCountsEveryRegisteredDescriptorAndOrdersHandlers) {
  Loop l;
  Pair a, b, c;
  aeEventLoop *el = l.el;
  for (Pair *p : {&a, &b, &c})
    ASSERT_EQ(aeCreateFileEvent(el, p->fd[0], AE_READABLE, log_read, nullptr),
              0);
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 0);
  EXPECT_EQ(g_log, "");

  ASSERT_EQ(write(b.fd[1], "x", 1), 1);
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 3);
  EXPECT_EQ(g_log, "r" + std::to_string(b.fd[0]) + "/1 ");
  EXPECT_EQ(aeProcessEvents(el, 0), 0);
  EXPECT_EQ(aeProcessEvents(el, AE_DONT_WAIT), 0);

  // Two handlers: read first, then write, both told both directions.
  ASSERT_EQ(aeCreateFileEvent(el, b.fd[0], AE_WRITABLE, log_write, nullptr), 0);
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 3);
  std::string fd = std::to_string(b.fd[0]);
  EXPECT_EQ(g_log, "r" + fd + "/3 w" + fd + "/3 ");

  // One handler for both directions runs once.
  ASSERT_EQ(aeCreateFileEvent(el, b.fd[0], AE_READABLE | AE_WRITABLE, log_both,
                              nullptr), 0);
  g_log.clear();
  aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT);
  EXPECT_EQ(g_log, "b" + fd + "/3 ");

  // A read handler that drops the write interest stops the write handler.
  ASSERT_EQ(aeCreateFileEvent(el, b.fd[0], AE_READABLE, read_drops_write,
                              nullptr), 0);
  ASSERT_EQ(aeCreateFileEvent(el, b.fd[0], AE_WRITABLE, log_write, nullptr), 0);
  g_log.clear();
  aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT);
  EXPECT_EQ(g_log, "r" + fd + "/3 ");
  EXPECT_EQ(aeGetFileEvents(el, b.fd[0]), AE_READABLE);

  // With AE_TIME_EVENTS alone the descriptors are still served.
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT), 3);
  EXPECT_EQ(g_log, "r" + fd + "/1 ");

  // A slot with other bits but no direction counts, and runs nothing.
  Pair d;
  ASSERT_EQ(aeCreateFileEvent(el, d.fd[0], 8, log_both, nullptr), 0);
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 4);
  EXPECT_EQ(g_log, "r" + fd + "/1 ");
  aeDeleteFileEvent(el, d.fd[0], 8);
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 3);
  // ... also once a plain slot has left beside it.
  Loop m;
  for (Pair *p : {&a, &b})
    ASSERT_EQ(aeCreateFileEvent(m.el, p->fd[0], AE_READABLE, log_read, nullptr),
              0);
  ASSERT_EQ(aeCreateFileEvent(m.el, d.fd[0], 8, log_read, nullptr), 0);
  aeDeleteFileEvent(m.el, a.fd[0], AE_READABLE);
  EXPECT_EQ(aeProcessEvents(m.el, AE_FILE_EVENTS | AE_DONT_WAIT), 2);

  // A pass serves its own descriptors only, not those a longer pass before
  // it left in the table of fired ones.
  ASSERT_EQ(write(c.fd[1], "x", 1), 1);
  aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT);
  aeDeleteFileEvent(el, b.fd[0], AE_READABLE);
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 2);
  EXPECT_EQ(g_log, "r" + std::to_string(c.fd[0]) + "/1 ");
}

TEST(Loop, DescriptorsAcrossSetWordsComeInRisingOrder) {
  Loop l(256);
  Pair a, b, c;
  const int fds[] = {130, 64, 63};
  Pair *pairs[] = {&a, &b, &c};
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(dup2(pairs[i]->fd[0], fds[i]), fds[i]);
    ASSERT_EQ(aeCreateFileEvent(l.el, fds[i], AE_READABLE, log_read, nullptr),
              0);
  }
  ASSERT_EQ(write(a.fd[1], "x", 1), 1);
  ASSERT_EQ(write(b.fd[1], "x", 1), 1);
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(l.el, AE_FILE_EVENTS | AE_DONT_WAIT), 3);
  EXPECT_EQ(g_log, "r64/1 r130/1 ");
  for (int fd : fds) close(fd);
}

// Registers a high descriptor from inside a handler, so the tables move.
struct Mover {
  int high;
  int calls = 0;
};
void register_high(aeEventLoop *el, int fd, void *data, int mask) {
  auto *m = static_cast<Mover *>(data);
  ++m->calls;
  ASSERT_EQ(aeCreateFileEvent(el, m->high, AE_READABLE, log_read, nullptr), 0);
  aeDeleteFileEvent(el, fd, AE_READABLE);  // once is enough
  (void)mask;
}
// Drops the high descriptor and shrinks the tables below it.
void drop_high_and_shrink(aeEventLoop *el, int fd, void *data, int mask) {
  aeDeleteFileEvent(el, static_cast<Mover *>(data)->high, AE_READABLE);
  EXPECT_EQ(aeResizeSetSize(el, fd + 1), 0);
  log_read(el, fd, nullptr, mask);
}
void unregister_then(aeEventLoop *el, int fd, void *, int mask) {
  log_write(el, fd, nullptr, mask);
}

TEST(Loop, HandlerThatMovesTheTablesKeepsDispatchCorrect) {
  Loop l(4);
  Pair a, b;
  Mover m{300};
  aeEventLoop *el = l.el;
  int lo = a.fd[0] < b.fd[0] ? a.fd[0] : b.fd[0];
  int hi = a.fd[0] < b.fd[0] ? b.fd[0] : a.fd[0];
  ASSERT_EQ(aeCreateFileEvent(el, lo, AE_READABLE, register_high, &m), 0);
  ASSERT_EQ(aeCreateFileEvent(el, lo, AE_WRITABLE, unregister_then, &m),
            0);
  ASSERT_EQ(aeCreateFileEvent(el, hi, AE_WRITABLE, log_write, nullptr), 0);
  ASSERT_EQ(write(a.fd[1], "x", 1), 1);
  ASSERT_EQ(write(b.fd[1], "x", 1), 1);
  int setsize = aeGetSetSize(el);
  g_log.clear();
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 2);
  EXPECT_EQ(m.calls, 1);
  EXPECT_GT(aeGetSetSize(el), setsize);
  EXPECT_EQ(g_log, "w" + std::to_string(lo) + "/3 w" + std::to_string(hi) +
                       "/2 ");
  EXPECT_EQ(el->maxfd, 300);

  // The other way: the high descriptor's entry of the pass is passed over
  // once the tables no longer reach it.
  Loop s(512);
  ASSERT_EQ(dup2(hi, 300), 300);
  ASSERT_EQ(aeCreateFileEvent(s.el, lo, AE_READABLE, drop_high_and_shrink, &m),
            0);
  ASSERT_EQ(aeCreateFileEvent(s.el, 300, AE_READABLE, log_read, nullptr), 0);
  g_log.clear();
  aeProcessEvents(s.el, AE_FILE_EVENTS | AE_DONT_WAIT);
  close(300);
  EXPECT_EQ(g_log, "r" + std::to_string(lo) + "/1 ");
  EXPECT_EQ(aeGetSetSize(s.el), lo + 1);
}

// ---- timers ----------------------------------------------------------------

struct Counter {
  int calls = 0;
  long firstAt = 0;          // the clock at the first call
  std::vector<int> results;  // what the n-th call returns; then -1
};
int count_timer(aeEventLoop *, void *data) {
  auto *c = static_cast<Counter *>(data);
  if (c->calls == 0) c->firstAt = uptime();
  int n = c->calls++;
  return n < static_cast<int>(c->results.size()) ? c->results[n] : -1;
}
int free_self(aeEventLoop *, void *data) {
  free(data);
  return -1;
}

TEST(Loop, TimerResultsDisarmRearmOrRepeat) {
  Loop l;
  aeEventLoop *el = l.el;
  aeTimeEvent te;
  aetimer_event_init(&te);
  EXPECT_EQ(aeDeleteTimeEvent(el, &te), -1);
  EXPECT_EQ(aeCreateTimeEvent(el, 0, nullptr, count_timer, nullptr), -1);
  EXPECT_EQ(aeModifyTimeEvent(el, 0, nullptr), -1);

  // Returning 0 (or another negative than -1) makes it due again at once.
  Counter c;
  c.results = {0, -5, 0};
  ASSERT_EQ(aeCreateTimeEvent(el, 0, &te, count_timer, &c), 0);
  EXPECT_EQ(aeProcessEvents(el, AE_ALL_EVENTS | AE_DONT_WAIT), 4);
  EXPECT_EQ(c.calls, 4);
  EXPECT_EQ(te.heapIndex, -1);

  // A period re-arms it for later; a negative amount is due at once.
  Counter d;
  d.results = {60000};
  ASSERT_EQ(aeCreateTimeEvent(el, -1, &te, count_timer, &d), 0);
  EXPECT_EQ(te.whenMs, -1);
  long before = uptime();
  EXPECT_EQ(aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT), 1);
  EXPECT_EQ(te.heapIndex, 0);
  EXPECT_GE(te.whenSec, before + 60);
  EXPECT_LE(te.whenSec, uptime() + 60);
  EXPECT_EQ(aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT), 0);
  // The longest delay stays the farthest deadline, never one already due.
  ASSERT_EQ(aeModifyTimeEvent(el, INT64_MAX, &te), 0);
  EXPECT_EQ(te.whenSec, INT32_MAX);
  EXPECT_EQ(aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT), 0);
  EXPECT_EQ(aeDeleteTimeEvent(el, &te), 0);
  EXPECT_EQ(aeDeleteTimeEvent(el, &te), -1);

  // Modify arms a disarmed record with its old callback.
  ASSERT_EQ(aeModifyTimeEvent(el, 0, &te), 0);
  EXPECT_EQ(aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT), 1);
  EXPECT_EQ(d.calls, 2);

  // Without AE_TIME_EVENTS due timers wait.
  ASSERT_EQ(aeCreateTimeEvent(el, 0, &te, count_timer, &d), 0);
  EXPECT_EQ(aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT), 0);
  EXPECT_EQ(d.calls, 2);
  EXPECT_EQ(aeDeleteTimeEvent(el, &te), 0);

  // A callback may release its own record.
  auto *own = static_cast<aeTimeEvent *>(malloc(sizeof(aeTimeEvent)));
  ASSERT_EQ(aeCreateTimeEvent(el, 0, own, free_self, own), 0);
  EXPECT_EQ(aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT), 1);
  EXPECT_EQ(min_heap_size(&el->timers), 0u);
}

TEST(Loop, DeadlineIsTheSysinfoUptimePlusTheDelay) {
  // The timers' clock is the uptime of sysinfo(): arming lies between two
  // readings of it, and when they agree (else tried again, across a second
  // boundary) the deadline is that second plus the delay, cut to 32 bits.
  const int64_t delays[] = {0,          1,         999,       1000,
                            1001,       -1,        -1001,     -98765,
                            4294967295, -4294967296, 123456789012,
                            4294967295999, INT64_MAX, INT64_MIN};
  Loop l;
  aeTimeEvent te;
  for (int64_t d : delays) {
    for (int tries = 0;; ++tries) {
      long before = uptime();
      ASSERT_EQ(aeCreateTimeEvent(l.el, d, &te, count_timer, nullptr), 0);
      long after = uptime();
      aeDeleteTimeEvent(l.el, &te);
      if (before != after && tries < 5) continue;
      ASSERT_EQ(before, after) << "sysinfo() moved on at every try";
      int64_t sec = std::clamp<int64_t>(before + d / 1000, INT32_MIN,
                                        INT32_MAX);
      EXPECT_EQ(te.whenSec, sec) << d;
      EXPECT_EQ(te.whenMs, d % 1000) << d;
      break;
    }
  }
}

TEST(Loop, DeadlinesRoundUpToClockSteps) {
  Loop l;
  aeEventLoop *el = l.el;
  aeTimeEvent t100, t1000, t1001;
  Counter c100, c1000, c1001;
  long t = uptime();
  ASSERT_EQ(aeCreateTimeEvent(el, 100, &t100, count_timer, &c100), 0);
  ASSERT_EQ(aeCreateTimeEvent(el, 1000, &t1000, count_timer, &c1000), 0);
  ASSERT_EQ(aeCreateTimeEvent(el, 1001, &t1001, count_timer, &c1001), 0);
  if (uptime() != t) GTEST_SKIP() << "clock moved while arming";
  EXPECT_EQ(t100.whenSec, t);
  EXPECT_EQ(t100.whenMs, 100);
  EXPECT_EQ(t1000.whenSec, t + 1);
  EXPECT_EQ(t1000.whenMs, 0);
  EXPECT_EQ(t1001.whenSec, t + 1);
  EXPECT_EQ(t1001.whenMs, 1);

  // Each pass waits for the nearest deadline; until the clock moves the
  // pass finds nothing due.  (A deadline of (T+1, 1) makes passes of 1 ms
  // until the clock moves.)
  while (c1001.calls == 0 && uptime() <= t + 3)
    aeProcessEvents(el, AE_ALL_EVENTS);
  EXPECT_EQ(c100.firstAt, t + 1);
  EXPECT_EQ(c1000.firstAt, t + 1);
  EXPECT_EQ(c1001.firstAt, t + 2);
}

TEST(Loop, WaitIsBoundedByTheNearestDeadline) {
  Loop l;
  aeEventLoop *el = l.el;
  aeTimeEvent te;
  Counter c;
  long t = uptime();
  ASSERT_EQ(aeCreateTimeEvent(el, 100, &te, count_timer, &c), 0);
  struct timespec a, b;
  clock_gettime(CLOCK_MONOTONIC, &a);
  int n = aeProcessEvents(el, AE_ALL_EVENTS);
  clock_gettime(CLOCK_MONOTONIC, &b);
  long elapsedMs = (b.tv_sec - a.tv_sec) * 1000 + (b.tv_nsec - a.tv_nsec) / 1000000;
  if (uptime() == t) {  // the clock stood still: nothing was due
    EXPECT_EQ(n, 0);
    EXPECT_GE(elapsedMs, 90);
    EXPECT_LT(elapsedMs, 1000);
  }
  aeDeleteTimeEvent(el, &te);
}

struct MainState {
  int sleeps = 0;
  int reads = 0;
};
void before_sleep(aeEventLoop *el) {
  auto *s = static_cast<MainState *>(el->events[el->maxfd].clientData);
  ++s->sleeps;
}
void stop_after_three(aeEventLoop *el, int, void *data, int) {
  auto *s = static_cast<MainState *>(data);
  if (++s->reads == 3) aeStop(el);  // data stays unread: readable each pass
}

TEST(Loop, MainRunsBeforeSleepAndStops) {
  Loop l;
  Pair p;
  MainState s;
  aeEventLoop *el = l.el;
  ASSERT_EQ(write(p.fd[1], "x", 1), 1);
  ASSERT_EQ(aeCreateFileEvent(el, p.fd[0], AE_READABLE, stop_after_three, &s),
            0);
  aeSetBeforeSleepProc(el, before_sleep);
  aeStop(el);  // wiped out when aeMain starts
  aeMain(el);
  EXPECT_EQ(s.reads, 3);
  EXPECT_EQ(s.sleeps, 3);
  EXPECT_EQ(el->stop, 1);
  // aeProcessEvents itself never calls beforeSleep.
  aeProcessEvents(el, AE_ALL_EVENTS | AE_DONT_WAIT);
  EXPECT_EQ(s.sleeps, 3);
  aeSetBeforeSleepProc(el, nullptr);
  EXPECT_EQ(el->beforeSleep, nullptr);
}

}  // namespace
