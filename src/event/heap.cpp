// Timer heap: an array of pointers to caller-owned records, each record
// knowing its own position so that it can leave in logarithmic time.
#include "kiv/event.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace {

// The expiry as one signed number ordered as (whenSec, whenMs), both signed:
// the seconds above, the milliseconds with their sign bit flipped below.
inline int64_t expiry_key(const aeTimeEvent *e) {
  return static_cast<int64_t>(e->whenSec) * 4294967296LL +
         static_cast<int64_t>(static_cast<uint32_t>(e->whenMs) ^ 0x80000000u);
}

// Whether a expires later than b.  Equal expiries are greater neither way.
inline bool min_heap_greater(const aeTimeEvent *a, const aeTimeEvent *b) {
  return expiry_key(a) > expiry_key(b);
}

// Moves the hole at `hole` towards the root until e fits, then stores e.
void min_heap_sift_up(aeTimeEvent **elements, uint32_t hole, aeTimeEvent *e) {
  const int64_t key = expiry_key(e);
  while (hole != 0) {
    uint32_t parent = (hole - 1) / 2;
    aeTimeEvent *p = elements[parent];
    if (expiry_key(p) <= key) break;
    elements[hole] = p;
    p->heapIndex = static_cast<int32_t>(hole);
    hole = parent;
  }
  elements[hole] = e;
  e->heapIndex = static_cast<int32_t>(hole);
}

// Moves the hole at `hole` towards the leaves until e fits, then stores e.
// On equal children the right one moves up.  In a heap too large for the
// caches, the four records two levels down are fetched ahead: the next
// level compares two of them, and each would be a cache miss.
template <bool kPrefetch>
void sift_down_from(aeTimeEvent **elements, uint32_t size, uint32_t hole,
                    aeTimeEvent *e) {
  // e's expiry can't change here, but the stores into heapIndex fields keep
  // the compiler from knowing it: read it once.
  const int64_t key = expiry_key(e);
  uint32_t c = 2 * (hole + 1);
  // While both children exist; which one moves up is a coin toss for a
  // branch predictor, so it is chosen without a branch.
  while (c < size) {
    if (kPrefetch) {
      uint32_t g = 2 * c - 1;  // the left child's left child
      if (g + 3 < size) {
        __builtin_prefetch(elements[g]);
        __builtin_prefetch(elements[g + 1]);
        __builtin_prefetch(elements[g + 2]);
        __builtin_prefetch(elements[g + 3]);
      }
    }
    c -= static_cast<uint32_t>(expiry_key(elements[c]) >
                               expiry_key(elements[c - 1]));
    aeTimeEvent *child = elements[c];
    if (key <= expiry_key(child)) break;  // c stays below size
    elements[hole] = child;
    child->heapIndex = static_cast<int32_t>(hole);
    hole = c;
    c = 2 * (hole + 1);
  }
  if (c == size) {  // the loop ran out with a left child alone
    aeTimeEvent *child = elements[c - 1];
    if (key > expiry_key(child)) {
      elements[hole] = child;
      child->heapIndex = static_cast<int32_t>(hole);
      hole = c - 1;
    }
  }
  elements[hole] = e;
  e->heapIndex = static_cast<int32_t>(hole);
}

constexpr uint32_t kPrefetchSize = 4096;

void min_heap_sift_down(min_heap *heap, uint32_t hole, aeTimeEvent *e) {
  if (heap->size >= kPrefetchSize)
    sift_down_from<true>(heap->elements, heap->size, hole, e);
  else
    sift_down_from<false>(heap->elements, heap->size, hole, e);
}

}  // namespace

min_heap *min_heap_init(min_heap *heap) {
  if (heap == nullptr) {
    heap = static_cast<min_heap *>(malloc(sizeof *heap));
    if (heap == nullptr) return nullptr;
  }
  heap->elements = nullptr;
  heap->size = 0;
  heap->capacity = 0;
  return heap;
}

void min_heap_destroy(min_heap *heap) {
  if (heap != nullptr && heap->elements != nullptr) free(heap->elements);
}

int min_heap_empty(const min_heap *heap) { return heap->size == 0 ? 1 : 0; }

uint32_t min_heap_size(const min_heap *heap) { return heap->size; }

aeTimeEvent *min_heap_top(const min_heap *heap) {
  return heap->size != 0 ? heap->elements[0] : nullptr;
}

aeTimeEvent *min_heap_pop(min_heap *heap) {
  if (heap->size == 0) return nullptr;
  aeTimeEvent *top = heap->elements[0];
  aeTimeEvent *last = heap->elements[--heap->size];
  min_heap_sift_down(heap, 0, last);
  // After the sift: with one record, top and last are the same record.
  top->heapIndex = -1;
  return top;
}

int min_heap_elt_is_top(const aeTimeEvent *e) {
  return e->heapIndex == 0 ? 1 : 0;
}

int min_heap_erase(min_heap *heap, aeTimeEvent *e) {
  if (e->heapIndex == -1) return -1;
  uint32_t h = static_cast<uint32_t>(e->heapIndex);
  aeTimeEvent *last = heap->elements[--heap->size];
  if (h > 0 && min_heap_greater(heap->elements[(h - 1) / 2], last))
    min_heap_sift_up(heap->elements, h, last);
  else
    min_heap_sift_down(heap, h, last);
  // After the sift: the erased record may have been the last one.
  e->heapIndex = -1;
  return 0;
}

int aetimer_event_add(min_heap *heap, aeTimeEvent *e) {
  e->heapIndex = -1;
  if (heap->size + 1 > heap->capacity) {
    uint32_t doubled = heap->capacity != 0 ? heap->capacity * 2 : 32;
    if (heap->capacity > UINT32_MAX / 2) doubled = UINT32_MAX;
    uint32_t want = doubled > heap->size + 1 ? doubled : heap->size + 1;
    if (heap->size == UINT32_MAX ||
        static_cast<size_t>(want) > SIZE_MAX / sizeof(aeTimeEvent *))
      return -1;
    void *grown = realloc(heap->elements, want * sizeof(aeTimeEvent *));
    if (grown == nullptr) return -1;
    heap->elements = static_cast<aeTimeEvent **>(grown);
    heap->capacity = want;
  }
  uint32_t hole = heap->size++;
  min_heap_sift_up(heap->elements, hole, e);
  return 0;
}

void aetimer_event_init(aeTimeEvent *e) { e->heapIndex = -1; }
