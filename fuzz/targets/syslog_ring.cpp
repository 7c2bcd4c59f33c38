// The syslog ring as another process left it: room for the output (u16), what the segment is said
// to have less than its bytes (u8), then the segment, which ends where memory does.

#include "fuzz/device.h"
#include "reporters/system_log.h"

#include <cstring>
#include <sys/mman.h>

using fake::world;

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kMostBytes = 4 * kPage;

/// Memory that ends at a page which may not be touched.
char* memory_end() {
  static char* const end = [] {
    void* pages = mmap(nullptr, kMostBytes + kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    fuzz::demand(pages != MAP_FAILED && mprotect(pages, kMostBytes, PROT_READ | PROT_WRITE) == 0,
                 "there is memory for a ring");
    return static_cast<char*>(pages) + kMostBytes;
  }();
  return end;
}

void check_marks(const fuzz::Bytes& before, const char* after) {
  for (std::size_t i = 0; i < before.size(); i++) {
    const auto now = static_cast<std::uint8_t>(after[i]);
    fuzz::demand(now == before[i] || (i >= 12 && before[i] == '0' && now == '1'),
                 "nothing of the ring is written but the marks");
  }
}

void read_log(const rcmd::RcmContext& context, std::size_t room) {
  const auto output = std::make_unique<char[]>(room);
  const int readers = world().readers;
  const int length = rcmd::get_system_log(output.get(), room, context);
  fuzz::demand(length >= -1 && length <= static_cast<int>(room), "the output keeps to its room");
  fuzz::demand(world().readers == readers + (length == -1 ? 1 : 0), "a reader counts itself out");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t room = input.u16() % rcmd::kBufferBytes;
  const std::size_t missing = input.byte() % 16;
  const fuzz::Bytes segment = input.bytes(kMostBytes);
  char* ring = memory_end() - segment.size();
  if (!segment.empty()) {
    std::memcpy(ring, segment.data(), segment.size());
  }
  fuzz::Device device(fuzz::Input(nullptr, 0));
  world().ring = ring;
  world().ring_bytes = segment.size() - std::min(missing, segment.size());
  device.run([&] {
    read_log(device.context, room);
    read_log(device.context, rcmd::kBufferBytes - 36);
  });
  check_marks(segment, ring);
  return 0;
}
