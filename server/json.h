// The server's records as JSON, in one place: what the interface answers and the events carry.
// Times are seconds since the epoch. Texts of devices that are not UTF-8 come out with the
// replacement character when the JSON is written by dump_json().
#pragma once

#include "server/events.h"

#include <nlohmann/json.hpp>

namespace server {

using Json = nlohmann::json;

Json to_json(const Device& device, bool online);
Json to_json(const Variable& variable);
Json to_json(const LogLine& line);
Json to_json(const TrafficSample& sample);
Json to_json(const TrafficHour& hour); ///< its totals
Json to_json(const Position& position);
Json to_json(const Operation& operation);
/// {"event": name, "serial": ..., "time": ..., and what belongs to it}
Json to_json(const Event& event);

/// Never throws for what a device sent.
std::string dump_json(const Json& json);

} // namespace server
