#include "tests/soak/mix.h"

#include <algorithm>

namespace soak {

using server::Bytes;

namespace {

constexpr std::size_t kScantoolsBytes = 696;
constexpr std::size_t kFlagsAt = 30;
constexpr std::size_t kCrcAt = 32;
constexpr std::size_t kLengthAt = 34;

void append(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
}

} // namespace

void Mix::adopt(const server::Session& session, const std::string& serial) {
  session_ = session;
  serial_ = serial;
}

Bytes Mix::random_bytes(std::size_t count) {
  Bytes bytes(count);
  std::generate(bytes.begin(), bytes.end(),
                [this] { return static_cast<std::uint8_t>(random_()); });
  return bytes;
}

Bytes Mix::request(std::uint16_t type, std::uint16_t flags, std::uint32_t seq,
                   const Bytes& payload) const {
  Bytes bytes = server::build_request(type, seq, session_, serial_, payload);
  server::put_u16(&bytes[kFlagsAt], flags);
  return bytes;
}

// How often each comes, of 1000.
Datagram Mix::next(std::uint32_t seq) {
  struct Share {
    int of_1000;
    Make make;
  };
  static constexpr Share kShares[] = {
      {250, &Mix::acknowledgement}, {80, &Mix::keepalive_answer}, {270, &Mix::configuration},
      {140, &Mix::question},        {60, &Mix::wrong_checksum},   {30, &Mix::wrong_length},
      {60, &Mix::short_one},        {25, &Mix::rubbish},          {25, &Mix::strange_flags},
      {5, &Mix::deskmgr},           {40, &Mix::discovery},        {15, &Mix::other_scantools},
  };
  int chosen = static_cast<int>(below(1000));
  const Share* share = kShares;
  while (chosen >= share->of_1000) {
    chosen -= share->of_1000;
    share++;
  }
  return (this->*share->make)(seq);
}

// The server's words ----------------------------------------------------------------------------

Datagram Mix::acknowledgement(std::uint32_t seq) {
  static constexpr std::uint16_t kTypes[] = {server::kLog, server::kConf,    server::kStatus,
                                             server::kGps, server::kTraffic, 999};
  const std::uint16_t flags = below(2) == 0 ? 1 : 3;
  return {"acknowledgements", Port::kManagement, request(pick(kTypes), flags, seq, {})};
}

Datagram Mix::keepalive_answer(std::uint32_t seq) {
  return {"keepalive answers", Port::kManagement, request(server::kKeepalive, 1, seq, {})};
}

Datagram Mix::question(std::uint32_t seq) {
  const auto type = static_cast<std::uint16_t>(300 + below(1000));
  return {"generic commands", Port::kManagement, request(type, 0, seq, random_bytes(below(64))),
          true};
}

Datagram Mix::status_request(std::uint32_t seq) {
  return {"status requests", Port::kManagement, request(server::kSendStatus, 0, seq, {}), true};
}

std::string Mix::value_for(const Setting& setting) {
  const std::string number = std::to_string(below(8));
  if (setting.name.starts_with("firewall_access_rule")) {
    return below(4) == 0
               ? ""
               : "br0,10.0.0." + number + ",ppp0,10.1.0.1,tcp,80,9" + number + ",0,ACCEPT,web,1";
  }
  if (setting.name.starts_with("firewall_portforwarding_rule")) {
    return below(4) == 0 ? "" : "ppp0,tcp,0.0.0.0/0,80" + number + ",192.168.1.2,80,1,shop,1";
  }
  if (setting.name.starts_with("wl_macrule")) {
    return "02:00:00:00:00:0" + number + " guest";
  }
  switch (below(4)) {
  case 0:
    return setting.value;
  case 1:
    return number;
  case 2:
    return "";
  default:
    return std::string(below(60), static_cast<char>('a' + below(26)));
  }
}

Datagram Mix::configuration(std::uint32_t seq) {
  Bytes payload(4); // scope and unit 0
  const std::size_t records = below(20) == 0 ? 20 : 1 + below(4);
  for (std::size_t i = 0; i < records; i++) {
    const Setting& setting = settings_[below(settings_.size())];
    append(payload, setting.name + "=" + value_for(setting) + '\0');
  }
  Bytes bytes = request(server::kConfig, 0, seq, payload);
  bytes.resize(bytes.size() + 4); // what the device parses behind the last record
  return {"settings", Port::kManagement, bytes, true};
}

// What is broken --------------------------------------------------------------------------------

/// Of any request, those that would restart the device included.
Datagram Mix::wrong_checksum(std::uint32_t seq) {
  const auto type = static_cast<std::uint16_t>(256 + below(6));
  Bytes bytes = request(type, 0, seq, random_bytes(below(200)));
  bytes[kCrcAt] ^= static_cast<std::uint8_t>(1 + below(255));
  return {"wrong checksums", Port::kManagement, bytes};
}

/// A length that reaches behind the datagram's end.
Datagram Mix::wrong_length(std::uint32_t seq) {
  Bytes bytes = request(server::kConfig, 0, seq, random_bytes(8 + below(100)));
  const std::size_t payload = bytes.size() - server::kHeaderBytes;
  server::put_u16(&bytes[kLengthAt], static_cast<std::uint16_t>(payload + 1 + below(60000)));
  return {"wrong lengths", Port::kManagement, bytes};
}

Datagram Mix::short_one(std::uint32_t seq) {
  Bytes bytes = request(server::kConfig, 0, seq, {});
  bytes.resize(below(server::kHeaderBytes));
  return {"short datagrams", Port::kManagement, bytes};
}

/// Its flags are none of the protocol's: a checksum that is right by chance, which comes once in
/// 65,536, must not make it an order to restart.
Datagram Mix::rubbish(std::uint32_t) {
  const std::size_t bytes = below(20) == 0 ? below(9000) : below(300);
  Datagram datagram{"rubbish", Port::kManagement, random_bytes(bytes)};
  if (bytes > kFlagsAt) {
    datagram.bytes[kFlagsAt] |= 1;
  }
  return datagram;
}

Datagram Mix::strange_flags(std::uint32_t seq) {
  const auto flags = static_cast<std::uint16_t>(4 + below(60000));
  return {"strange flags", Port::kManagement,
          request(server::kCommitReboot, flags, seq, random_bytes(below(40)))};
}

// Its own network -------------------------------------------------------------------------------

Datagram Mix::deskmgr(std::uint32_t) {
  Bytes bytes{9, 9, 9, 9, 0, 0, 0, 1, 0, 0, 0, 12};
  bytes[5] = static_cast<std::uint8_t>(1 + below(5));
  return {"desktop manager", Port::kDeskmgr, bytes};
}

Datagram Mix::discovery(std::uint32_t) {
  Bytes bytes(kScantoolsBytes);
  bytes[0] = below(2) == 0 ? 0xBA : 0xAB;
  bytes[1] = 1;
  return {"scan tools: discovery", Port::kScantools, bytes, true};
}

Datagram Mix::other_scantools(std::uint32_t) {
  static constexpr std::uint8_t kTypes[] = {0, 2, 4, 5, 0x80, 0xFF};
  Bytes bytes = random_bytes(kScantoolsBytes + below(100));
  bytes[0] = 0xBA;
  bytes[1] = pick(kTypes);
  return {"scan tools: other", Port::kScantools, bytes};
}

} // namespace soak
