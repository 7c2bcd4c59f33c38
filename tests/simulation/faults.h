// What is wrong with the simulated world at the moment; the weather changes it.
#pragma once

namespace sim {

struct Faults {
  // The network, both ways; percent of the datagrams.
  double lose = 0;
  double duplicate = 0;
  double corrupt = 0;
  double truncate = 0;
  int least_delay_ms = 20;
  int most_delay_ms = 300;

  double redials = 0; ///< percent of the scenery's ticks: the WAN link gets another address

  // The device's calls; percent.
  double send_fails = 0;
  double wait_fails = 0;
  double tool_fails = 0;

  bool name_lookup_fails = false;
  bool disk_full = false;
  bool memory_low = false;
  bool nvram_full = false;   ///< nothing more can be set
  bool commit_fails = false; ///< the lasting image cannot be written
  bool flash_tool_missing = false;
  bool nvram_tool_missing = false;
};

/// No datagram is under way for longer.
constexpr int kMostDelay_ms = 15'000;

} // namespace sim
