// The pretend WWAN link: brought up at boot, taken down and up again by "wan0_action", with
// counters that grow while it is up. What it shows to the device stands in the settings store,
// uncommitted.
#pragma once

#include "tools/virtual-router/software/programs.h"

#include <cstdint>
#include <string>

namespace virtual_router {

struct Traffic {
  std::uint32_t bytes = 0;
  std::uint32_t packets = 0;
};

constexpr std::uint16_t kLeases = 60000; ///< addresses that the carrier has

class WanLink {
public:
  /// @param lease  which of the carrier's addresses it gets, less than kLeases; each dialling gets
  /// the next one
  WanLink(const Programs& programs, std::int32_t uptime_s, std::uint16_t lease = 0)
      : programs_(programs), now_s_(uptime_s), up_since_s_(uptime_s), lease_(lease) {}

  /// Brings the link to `uptime_s`: serves "wan0_action" ("start", "stop"; the key is taken away),
  /// grows the counters by the seconds that have passed, and publishes what has changed.
  void advance(std::int32_t uptime_s);

  [[nodiscard]] bool up() const { return up_; }
  [[nodiscard]] const Traffic& sent() const { return sent_; }
  [[nodiscard]] const Traffic& received() const { return received_; }

private:
  void serve_action();
  void publish() const;
  [[nodiscard]] std::string address() const;

  const Programs& programs_;
  std::int32_t now_s_;
  std::int32_t up_since_s_;
  std::uint16_t lease_;
  bool up_ = true;
  Traffic sent_;
  Traffic received_;
};

/// nvram_set, unless the key holds that text already.
void publish_setting(const std::string& name, const std::string& value);

} // namespace virtual_router
