#include "tests/simulation/daemon_state.h"

#include <cstdint>
#include <vector>

extern "C" {
extern volatile std::uint64_t daemon_state_begin[];
extern volatile std::uint64_t daemon_state_end[];
}

namespace sim {

#if defined(__clang__) || defined(__SANITIZE_ADDRESS__)
#define SIM_WHOLE_MEMORY __attribute__((no_sanitize("address")))
#else
#define SIM_WHOLE_MEMORY
#endif

// The gaps between variables are copied with them, which a sanitizer would take for a fault.
SIM_WHOLE_MEMORY void restore_daemon_state() {
  static std::vector<std::uint64_t> fresh;
  volatile std::uint64_t* word = daemon_state_begin;
  if (fresh.empty()) {
    for (; word != daemon_state_end; word++) {
      fresh.push_back(std::uint64_t{*word});
    }
    return;
  }
  for (const std::uint64_t kept : fresh) {
    *word++ = kept;
  }
}

bool is_daemon_state(const void* address) {
  const auto at = reinterpret_cast<std::uintptr_t>(address);
  return at >= reinterpret_cast<std::uintptr_t>(&daemon_state_begin) &&
         at < reinterpret_cast<std::uintptr_t>(&daemon_state_end);
}

} // namespace sim
