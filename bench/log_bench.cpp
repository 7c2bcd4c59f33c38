// Draining the syslog ring: 64 KiB full of lines, 20 to a call, each call walking from the head
// past what is marked already. The six filter look-ups of every unmarked line go to the pretend
// router's store, a tree of texts.

#include "core/context.h"
#include "reporters/syslog_ring.h"
#include "reporters/system_log.h"
#include "tests/fake_platform/fake.h"

#include <benchmark/benchmark.h>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace rcmd;

constexpr std::size_t kSegmentBytes = 65536;
constexpr std::size_t kPacketRoom = 8156;

struct Contents {
  std::vector<char> segment;
  int unmarked = 0;
};

// A ring as full as it gets; of four lines, `marked_of_four` are marked.
Contents full_ring(int marked_of_four) {
  Contents ring{std::vector<char>(kSegmentBytes), 0};
  const std::size_t size = kSegmentBytes - sizeof(SyslogRing);
  std::size_t tail = 0;
  for (int n = 0;; n++) {
    const bool marked = n % 4 < marked_of_four;
    const std::string line = std::string(marked ? "1" : "0") +
                             " 3 days 12:34:56 router daemon.info pppd[123]: line number " +
                             std::to_string(n) + " of a ring that is full\n";
    if (tail + line.size() + 1 >= size) {
      break;
    }
    std::memcpy(ring.segment.data() + sizeof(SyslogRing) + tail, line.c_str(), line.size() + 1);
    tail += line.size() + 1;
    ring.unmarked += marked ? 0 : 1;
  }
  const SyslogRing header{static_cast<std::int32_t>(size), 0, static_cast<std::int32_t>(tail)};
  std::memcpy(ring.segment.data(), &header, sizeof header);
  return ring;
}

void drain(benchmark::State& state) {
  const Contents full = full_ring(static_cast<int>(state.range(0)));
  static char segment[kSegmentBytes]; // the reader attaches once
  fake::world().ring = segment;
  fake::world().ring_bytes = kSegmentBytes;
  fake::world().nvram = {{"rcm_log_pppd", "1"},    {"rcm_log_modem", "1"},
                         {"rcm_log_pluto", "0"},   {"rcm_log_udhcpd", "0"},
                         {"rcm_log_syslogd", "0"}, {"rcm_log_dnsmasq", "1"}};
  RcmContext context{};
  char output[kPacketRoom];
  std::int64_t lines = 0;
  for (auto _ : state) {
    std::memcpy(segment, full.segment.data(), kSegmentBytes);
    fake::world().events.clear();
    while (get_system_log(output, sizeof output, context) > 0) {
      benchmark::DoNotOptimize(output);
    }
    lines += full.unmarked;
  }
  state.SetItemsProcessed(lines);
}

} // namespace

BENCHMARK(drain)->ArgName("marked_of_four")->Arg(0)->Arg(2)->Arg(3);

BENCHMARK_MAIN();
