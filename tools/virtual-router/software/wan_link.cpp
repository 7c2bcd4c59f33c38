#include "tools/virtual-router/software/wan_link.h"

#include "platform/api/nvram.h"

namespace virtual_router {

namespace {

constexpr std::uint16_t kLeasesPerNet = 250;
constexpr std::int32_t kLongestLeap_s = 3600; // after a stopped clock the rest is not made up for

/// A second's traffic: uneven, and the same on every run.
void grow(Traffic& traffic, std::uint32_t at_s, std::uint32_t packet_bytes) {
  const std::uint32_t packets = 2 + at_s * 7 % 5;
  traffic.packets += packets;
  traffic.bytes += packets * packet_bytes + at_s * 37 % 64;
}

} // namespace

void publish_setting(const std::string& name, const std::string& value) {
  const char* present = nvram_get(name.c_str());
  if (present == nullptr || value != present)
    nvram_set(name.c_str(), value.c_str());
}

void WanLink::serve_action() {
  const char* text = nvram_get("wan0_action");
  const std::string action = text == nullptr ? "" : text;
  const bool was_up = up_;
  if (action == "start")
    up_ = true;
  if (action == "stop")
    up_ = false;
  if (text != nullptr)
    nvram_set("wan0_action", nullptr);
  if (programs_.stopped("pppd"))
    up_ = false;
  const bool redialled = programs_.take_hangup("pppd");
  if (up_ && (!was_up || redialled)) {
    up_since_s_ = now_s_;
    lease_ = static_cast<std::uint16_t>((lease_ + 1) % kLeases);
  }
}

std::string WanLink::address() const {
  return "10.64." + std::to_string(lease_ / kLeasesPerNet) + "." +
         std::to_string(2 + lease_ % kLeasesPerNet);
}

void WanLink::advance(std::int32_t uptime_s) {
  if (uptime_s - now_s_ > kLongestLeap_s)
    now_s_ = uptime_s - kLongestLeap_s;
  for (; now_s_ < uptime_s; ++now_s_) {
    if (!up_)
      continue;
    const auto at_s = static_cast<std::uint32_t>(now_s_);
    grow(sent_, at_s, 120);
    grow(received_, at_s + 1, 540);
  }
  serve_action();
  publish();
}

void WanLink::publish() const {
  publish_setting("wwan_tx_bytes", std::to_string(sent_.bytes));
  publish_setting("wwan_rx_bytes", std::to_string(received_.bytes));
  publish_setting("wwan_tx_packets", std::to_string(sent_.packets));
  publish_setting("wwan_rx_packets", std::to_string(received_.packets));
  publish_setting("wan0_status", up_ ? "up" : "down");
  publish_setting("wan0_uptime", std::to_string(up_ ? now_s_ - up_since_s_ : 0));
  publish_setting("wan0_ipaddr", up_ ? address() : "0.0.0.0");
  publish_setting("wan0_wwan_rssi", std::to_string(-70 - now_s_ / 5 % 9));
}

} // namespace virtual_router
