// The server's side of the protocol: datagrams and the clock in, datagrams and events out. Knows no
// sockets and no files; runs in one thread.
//
// A device is known by the serial number in its header and by the session that its registration
// got. Datagrams of a device that never registered here, or that holds another session, are not
// answered, whatever they are: its keepalives then die and it registers. An answer carries the
// device's session, for the device adopts the session of most answers.
//
// The device matches an answer by `seq` alone, and asks several questions under the same one, so a
// late copy of one answer may be taken for the next. Therefore:
//  - the answers to REGISTER, SERVERTIME, KEEPALIVEPARAM, CONF and STATUS hold the same text, which
//    serves all: "YYYYMMDDHHMMSS;keepalive_interval=N;keepalive_maxretries=M"; those to the other
//    reports hold its 14 digits, for a registration may follow on them under the same seq;
//  - a datagram that repeats the one before it within half a second is the network's copy, not the
//    device's (which waits 5 seconds before it sends again), and is not answered a second time.
#pragma once

#include "server/operations.h"

#include <memory>
#include <unordered_map>

namespace server {

struct Counters {
  std::uint64_t received = 0;
  std::uint64_t malformed = 0; ///< too short, wrong checksum or length, no serial number
  std::uint64_t unknown = 0; ///< of a device that is not registered here, or holds another session
  std::uint64_t copies = 0;
  std::uint64_t ignored = 0; ///< well formed, but nothing that a device sends
};

class Engine {
public:
  Engine(Settings settings, Output& output);

  /// What an earlier run knew: first the devices, then the operations.
  void restore(Device device);
  void restore(Operation operation, std::shared_ptr<const Image> image, Clock now);
  void set_next_operation(std::int64_t id) { operations_.set_next_id(id); }

  void datagram(const Address& from, View bytes, Clock now);
  void tick(Clock now) { operations_.tick(now); }
  /// The steady time at which tick() has something to do.
  [[nodiscard]] std::optional<std::int64_t> next_deadline() const {
    return operations_.next_deadline();
  }

  /// @throw std::out_of_range for an unknown device
  Operation submit(const std::string& serial, Command command, Clock now);

  [[nodiscard]] const Device* device(const std::string& serial) const;
  [[nodiscard]] std::vector<Device> devices() const; ///< in the order of their serials
  /// Whether the device was heard of lately: within two keepalives and a bit.
  [[nodiscard]] bool is_online(const Device& device, Clock now) const;
  [[nodiscard]] const Counters& counters() const { return counters_; }

private:
  Peer* find(const std::string& serial);
  void registration(const Packet& packet, Clock now);
  bool is_network_copy(Peer& peer, const Packet& packet, Clock now);
  void report(Peer& peer, const Packet& packet, Clock now);
  void transfer(Peer& peer, const Packet& packet, Clock now);
  void answer(const Peer& peer, const Packet& packet, View payload = {});
  [[nodiscard]] std::string answer_text(std::uint16_t type, Clock now) const;
  [[nodiscard]] std::string enrolment_text(Clock now) const;

  Settings settings_;
  Output& output_;
  Operations operations_;
  std::unordered_map<std::string, std::unique_ptr<Peer>> peers_;
  Counters counters_;
};

} // namespace server
