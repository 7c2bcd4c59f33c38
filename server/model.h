// What the server knows: plain records, shared by the engine, the store and the interface.
// Times are seconds since the epoch (UTC). Texts that came from a device hold whatever bytes it
// sent; they are made presentable where they are shown.
#pragma once

#include "server/wire.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace server {

/// "127.0.0.1:1161"
std::string to_text(const Address& address);
std::string ip_text(std::uint32_t ip);

struct Device {
  std::string serial;
  Session session{};
  Address address; ///< where its last datagram came from: commands go there
  std::int64_t first_seen = 0;
  std::int64_t last_seen = 0;
  std::int64_t registered = 0; ///< when it last registered
  std::int64_t registrations = 0;
  std::uint32_t uptime = 0; ///< seconds, when it registered
  std::uint32_t wan_address = 0;
  std::string domain;
  std::string firmware;
  std::string model;
};

enum class VariableKind { kConf = 0, kStatus = 1 };

struct Variable {
  VariableKind kind = VariableKind::kConf;
  std::string name;
  std::uint16_t unit = 0;
  std::uint16_t scope = 0; ///< 0 plain, 1 per wireless unit, 2 per WAN unit
  std::string value;
  std::int64_t time = 0;
};

struct LogLine {
  std::int64_t id = 0;   ///< rising in the order of arrival
  std::int64_t time = 0; ///< the device's own; 0 when the line carries none that can be read
  std::string message;
};

struct TrafficSample {
  std::int64_t time = 0; ///< the device's own
  std::int64_t tx = 0;   ///< bytes in that minute; negative when the counter was restarted
  std::int64_t rx = 0;
};

struct TrafficHour {
  std::int64_t received = 0; ///< the server's clock: the report names no time of its own
  std::uint32_t tx = 0;
  std::uint32_t rx = 0;
  std::vector<TrafficSample> samples;
};

struct Position {
  std::int64_t received = 0; ///< the server's clock: the report names no time of its own
  std::string latitude;      ///< as the device holds it, perhaps empty
  std::string longitude;
};

} // namespace server
