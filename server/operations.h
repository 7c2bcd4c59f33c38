// Commands to devices and what becomes of them.
//
// One command at a time is on its way to a device. It is sent again after 2 seconds and then every
// 6 until the device's reply with its type and seq comes; after ten sends and 56 seconds it counts
// as refused. A device that waits for the answer to a report drops commands, and starts its 5
// seconds of waiting afresh for each: more often than every 6 seconds they would keep it from ever
// sending the report again. Instead a command goes out once more whenever the device has been
// answered, for then it may listen. The server's seq numbers have the top bit set, far above those
// that a device counts through itself: a device that waits for an answer takes any datagram with
// its own seq for it. For a like reason nothing but fragments is sent while a device fetches a
// file: it would take any payload that begins with an outstanding fragment number for that
// fragment.
#pragma once

#include "server/peer.h"

#include <map>

namespace server {

/// What an operation is to do; see the makers below.
struct Command {
  OperationKind kind = OperationKind::kStatus;
  std::uint16_t type = kSendStatus;
  Bytes payload = {}; ///< counted by the header
  Bytes rest = {};    ///< sent behind it, not counted
  std::string name = {};
  std::string path = {};
  std::shared_ptr<const Image> image = {};
};

using Values = std::vector<std::pair<std::string, std::string>>;

/// CONFIG with one record per value.
/// @throw std::invalid_argument when a name or value cannot be carried or they do not fit
Command make_set(std::uint16_t unit, const Values& values);
/// COMMIT_REBOOT, RESTORE_DEFAULTS or SEND_STATUS.
Command make_plain(OperationKind kind);
/// UPGRADECMD or CONFIGFILE. @throw std::invalid_argument when the name cannot be carried
Command make_transfer(OperationKind kind, std::shared_ptr<const Image> image,
                      const std::string& name, const std::string& path);

class Operations {
public:
  Operations(const Settings& settings, Output& output) : settings_(settings), output_(output) {}

  /// Takes a command up; sent at once when nothing else is under way.
  Operation submit(Peer& peer, Command command, Clock now);
  /// Takes up again what an earlier run of the server left unfinished. Commands that wait for
  /// their acknowledgement are not sent a second time by a new run: they end as failed.
  void restore(Peer& peer, Operation record, std::shared_ptr<const Image> image, Clock now);

  /// A report of the device was answered: it may be listening now.
  void answered(Peer& peer);
  void reply(Peer& peer, const Packet& packet, Clock now);
  /// The device registered anew; `restarted` when it is known to have started from the beginning.
  void registered(Peer& peer, bool restarted, Clock now);
  /// @return whether the request is to be acknowledged
  bool file_request(Peer& peer, const Packet& packet, Clock now);
  void fragment_request(Peer& peer, const Packet& packet, Clock now);

  void tick(Clock now);
  [[nodiscard]] std::optional<std::int64_t> next_deadline() const;
  void set_next_id(std::int64_t id) { next_id_ = id; }

private:
  void start(Peer& peer, Clock now);
  void send(Peer& peer, Task& task);
  void change(Task& task, OperationState state, std::string detail, Clock now);
  void finish(Peer& peer, Task& task, OperationState state, std::string detail, Clock now);
  void expire(Peer& peer, Task& task, Clock now);
  void back_online(Peer& peer, Task& task, Clock now);
  void resume(Peer& peer, const std::shared_ptr<Task>& task, Clock now);
  void progress(Task& task, std::uint32_t asked, Clock now);
  [[nodiscard]] std::int64_t silence_ms() const { return settings_.dead_after_s * 1000LL; }

  const Settings& settings_;
  Output& output_;
  std::map<std::int64_t, Peer*> under_way_; ///< by operation; peers stay where they are
  std::int64_t next_id_ = 1;
};

} // namespace server
