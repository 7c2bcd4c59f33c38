#include "tests/simulation/link.h"

namespace sim {

void Link::carry(const fake::Bytes& datagram, const Arrival& arrival) {
  chronicle_.count("datagrams");
  if (random_.percent(faults_.lose)) {
    chronicle_.count("datagrams lost");
    return;
  }
  if (random_.percent(faults_.duplicate)) {
    chronicle_.count("datagrams duplicated");
    carry_copy(datagram, arrival);
  }
  carry_copy(datagram, arrival);
}

void Link::carry_copy(fake::Bytes datagram, const Arrival& arrival) {
  bool altered = false;
  if (random_.percent(faults_.truncate) && !datagram.empty()) {
    chronicle_.count("datagrams truncated");
    datagram.resize(random_.below(datagram.size()));
    altered = true;
  }
  if (random_.percent(faults_.corrupt) && !datagram.empty()) {
    chronicle_.count("datagrams corrupted");
    // Mostly behind the header, where the checksum reaches.
    const std::size_t from = datagram.size() > 36 && random_.percent(90) ? 36 : 0;
    for (std::size_t flips = 1 + random_.below(4); flips > 0; flips--) {
      const std::size_t at = from + random_.below(datagram.size() - from);
      datagram[at] = static_cast<std::uint8_t>(datagram[at] ^ (1U << random_.below(8)));
    }
    altered = true;
  }
  const int delay_ms = random_.between(faults_.least_delay_ms, faults_.most_delay_ms);
  fake::world().after(delay_ms,
                      [bytes = std::move(datagram), arrival, altered] { arrival(bytes, altered); });
}

} // namespace sim
