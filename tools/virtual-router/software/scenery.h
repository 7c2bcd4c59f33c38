// What else moves on a pretend device: the position, the stations at the access point, and the
// counters of the network interfaces.
#pragma once

#include "tools/virtual-router/software/wan_link.h"

#include <cstdint>
#include <string>

namespace virtual_router {

/// Publishes "gps_lat", "gps_long" and "wan0_wwan_gps": a drive in a circle, once round in ten
/// minutes.
void publish_position(std::int32_t uptime_s);

/// The text of "/run/stations", which the pretend wireless driver reads: a line "MAC SIGNAL" per
/// station, the signal in dBm.
std::string stations_text(std::int32_t uptime_s);

/// The text of "/proc/net/dev": lo, br0, eth1 and ppp0.
std::string interfaces_text(const WanLink& link, std::int32_t uptime_s);

} // namespace virtual_router
