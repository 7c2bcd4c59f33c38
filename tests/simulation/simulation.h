// A deterministic world in one process: the real daemon on the pretend router, the real server
// engine and its store, and between them a network that does what networks do. A seed decides
// everything that happens. Bad weather (faults of every kind, power cuts, server deaths) and good
// weather alternate; in good weather everything must come right again within a bound.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace sim {

struct Outcome {
  std::string violation; ///< empty: every promise was kept
  double device_days = 0;
  std::map<std::string, std::uint64_t> counts;
};

/// Runs one world from its beginning to its end. @param verbose  tells what happens
Outcome simulate(std::uint64_t seed, bool verbose);

} // namespace sim
