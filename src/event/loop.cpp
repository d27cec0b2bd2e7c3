// The reactor: select() over the registered descriptors, then the due
// timers, on the system's uptime clock in whole-second steps.
#include "heap.hpp"

#include <stdlib.h>
#include <string.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <time.h>

namespace {

// The select() sets hold this many bits; no descriptor beyond may reach them.
constexpr int kSetLimit = FD_SETSIZE;

// A descriptor set is an array of words of this many bits.
constexpr int kWordBits = static_cast<int>(8 * sizeof(unsigned long));
static_assert(sizeof(fd_set) * 8 == FD_SETSIZE, "fd_set is FD_SETSIZE bits");

// Word w of a descriptor set: descriptors w * kWordBits and up.
inline unsigned long set_word(const fd_set *set, int w) {
  return reinterpret_cast<const unsigned long *>(set)[w];
}

// The select state as the loop allocates it: the public sets, then what the
// loop keeps for itself.
struct SelectState {
  aeSelectState sets;
  // Slots whose mask holds bits beyond the two directions.  Such a slot may
  // have no bit in either set, yet a pass must still give it an entry.
  int oddSlots;
};
constexpr int kOddBits = ~(AE_READABLE | AE_WRITABLE);

inline SelectState *state_of(aeEventLoop *eventLoop) {
  return reinterpret_cast<SelectState *>(eventLoop->selectState);
}

int64_t uptime_by_sysinfo() {
  struct sysinfo info;
  memset(&info, 0, sizeof info);
  sysinfo(&info);
  return static_cast<int64_t>(info.uptime);
}

// The timers' clock, in whole seconds: the system's uptime, immune to wall
// clock changes.  sysinfo() reports it as CLOCK_BOOTTIME rounded up to the
// next whole second when there are nanoseconds; the clock is read here the
// same way, which the C library serves without a system call.  Inlined
// into the arming calls, on the timers' hot path.
inline __attribute__((always_inline)) int64_t uptime() {
  struct timespec ts;
  if (__builtin_expect(clock_gettime(CLOCK_BOOTTIME, &ts) == 0, 1))
    return static_cast<int64_t>(ts.tv_sec) + (ts.tv_nsec != 0 ? 1 : 0);
  return uptime_by_sysinfo();
}

int64_t aeGetUptime() { return uptime(); }

// Whether the deadline of te has come with the clock at second now (whose
// millisecond part is 0).
inline bool aeIsDue(const aeTimeEvent *te, int64_t now) {
  return te->whenSec < now || (te->whenSec == now && te->whenMs <= 0);
}

// Splits a delay in milliseconds into seconds and a remainder with the sign
// of the delay, as 64-bit division truncating towards zero does.  Delays
// below 2^32 ms (49 days) take a multiplication by the reciprocal; longer
// ones a long division in base 2^16 with 32-bit steps.  (A size-optimised
// build would divide, slowly, and 32-bit targets would call a library
// routine of a kilobyte for 64-bit division.)
inline __attribute__((always_inline)) void split_milliseconds(
    int64_t milliseconds, int64_t *sec, int32_t *ms) {
  const bool negative = milliseconds < 0;
  const uint64_t m = negative ? 0 - static_cast<uint64_t>(milliseconds)
                              : static_cast<uint64_t>(milliseconds);
  uint64_t q = 0;
  uint32_t r = 0;
  if (m <= UINT32_MAX) {
    // Exact for every 32-bit m: 1000 * 0x10624DD3 exceeds 2^38 by 56.
    q = (m * 0x10624DD3u) >> 38;
    r = static_cast<uint32_t>(m - q * 1000);
  } else {
    for (int shift = 48; shift >= 0; shift -= 16) {
      uint32_t part = (r << 16) | (static_cast<uint32_t>(m >> shift) & 0xffff);
      q = (q << 16) | (part / 1000);
      r = part % 1000;
    }
  }
  // q is below 2^54: it fits the signed type either way.
  *sec = negative ? -static_cast<int64_t>(q) : static_cast<int64_t>(q);
  *ms = negative ? -static_cast<int32_t>(r) : static_cast<int32_t>(r);
}

// Works out the deadline `milliseconds` from now into the record (inlined
// into the two arming calls).
inline __attribute__((always_inline)) void aeSetDeadline(int64_t milliseconds,
                                                         aeTimeEvent *te) {
  int64_t sec;
  int32_t ms;
  split_milliseconds(milliseconds, &sec, &ms);
  // The clock's millisecond part is 0, so ms stays below 1000: no carry.
  sec += uptime();
  // The record holds 32-bit seconds: a deadline past their range stays at
  // its end rather than wrapping round to one that is already due.
  if (sec > INT32_MAX) sec = INT32_MAX;
  if (sec < INT32_MIN) sec = INT32_MIN;
  te->whenSec = static_cast<int32_t>(sec);
  te->whenMs = ms;
}

}  // namespace

aeEventLoop *aeCreateEventLoop(int setsize) {
  if (setsize < 1 || setsize > kSetLimit) return nullptr;
  auto *loop = static_cast<aeEventLoop *>(malloc(sizeof(aeEventLoop)));
  if (loop == nullptr) return nullptr;
  const size_t n = static_cast<size_t>(setsize);
  loop->events = static_cast<aeFileEvent *>(malloc(n * sizeof(aeFileEvent)));
  loop->fired = static_cast<aeFiredEvent *>(malloc(n * sizeof(aeFiredEvent)));
  if (loop->events == nullptr || loop->fired == nullptr) {
    free(loop->events);
    free(loop->fired);
    free(loop);
    return nullptr;
  }
  loop->setsize = setsize;
  loop->lastTime = static_cast<int64_t>(time(nullptr));
  min_heap_init(&loop->timers);
  loop->stop = 0;
  loop->maxfd = -1;
  loop->beforeSleep = nullptr;
  auto *state = static_cast<SelectState *>(malloc(sizeof(SelectState)));
  if (state == nullptr) {
    free(loop->events);
    free(loop->fired);
    free(loop);
    return nullptr;
  }
  FD_ZERO(&state->sets.readSet);
  FD_ZERO(&state->sets.writeSet);
  state->oddSlots = 0;
  loop->selectState = &state->sets;
  for (int i = 0; i < setsize; ++i) loop->events[i].mask = AE_NONE;
  return loop;
}

void aeDeleteEventLoop(aeEventLoop *eventLoop) {
  if (eventLoop == nullptr) return;
  free(state_of(eventLoop));
  free(eventLoop->events);
  free(eventLoop->fired);
  min_heap_destroy(&eventLoop->timers);
  free(eventLoop);
}

int aeGetSetSize(aeEventLoop *eventLoop) { return eventLoop->setsize; }

int aeResizeSetSize(aeEventLoop *eventLoop, int setsize) {
  if (setsize == eventLoop->setsize) return 0;
  if (setsize >= kSetLimit || setsize < 1 || eventLoop->maxfd >= setsize)
    return -1;
  // Both tables are made anew before either is given up, so that a failure
  // changes nothing, and a handler running from `fired` keeps its entries.
  const size_t n = static_cast<size_t>(setsize);
  auto *fired = static_cast<aeFiredEvent *>(malloc(n * sizeof(aeFiredEvent)));
  if (fired == nullptr) return -1;
  auto *events = static_cast<aeFileEvent *>(malloc(n * sizeof(aeFileEvent)));
  if (events == nullptr) {
    free(fired);
    return -1;
  }
  const int keep = setsize < eventLoop->setsize ? setsize : eventLoop->setsize;
  memcpy(fired, eventLoop->fired, static_cast<size_t>(keep) * sizeof *fired);
  memcpy(events, eventLoop->events, static_cast<size_t>(keep) * sizeof *events);
  free(eventLoop->fired);
  free(eventLoop->events);
  eventLoop->fired = fired;
  eventLoop->events = events;
  eventLoop->setsize = setsize;
  for (int i = eventLoop->maxfd + 1; i < setsize; ++i)
    events[i].mask = AE_NONE;
  return 0;
}

int aeCreateFileEvent(aeEventLoop *eventLoop, int fd, int mask,
                      aeFileProc *proc, void *clientData) {
  if (fd < 0) return -1;
  if (fd >= eventLoop->setsize) {
    int size = eventLoop->setsize;
    while (size <= fd) {
      if (size >= kSetLimit) return -1;
      size *= 2;
    }
    if (aeResizeSetSize(eventLoop, size) != 0) return -1;
  }
  SelectState *state = state_of(eventLoop);
  if (mask & AE_READABLE) FD_SET(fd, &state->sets.readSet);
  if (mask & AE_WRITABLE) FD_SET(fd, &state->sets.writeSet);
  aeFileEvent *fe = &eventLoop->events[fd];
  if ((fe->mask & kOddBits) == 0 && (mask & kOddBits) != 0) ++state->oddSlots;
  fe->mask |= mask;
  if (mask & AE_READABLE) fe->readProc = proc;
  if (mask & AE_WRITABLE) fe->writeProc = proc;
  fe->clientData = clientData;
  if (fd > eventLoop->maxfd) eventLoop->maxfd = fd;
  return 0;
}

void aeDeleteFileEvent(aeEventLoop *eventLoop, int fd, int mask) {
  if (fd < 0 || fd >= eventLoop->setsize) return;
  aeFileEvent *fe = &eventLoop->events[fd];
  if (fe->mask == AE_NONE) return;
  SelectState *state = state_of(eventLoop);
  if ((fe->mask & kOddBits) != 0 && (fe->mask & ~mask & kOddBits) == 0)
    --state->oddSlots;
  fe->mask &= ~mask;
  if (fd == eventLoop->maxfd && fe->mask == AE_NONE) {
    int j = eventLoop->maxfd - 1;
    while (j >= 0 && eventLoop->events[j].mask == AE_NONE) --j;
    eventLoop->maxfd = j;
  }
  if (mask & AE_READABLE) FD_CLR(fd, &state->sets.readSet);
  if (mask & AE_WRITABLE) FD_CLR(fd, &state->sets.writeSet);
}

int aeGetFileEvents(aeEventLoop *eventLoop, int fd) {
  if (fd < 0 || fd >= eventLoop->setsize) return AE_NONE;
  return eventLoop->events[fd].mask;
}

int aeCreateTimeEvent(aeEventLoop *eventLoop, int64_t milliseconds,
                      aeTimeEvent *te, aeTimeProc *proc, void *clientData) {
  if (te == nullptr) return -1;
  aeSetDeadline(milliseconds, te);
  te->timeProc = proc;
  te->clientData = clientData;
  return kiv::event::heap_add(&eventLoop->timers, te);
}

int aeModifyTimeEvent(aeEventLoop *eventLoop, int64_t milliseconds,
                      aeTimeEvent *te) {
  if (te == nullptr) return -1;
  kiv::event::heap_erase(&eventLoop->timers, te);
  aeSetDeadline(milliseconds, te);
  return kiv::event::heap_add(&eventLoop->timers, te);
}

int aeDeleteTimeEvent(aeEventLoop *eventLoop, aeTimeEvent *te) {
  if (te == nullptr || te->heapIndex == -1) return -1;
  kiv::event::heap_erase(&eventLoop->timers, te);
  return 0;
}

int aeProcessEvents(aeEventLoop *eventLoop, int flags) {
  if (!(flags & AE_FILE_EVENTS) && !(flags & AE_TIME_EVENTS)) return 0;
  const bool timeEvents = (flags & AE_TIME_EVENTS) != 0;
  const bool dontWait = (flags & AE_DONT_WAIT) != 0;
  int processed = 0;

  if (eventLoop->maxfd != -1 || (timeEvents && !dontWait)) {
    struct timeval tv;
    struct timeval *tvp = nullptr;
    const aeTimeEvent *nearest = timeEvents && !dontWait
                                     ? kiv::event::heap_top(&eventLoop->timers)
                                     : nullptr;
    if (nearest != nullptr) {
      // The clock's millisecond part is 0.
      int64_t sec = static_cast<int64_t>(nearest->whenSec) - aeGetUptime();
      int64_t usec;
      if (nearest->whenMs >= 0) {
        usec = static_cast<int64_t>(nearest->whenMs) * 1000;
      } else {
        usec = (static_cast<int64_t>(nearest->whenMs) + 1000) * 1000;
        sec -= 1;
      }
      if (sec < 0) sec = 0;
      if (usec < 0) usec = 0;
      // time_t may be 32 bits wide; a wait that long is no wait limit.
      if (sec > INT32_MAX) sec = INT32_MAX;
      tv.tv_sec = static_cast<time_t>(sec);
      tv.tv_usec = static_cast<suseconds_t>(usec);
      tvp = &tv;
    } else if (dontWait) {
      tv.tv_sec = 0;
      tv.tv_usec = 0;
      tvp = &tv;
    }

    aeSelectState *state = eventLoop->selectState;
    memcpy(&state->readyReadSet, &state->readSet, sizeof(fd_set));
    memcpy(&state->readyWriteSet, &state->writeSet, sizeof(fd_set));
    int ready = select(eventLoop->maxfd + 1, &state->readyReadSet,
                       &state->readyWriteSet, nullptr, tvp);
    if (ready > 0) {
      // A slot with a direction has its bit in readSet or writeSet (they
      // are kept in step with the slots), so the walk from 0 up to maxfd
      // visits the set bits of those words and skips the rest; only while
      // some slot holds other bits does it visit every slot.
      int numevents = 0;
      aeFiredEvent *fired = eventLoop->fired;
      const aeFileEvent *events = eventLoop->events;
      const int words = eventLoop->maxfd / kWordBits + 1;
      const bool everySlot = state_of(eventLoop)->oddSlots != 0;
      for (int w = 0; w < words; ++w) {
        unsigned long interest = everySlot
                                     ? ~0UL
                                     : set_word(&state->readSet, w) |
                                           set_word(&state->writeSet, w);
        if (w == words - 1)  // nothing above maxfd
          interest &= ~0UL >> (kWordBits - 1 - eventLoop->maxfd % kWordBits);
        const unsigned long readyRead = set_word(&state->readyReadSet, w);
        const unsigned long readyWrite = set_word(&state->readyWriteSet, w);
        while (interest != 0) {
          const int bit = __builtin_ctzl(interest);
          interest &= interest - 1;
          const int j = w * kWordBits + bit;
          if (everySlot && events[j].mask == AE_NONE) continue;
          // select() marks only descriptors of the sets given to it, and a
          // slot's bit is in a set exactly while it has that direction.
          fired[numevents].fd = j;
          fired[numevents].mask =
              static_cast<int>((readyRead >> bit) & 1UL) * AE_READABLE |
              static_cast<int>((readyWrite >> bit) & 1UL) * AE_WRITABLE;
          ++numevents;
        }
      }
      // A handler may register a descriptor that makes the tables move, or
      // shrink them: after each call every access goes through the loop as
      // it stands then.
      int setsize = eventLoop->setsize;
      for (int j = 0; j < numevents && j < setsize; ++j) {
        const int mask = fired[j].mask;
        const int fd = fired[j].fd;
        if (mask == AE_NONE || fd >= setsize) continue;
        bool readRan = false;
        const aeFileEvent *fe = &eventLoop->events[fd];
        if (fe->mask & mask & AE_READABLE) {
          readRan = true;
          fe->readProc(eventLoop, fd, fe->clientData, mask);
          fe = fd < eventLoop->setsize ? &eventLoop->events[fd] : nullptr;
        }
        if (fe != nullptr && (fe->mask & mask & AE_WRITABLE) &&
            (!readRan || fe->writeProc != fe->readProc))
          fe->writeProc(eventLoop, fd, fe->clientData, mask);
        fired = eventLoop->fired;
        setsize = eventLoop->setsize;
      }
      processed = numevents;
    }
  }

  if (!timeEvents) return processed;

  eventLoop->lastTime = static_cast<int64_t>(time(nullptr));
  // The clock only moves forward: a record due by an earlier reading is due
  // by a fresh one too, so the clock is read again only when the top record
  // is not due by the last reading.
  int64_t now = INT64_MIN;  // not read yet: nothing is due by it
  for (;;) {
    aeTimeEvent *te = kiv::event::heap_top(&eventLoop->timers);
    if (te == nullptr) break;
    if (!aeIsDue(te, now)) {
      now = aeGetUptime();
      if (!aeIsDue(te, now)) break;
    }
    kiv::event::heap_pop(&eventLoop->timers);
    ++processed;
    // A record armed without a callback has nothing to run: it stays out.
    if (te->timeProc == nullptr) continue;
    int next = te->timeProc(eventLoop, te->clientData);
    if (next == -1) continue;
    aeModifyTimeEvent(eventLoop, static_cast<int64_t>(next), te);
  }
  return processed;
}

void aeMain(aeEventLoop *eventLoop) {
  eventLoop->stop = 0;
  while (eventLoop->stop == 0) {
    if (eventLoop->beforeSleep != nullptr) eventLoop->beforeSleep(eventLoop);
    aeProcessEvents(eventLoop, AE_ALL_EVENTS);
  }
}

void aeStop(aeEventLoop *eventLoop) { eventLoop->stop = 1; }

void aeSetBeforeSleepProc(aeEventLoop *eventLoop,
                          aeBeforeSleepProc *beforesleep) {
  eventLoop->beforeSleep = beforesleep;
}

const char *aeGetApiName(void) { return "select"; }
