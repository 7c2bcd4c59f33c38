#include "platform/api/event_loop.h"
#include "platform/common/loop.h"
#include "platform/common/monotonic.h"

#include <climits>
#include <poll.h>

namespace {

constexpr int kMaxDescriptors = 64;
constexpr int64_t kFirstRest_ms = 500;
constexpr int64_t kLongestRest_ms = 8000;
constexpr int64_t kRearmedWithZero_ms = 1000;

// Timers ----------------------------------------------------------------------------------------
//
// Armed timers form a list, soonest first, equal ones in the order of arming. The first loop word
// links it; the other two hold the deadline in milliseconds, 32 bits each.

RcmTimer* armed = nullptr;
RcmTimer* due = nullptr;          ///< those that the present pass is about to fire
const RcmTimer* firing = nullptr; ///< the one whose callback runs

RcmTimer* next_of(const RcmTimer* timer) {
  return reinterpret_cast<RcmTimer*>(timer->loop_words[0]);
}

void set_next(RcmTimer* timer, RcmTimer* next) {
  timer->loop_words[0] = reinterpret_cast<uintptr_t>(next);
}

int64_t deadline_of(const RcmTimer* timer) {
  const uint64_t high = static_cast<uint32_t>(timer->loop_word);
  return static_cast<int64_t>(high << 32 | static_cast<uint32_t>(timer->loop_words[1]));
}

void set_deadline(RcmTimer* timer, int64_t deadline_ms) {
  const auto bits = static_cast<uint64_t>(deadline_ms);
  timer->loop_words[1] = static_cast<uint32_t>(bits);
  timer->loop_word = static_cast<uint32_t>(bits >> 32);
}

void insert(RcmTimer* timer) {
  RcmTimer* before = nullptr;
  RcmTimer* after = armed;
  while (after != nullptr && deadline_of(after) <= deadline_of(timer)) {
    before = after;
    after = next_of(after);
  }
  set_next(timer, after);
  if (before == nullptr) {
    armed = timer;
  } else {
    set_next(before, timer);
  }
}

bool remove(RcmTimer** list, const RcmTimer* timer) {
  RcmTimer* before = nullptr;
  for (RcmTimer* at = *list; at != nullptr; before = at, at = next_of(at)) {
    if (at != timer) {
      continue;
    }
    if (before == nullptr) {
      *list = next_of(at);
    } else {
      set_next(before, next_of(at));
    }
    return true;
  }
  return false;
}

/// Cuts the timers that are due off the armed ones, so that what their callbacks arm waits for the
/// next pass, and fires them.
int fire_due_timers() {
  const int64_t now = rcmd::timer_ms();
  RcmTimer* last = nullptr;
  for (RcmTimer* at = armed; at != nullptr && deadline_of(at) <= now; at = next_of(at)) {
    last = at;
  }
  if (last == nullptr) {
    return 0;
  }
  due = armed;
  armed = next_of(last);
  set_next(last, nullptr);
  int fired = 0;
  while (due != nullptr) {
    RcmTimer* timer = due;
    due = next_of(timer);
    firing = timer;
    timer->callback(timer->arg);
    firing = nullptr;
    fired++;
  }
  return fired;
}

// Descriptors -----------------------------------------------------------------------------------

struct Watch {
  FdDescriptor descriptor;
  FdHandler handler; ///< null: the row is free
  unsigned serial;   ///< tells this registration from a later one in the same row
  bool taken;        ///< something was taken off the descriptor since its handler was called
  int64_t rest_ms;   ///< the length of the present or last rest; 0 when all is well
  int64_t rests_until_ms;
};

Watch watches[kMaxDescriptors];
unsigned last_serial = 0;

Watch* find(int fd) {
  for (Watch& watch : watches) {
    if (watch.handler != nullptr && watch.descriptor.fd == fd) {
      return &watch;
    }
  }
  return nullptr;
}

Watch* free_row() {
  for (Watch& watch : watches) {
    if (watch.handler == nullptr) {
      return &watch;
    }
  }
  return nullptr;
}

void rest(Watch& watch) {
  const int64_t longer = watch.rest_ms * 2;
  watch.rest_ms = longer == 0 ? kFirstRest_ms : longer < kLongestRest_ms ? longer : kLongestRest_ms;
  watch.rests_until_ms = rcmd::monotonic_ms() + watch.rest_ms;
}

/// What a pass polls: row, and which registration stood in it.
struct Polled {
  pollfd entries[kMaxDescriptors];
  Watch* rows[kMaxDescriptors];
  unsigned serials[kMaxDescriptors];
  nfds_t count;
};

int64_t sooner(int64_t a, int64_t b) {
  return a < b ? a : b;
}

/// Fills `polled` with the descriptors that do not rest.
/// @return for how long only these can give the loop work, on the machine's clock; INT64_MAX: for
/// ever
int64_t collect(Polled& polled) {
  int64_t wait = INT64_MAX;
  if (armed != nullptr) {
    const int64_t left = deadline_of(armed) - rcmd::timer_ms();
    wait = left <= 0 ? 0 : rcmd::machine_ms(left);
  }
  const int64_t now = rcmd::monotonic_ms();
  polled.count = 0;
  for (Watch& watch : watches) {
    if (watch.handler == nullptr) {
      continue;
    }
    if (watch.rest_ms != 0 && watch.rests_until_ms > now) {
      wait = sooner(wait, watch.rests_until_ms - now);
      continue;
    }
    polled.entries[polled.count] = {static_cast<int>(watch.descriptor.fd), POLLIN, 0};
    polled.rows[polled.count] = &watch;
    polled.serials[polled.count] = watch.serial;
    polled.count++;
  }
  return wait;
}

int poll_limit(int64_t wait, int max_wait_ms) {
  const int64_t limit = max_wait_ms < 0 ? wait : sooner(wait, max_wait_ms);
  return limit == INT64_MAX ? -1 : static_cast<int>(sooner(limit, INT_MAX));
}

/// Calls the handler of a row that poll reported.
void serve(Watch& watch, unsigned serial, short events) {
  if ((events & POLLNVAL) != 0) {
    rest(watch); // closed and not yet unregistered: nobody could read it
    return;
  }
  watch.taken = false;
  FdDescriptor descriptor = watch.descriptor;
  const int result = watch.handler(&descriptor);
  if (watch.handler == nullptr || watch.serial != serial) {
    return;
  }
  const bool trusted = result >= 0 && (events & POLLIN) != 0;
  if (trusted || watch.taken) {
    watch.rest_ms = 0;
  } else {
    rest(watch);
  }
}

/// An earlier handler of the pass may have taken what poll saw, and a read would then block the
/// whole daemon: ask again.
short still_ready(pollfd entry) {
  entry.revents = 0;
  return poll(&entry, 1, 0) > 0 ? entry.revents : short{0};
}

int serve_descriptors(Polled& polled) {
  int served = 0;
  for (nfds_t i = 0; i < polled.count; i++) {
    short events = polled.entries[i].revents;
    Watch& watch = *polled.rows[i];
    if (events == 0 || watch.handler == nullptr || watch.serial != polled.serials[i]) {
      continue;
    }
    if (served > 0) {
      events = still_ready(polled.entries[i]);
    }
    if (events != 0) {
      serve(watch, polled.serials[i], events);
      served++;
    }
  }
  return served;
}

} // namespace

namespace rcmd {

int loop_pass(int max_wait_ms) {
  const int fired = fire_due_timers();
  Polled polled;
  const int64_t wait = collect(polled);
  const int ready =
      poll(polled.entries, polled.count, poll_limit(wait, fired > 0 ? 0 : max_wait_ms));
  return fired + (ready > 0 ? serve_descriptors(polled) : 0);
}

void loop_note_taken(int fd) {
  Watch* watch = find(fd);
  if (watch != nullptr) {
    watch->taken = true;
  }
}

} // namespace rcmd

extern "C" {

int register_fd_desc(int fd, FdHandler handler, void* arg) {
  Watch* watch = find(fd); // a number that was closed, never unregistered, and given out again
  if (watch == nullptr) {
    watch = free_row();
  }
  if (watch == nullptr || handler == nullptr || fd < 0) {
    return -1;
  }
  *watch = Watch{{fd, 0, arg}, handler, ++last_serial, false, 0, 0};
  return 0;
}

int unregister_fd_desc(int fd) {
  Watch* watch = find(fd);
  if (watch == nullptr) {
    return -1;
  }
  watch->handler = nullptr;
  return 0;
}

int do_fd(void) {
  for (;;) {
    rcmd::loop_pass(-1);
  }
}

int add_event(RcmTimer* timer) {
  del_event(timer);
  const int64_t seconds = sooner(timer->interval > 0 ? timer->interval : 0, INT_MAX);
  const bool rearmed_with_zero = seconds == 0 && timer == firing;
  set_deadline(timer,
               rcmd::timer_ms() + (rearmed_with_zero ? kRearmedWithZero_ms : seconds * 1000));
  insert(timer);
  return 0;
}

int del_event(RcmTimer* timer) {
  if (!remove(&armed, timer)) {
    remove(&due, timer);
  }
  return 0;
}

} // extern "C"
