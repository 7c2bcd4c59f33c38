#include "tests/simulation/report_check.h"

#include "server/reports.h"
#include "tests/simulation/faults.h"
#include "variables/tables.h"

#include <algorithm>
#include <cstring>

using fake::world;

namespace sim {

namespace {

constexpr std::size_t kHeaderBytes = 36;
constexpr std::size_t kSamplesPerHour = 60;
/// The server's time is as old as its answer, which may be a late one to an earlier question.
constexpr std::int64_t kTimeTolerance_s = kMostDelay_ms / 1000 + 25;

std::string text_of(const fake::Bytes& bytes, std::size_t from, std::size_t length) {
  const auto* text = reinterpret_cast<const char*>(bytes.data()) + from;
  return {text, strnlen(text, length)};
}

bool is_setting(const std::string& name) {
  const rcmd::VariableEntry* row = rcmd::config_variables;
  while (row->name != nullptr && name != row->name) {
    row++;
  }
  return row->name != nullptr;
}

unsigned scope_of(const std::string& name) {
  return name.starts_with("wl_") ? 1 : name.starts_with("wan_") ? 2 : 0;
}

} // namespace

void ReportCheck::boot() {
  last_.clear();
  samples_.clear();
  baseline_tx_ = baseline_rx_ = 0;
  times_are_known_ = true;
}

void ReportCheck::nvram_read(const std::string& key) {
  if (key != "wwan_tx_bytes") {
    return;
  }
  const auto tx = static_cast<std::uint32_t>(std::stoul(value_of(ledger_.live(), "wwan_tx_bytes")));
  const auto rx = static_cast<std::uint32_t>(std::stoul(value_of(ledger_.live(), "wwan_rx_bytes")));
  if (samples_.size() < kSamplesPerHour) { // a further one moves the baseline alone
    samples_.push_back({server_time_s(), tx - baseline_tx_, rx - baseline_rx_});
  }
  baseline_tx_ = tx;
  baseline_rx_ = rx;
}

void ReportCheck::sent(const fake::Bytes& datagram, Scenery& scenery) {
  check_header(datagram);
  const std::uint16_t type = server::u16_at(datagram, 28);
  const std::uint16_t flags = server::u16_at(datagram, 30);
  fake::Bytes payload(datagram.begin() + kHeaderBytes,
                      datagram.begin() + kHeaderBytes + server::u16_at(datagram, 34));
  if (flags == 1 || flags == 2) {
    return; // answers, and the requests of transfers
  }
  if (type != 9 && last_[type] == payload && !payload.empty()) {
    return; // sent again
  }
  last_[type] = payload;
  switch (type) {
  case 1:
    return check_registration(payload);
  case 2:
    return check_log(payload, scenery);
  case 3:
  case 4:
    return check_variables(type, payload);
  case 7:
  case 11:
  case 14:
    if (!payload.empty()) {
      chronicle_.violated("a packet of type %u has a payload", type);
    }
    return;
  case 9:
    return check_position(payload);
  case 64:
    return check_traffic(payload);
  default:
    chronicle_.violated("the device sends a packet of type %u", type);
  }
}

void ReportCheck::check_header(const fake::Bytes& datagram) const {
  if (datagram.size() < kHeaderBytes || datagram.size() > 8192) {
    chronicle_.violated("the device sends %zu bytes", datagram.size());
  }
  const std::size_t length = server::u16_at(datagram, 34);
  if (kHeaderBytes + length > datagram.size()) {
    chronicle_.violated("the device sends a length of %zu in %zu bytes", length, datagram.size());
  }
  const auto payload = server::View(datagram).subspan(kHeaderBytes, length);
  if (server::crc16(payload) != server::u16_at(datagram, 32)) {
    chronicle_.violated("the device sends a wrong checksum");
  }
  const std::uint16_t flags = server::u16_at(datagram, 30);
  if (flags != 1 && text_of(datagram, 12, 12) != value_of(ledger_.live(), "SN")) {
    chronicle_.violated("the device sends a wrong serial number");
  }
}

void ReportCheck::check_registration(const fake::Bytes& payload) const {
  server::Device device;
  if (!server::read_registration(payload, device)) {
    chronicle_.violated("a REGISTER of %zu bytes", payload.size());
  }
  const std::int64_t uptime_s = world().uptime_base + world().now_ms / 1000;
  if (device.uptime != static_cast<std::uint32_t>(uptime_s) || device.domain != "simulation" ||
      device.firmware != value_of(ledger_.live(), "version_firmware") ||
      device.model != value_of(ledger_.live(), "product_model") ||
      device.wan_address != scenery_.wan_address) {
    chronicle_.violated("a REGISTER tells uptime %u, firmware %s, model %s, address %08x",
                        device.uptime, device.firmware.c_str(), device.model.c_str(),
                        device.wan_address);
  }
}

void ReportCheck::check_variables(std::uint16_t type, const fake::Bytes& payload) const {
  const auto report = server::read_variables(payload);
  if (!report || report->values.empty() || report->unit != 0) {
    chronicle_.violated("a report of type %u that cannot be read", type);
  }
  for (const auto& [name, value] : report->values) {
    chronicle_.count("values reported");
    std::optional<std::string> expected;
    if (type == 4) {
      expected = scenery_.status(name);
    } else if (is_setting(name)) {
      expected = reported_setting(ledger_.live(), name);
    }
    if (!expected || value != *expected) {
      chronicle_.violated("a report says %s=\"%s\", the router has \"%s\"", name.c_str(),
                          value.c_str(), expected ? expected->c_str() : "(no such variable)");
    }
    if (report->scope != scope_of(name) && !name.starts_with("wl0_sta")) {
      chronicle_.violated("%s is reported in scope %u", name.c_str(), report->scope);
    }
  }
}

void ReportCheck::check_time(std::int64_t reported, std::int64_t expected, const char* what) const {
  if (times_are_known_ && std::abs(reported - expected) > kTimeTolerance_s) {
    chronicle_.violated("%s is reported for %lld, %lld seconds away from its time", what,
                        static_cast<long long>(reported),
                        static_cast<long long>(reported - expected));
  }
}

void ReportCheck::check_log(const fake::Bytes& payload, Scenery& scenery) {
  for (const server::LogLine& line : server::read_log(payload)) {
    const auto found = scenery.lines.find(line.message);
    if (found == scenery.lines.end()) {
      chronicle_.violated("a log line that nobody wrote: %s", line.message.c_str());
    }
    if (found->second.reported || found->second.silenced) {
      chronicle_.violated("a log line is reported %s: %s",
                          found->second.reported ? "twice" : "although its source is off",
                          line.message.c_str());
    }
    check_time(line.time, found->second.unix_s, "a log line");
    found->second.reported = true;
    reported_.insert(line.message);
    chronicle_.count("log lines reported");
  }
}

void ReportCheck::check_traffic(const fake::Bytes& payload) {
  const auto hour = server::read_traffic(payload);
  if (!hour || hour->samples.size() != samples_.size()) {
    chronicle_.violated("a traffic report of %zu samples where %zu were taken",
                        hour ? hour->samples.size() : 0, samples_.size());
  }
  std::uint32_t tx = 0;
  std::uint32_t rx = 0;
  for (std::size_t i = 0; i < samples_.size(); i++) {
    const server::TrafficSample& sample = hour->samples[i];
    check_time(sample.time, samples_[i].unix_s, "a traffic sample");
    if (static_cast<std::uint32_t>(sample.tx) != samples_[i].tx ||
        static_cast<std::uint32_t>(sample.rx) != samples_[i].rx) {
      chronicle_.violated("a traffic sample of %lld and %lld bytes, which were %u and %u",
                          static_cast<long long>(sample.tx), static_cast<long long>(sample.rx),
                          samples_[i].tx, samples_[i].rx);
    }
    tx += samples_[i].tx;
    rx += samples_[i].rx;
  }
  if (hour->tx != tx || hour->rx != rx) {
    chronicle_.violated("an hour's traffic of %u and %u bytes, which were %u and %u", hour->tx,
                        hour->rx, tx, rx);
  }
  chronicle_.count("traffic samples reported", samples_.size());
  samples_.clear();
}

void ReportCheck::check_position(const fake::Bytes& payload) const {
  const auto position = server::read_position(payload);
  if (!position || payload.back() != 0 ||
      position->latitude != value_of(ledger_.live(), "gps_lat") ||
      position->longitude != value_of(ledger_.live(), "gps_long")) {
    chronicle_.violated("a position that is not the router's");
  }
  chronicle_.count("positions reported");
}

} // namespace sim
