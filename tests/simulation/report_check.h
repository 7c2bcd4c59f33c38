// Looks at every datagram that leaves the device: the header, and whether what it reports is what
// the router held at that moment. A packet that is sent again is looked at once, for it tells of
// the moment when it was made.
#pragma once

#include "tests/simulation/scenery.h"

#include <set>

namespace sim {

class ReportCheck {
public:
  ReportCheck(const Scenery& scenery, const Ledger& ledger, Chronicle& chronicle)
      : scenery_(scenery), ledger_(ledger), chronicle_(chronicle) {}

  /// A new life of the daemon begins.
  void boot();
  /// The daemon reads a key: a traffic sample is taken when it is the first counter's.
  void nvram_read(const std::string& key);
  /// What the device sends to the server's port.
  void sent(const fake::Bytes& datagram, Scenery& scenery);
  /// An answer was altered on its way so that its checksum was right all the same: what the daemon
  /// knows of the time may be wrong until its next life.
  void distrust_times() { times_are_known_ = false; }

  /// Every line that any LOG packet carried.
  [[nodiscard]] bool was_reported(const std::string& message) const {
    return reported_.contains(message);
  }

private:
  struct Sample {
    std::int64_t unix_s;
    std::uint32_t tx;
    std::uint32_t rx;
  };

  void check_header(const fake::Bytes& datagram) const;
  void check_registration(const fake::Bytes& payload) const;
  void check_variables(std::uint16_t type, const fake::Bytes& payload) const;
  void check_log(const fake::Bytes& payload, Scenery& scenery);
  void check_traffic(const fake::Bytes& payload);
  void check_position(const fake::Bytes& payload) const;
  void check_time(std::int64_t reported, std::int64_t expected, const char* what) const;

  const Scenery& scenery_;
  const Ledger& ledger_;
  Chronicle& chronicle_;
  std::map<std::uint16_t, fake::Bytes> last_; ///< payloads, by type
  std::vector<Sample> samples_;               ///< of the present hour
  std::uint32_t baseline_tx_ = 0;
  std::uint32_t baseline_rx_ = 0;
  std::set<std::string> reported_;
  bool times_are_known_ = true;
};

} // namespace sim
