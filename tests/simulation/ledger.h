// What nvram must hold, kept beside it: every change must be explained by a request that the device
// answered, an import, a message of the LAN's tool, or the router's own software; every commit and
// every restart by what asks for one; and what was committed is there again after every boot.
#pragma once

#include "tests/fake_platform/fake.h"
#include "tests/simulation/chronicle.h"
#include "tests/simulation/faults.h"
#include "tests/simulation/settings_model.h"

#include <array>

namespace sim {

class Ledger {
public:
  Ledger(const Faults& faults, Chronicle& chronicle) : faults_(faults), chronicle_(chronicle) {}

  /// A new router, set up at the factory.
  void deliver_router(const Settings& factory);
  /// The router's init: carries out a wish for the factory's settings. `nvram` is the lasting
  /// image.
  void boot();
  /// A value that other software of the router sets.
  void software_sets(const std::string& key, const std::string& value);

  /// The daemon read a datagram of the server.
  void read(const fake::Bytes& datagram);
  /// The daemon answered the request that it read last.
  void answered(std::uint16_t type);
  void imported(const std::string& text);
  /// The daemon answered a set message of the LAN's tool.
  void answered_lan_tool(const fake::Bytes& message);
  void restart_follows() { restart_explained_ = true; }

  void committing();
  void restarted();
  /// @throw Violation when nvram holds anything else
  void compare(const char* when) const;

  [[nodiscard]] const Settings& live() const { return live_; }

private:
  void compare(const Settings& expected, const Settings& found, const char* what,
               const char* when) const;
  void set(const std::string& key, const std::string& value);

  const Faults& faults_;
  Chronicle& chronicle_;
  Settings factory_;
  Settings live_;
  Settings committed_;
  std::array<char, 8192 + 8> rx_{}; ///< the daemon's receive buffer, what was left there included
  bool commit_explained_ = false;
  bool restart_explained_ = false;
};

} // namespace sim
