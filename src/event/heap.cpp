// Timer heap: an array of pointers to caller-owned records, each record
// knowing its own position so that it can leave in logarithmic time.
//
// The allocation behind `elements` holds, after the `capacity` pointers, a
// second array of `capacity` keys: the expiry of the record in the same
// slot, as one number.  The sifts compare those keys, side by side in the
// array, instead of following each pointer to its record; a record is only
// written (its heapIndex) when it moves.  The keys move with the pointers,
// so a record's deadline must not change while it is in a heap.
#include "heap.hpp"

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

// Bytes of the pointer part of an array of `capacity` slots, rounded up so
// that the keys behind it are aligned.
inline size_t pointer_bytes(uint32_t capacity) {
  return (static_cast<size_t>(capacity) * sizeof(aeTimeEvent *) + 7) &
         ~static_cast<size_t>(7);
}

inline int64_t *keys_of(const min_heap *heap) {
  return reinterpret_cast<int64_t *>(
      reinterpret_cast<char *>(heap->elements) +
      pointer_bytes(heap->capacity));
}

// Stores record e with key at position i.
inline void place(aeTimeEvent **elements, int64_t *keys, uint32_t i,
                  aeTimeEvent *e, int64_t key) {
  elements[i] = e;
  keys[i] = key;
  e->heapIndex = static_cast<int32_t>(i);
}

// Moves the hole at `hole` towards the root until e (whose key is key) fits,
// then stores e.  A record equal to its parent stops below it.
void min_heap_sift_up(min_heap *heap, uint32_t hole, aeTimeEvent *e,
                      int64_t key) {
  aeTimeEvent **elements = heap->elements;
  int64_t *keys = keys_of(heap);
  while (hole != 0) {
    uint32_t parent = (hole - 1) / 2;
    if (keys[parent] <= key) break;
    place(elements, keys, hole, elements[parent], keys[parent]);
    hole = parent;
  }
  place(elements, keys, hole, e, key);
}

// Moves the hole at `hole` towards the leaves until e (whose key is key)
// fits, then stores e.  On equal children the right one moves up.
void min_heap_sift_down(min_heap *heap, uint32_t hole, aeTimeEvent *e,
                        int64_t key) {
  aeTimeEvent **elements = heap->elements;
  int64_t *keys = keys_of(heap);
  const uint32_t size = heap->size;
  // In a heap too large for the caches, the keys two levels down are
  // fetched ahead: the next level compares two of them.
  const bool ahead = size >= 4096;
  uint32_t c = 2 * (hole + 1);
  // While both children exist; which one moves up is a coin toss for a
  // branch predictor, so it is chosen without a branch.
  while (c < size) {
    if (ahead && 2 * c + 2 < size) {
      __builtin_prefetch(&keys[2 * c - 1]);
      __builtin_prefetch(&elements[2 * c - 1]);
    }
    c -= static_cast<uint32_t>(keys[c] > keys[c - 1]);
    if (key <= keys[c]) break;  // c stays below size
    place(elements, keys, hole, elements[c], keys[c]);
    hole = c;
    c = 2 * (hole + 1);
  }
  if (c == size && key > keys[c - 1]) {  // a left child alone
    place(elements, keys, hole, elements[c - 1], keys[c - 1]);
    hole = c - 1;
  }
  place(elements, keys, hole, e, key);
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
  return kiv::event::heap_top(heap);
}

aeTimeEvent *min_heap_pop(min_heap *heap) {
  return kiv::event::heap_pop(heap);
}

int min_heap_elt_is_top(const aeTimeEvent *e) {
  return e->heapIndex == 0 ? 1 : 0;
}

int min_heap_erase(min_heap *heap, aeTimeEvent *e) {
  return kiv::event::heap_erase(heap, e);
}

int aetimer_event_add(min_heap *heap, aeTimeEvent *e) {
  return kiv::event::heap_add(heap, e);
}

void aetimer_event_init(aeTimeEvent *e) { e->heapIndex = -1; }

namespace kiv::event {

aeTimeEvent *heap_pop(min_heap *heap) {
  if (heap->size == 0) return nullptr;
  aeTimeEvent *top = heap->elements[0];
  uint32_t last = --heap->size;
  min_heap_sift_down(heap, 0, heap->elements[last], keys_of(heap)[last]);
  // After the sift: with one record, top and last are the same record.
  top->heapIndex = -1;
  return top;
}

int heap_erase(min_heap *heap, aeTimeEvent *e) {
  if (e->heapIndex == -1) return -1;
  uint32_t h = static_cast<uint32_t>(e->heapIndex);
  uint32_t last = --heap->size;
  aeTimeEvent *refill = heap->elements[last];
  const int64_t *keys = keys_of(heap);
  int64_t key = keys[last];
  if (h > 0 && keys[(h - 1) / 2] > key)
    min_heap_sift_up(heap, h, refill, key);
  else
    min_heap_sift_down(heap, h, refill, key);
  // After the sift: the erased record may have been the last one.
  e->heapIndex = -1;
  return 0;
}

int heap_add(min_heap *heap, aeTimeEvent *e) {
  e->heapIndex = -1;
  if (heap->size + 1 > heap->capacity) {
    uint32_t doubled = heap->capacity != 0 ? heap->capacity * 2 : 32;
    if (heap->capacity > UINT32_MAX / 2) doubled = UINT32_MAX;
    uint32_t want = doubled > heap->size + 1 ? doubled : heap->size + 1;
    if (heap->size == UINT32_MAX ||
        static_cast<size_t>(want) >
            SIZE_MAX / (sizeof(aeTimeEvent *) + sizeof(int64_t)) - 1)
      return -1;
    void *grown = realloc(heap->elements, pointer_bytes(want) +
                                              want * sizeof(int64_t));
    if (grown == nullptr) return -1;
    // The keys stand behind the pointers: they move up with the capacity.
    char *base = static_cast<char *>(grown);
    memmove(base + pointer_bytes(want), base + pointer_bytes(heap->capacity),
            heap->size * sizeof(int64_t));
    heap->elements = static_cast<aeTimeEvent **>(grown);
    heap->capacity = want;
  }
  uint32_t hole = heap->size++;
  min_heap_sift_up(heap, hole, e, expiry_key(e));
  return 0;
}

}  // namespace kiv::event
