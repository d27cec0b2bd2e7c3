// Timer heap: order, positions and growth against a plain reference model.
#include "kiv/event.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <utility>
#include <vector>

namespace {

using Key = std::pair<int32_t, int32_t>;

Key key_of(const aeTimeEvent *e) { return {e->whenSec, e->whenMs}; }

// Every record knows its position, and no parent expires after its child.
void expect_heap_shape(const min_heap &h) {
  for (uint32_t i = 0; i < h.size; ++i) {
    ASSERT_EQ(h.elements[i]->heapIndex, static_cast<int32_t>(i));
    if (i > 0) {
      ASSERT_LE(key_of(h.elements[(i - 1) / 2]), key_of(h.elements[i]));
    }
  }
}

// A plain swapping heap with the same tie rules, to check exact positions:
// equal to its parent a record stays below; on equal children the right
// one moves up; an erase refills downwards unless the parent is greater.
struct RefHeap {
  std::vector<aeTimeEvent *> v;
  static bool greater(aeTimeEvent *a, aeTimeEvent *b) {
    return key_of(a) > key_of(b);
  }
  void up(size_t i) {
    while (i > 0 && greater(v[(i - 1) / 2], v[i])) {
      std::swap(v[(i - 1) / 2], v[i]);
      i = (i - 1) / 2;
    }
  }
  void down(size_t i) {
    for (;;) {
      size_t l = 2 * i + 1, r = l + 1, c;
      if (l >= v.size()) return;
      c = (r >= v.size() || greater(v[r], v[l])) ? l : r;
      if (!greater(v[i], v[c])) return;
      std::swap(v[i], v[c]);
      i = c;
    }
  }
  void add(aeTimeEvent *e) {
    v.push_back(e);
    up(v.size() - 1);
  }
  void pop() {
    v[0] = v.back();
    v.pop_back();
    if (!v.empty()) down(0);
  }
  void erase(aeTimeEvent *e) {
    size_t h = std::find(v.begin(), v.end(), e) - v.begin();
    v[h] = v.back();
    v.pop_back();
    if (h == v.size()) return;
    if (h > 0 && greater(v[(h - 1) / 2], v[h]))
      up(h);
    else
      down(h);
  }
};

TEST(Heap, RandomOperationsKeepOrderAndPositions) {
  RefHeap ref;
  std::mt19937 rng(12345);
  min_heap h;
  min_heap_init(&h);
  std::vector<aeTimeEvent> recs(600);
  for (auto &r : recs) aetimer_event_init(&r);
  std::vector<aeTimeEvent *> armed;  // the reference: what must be inside
  uint32_t maxCapacity = 0;

  for (int step = 0; step < 12000; ++step) {
    int op = static_cast<int>(rng() % 10);
    if (op < 5) {  // add a disarmed record with a small key, so ties happen
      aeTimeEvent &r = recs[rng() % recs.size()];
      if (r.heapIndex != -1) continue;
      r.whenSec = static_cast<int32_t>(rng() % 20) - 5;
      r.whenMs = static_cast<int32_t>(rng() % 3) * 500 - 1;
      ASSERT_EQ(aetimer_event_add(&h, &r), 0);
      armed.push_back(&r);
      ref.add(&r);
    } else if (op < 8) {  // pop: the least key comes out, disarmed
      aeTimeEvent *top = min_heap_top(&h);
      aeTimeEvent *got = min_heap_pop(&h);
      ASSERT_EQ(got, top);
      if (armed.empty()) {
        ASSERT_EQ(got, nullptr);
        continue;
      }
      Key least = key_of(*std::min_element(
          armed.begin(), armed.end(),
          [](auto *a, auto *b) { return key_of(a) < key_of(b); }));
      ASSERT_EQ(key_of(got), least);
      ASSERT_EQ(got->heapIndex, -1);
      armed.erase(std::find(armed.begin(), armed.end(), got));
      ASSERT_EQ(ref.v[0], got);
      ref.pop();
    } else {  // erase any record, armed or not
      aeTimeEvent &r = recs[rng() % recs.size()];
      bool in = r.heapIndex != -1;
      ASSERT_EQ(min_heap_erase(&h, &r), in ? 0 : -1);
      ASSERT_EQ(r.heapIndex, -1);
      if (in) {
        armed.erase(std::find(armed.begin(), armed.end(), &r));
        ref.erase(&r);
      }
    }
    ASSERT_EQ(min_heap_size(&h), armed.size());
    ASSERT_EQ(min_heap_empty(&h), armed.empty() ? 1 : 0);
    ASSERT_GE(h.capacity, maxCapacity);  // never shrinks
    maxCapacity = h.capacity;
    expect_heap_shape(h);
    ASSERT_TRUE(std::equal(ref.v.begin(), ref.v.end(), h.elements));
    if (HasFatalFailure()) return;
  }
  // Records outside the reference are outside the heap.
  size_t outside = 0;
  for (auto &r : recs) outside += r.heapIndex == -1;
  EXPECT_EQ(outside, recs.size() - armed.size());
  min_heap_destroy(&h);
}

TEST(Heap, LargeHeapComesOutInOrder) {
  std::mt19937 rng(7);
  min_heap h;
  min_heap_init(&h);
  std::vector<aeTimeEvent> recs(20000);
  for (auto &r : recs) {
    r.whenSec = static_cast<int32_t>(rng() % 5000);
    r.whenMs = static_cast<int32_t>(rng() % 1000);
    ASSERT_EQ(aetimer_event_add(&h, &r), 0);
  }
  for (size_t i = 0; i < recs.size(); i += 3) {
    ASSERT_EQ(min_heap_erase(&h, &recs[i]), 0);
  }
  expect_heap_shape(h);
  Key last{INT32_MIN, INT32_MIN};
  uint32_t n = 0;
  while (aeTimeEvent *e = min_heap_pop(&h)) {
    ASSERT_LE(last, key_of(e));
    last = key_of(e);
    ++n;
    if (n == 1000) expect_heap_shape(h);
  }
  EXPECT_EQ(n, recs.size() - (recs.size() + 2) / 3);
  min_heap_destroy(&h);
}

TEST(Heap, GrowthEdgesAndEmptyHeap) {
  min_heap *h = min_heap_init(nullptr);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(h->elements, nullptr);
  EXPECT_EQ(min_heap_top(h), nullptr);
  EXPECT_EQ(min_heap_pop(h), nullptr);
  EXPECT_EQ(min_heap_empty(h), 1);

  std::vector<aeTimeEvent> recs(65);
  for (size_t i = 0; i < recs.size(); ++i) {
    recs[i].whenSec = 100 - static_cast<int32_t>(i);
    recs[i].whenMs = 0;
    recs[i].heapIndex = 7;  // adding needs no prior init
    ASSERT_EQ(aetimer_event_add(h, &recs[i]), 0);
    uint32_t n = static_cast<uint32_t>(i + 1);
    EXPECT_EQ(h->capacity, n <= 32 ? 32u : n <= 64 ? 64u : 128u);
  }
  // The newest record has the least key and climbed to the top.
  EXPECT_EQ(min_heap_elt_is_top(&recs[64]), 1);
  EXPECT_EQ(min_heap_elt_is_top(&recs[0]), 0);

  // Erasing the last slot leaves everything else where it was.
  std::vector<aeTimeEvent *> before(h->elements, h->elements + h->size - 1);
  aeTimeEvent *last = h->elements[h->size - 1];
  EXPECT_EQ(min_heap_erase(h, last), 0);
  EXPECT_EQ(last->heapIndex, -1);
  EXPECT_TRUE(std::equal(before.begin(), before.end(), h->elements));
  EXPECT_EQ(min_heap_erase(h, last), -1);
  EXPECT_EQ(min_heap_elt_is_top(last), 0);

  while (min_heap_pop(h) != nullptr) {
  }
  EXPECT_EQ(h->capacity, 128u);
  aeTimeEvent one{};
  ASSERT_EQ(aetimer_event_add(h, &one), 0);
  EXPECT_EQ(min_heap_pop(h), &one);
  EXPECT_EQ(one.heapIndex, -1);
  EXPECT_EQ(min_heap_size(h), 0u);

  min_heap_destroy(h);
  min_heap_destroy(nullptr);
  free(h);
}

TEST(Heap, EraseMovesRefillUpPastParent) {
  // Tree: 0 -> (1, 2), 1 -> (3, 4), 2 -> (5, 6); the refill from slot 6 is
  // smaller than the parent of the erased slot 4.
  min_heap h;
  min_heap_init(&h);
  const int32_t secs[] = {1, 10, 2, 11, 12, 3, 5};
  aeTimeEvent r[7];
  for (int i = 0; i < 7; ++i) {
    r[i] = aeTimeEvent{};
    r[i].whenSec = secs[i];
    ASSERT_EQ(aetimer_event_add(&h, &r[i]), 0);
    ASSERT_EQ(r[i].heapIndex, i);
  }
  ASSERT_EQ(min_heap_erase(&h, &r[4]), 0);
  EXPECT_EQ(r[6].heapIndex, 1);
  EXPECT_EQ(r[1].heapIndex, 4);
  expect_heap_shape(h);
  min_heap_destroy(&h);
}

}  // namespace
