// The chance of a simulated world: the same seed gives the same numbers, everywhere. Every actor
// has a stream of its own, so that a change in one leaves the others' decisions alone.
#pragma once

#include <cstddef>
#include <cstdint>

namespace sim {

class Random {
public:
  Random(std::uint64_t seed, std::uint64_t stream)
      : state_(seed * 0x9E3779B97F4A7C15 + stream * 0xD1B54A32D192ED03) {}

  std::uint64_t next() { // splitmix64
    std::uint64_t mixed = state_ += 0x9E3779B97F4A7C15;
    mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ (mixed >> 27)) * 0x94D049BB133111EB;
    return mixed ^ (mixed >> 31);
  }
  /// 0 to `count` - 1
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }
  /// `from` to `to`, both included
  std::int64_t between(std::int64_t from, std::int64_t to) {
    return from + static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(to - from + 1));
  }
  int between(int from, int to) {
    return static_cast<int>(between(std::int64_t{from}, std::int64_t{to}));
  }
  bool percent(double chance) {
    return chance > 0 && static_cast<double>(next() >> 11) * 0x1p-53 * 100 < chance;
  }
  template <typename T, std::size_t N> const T& pick(const T (&choices)[N]) {
    return choices[below(N)];
  }

private:
  std::uint64_t state_;
};

} // namespace sim
