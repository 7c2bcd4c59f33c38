// The datagrams that a router on a public address gets: mostly its server's, some broken, some of
// its own network. The same seed makes the same datagrams.
#pragma once

#include "server/wire.h"

#include <random>
#include <string>
#include <vector>

namespace soak {

enum class Port : std::uint16_t { kManagement = 1161, kDeskmgr = 5000, kScantools = 2719 };

struct Datagram {
  const char* kind = ""; ///< a line of the final account
  Port port = Port::kManagement;
  server::Bytes bytes;
  bool answered = false; ///< whether the device answers it
};

/// A setting as the device has reported it.
struct Setting {
  std::string name;
  std::string value;
};

class Mix {
public:
  explicit Mix(std::uint64_t seed) : random_(seed) {}

  void adopt(const server::Session& session, const std::string& serial);
  void learn(const Setting& setting) { settings_.push_back(setting); }
  [[nodiscard]] std::size_t settings() const { return settings_.size(); }

  /// @param seq  the number of a packet to the management port
  Datagram next(std::uint32_t seq);
  /// A request that changes nothing and is answered.
  Datagram question(std::uint32_t seq);
  Datagram status_request(std::uint32_t seq);

private:
  using Make = Datagram (Mix::*)(std::uint32_t seq);

  Datagram acknowledgement(std::uint32_t seq);
  Datagram keepalive_answer(std::uint32_t seq);
  Datagram configuration(std::uint32_t seq);
  Datagram wrong_checksum(std::uint32_t seq);
  Datagram wrong_length(std::uint32_t seq);
  Datagram short_one(std::uint32_t seq);
  Datagram rubbish(std::uint32_t seq);
  Datagram strange_flags(std::uint32_t seq);
  Datagram deskmgr(std::uint32_t seq);
  Datagram discovery(std::uint32_t seq);
  Datagram other_scantools(std::uint32_t seq);

  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  template <typename T, std::size_t N> const T& pick(const T (&choices)[N]) {
    return choices[below(N)];
  }
  server::Bytes random_bytes(std::size_t count);
  std::string value_for(const Setting& setting);
  [[nodiscard]] server::Bytes request(std::uint16_t type, std::uint16_t flags, std::uint32_t seq,
                                      const server::Bytes& payload) const;

  std::mt19937_64 random_;
  server::Session session_{};
  std::string serial_;
  std::vector<Setting> settings_;
};

} // namespace soak
