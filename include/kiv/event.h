/*
 * Event loop: a select() reactor for descriptors, timers kept in a min-heap
 * on the system uptime clock, and timed I/O on single descriptors.
 *
 * Everything here runs on the caller's thread; nothing is locked.  The loop
 * owns its tables; the caller owns every aeTimeEvent record and every
 * descriptor.  The record layouts below are part of the binary interface.
 */
#ifndef KIV_EVENT_H
#define KIV_EVENT_H

#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>

#include "export.h"

KIV_BEGIN_DECLS

/* Interest and readiness flags. */
#define AE_NONE 0
#define AE_READABLE 1
#define AE_WRITABLE 2

/* Flags of aeProcessEvents. */
#define AE_FILE_EVENTS 1
#define AE_TIME_EVENTS 2
#define AE_ALL_EVENTS (AE_FILE_EVENTS | AE_TIME_EVENTS)
#define AE_DONT_WAIT 4

struct aeEventLoop;

typedef void aeFileProc(struct aeEventLoop *eventLoop, int fd,
                        void *clientData, int mask);
typedef int aeTimeProc(struct aeEventLoop *eventLoop, void *clientData);
typedef void aeBeforeSleepProc(struct aeEventLoop *eventLoop);

/* A timer record, owned by the caller.  heapIndex is -1 while disarmed. */
typedef struct aeTimeEvent {
  int32_t heapIndex;
  int32_t whenSec;
  int32_t whenMs;
  aeTimeProc *timeProc;
  void *clientData;
} aeTimeEvent;

/* Binary min-heap of timer records, ordered by (whenSec, whenMs).  A
 * record's whenSec and whenMs must not change while it is in a heap. */
typedef struct min_heap {
  aeTimeEvent **elements;
  uint32_t size;
  uint32_t capacity;
} min_heap;

/* The registration of one descriptor; mask AE_NONE marks a free slot. */
typedef struct aeFileEvent {
  int mask;
  aeFileProc *readProc;
  aeFileProc *writeProc;
  void *clientData;
} aeFileEvent;

/* One entry of a pass's ready list; mask may be AE_NONE. */
typedef struct aeFiredEvent {
  int fd;
  int mask;
} aeFiredEvent;

/* The select() sets: interest, and the working copies of one pass. */
typedef struct aeSelectState {
  fd_set readSet;
  fd_set writeSet;
  fd_set readyReadSet;
  fd_set readyWriteSet;
} aeSelectState;

typedef struct aeEventLoop {
  int maxfd;
  int setsize;
  int64_t lastTime;
  aeFileEvent *events;
  aeFiredEvent *fired;
  min_heap timers;
  int stop;
  aeSelectState *selectState;
  aeBeforeSleepProc *beforeSleep;
} aeEventLoop;

/* ---- timer heap ---------------------------------------------------------- */

/*
 * Zeroes the given heap record and returns it; with NULL, allocates a zeroed
 * record (released by the caller with free()) and returns it, or NULL when
 * out of memory.  An array the record held before is forgotten, not freed.
 */
KIV_EXPORT min_heap *min_heap_init(min_heap *heap);

/* Frees the heap's array (not the record, not the timers).  NULL is ignored.
 * The heap must not be used afterwards. */
KIV_EXPORT void min_heap_destroy(min_heap *heap);

/* 1 if the heap holds no record, else 0. */
KIV_EXPORT int min_heap_empty(const min_heap *heap);

/* The number of records in the heap. */
KIV_EXPORT uint32_t min_heap_size(const min_heap *heap);

/* The record with the earliest expiry, left in the heap; NULL when empty. */
KIV_EXPORT aeTimeEvent *min_heap_top(const min_heap *heap);

/* Takes out and returns the earliest record (heapIndex -1); NULL when
 * empty. */
KIV_EXPORT aeTimeEvent *min_heap_pop(min_heap *heap);

/* 1 if the record stands at the top of its heap, else 0. */
KIV_EXPORT int min_heap_elt_is_top(const aeTimeEvent *e);

/* Takes the record out of the heap: 0, or -1 (nothing changed) when its
 * heapIndex is -1. */
KIV_EXPORT int min_heap_erase(min_heap *heap, aeTimeEvent *e);

/*
 * Adds a record that is in no heap, ordered by whenSec and whenMs.  0, or -1
 * when the array can't grow (heap unchanged, record's heapIndex -1).  Only
 * the array grows (32 slots, then doubling); nothing is allocated per timer.
 */
KIV_EXPORT int aetimer_event_add(min_heap *heap, aeTimeEvent *e);

/* Marks the record as being in no heap (heapIndex -1). */
KIV_EXPORT void aetimer_event_init(aeTimeEvent *e);

/* ---- event loop ---------------------------------------------------------- */

/*
 * Creates a loop with room for descriptors below setsize (1 to 1024).
 * NULL for a size out of that range or when out of memory.  Release it with
 * aeDeleteEventLoop.
 */
KIV_EXPORT aeEventLoop *aeCreateEventLoop(int setsize);

/* Frees the loop and its tables.  Armed timer records are left as they are.
 * NULL is ignored. */
KIV_EXPORT void aeDeleteEventLoop(aeEventLoop *eventLoop);

/* The loop's set size. */
KIV_EXPORT int aeGetSetSize(aeEventLoop *eventLoop);

/*
 * Changes the set size: 0, or -1 (nothing changed) when setsize is below 1,
 * 1024 or more, not above the highest registered descriptor, or memory runs
 * out.
 */
KIV_EXPORT int aeResizeSetSize(aeEventLoop *eventLoop, int setsize);

/*
 * Adds the directions of mask (AE_READABLE, AE_WRITABLE) to the interest in
 * fd, with proc as their handler; clientData is kept for both directions.
 * Other bits of mask are kept in the slot's mask as they are (a pass then
 * lists fd even without a direction).  Grows the set size by doubling if fd
 * needs it.  0, or -1 for a negative descriptor or a descriptor the loop
 * can't grow to (nothing registered then).
 */
KIV_EXPORT int aeCreateFileEvent(aeEventLoop *eventLoop, int fd, int mask,
                                 aeFileProc *proc, void *clientData);

/* Removes the bits of mask from the slot of fd, and its directions from the
 * interest; does nothing for a descriptor without a slot or interest. */
KIV_EXPORT void aeDeleteFileEvent(aeEventLoop *eventLoop, int fd, int mask);

/* The directions with interest in fd; AE_NONE for one without a slot. */
KIV_EXPORT int aeGetFileEvents(aeEventLoop *eventLoop, int fd);

/*
 * Arms the caller's record te to run proc(eventLoop, clientData) after
 * milliseconds, counted on the uptime clock (whole-second steps).  te must
 * not be armed already.  0, or -1 for a NULL record or when the timer array
 * can't grow (te disarmed then).  Allocates nothing but that array.
 */
KIV_EXPORT int aeCreateTimeEvent(aeEventLoop *eventLoop, int64_t milliseconds,
                                 aeTimeEvent *te, aeTimeProc *proc,
                                 void *clientData);

/* Re-arms te (armed or not) to expire after milliseconds from now, keeping
 * its callback.  0, or -1 when the timer array can't grow. */
KIV_EXPORT int aeModifyTimeEvent(aeEventLoop *eventLoop, int64_t milliseconds,
                                 aeTimeEvent *te);

/* Disarms te: 0 if it was armed, -1 if not.  The record is the caller's
 * again. */
KIV_EXPORT int aeDeleteTimeEvent(aeEventLoop *eventLoop, aeTimeEvent *te);

/*
 * Runs one pass: waits (flags permitting) in select(), runs the handlers of
 * the registered descriptors, then the due timers (with AE_TIME_EVENTS).  A
 * timer callback's result re-arms it after that many milliseconds, or -1
 * leaves it disarmed.  Returns the number of registered descriptors seen by
 * a successful select() plus the number of timer callbacks run.
 */
KIV_EXPORT int aeProcessEvents(aeEventLoop *eventLoop, int flags);

/* Runs passes with AE_ALL_EVENTS, calling beforeSleep before each, until
 * aeStop. */
KIV_EXPORT void aeMain(aeEventLoop *eventLoop);

/* Makes aeMain return after the current pass. */
KIV_EXPORT void aeStop(aeEventLoop *eventLoop);

/* Sets (or clears with NULL) the function aeMain calls before each pass. */
KIV_EXPORT void aeSetBeforeSleepProc(aeEventLoop *eventLoop,
                                     aeBeforeSleepProc *beforesleep);

/* The name of the polling back end: the constant text "select". */
KIV_EXPORT const char *aeGetApiName(void);

/* ---- timed descriptor I/O ------------------------------------------------ */

/*
 * Waits up to milliseconds (negative: no limit) for fd to become readable
 * and/or writable as mask asks.  Returns the mask found (an error or
 * hang-up reads as AE_WRITABLE), 0 on timeout or an invalid descriptor, -1
 * on failure with errno set.
 */
KIV_EXPORT int aeWait(int fd, int mask, int milliseconds);

/*
 * One read of up to len bytes once fd is readable within timeoutSec
 * seconds.  Bytes read, 0 at end of file, -1 on failure (errno ETIMEDOUT on
 * timeout; EBADF for a negative, EINVAL for a descriptor of 1024 or more).
 */
KIV_EXPORT int tread(int fd, void *buf, size_t len, uint32_t timeoutSec);

/*
 * Reads until len bytes arrived, each read with its own time limit of
 * timeoutSec.  The count read (less than len after end of file, or after a
 * failure following a part), or -1 with errno when nothing was read.
 */
KIV_EXPORT int treadn(int fd, void *buf, size_t len, uint32_t timeoutSec);

/* Writes until len bytes are out, retrying nothing.  The count written, or
 * -1 with errno when a failure came before any byte. */
KIV_EXPORT int writen(int fd, const void *buf, size_t len);

/* Adds O_NONBLOCK to fd's flags: 0, or -1 with errno. */
KIV_EXPORT int setnonblock(int fd);

KIV_END_DECLS

#endif /* KIV_EVENT_H */
