#include "reporters/syslog_ring.h"

#include <cstring>

namespace rcmd {

RingWalk walk_ring(void* segment, std::size_t segment_bytes) {
  SyslogRing ring{};
  if (segment_bytes < sizeof ring) {
    return {};
  }
  std::memcpy(&ring, segment, sizeof ring);
  const std::size_t room = segment_bytes - sizeof ring;
  if (ring.size <= 0 || static_cast<std::size_t>(ring.size) > room || ring.head < 0 ||
      ring.head >= ring.size || ring.tail < 0 || ring.tail >= ring.size) {
    return {};
  }
  const auto size = static_cast<std::size_t>(ring.size);
  return {static_cast<char*>(segment) + sizeof ring, size, static_cast<std::size_t>(ring.head),
          static_cast<std::size_t>(ring.tail), size};
}

bool next_record(RingWalk& walk, RingRecord& record) {
  if (walk.at == walk.tail) {
    return false;
  }
  char* text = walk.data + walk.at;
  const void* end = std::memchr(text, '\0', walk.size - walk.at);
  if (end == nullptr) {
    return false;
  }
  record = {text, static_cast<std::size_t>(static_cast<const char*>(end) - text)};
  const std::size_t bytes = record.length + 1;
  if (bytes > walk.left) {
    return false; // round once, and the tail was never met
  }
  walk.left -= bytes;
  walk.at += bytes;
  if (walk.at >= walk.size) {
    walk.at = 0;
  }
  return true;
}

bool ring_is_sound(RingWalk walk) {
  RingRecord record{};
  while (next_record(walk, record)) {
  }
  return walk.data != nullptr && walk.at == walk.tail;
}

} // namespace rcmd
