#include "server/faults.h"

namespace server {

bool Faults::happens(double percent) {
  return std::uniform_real_distribution<double>(0, 100)(random_) < percent;
}

std::vector<int> Faults::delays_ms(bool outgoing) {
  if (happens(settings_.drop)) {
    return {};
  }
  std::vector<int> delays(happens(settings_.duplicate) ? 2 : 1);
  for (int& delay : delays) {
    delay = outgoing ? settings_.delay_ms : 0;
    if (happens(settings_.reorder)) {
      delay += std::uniform_int_distribution<int>(20, 60)(random_);
    }
  }
  return delays;
}

} // namespace server
