// The timer heap's operations for the event loop inside the library: the
// same as the exported min_heap_* and aetimer_event_add, called directly.
#pragma once

#include "kiv/event.h"

namespace kiv::event {

int heap_add(min_heap *heap, aeTimeEvent *e);
int heap_erase(min_heap *heap, aeTimeEvent *e);
aeTimeEvent *heap_pop(min_heap *heap);

inline aeTimeEvent *heap_top(const min_heap *heap) {
  return heap->size != 0 ? heap->elements[0] : nullptr;
}

}  // namespace kiv::event
