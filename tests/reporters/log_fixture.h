// A context, a ring and a log reader that has attached nothing yet.
#pragma once

#include "reporters/system_log.h"
#include "tests/fake_platform/context.h"
#include "tests/reporters/ring.h"

#include <cstdlib>
#include <ctime>
#include <memory>

namespace fake {

class LogFixture : public ContextFixture {
protected:
  LogFixture() {
    detach();
    use_ring(65536);
    world().events.clear();
    context.server_time = 1'000'000'000;
    context.server_time_uptime = 100;
    setenv("TZ", "EST5", 1); // times are UTC, wherever the device lives
    tzset();
  }
  ~LogFixture() override {
    world().real_ipc_key = 0;
    detach();
    EXPECT_TRUE(ring->guard_stands()) << "bytes before the ring were written";
  }

  /// A fresh ring, which the reader attaches on its next call.
  void use_ring(std::size_t size, std::size_t start = 0, char fill = '\0') {
    detach();
    ring = std::make_unique<Ring>(size, start, fill);
    world().ring = ring->segment();
    world().ring_bytes = ring->segment_bytes();
  }

  /// The result of get_system_log; what it wrote is in `output`.
  int read_log(std::size_t capacity = 8156) {
    Bytes place(capacity + 16, 0xC7);
    const int result =
        rcmd::get_system_log(reinterpret_cast<char*>(place.data()), capacity, context);
    output.assign(place.begin(), place.begin() + std::max(result, 0));
    EXPECT_TRUE(std::all_of(place.begin() + static_cast<std::ptrdiff_t>(capacity), place.end(),
                            [](std::uint8_t byte) { return byte == 0xC7; }));
    return result;
  }

  /// The end of the process is the one way in which the reader lets go of its ring.
  static void detach() {
    try {
      rcmd::log_error_exit("");
    } catch (const Exited&) {
    }
  }

  std::unique_ptr<Ring> ring;
  std::string output;
};

} // namespace fake
