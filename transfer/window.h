// The requests of a running download that wait for their fragment: at most 32, and no memory is
// taken for them beyond these slots.
#pragma once

#include <array>
#include <cstdint>

namespace rcmd {

constexpr int kWindowSlots = 32;
constexpr std::uint16_t kMaxRetries = 20;   ///< a slot re-sent that often ends the download
constexpr std::uint32_t kRetryAfter_s = 10; ///< from a request to its re-sending, at a scan

struct FragmentSlot {
  std::uint16_t idle;     ///< 1: no request is outstanding; 0: the slot waits for a fragment
  std::uint32_t deadline; ///< wall-clock seconds: when the request is re-sent
  std::uint16_t fragment; ///< the fragment requested, counted from the file's start
  std::uint16_t retries;  ///< how often this request has been re-sent
};

struct FragmentWindow {
  std::array<FragmentSlot, kWindowSlots> slots;

  /// Forgets every request.
  void clear() { slots.fill({1, 0, 0, 0}); }

  /// @return the first slot that waits for this fragment, or null
  FragmentSlot* outstanding(std::uint16_t fragment) {
    for (FragmentSlot& slot : slots) {
      if (slot.idle == 0 && slot.fragment == fragment) {
        return &slot;
      }
    }
    return nullptr;
  }
};

} // namespace rcmd
