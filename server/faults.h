// A bad link, for tests: what becomes of each datagram that passes.
#pragma once

#include <cstdint>
#include <random>
#include <vector>

namespace server {

struct FaultSettings {
  double drop = 0;      ///< percent, each direction
  double duplicate = 0; ///< percent
  double reorder = 0;   ///< percent: held back 20 to 60 ms, so that later ones overtake it
  int delay_ms = 0;     ///< every outgoing datagram is held back this long
  std::uint64_t seed = 1;

  [[nodiscard]] bool any() const {
    return drop > 0 || duplicate > 0 || reorder > 0 || delay_ms > 0;
  }
};

class Faults {
public:
  explicit Faults(const FaultSettings& settings) : settings_(settings), random_(settings.seed) {}

  /// One entry per copy that arrives: how long it is held back, in milliseconds.
  std::vector<int> delays_ms(bool outgoing);

private:
  bool happens(double percent);

  FaultSettings settings_;
  std::mt19937_64 random_;
};

} // namespace server
