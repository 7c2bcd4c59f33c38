// The network between device and server: loses, delays, duplicates, reorders, corrupts and
// truncates datagrams, both ways, as the faults of the moment say.
#pragma once

#include "tests/fake_platform/fake.h"
#include "tests/simulation/chronicle.h"
#include "tests/simulation/faults.h"
#include "tests/simulation/random.h"

namespace sim {

class Link {
public:
  /// `altered`: these are not the bytes that were sent.
  using Arrival = std::function<void(const fake::Bytes& datagram, bool altered)>;

  Link(std::uint64_t seed, const Faults& faults, Chronicle& chronicle)
      : random_(seed, 1), faults_(faults), chronicle_(chronicle) {}

  /// Calls `arrival` once per copy that arrives, each in its own time.
  void carry(const fake::Bytes& datagram, const Arrival& arrival);

private:
  void carry_copy(fake::Bytes datagram, const Arrival& arrival);

  Random random_;
  const Faults& faults_;
  Chronicle& chronicle_;
};

} // namespace sim
