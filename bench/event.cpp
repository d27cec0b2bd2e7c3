// Event loop measured beside libev and libuv in the same run.
//
//   timers_arm_disarm/<impl>/<N>: arm N timers with scattered delays, then
//       disarm them all.
//   timers_arm_pop/<impl>/<N>:    arm N timers with scattered deadlines in
//       the past, then run one non-blocking pass of the loop, which runs
//       each callback in order of expiry.
//   dispatch/<impl>:              one non-blocking pass over 100 registered
//       socketpairs of which 10 are readable; items are dispatched events.
//
// "ours" arms through aeCreateTimeEvent, which reads the uptime clock on
// every arm; the peers marked _clock read theirs before each arm as well
// (ev_now_update, uv_update_time), so that the work is the same.  The plain
// "libev" arms on its cached loop time, and "ours_heap" arms the same
// records with deadlines worked out beforehand (aetimer_event_add /
// min_heap_erase): those two compare the heaps alone.
#include "kiv/event.h"

#include <benchmark/benchmark.h>
#include <ev.h>
#include <uv.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <random>
#include <vector>

// ---- allocation counter for the arming paths ---------------------------------
namespace {
bool g_counting = false;
long g_allocs = 0;
}  // namespace

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
void *malloc(size_t n) {
  if (g_counting) ++g_allocs;
  return __libc_malloc(n);
}
void *calloc(size_t n, size_t m) {
  if (g_counting) ++g_allocs;
  return __libc_calloc(n, m);
}
void *realloc(void *p, size_t n) {
  if (g_counting) ++g_allocs;
  return __libc_realloc(p, n);
}
void free(void *p) { __libc_free(p); }
}

namespace {

std::vector<int> delays(size_t n) {
  std::mt19937 rng(42);
  std::vector<int> d(n);
  for (auto &x : d) x = static_cast<int>(rng() % 600000);  // up to 10 min
  return d;
}

long g_ours_fired = 0;
int ours_cb(aeEventLoop *, void *) {
  ++g_ours_fired;
  return -1;
}

// ---- timers: ours --------------------------------------------------------------

void ours_arm_disarm(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  aeEventLoop *el = aeCreateEventLoop(64);
  std::vector<aeTimeEvent> t(n);
  std::vector<int> d = delays(n);
  long allocs = 0, rounds = 0;
  for (auto _ : state) {
    g_allocs = 0;
    g_counting = true;
    for (size_t i = 0; i < n; ++i)
      aeCreateTimeEvent(el, d[i], &t[i], ours_cb, nullptr);
    for (size_t i = 0; i < n; ++i) aeDeleteTimeEvent(el, &t[i]);
    g_counting = false;
    if (rounds++ > 0) allocs += g_allocs;  // the first round grows the array
  }
  state.counters["allocs_per_arm"] =
      rounds > 1 ? static_cast<double>(allocs) / ((rounds - 1) * n) : 0;
  state.SetItemsProcessed(state.iterations() * n);
  aeDeleteEventLoop(el);
}

void ours_heap_arm_disarm(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  min_heap h;
  min_heap_init(&h);
  std::vector<aeTimeEvent> t(n);
  std::vector<int> d = delays(n);
  for (size_t i = 0; i < n; ++i) {
    t[i].whenSec = 1000 + d[i] / 1000;
    t[i].whenMs = d[i] % 1000;
  }
  for (auto _ : state) {
    for (size_t i = 0; i < n; ++i) aetimer_event_add(&h, &t[i]);
    for (size_t i = 0; i < n; ++i) min_heap_erase(&h, &t[i]);
  }
  state.SetItemsProcessed(state.iterations() * n);
  min_heap_destroy(&h);
}

void ours_arm_pop(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  aeEventLoop *el = aeCreateEventLoop(64);
  std::vector<aeTimeEvent> t(n);
  std::vector<int> d = delays(n);
  g_ours_fired = 0;
  for (auto _ : state) {
    // Negative delays: deadlines scattered in the past, all due.
    for (size_t i = 0; i < n; ++i)
      aeCreateTimeEvent(el, -1000 - d[i], &t[i], ours_cb, nullptr);
    aeProcessEvents(el, AE_TIME_EVENTS | AE_DONT_WAIT);
  }
  if (g_ours_fired != state.iterations() * static_cast<long>(n))
    state.SkipWithError("ours: not every timer ran");
  state.SetItemsProcessed(state.iterations() * n);
  aeDeleteEventLoop(el);
}

// ---- timers: libev ---------------------------------------------------------------

size_t g_ev_fired = 0;
void libev_timer_cb(struct ev_loop *, ev_timer *, int) { ++g_ev_fired; }

template <bool kClock>
void libev_arm_disarm(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  struct ev_loop *loop = ev_loop_new(EVBACKEND_SELECT);
  std::vector<ev_timer> t(n);
  std::vector<int> d = delays(n);
  for (size_t i = 0; i < n; ++i) ev_timer_init(&t[i], libev_timer_cb, 0., 0.);
  for (auto _ : state) {
    for (size_t i = 0; i < n; ++i) {
      if (kClock) ev_now_update(loop);
      ev_timer_set(&t[i], d[i] / 1000., 0.);
      ev_timer_start(loop, &t[i]);
    }
    for (size_t i = 0; i < n; ++i) ev_timer_stop(loop, &t[i]);
  }
  state.SetItemsProcessed(state.iterations() * n);
  ev_loop_destroy(loop);
}

void libev_clock_arm_pop(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  struct ev_loop *loop = ev_loop_new(EVBACKEND_SELECT);
  std::vector<ev_timer> t(n);
  std::vector<int> d = delays(n);
  for (size_t i = 0; i < n; ++i) ev_timer_init(&t[i], libev_timer_cb, 0., 0.);
  for (auto _ : state) {
    // Scattered deadlines in the past: one run expires them in order.
    for (size_t i = 0; i < n; ++i) {
      ev_now_update(loop);
      ev_timer_set(&t[i], -1. - d[i] / 1000., 0.);
      ev_timer_start(loop, &t[i]);
    }
    g_ev_fired = 0;
    ev_run(loop, EVRUN_NOWAIT);
    if (g_ev_fired != n) state.SkipWithError("libev: not every timer ran");
  }
  state.SetItemsProcessed(state.iterations() * n);
  ev_loop_destroy(loop);
}

// ---- timers: libuv ---------------------------------------------------------------

size_t g_uv_fired = 0;
void libuv_timer_cb(uv_timer_t *) { ++g_uv_fired; }
void uv_close_all(uv_loop_t *loop, std::vector<uv_timer_t> &t) {
  for (auto &x : t) uv_close(reinterpret_cast<uv_handle_t *>(&x), nullptr);
  uv_run(loop, UV_RUN_DEFAULT);
  uv_loop_close(loop);
}

void libuv_clock_arm_disarm(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_timer_t> t(n);
  std::vector<int> d = delays(n);
  for (auto &x : t) uv_timer_init(&loop, &x);
  for (auto _ : state) {
    for (size_t i = 0; i < n; ++i) {
      uv_update_time(&loop);
      uv_timer_start(&t[i], libuv_timer_cb, static_cast<uint64_t>(d[i]), 0);
    }
    for (size_t i = 0; i < n; ++i) uv_timer_stop(&t[i]);
  }
  state.SetItemsProcessed(state.iterations() * n);
  uv_close_all(&loop, t);
}

void libuv_clock_arm_pop(benchmark::State &state) {
  const size_t n = static_cast<size_t>(state.range(0));
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_timer_t> t(n);
  for (auto &x : t) uv_timer_init(&loop, &x);
  for (auto _ : state) {
    // libuv has no deadline in the past: all are due at the loop's time,
    // kept in order of arming.
    for (size_t i = 0; i < n; ++i) {
      uv_update_time(&loop);
      uv_timer_start(&t[i], libuv_timer_cb, 0, 0);
    }
    g_uv_fired = 0;
    uv_run(&loop, UV_RUN_NOWAIT);
    if (g_uv_fired != n) state.SkipWithError("libuv: not every timer ran");
  }
  state.SetItemsProcessed(state.iterations() * n);
  uv_close_all(&loop, t);
}

// ---- dispatch --------------------------------------------------------------------

constexpr int kPairs = 100;
constexpr int kReady = 10;

struct Pairs {
  int fd[kPairs][2];
  Pairs() {
    for (auto &p : fd)
      if (socketpair(AF_UNIX, SOCK_STREAM, 0, p) != 0) abort();
    for (int i = 0; i < kPairs; i += kPairs / kReady)
      if (write(fd[i][1], "x", 1) != 1) abort();  // never drained
  }
  ~Pairs() {
    for (auto &p : fd) {
      close(p[0]);
      close(p[1]);
    }
  }
};

long g_dispatched = 0;
void ours_read(aeEventLoop *, int, void *, int) { ++g_dispatched; }

void ours_dispatch(benchmark::State &state) {
  Pairs pairs;
  aeEventLoop *el = aeCreateEventLoop(1024);
  for (auto &p : pairs.fd)
    aeCreateFileEvent(el, p[0], AE_READABLE, ours_read, nullptr);
  g_dispatched = 0;
  for (auto _ : state) aeProcessEvents(el, AE_FILE_EVENTS | AE_DONT_WAIT);
  if (g_dispatched != state.iterations() * kReady)
    state.SkipWithError("ours: wrong number of handlers run");
  state.SetItemsProcessed(state.iterations() * kReady);
  aeDeleteEventLoop(el);
}

void ev_read(struct ev_loop *, ev_io *, int) { ++g_dispatched; }

void libev_dispatch(benchmark::State &state) {
  Pairs pairs;
  struct ev_loop *loop = ev_loop_new(EVBACKEND_SELECT);
  std::vector<ev_io> w(kPairs);
  for (int i = 0; i < kPairs; ++i) {
    ev_io_init(&w[i], ev_read, pairs.fd[i][0], EV_READ);
    ev_io_start(loop, &w[i]);
  }
  ev_run(loop, EVRUN_NOWAIT);  // settles the backend's sets
  g_dispatched = 0;
  for (auto _ : state) ev_run(loop, EVRUN_NOWAIT);
  if (g_dispatched != state.iterations() * kReady)
    state.SkipWithError("libev: wrong number of handlers run");
  state.SetItemsProcessed(state.iterations() * kReady);
  for (auto &x : w) ev_io_stop(loop, &x);
  ev_loop_destroy(loop);
}

void uv_read(uv_poll_t *, int, int) { ++g_dispatched; }

void libuv_dispatch(benchmark::State &state) {
  Pairs pairs;
  uv_loop_t loop;
  uv_loop_init(&loop);
  std::vector<uv_poll_t> w(kPairs);
  for (int i = 0; i < kPairs; ++i) {
    uv_poll_init(&loop, &w[i], pairs.fd[i][0]);
    uv_poll_start(&w[i], UV_READABLE, uv_read);
  }
  uv_run(&loop, UV_RUN_NOWAIT);
  g_dispatched = 0;
  for (auto _ : state) uv_run(&loop, UV_RUN_NOWAIT);
  if (g_dispatched != state.iterations() * kReady)
    state.SkipWithError("libuv: wrong number of handlers run");
  state.SetItemsProcessed(state.iterations() * kReady);
  for (auto &x : w) uv_close(reinterpret_cast<uv_handle_t *>(&x), nullptr);
  uv_run(&loop, UV_RUN_DEFAULT);
  uv_loop_close(&loop);
}

void reg(const char *group, const char *impl, int64_t n,
         void (*fn)(benchmark::State &)) {
  char name[96];  // the argument adds "/<n>"
  snprintf(name, sizeof name, "%s/%s", group, impl);
  benchmark::RegisterBenchmark(name, fn)->Arg(n);
}

void register_all() {
  for (int64_t n : {1000, 100000}) {
    reg("timers_arm_disarm", "ours", n, ours_arm_disarm);
    reg("timers_arm_disarm", "ours_heap", n, ours_heap_arm_disarm);
    reg("timers_arm_disarm", "libev", n, libev_arm_disarm<false>);
    reg("timers_arm_disarm", "libev_clock", n, libev_arm_disarm<true>);
    reg("timers_arm_disarm", "libuv_clock", n, libuv_clock_arm_disarm);
    reg("timers_arm_pop", "ours", n, ours_arm_pop);
    reg("timers_arm_pop", "libev_clock", n, libev_clock_arm_pop);
    reg("timers_arm_pop", "libuv_clock", n, libuv_clock_arm_pop);
  }
  benchmark::RegisterBenchmark("dispatch/ours", ours_dispatch);
  benchmark::RegisterBenchmark("dispatch/libev", libev_dispatch);
  benchmark::RegisterBenchmark("dispatch/libuv", libuv_dispatch);
}

}  // namespace

int main(int argc, char **argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  register_all();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
