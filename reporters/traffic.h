// Traffic accounting: the WWAN counters that other software keeps in nvram are sampled once a
// minute; once an hour the hour's byte totals and one text record per minute go to the server.
// Counters, differences and totals are 32-bit and wrap: a counter that restarts from 0 gives a
// difference that is negative when read as a signed number.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

constexpr int kTrafficSlots = 60;
constexpr int kTrafficSample_s = 60;
constexpr int kTrafficReport_s = 3600;

struct TrafficCounters {
  std::uint32_t tx_bytes;
  std::uint32_t rx_bytes;
  std::uint32_t tx_packets; ///< packets are counted, never sent
  std::uint32_t rx_packets;
};

struct TrafficLog {
  std::uint32_t hour_tx_bytes; ///< sums over the filled slots
  std::uint32_t hour_rx_bytes;
  std::uint32_t hour_tx_packets;
  std::uint32_t hour_rx_packets;
  std::int32_t sample_count;        ///< filled slots
  std::int32_t time[kTrafficSlots]; ///< wall clock, seconds since the epoch
  TrafficCounters difference[kTrafficSlots];
};

/// The present hour.
const TrafficLog& traffic_log();

/// The callback of rcm_trafficget: takes one sample. @param arg  the RcmContext
void rcm_trafficget_func(void* arg);

/// Writes "20011009034800,10240,88210\r\n" (UTC, transmitted, received) for every filled slot,
/// oldest first. @param capacity  bytes of `output`, a NUL included. @return the characters written
std::size_t get_traffic_info(char* output, std::size_t capacity);

/// The callback of rcm_trafficsender: sends the hour and begins the next one, acknowledged or not.
/// Blocks for about 20 seconds under a silent server. @param arg  the RcmContext
void rcm_trafficsender_func(void* arg);

} // namespace rcmd
