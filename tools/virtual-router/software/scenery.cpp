#include "tools/virtual-router/software/scenery.h"

#include <cmath>
#include <cstdio>

namespace virtual_router {

namespace {

constexpr double kCentreLat = 48.2000;
constexpr double kCentreLong = 16.3700;
constexpr double kRadius = 0.0150;
constexpr double kRound_s = 600;
constexpr double kTurn = 6.283185307179586;

std::string four_decimals(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.4f", value);
  return text;
}

std::string interface_line(const char* name, const Traffic& received, const Traffic& sent) {
  char line[200];
  std::snprintf(line, sizeof line,
                "%6s: %7u %7u    0    0    0     0          0         0 "
                "%8u %7u    0    0    0     0       0          0\n",
                name, received.bytes, received.packets, sent.bytes, sent.packets);
  return line;
}

Traffic steady(std::int32_t uptime_s, std::uint32_t packets_per_s, std::uint32_t packet_bytes) {
  const auto packets = static_cast<std::uint32_t>(uptime_s) * packets_per_s;
  return {packets * packet_bytes, packets};
}

} // namespace

void publish_position(std::int32_t uptime_s) {
  const double angle = kTurn * std::fmod(uptime_s, kRound_s) / kRound_s;
  const std::string latitude = four_decimals(kCentreLat + kRadius * std::sin(angle));
  const std::string longitude = four_decimals(kCentreLong + kRadius * std::cos(angle));
  publish_setting("gps_lat", latitude);
  publish_setting("gps_long", longitude);
  publish_setting("wan0_wwan_gps", latitude + "," + longitude);
}

std::string stations_text(std::int32_t uptime_s) {
  static constexpr const char* kStations[] = {"02:AB:00:00:20:01", "02:AB:00:00:20:02",
                                              "02:AB:00:00:20:03"};
  std::string text;
  int steps = 5;
  for (const char* mac : kStations) {
    const int signal = -45 - steps - (uptime_s / steps) % 12;
    text.append(mac).append(" ").append(std::to_string(signal)).append("\n");
    steps += 3;
  }
  return text;
}

std::string interfaces_text(const WanLink& link, std::int32_t uptime_s) {
  std::string text =
      "Inter-|   Receive                                                |  Transmit\n"
      " face |bytes    packets errs drop fifo frame compressed multicast|"
      "bytes    packets errs drop fifo colls carrier compressed\n";
  text += interface_line("lo", steady(uptime_s, 1, 64), steady(uptime_s, 1, 64));
  text += interface_line("br0", steady(uptime_s, 9, 310), steady(uptime_s, 11, 820));
  text += interface_line("eth1", steady(uptime_s, 4, 240), steady(uptime_s, 5, 660));
  text += interface_line("ppp0", link.received(), link.sent());
  return text;
}

} // namespace virtual_router
