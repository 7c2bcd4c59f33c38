// The payloads of a device's reports, taken apart. None of them trusts what it reads: what cannot
// be read is left out, and nothing outside the payload is looked at.
#pragma once

#include "server/model.h"

#include <optional>
#include <string>
#include <vector>

namespace server {

/// REGISTER, 200 bytes: uptime (u32), WAN address (4), domain, firmware version and product model
/// (64 each, ended by NUL unless all 64 are used). Fills those fields of `device` and no others.
/// @return false when the payload is shorter
bool read_registration(View payload, Device& device);

struct VariableReport {
  std::uint16_t scope = 0;
  std::uint16_t unit = 0;
  std::vector<std::pair<std::string, std::string>> values;
};
/// CONF and STATUS: scope (u16), unit (u16), then records name=value, each ended by NUL. Only the
/// first "=" of a record splits it; a record without one, or with an empty name, is left out.
std::optional<VariableReport> read_variables(View payload);

/// LOG: lines "YYYY-MM-DD HH:MM:SSs message\n" in UTC (the letter s belongs to the format).
/// A line in another form is kept whole as the message, with time 0.
std::vector<LogLine> read_log(View payload);

/// TRAFFIC: transmitted and received bytes of the hour (u32 each), then lines
/// "YYYYMMDDHHMMSS,tx,rx\r\n" in UTC; a line in another form is left out.
std::optional<TrafficHour> read_traffic(View payload);

/// GPS: "lat=...;long=...", ended by NUL.
std::optional<Position> read_position(View payload);

/// Seconds since the epoch of 14 digits YYYYMMDDHHMMSS in UTC.
std::optional<std::int64_t> read_digits_time(std::string_view text);

/// A digest of bytes, to know them again (FNV-1a, 64 bits; no protection against malice).
std::uint64_t digest_of(View bytes);

} // namespace server
