#include "tools/ring-syslogd/ring_memory.h"

#include "reporters/syslog_ring.h"

#include <atomic>
#include <cstring>

namespace rcmd {

namespace {

// The order in which a killed writer's stores are found: the compiler keeps to it as well.
void in_this_order() {
  std::atomic_signal_fence(std::memory_order_seq_cst);
}

// Writes a text and its NUL at the tail. @return where the next record goes
std::size_t put_record(const RingWalk& ring, std::size_t at, const char* text, std::size_t length) {
  std::memcpy(ring.data + at, text, length);
  ring.data[at + length] = '\0';
  const std::size_t next = at + length + 1;
  return next < ring.size ? next : 0;
}

// One record, or two where the data ends. A single byte is never left over there: an empty record
// would have to fill it, in which no mark can be written.
// @return the new tail
std::size_t put_line(const RingWalk& ring, const char* line, std::size_t length) {
  const std::size_t room = ring.size - ring.tail;
  std::size_t first = length;
  if (length + 1 > room) {
    first = room - 1;
  } else if (length + 2 == room) {
    first = length - 1;
  }
  const std::size_t at = put_record(ring, ring.tail, line, first);
  return first == length ? at : put_record(ring, at, line + first, length - first);
}

// Goes past the oldest line. @return true when nobody had reported it
bool pass_line(RingWalk& walk) {
  char mark = '\0';
  RingRecord record{};
  while (next_record(walk, record)) {
    if (record.length == 0) {
      continue;
    }
    mark = mark == '\0' ? record.text[0] : mark;
    if (record.text[record.length - 1] == '\n') {
      break;
    }
  }
  return mark == kUnreported;
}

std::size_t free_bytes(const RingWalk& walk) {
  const std::size_t used = (walk.tail + walk.size - walk.at) % walk.size;
  return walk.size - used - 1; // a tail that meets the head would mean an empty ring
}

} // namespace

void prepare_ring(void* segment, std::size_t segment_bytes) {
  const RingWalk walk = walk_ring(segment, segment_bytes);
  const std::size_t data_bytes = segment_bytes - sizeof(SyslogRing);
  if (ring_is_sound(walk) && walk.size == data_bytes) {
    return;
  }
  const SyslogRing empty{static_cast<std::int32_t>(data_bytes), 0, 0};
  std::memcpy(segment, &empty, sizeof empty);
}

std::size_t append_line(void* segment, std::size_t segment_bytes, const char* line,
                        std::size_t length) {
  prepare_ring(segment, segment_bytes);
  SyslogRing& header = *static_cast<SyslogRing*>(segment);
  RingWalk walk = walk_ring(segment, segment_bytes);
  std::size_t lost = 0;
  while (free_bytes(walk) < length + 2) { // two records at the most
    lost += pass_line(walk) ? 1 : 0;
  }
  header.head = static_cast<std::int32_t>(walk.at);
  in_this_order();
  const std::size_t tail = put_line(walk, line, length);
  in_this_order();
  header.tail = static_cast<std::int32_t>(tail);
  return lost;
}

} // namespace rcmd
