#include "reporters/traffic.h"

#include "core/context.h"
#include "core/owned.h"
#include "core/say.h"
#include "core/text.h"
#include "core/timers.h"
#include "core/wire.h"
#include "platform/api/convert.h"
#include "platform/api/system.h"
#include "rcm/exchange.h"
#include "rcm/packet.h"

#include <ctime>

namespace rcmd {

namespace {

struct TrafficPayload {
  be32 hour_tx_bytes;
  be32 hour_rx_bytes;
};
static_assert(sizeof(TrafficPayload) == 8);

constexpr std::size_t kMaxRecordChars = 40;
static_assert(kHeaderBytes + sizeof(TrafficPayload) + kTrafficSlots * kMaxRecordChars <
              kBufferBytes);

TrafficLog the_log;

std::uint32_t counter(const char* key) {
  std::uint32_t value = 0;
  ignore(atoul(nvram_text(key), nullptr, 0, &value)); // no digits: 0
  return value;
}

TrafficCounters read_counters() {
  TrafficCounters now{};
  now.tx_bytes = counter("wwan_tx_bytes");
  now.rx_bytes = counter("wwan_rx_bytes");
  now.tx_packets = counter("wwan_tx_packets");
  now.rx_packets = counter("wwan_rx_packets");
  return now;
}

void store_baselines(RcmContext& context, const TrafficCounters& now) {
  context.last_wwan_tx_bytes = now.tx_bytes;
  context.last_wwan_rx_bytes = now.rx_bytes;
  context.last_wwan_tx_packets = now.tx_packets;
  context.last_wwan_rx_packets = now.rx_packets;
}

// The wall clock as the server gave it, 32-bit and signed, wrapping.
std::int32_t server_clock(const RcmContext& context) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(context.server_time) +
                                   static_cast<std::uint32_t>(system_uptime()) -
                                   static_cast<std::uint32_t>(context.server_time_uptime));
}

void take_sample(RcmContext& context) {
  const int slot = the_log.sample_count;
  the_log.time[slot] = server_clock(context);
  const TrafficCounters now = read_counters();
  TrafficCounters& difference = the_log.difference[slot];
  difference.tx_bytes = now.tx_bytes - context.last_wwan_tx_bytes;
  difference.rx_bytes = now.rx_bytes - context.last_wwan_rx_bytes;
  difference.tx_packets = now.tx_packets - context.last_wwan_tx_packets;
  difference.rx_packets = now.rx_packets - context.last_wwan_rx_packets;
  store_baselines(context, now);
  the_log.sample_count++;
  the_log.hour_tx_bytes += difference.tx_bytes;
  the_log.hour_rx_bytes += difference.rx_bytes;
  the_log.hour_tx_packets += difference.tx_packets;
  the_log.hour_rx_packets += difference.rx_packets;
}

long as_signed(std::uint32_t value) {
  return static_cast<std::int32_t>(value);
}

void say_text(const RcmContext& context) {
  constexpr std::size_t kBeforeText = kHeaderBytes + sizeof(TrafficPayload);
  diag("%.*s", static_cast<int>(context.tx_length - kBeforeText),
       reinterpret_cast<const char*>(context.tx_buf) + kBeforeText);
}

// @return the length of the packet in tx_buf
std::size_t build_packet(RcmContext& context) {
  begin_packet(context, kTraffic, kReportFlags);
  auto& payload = *reinterpret_cast<TrafficPayload*>(tx_payload(context));
  payload.hour_tx_bytes = the_log.hour_tx_bytes;
  payload.hour_rx_bytes = the_log.hour_rx_bytes;
  diag("hour_tx_bytes=%ld\n", as_signed(the_log.hour_tx_bytes));
  diag("hour_rx_bytes=%ld\n", as_signed(the_log.hour_rx_bytes));
  const std::size_t text_bytes =
      get_traffic_info(reinterpret_cast<char*>(&payload + 1), kMaxPayloadBytes - sizeof payload);
  // DELIBERATE: the next hour begins before anything is sent; an hour that nobody acknowledges is
  // lost.
  the_log = {};
  const std::size_t bytes = finish_packet(context, sizeof payload + text_bytes);
  context.tx_length = static_cast<std::uint32_t>(bytes);
  return bytes;
}

} // namespace

const TrafficLog& traffic_log() {
  return the_log;
}

void rcm_trafficget_func(void* arg) {
  RcmContext& context = *static_cast<RcmContext*>(arg);
  if (the_log.sample_count < kTrafficSlots) {
    take_sample(context);
  } else {
    // DELIBERATE: the traffic of a minute that finds the table full is dropped, totals included.
    store_baselines(context, read_counters());
  }
  rearm(rcm_trafficget, kTrafficSample_s);
}

std::size_t get_traffic_info(char* output, std::size_t capacity) {
  TextWriter text{output, capacity, 0};
  for (int slot = 0; slot < the_log.sample_count; slot++) {
    const std::time_t seconds = the_log.time[slot];
    tm utc{};
    gmtime_r(&seconds, &utc);
    const bool fits = text.append("%04d%02d%02d%02d%02d%02d,%ld,%ld%c%c", utc.tm_year + 1900,
                                  utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                                  as_signed(the_log.difference[slot].tx_bytes),
                                  as_signed(the_log.difference[slot].rx_bytes), '\r', '\n');
    if (!fits) {
      break;
    }
  }
  return text.used;
}

void rcm_trafficsender_func(void* arg) {
  RcmContext& context = *static_cast<RcmContext*>(arg);
  // DELIBERATE: `online` is not asked; the hour is sent in every state.
  diag("Send traffic packet(seq=%d) to server...\n", static_cast<int>(context.seq));
  const std::size_t bytes = build_packet(context);
  // DELIBERATE: a missing acknowledgement sets `online` to 0, unlike for a batch of log lines.
  ignore(exchange(context, bytes, kTrafficExchange, {say_text, nullptr}));
  rearm(rcm_trafficsender, kTrafficReport_s);
}

} // namespace rcmd
