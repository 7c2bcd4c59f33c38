// The event loop: one thread, callbacks run to completion one at a time.
//
// A timer fires once per arming, on the monotonic clock. Nothing is allocated: armed timers are
// chained through the records' own words, and descriptors stand in a fixed table.
#pragma once

#include <stddef.h>
#include <stdint.h>

extern "C" {

/// A timer, owned by its user and zero before its first use; every field is one machine word.
struct RcmTimer {
  uintptr_t loop_words[2]; ///< the loop's own
  intptr_t interval;       ///< seconds from arming to firing; negative counts as 0
  uintptr_t loop_word;     ///< the loop's own
  void* arg;               ///< passed to the callback
  void (*callback)(void* arg);
};
static_assert(sizeof(RcmTimer) == 6 * sizeof(void*) &&
              offsetof(RcmTimer, interval) == 2 * sizeof(void*) &&
              offsetof(RcmTimer, arg) == 4 * sizeof(void*) &&
              offsetof(RcmTimer, callback) == 5 * sizeof(void*));

/// What a readable descriptor's handler is given; every field is one machine word.
struct FdDescriptor {
  intptr_t fd;
  intptr_t loop_word; ///< the loop's own
  void* arg;
};
static_assert(offsetof(FdDescriptor, fd) == 0 && offsetof(FdDescriptor, arg) == 2 * sizeof(void*));

/// @return 0 when something was served; a negative value tells the loop that this event may not
/// have been consumed, so that it does not ask again at once and for ever.
typedef int (*FdHandler)(struct FdDescriptor* descriptor);

/// Calls `handler` whenever `fd` is readable. @return 0, or -1 when the table is full.
int register_fd_desc(int fd, FdHandler handler, void* arg);

/// Stops watching `fd`, which may be closed already. @return 0, or -1 when it was not watched.
int unregister_fd_desc(int fd);

/// Runs the loop. @return never, on a device.
int do_fd(void);

/// Arms `timer` to fire once, `interval` seconds from now; 0 fires at the loop's next pass, but a
/// record that re-arms itself with 0 from its own callback fires once a second. @return 0
int add_event(struct RcmTimer* timer);

/// Disarms `timer`; harmless when it is not armed. @return 0
int del_event(struct RcmTimer* timer);
}
