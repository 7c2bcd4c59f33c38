#include "server/engine.h"

#include <algorithm>
#include <ctime>
#include <random>

namespace server {

namespace {

constexpr std::int64_t kNetworkCopy_ms = 500;
constexpr std::int64_t kUptimeSlack_s = 5;

Session random_session() {
  std::random_device random;
  Session session;
  do {
    put_u32(session.data(), random());
    put_u32(session.data() + 4, random());
  } while (session == Session{});
  return session;
}

/// A device that started anew counts its packets from 0 again, and its uptime too. A REGISTER that
/// was sent again through an outage is as old as the outage is long, and so is the uptime in it:
/// one that is less than expected proves nothing by itself.
bool has_restarted(const Peer& peer, const Packet& packet, const Device& fresh, Clock now) {
  const std::int64_t since = now.unix_s - peer.device.registered;
  if (packet.seq == 0 && peer.highest_seq != 0U) {
    return true;
  }
  if (fresh.uptime > since) { // whole seconds: equal ones may be a restart at once
    return false;             // it was up already when it last registered
  }
  return packet.seq == 0 ? fresh.uptime + kUptimeSlack_s < peer.device.uptime + since
                         : fresh.uptime < peer.device.uptime;
}

/// A REGISTER that the device sent again because it missed the answer, or a late copy of it.
bool is_repeated(const Peer& peer, const Packet& packet, const Device& fresh, Clock now) {
  if (!std::ranges::equal(peer.registration, packet.bytes)) {
    return false;
  }
  if (fresh.uptime > now.unix_s - peer.device.registered) {
    return true; // a device that started anew since then would not be up for so long
  }
  const bool restart_awaited =
      !peer.tasks.empty() && peer.tasks.front()->record.state == OperationState::kRestarting;
  return !restart_awaited && peer.last_type == kRegister;
}

bool is_report(std::uint16_t type) {
  return type == kLog || type == kConf || type == kStatus || type == kKeepalive ||
         type == kServerTime || type == kKeepaliveParam || type == kTraffic;
}

/// What a registration consists of, all of it under one seq.
bool is_asked_when_registering(std::uint16_t type) {
  return type == kServerTime || type == kKeepaliveParam || type == kConf || type == kStatus;
}

using What = decltype(Event::what);

std::optional<What> read_variable_report(const Packet& packet) {
  auto report = read_variables(packet.payload);
  if (!report) {
    return std::nullopt;
  }
  const auto kind = packet.type == kConf ? VariableKind::kConf : VariableKind::kStatus;
  return VariablesReported{kind, std::move(*report)};
}

std::optional<What> read_traffic_report(const Packet& packet, Clock now) {
  auto hour = read_traffic(packet.payload);
  if (!hour) {
    return std::nullopt;
  }
  hour->received = now.unix_s;
  return TrafficReported{std::move(*hour), digest_of(packet.payload)};
}

std::optional<What> read_position_report(const Packet& packet, Clock now) {
  auto position = read_position(packet.payload);
  if (!position) {
    return std::nullopt;
  }
  position->received = now.unix_s;
  return PositionReported{std::move(*position)};
}

/// What a report says; nothing when its payload cannot be read.
std::optional<What> read_report(const Packet& packet, Clock now) {
  switch (packet.type) {
  case kServerTime:
  case kKeepaliveParam:
    return Asked{static_cast<Type>(packet.type)};
  case kConf:
  case kStatus:
    return read_variable_report(packet);
  case kLog:
    return LogReported{read_log(packet.payload), digest_of(packet.payload)};
  case kTraffic:
    return read_traffic_report(packet, now);
  case kGps:
    return read_position_report(packet, now);
  default:
    return Alive{};
  }
}

} // namespace

Engine::Engine(Settings settings, Output& output)
    : settings_(std::move(settings)), output_(output), operations_(settings_, output) {
  if (!settings_.new_session) {
    settings_.new_session = random_session;
  }
}

void Engine::restore(Device device) {
  auto peer = std::make_unique<Peer>();
  peer->device = std::move(device);
  peers_[peer->device.serial] = std::move(peer);
}

void Engine::restore(Operation operation, std::shared_ptr<const Image> image, Clock now) {
  if (Peer* peer = find(operation.serial)) {
    operations_.restore(*peer, std::move(operation), std::move(image), now);
  }
}

Peer* Engine::find(const std::string& serial) {
  const auto found = peers_.find(serial);
  return found == peers_.end() ? nullptr : found->second.get();
}

const Device* Engine::device(const std::string& serial) const {
  const auto found = peers_.find(serial);
  return found == peers_.end() ? nullptr : &found->second->device;
}

std::vector<Device> Engine::devices() const {
  std::vector<Device> devices;
  for (const auto& [serial, peer] : peers_) {
    devices.push_back(peer->device);
  }
  std::sort(devices.begin(), devices.end(),
            [](const Device& a, const Device& b) { return a.serial < b.serial; });
  return devices;
}

bool Engine::is_online(const Device& device, Clock now) const {
  return now.unix_s - device.last_seen <= 2 * std::max(settings_.keepalive_interval, 1) + 15;
}

Operation Engine::submit(const std::string& serial, Command command, Clock now) {
  return operations_.submit(*peers_.at(serial), std::move(command), now);
}

void Engine::datagram(const Address& from, View bytes, Clock now) {
  counters_.received++;
  const auto packet = parse_packet(from, bytes);
  if (!packet) {
    counters_.malformed++;
    return;
  }
  if (packet->type == kRegister && packet->flags == kReport) {
    registration(*packet, now);
    return;
  }
  Peer* peer = find(packet->serial);
  if (peer == nullptr) {
    counters_.unknown++;
    return;
  }
  if (packet->flags == kReply) { // carries the session that its request had
    peer->device.last_seen = now.unix_s;
    operations_.reply(*peer, *packet, now);
    return;
  }
  if (!std::equal(peer->device.session.begin(), peer->device.session.end(), bytes.begin())) {
    counters_.unknown++;
    return;
  }
  peer->device.last_seen = now.unix_s;
  peer->device.address = from;
  if (is_network_copy(*peer, *packet, now)) {
    return;
  }
  peer->highest_seq = std::max(peer->highest_seq.value_or(0), packet->seq);
  if (packet->flags == kTransfer) {
    transfer(*peer, *packet, now);
  } else {
    report(*peer, *packet, now);
  }
}

bool Engine::is_network_copy(Peer& peer, const Packet& packet, Clock now) {
  if (now.steady_ms - peer.last_ms < kNetworkCopy_ms &&
      std::ranges::equal(peer.last_datagram, packet.bytes)) {
    counters_.copies++;
    return true;
  }
  peer.last_datagram.assign(packet.bytes.begin(), packet.bytes.end());
  peer.last_ms = now.steady_ms;
  return false;
}

void Engine::registration(const Packet& packet, Clock now) {
  Device fresh;
  if (!read_registration(packet.payload, fresh)) {
    counters_.malformed++;
    return;
  }
  Peer* peer = find(packet.serial);
  if (peer == nullptr) {
    if (peers_.size() >= settings_.most_devices) {
      counters_.unknown++;
      return;
    }
    peer = (peers_[packet.serial] = std::make_unique<Peer>()).get();
    peer->device.serial = packet.serial;
    peer->device.first_seen = now.unix_s;
  }
  if (is_network_copy(*peer, packet, now)) {
    return;
  }
  Device& device = peer->device;
  const bool repeated = is_repeated(*peer, packet, fresh, now);
  const bool restarted = has_restarted(*peer, packet, fresh, now);
  device.address = packet.from;
  device.last_seen = now.unix_s;
  peer->last_type = kRegister;
  if (!repeated) {
    read_registration(packet.payload, device);
    device.session = settings_.new_session();
    device.registered = now.unix_s;
    device.registrations++;
    peer->registration.assign(packet.bytes.begin(), packet.bytes.end());
    peer->highest_seq = packet.seq;
  }
  if (!repeated) {
    output_.event({device.serial, now.unix_s, Registered{device, restarted}});
  }
  answer(*peer, packet, view_of(enrolment_text(now)));
  if (!repeated) {
    operations_.registered(*peer, restarted, now);
  }
}

void Engine::report(Peer& peer, const Packet& packet, Clock now) {
  const bool known = packet.type == kGps ? packet.flags == kPosition
                                         : packet.flags == kReport && is_report(packet.type);
  if (!known) {
    counters_.ignored++;
    return;
  }
  peer.last_type = packet.type;
  if (auto what = read_report(packet, now)) {
    output_.event({peer.device.serial, now.unix_s, std::move(*what)});
  } else {
    counters_.ignored++;
  }
  // Also when it cannot be read: it would only come again.
  answer(peer, packet, view_of(answer_text(packet.type, now)));
  const bool more_follow = is_asked_when_registering(packet.type) && packet.type != kStatus;
  if (!more_follow) {
    operations_.answered(peer);
  }
}

void Engine::transfer(Peer& peer, const Packet& packet, Clock now) {
  peer.last_type = packet.type;
  switch (packet.type) {
  case kFirmwareRequest:
  case kConfigRequest:
    if (operations_.file_request(peer, packet, now)) {
      answer(peer, packet);
    }
    return;
  case kFirmwareFragment:
  case kConfigFragment:
    operations_.fragment_request(peer, packet, now);
    return;
  default:
    counters_.ignored++;
  }
}

void Engine::answer(const Peer& peer, const Packet& packet, View payload) {
  const Header header = answer_header(packet, peer.device.session, crc16(payload),
                                      static_cast<std::uint16_t>(payload.size()));
  output_.send(packet.from, header, payload);
}

/// A late answer to any of these packets may be taken for the server's time, and one to a packet of
/// a first registration for the keepalive parameters too.
std::string Engine::answer_text(std::uint16_t type, Clock now) const {
  constexpr std::size_t kTimeDigits = 14;
  const std::string text = enrolment_text(now);
  return is_asked_when_registering(type) ? text : text.substr(0, kTimeDigits);
}

std::string Engine::enrolment_text(Clock now) const {
  const auto seconds = static_cast<std::time_t>(now.unix_s);
  std::tm calendar{};
  if (settings_.local_time) {
    localtime_r(&seconds, &calendar);
  } else {
    gmtime_r(&seconds, &calendar);
  }
  char digits[16];
  std::strftime(digits, sizeof digits, "%Y%m%d%H%M%S", &calendar);
  return std::string(digits) +
         ";keepalive_interval=" + std::to_string(settings_.keepalive_interval) +
         ";keepalive_maxretries=" + std::to_string(settings_.keepalive_maxretries);
}

} // namespace server
