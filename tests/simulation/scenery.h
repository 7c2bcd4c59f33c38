// The pretend router's other software and hardware: what the daemon reads of them, and what it must
// therefore report. Interfaces, leases, wireless stations, memory, position, traffic counters, and
// the syslog ring, which the real ring writer fills.
#pragma once

#include "tests/simulation/ledger.h"
#include "tests/simulation/random.h"

#include <optional>

namespace sim {

struct LoggedLine {
  std::int64_t unix_s; ///< by the server's clock
  bool silenced;       ///< its source is switched off
  bool reported = false;
};

class Scenery {
public:
  Scenery(std::uint64_t seed, const Faults& faults, Ledger& ledger, Chronicle& chronicle);

  /// The factory's settings, as this world's seed has them.
  [[nodiscard]] Settings factory_settings();
  /// After power-on: an empty ring, fresh counters, no files in /tmp; from now on things happen.
  void boot(const std::string& firmware_version);
  /// "killall -16 udhcpd"
  void write_leases();

  /// What a STATUS report says of a variable now; null when it knows no such variable.
  [[nodiscard]] std::optional<std::string> status(const std::string& name) const;
  [[nodiscard]] bool has_interface(const std::string& name) const;
  /// The lines of this boot, by their unique messages.
  std::map<std::string, LoggedLine> lines;
  std::uint32_t wan_address = 0; ///< host order

private:
  struct Interface {
    std::string name;
    std::uint32_t rx_packets;
    std::uint32_t tx_packets;
    bool up;
  };
  struct Neighbour { ///< a DHCP client or a station
    std::array<std::uint8_t, 6> mac;
    std::uint32_t number; ///< seconds of a lease, or minus the signal strength
    std::string name;
  };

  void tick();
  void schedule();
  void change_counters();
  void change_wan();
  void write_interfaces();
  void log_line();
  [[nodiscard]] std::string interface_status(const std::string& what, const std::string& key) const;
  [[nodiscard]] std::string lease_text(std::size_t index) const;
  int query_interface(unsigned long request, void* argument) const;
  int query_wireless(int command, void* buffer) const;

  Random random_;
  const Faults& faults_;
  Ledger& ledger_;
  Chronicle& chronicle_;
  int life_ = 0;
  int ticks_ = 0;
  int period_s_;
  int lines_percent_;
  std::uint32_t messages_ = 0;
  std::uint32_t counters_[4] = {0, 0, 0, 0};
  std::vector<Interface> interfaces_;         ///< as they are now
  std::vector<Interface> written_interfaces_; ///< as /proc/net/dev has them
  std::vector<Neighbour> clients_;
  std::vector<Neighbour> written_clients_;
  std::vector<Neighbour> stations_;
  std::vector<std::uint32_t> ring_;
};

} // namespace sim
