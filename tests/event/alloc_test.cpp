// Arming timers and running passes allocate nothing once the heap array has
// grown: counted through a malloc interposed in this program.
#include "kiv/event.h"

#include <gtest/gtest.h>

#include <stddef.h>

#if defined(__SANITIZE_ADDRESS__)
#define KIV_COUNT_ALLOCS 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIV_COUNT_ALLOCS 0
#endif
#endif
#ifndef KIV_COUNT_ALLOCS
#define KIV_COUNT_ALLOCS 1
#endif

#if KIV_COUNT_ALLOCS
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
#endif

namespace {

[[maybe_unused]] int rearm_once(aeEventLoop *, void *data) {
  int *n = static_cast<int *>(data);
  return ++*n < 3 ? 0 : -1;
}

TEST(Alloc, ArmingAndPassesAllocateNothingBeyondTheArray) {
#if !KIV_COUNT_ALLOCS
  GTEST_SKIP() << "the sanitizer owns malloc in this build";
#else
  aeEventLoop *el = aeCreateEventLoop(16);
  ASSERT_NE(el, nullptr);
  static aeTimeEvent recs[64];
  int runs = 0;

  g_allocs = 0;
  g_counting = true;
  for (auto &r : recs) aeCreateTimeEvent(el, 5000, &r, rearm_once, &runs);
  g_counting = false;
  EXPECT_EQ(g_allocs, 2);  // the array: 32 slots, then 64
  EXPECT_EQ(el->timers.capacity, 64u);

  g_allocs = 0;
  g_counting = true;
  for (auto &r : recs) aeDeleteTimeEvent(el, &r);
  for (auto &r : recs) aeCreateTimeEvent(el, 7000, &r, rearm_once, &runs);
  for (auto &r : recs) aeModifyTimeEvent(el, 0, &r);
  for (auto &r : recs) aeDeleteTimeEvent(el, &r);
  ASSERT_EQ(aeCreateTimeEvent(el, 0, &recs[0], rearm_once, &runs), 0);
  int n = aeProcessEvents(el, AE_ALL_EVENTS | AE_DONT_WAIT);
  g_counting = false;
  EXPECT_EQ(n, 3);
  EXPECT_EQ(g_allocs, 0);
  aeDeleteEventLoop(el);
#endif
}

}  // namespace
