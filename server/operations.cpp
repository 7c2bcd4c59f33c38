#include "server/operations.h"

#include <algorithm>
#include <stdexcept>

namespace server {

namespace {

constexpr std::int64_t kFirstGap_ms = 2000;
constexpr std::int64_t kGap_ms = 6000;
constexpr int kTries = 10;

std::uint32_t seq_of(const Operation& operation) {
  return 0x80000000U | static_cast<std::uint32_t>(operation.id & 0x7FFFFFFF);
}

bool restarts_device(OperationKind kind) {
  return kind == OperationKind::kCommit || kind == OperationKind::kRestoreDefaults;
}

std::uint32_t percent(const Operation& operation) {
  return operation.fragments == 0 ? 0
                                  : static_cast<std::uint32_t>(std::uint64_t{operation.asked} *
                                                               100 / operation.fragments);
}

} // namespace

Operation Operations::submit(Peer& peer, Command command, Clock now) {
  auto task = std::make_shared<Task>();
  Operation& record = task->record;
  record.id = next_id_++;
  record.serial = peer.device.serial;
  record.kind = command.kind;
  record.created = record.updated = now.unix_s;
  record.firmware_before = peer.device.firmware;
  task->request = build_request(command.type, seq_of(record), peer.device.session,
                                peer.device.serial, command.payload);
  task->request.insert(task->request.end(), command.rest.begin(), command.rest.end());
  if (is_transfer(command.kind)) {
    record.name = command.name;
    record.path = command.path;
    record.length = static_cast<std::uint32_t>(command.image->bytes().size());
    record.fragments = command.image->fragments();
    record.digest = command.image->digest();
    task->image = std::move(command.image);
  }
  peer.tasks.push_back(task);
  change(*task, OperationState::kQueued, "", now);
  start(peer, now);
  return record;
}

void Operations::restore(Peer& peer, Operation record, std::shared_ptr<const Image> image,
                         Clock now) {
  auto task = std::make_shared<Task>();
  task->record = std::move(record);
  const OperationState state = task->record.state;
  if (state == OperationState::kQueued || state == OperationState::kSent) {
    change(*task, OperationState::kFailed, "the server was restarted before the device answered",
           now);
    return;
  }
  if (is_transfer(task->record.kind)) {
    if (image == nullptr || image->digest() != task->record.digest) {
      change(*task, OperationState::kFailed, "the server was restarted and the file has changed",
             now);
      return;
    }
    task->image = std::move(image);
    peer.transfer = task;
  }
  task->deadline_ms = now.steady_ms + silence_ms();
  peer.tasks.push_back(task);
  under_way_[task->record.id] = &peer;
}

void Operations::start(Peer& peer, Clock now) {
  if (peer.tasks.empty() || peer.tasks.front()->record.state != OperationState::kQueued) {
    return;
  }
  const std::shared_ptr<Task> task = peer.tasks.front();
  if (task->image != nullptr) {
    peer.transfer = task;
  }
  under_way_[task->record.id] = &peer;
  task->deadline_ms = now.steady_ms + kFirstGap_ms;
  send(peer, *task);
  change(*task, OperationState::kSent, "", now);
}

void Operations::send(Peer& peer, Task& task) {
  std::copy(peer.device.session.begin(), peer.device.session.end(), task.request.begin());
  task.record.sends++;
  output_.send(peer.device.address, task.request, {});
}

void Operations::answered(Peer& peer) {
  if (!peer.tasks.empty() && peer.tasks.front()->record.state == OperationState::kSent) {
    send(peer, *peer.tasks.front());
  }
}

void Operations::change(Task& task, OperationState state, std::string detail, Clock now) {
  task.record.state = state;
  task.record.detail = std::move(detail);
  task.record.updated = now.unix_s;
  output_.event({task.record.serial, now.unix_s, OperationChanged{task.record}});
}

void Operations::finish(Peer& peer, Task& task, OperationState state, std::string detail,
                        Clock now) {
  const auto at = std::find_if(peer.tasks.begin(), peer.tasks.end(),
                               [&](const auto& other) { return other.get() == &task; });
  std::shared_ptr<Task> kept;
  if (at != peer.tasks.end()) {
    kept = *at; // until this function ends
    peer.tasks.erase(at);
  }
  under_way_.erase(task.record.id);
  change(task, state, std::move(detail), now);
  if (state == OperationState::kDone) {
    task.image.reset();
  }
  start(peer, now);
}

void Operations::reply(Peer& peer, const Packet& packet, Clock now) {
  if (peer.tasks.empty()) {
    return;
  }
  Task& task = *peer.tasks.front();
  if (task.record.state != OperationState::kSent || packet.seq != seq_of(task.record) ||
      packet.type != u16_at(task.request, 28)) {
    return;
  }
  const bool transfer = is_transfer(task.record.kind);
  if (!transfer && !restarts_device(task.record.kind)) {
    finish(peer, task, OperationState::kDone, "acknowledged", now);
    return;
  }
  task.deadline_ms = now.steady_ms + silence_ms();
  change(task, transfer ? OperationState::kAccepted : OperationState::kRestarting,
         transfer ? "the device is about to fetch the file" : "acknowledged; the device restarts",
         now);
}

void Operations::registered(Peer& peer, bool restarted, Clock now) {
  if (peer.tasks.empty()) {
    return;
  }
  Task& task = *peer.tasks.front();
  const OperationState state = task.record.state;
  if (restarts_device(task.record.kind)) {
    // Without its acknowledgement a restart proves nothing: a power cut looks the same, and takes
    // what was not committed with it. The command is sent on; carried out twice, it does no harm.
    if (state == OperationState::kRestarting) {
      back_online(peer, task, now);
    }
    return;
  }
  if (!is_transfer(task.record.kind) || !restarted) {
    return; // a device that lost its peer in a transfer registers and asks for the file again
  }
  if (state == OperationState::kRestarting) {
    back_online(peer, task, now);
  } else if (state == OperationState::kAccepted || state == OperationState::kTransferring) {
    finish(peer, task, OperationState::kFailed,
           "the device restarted before it had asked for the whole file", now);
  }
}

void Operations::back_online(Peer& peer, Task& task, Clock now) {
  task.record.firmware_after = peer.device.firmware;
  std::string detail = "the device is back online";
  if (task.record.kind == OperationKind::kUpgrade) {
    const bool same = task.record.firmware_after == task.record.firmware_before;
    detail += (same ? " with the same version " : " with version ") + task.record.firmware_after;
  }
  finish(peer, task, OperationState::kDone, detail, now);
}

/// A transfer datagram for `task`: it goes on, whatever had been thought of it.
void Operations::resume(Peer& peer, const std::shared_ptr<Task>& task, Clock now) {
  task->deadline_ms = now.steady_ms + silence_ms();
  if (!peer.tasks.empty() && peer.tasks.front() == task) {
    return;
  }
  peer.tasks.push_front(task);
  under_way_[task->record.id] = &peer;
  if (peer.tasks.size() > 1 && peer.tasks[1]->record.state != OperationState::kQueued) {
    finish(peer, *peer.tasks[1], OperationState::kFailed,
           "the device went back to fetching " + task->record.name, now);
  }
}

bool Operations::file_request(Peer& peer, const Packet& packet, Clock now) {
  const std::shared_ptr<Task> task = peer.transfer;
  const auto kind =
      packet.type == kFirmwareRequest ? OperationKind::kUpgrade : OperationKind::kImport;
  if (task == nullptr || task->image == nullptr || task->record.kind != kind ||
      packet.payload.size() != 8) {
    return false;
  }
  // DELIBERATE: the device writes count and length of its file request in little-endian order, and
  // the name behind the counted payload, unlike every other packet.
  const View asked = packet.payload;
  const std::uint32_t count = asked[2] | (asked[3] * 0x100U);
  const std::uint32_t length =
      asked[4] | (asked[5] * 0x100U) | (asked[6] * 0x10000U) | (asked[7] * 0x1000000U);
  if (count != task->record.fragments || length != task->record.length ||
      text_of(packet.rest) != task->record.name) {
    return false;
  }
  resume(peer, task, now);
  if (packet.seq >= peer.highest_seq.value_or(0)) { // not a late copy amid the fragments
    task->record.asked = 0;
    change(*task, OperationState::kTransferring, "", now);
  }
  return true;
}

void Operations::fragment_request(Peer& peer, const Packet& packet, Clock now) {
  const std::shared_ptr<Task> task = peer.transfer;
  const auto kind =
      packet.type == kFirmwareFragment ? OperationKind::kUpgrade : OperationKind::kImport;
  if (task == nullptr || task->image == nullptr || task->record.kind != kind ||
      packet.payload.size() < 2) {
    return;
  }
  const std::uint16_t number = u16_at(packet.payload, 0);
  if (number >= task->record.fragments) {
    return;
  }
  resume(peer, task, now);
  const View data = task->image->fragment(number);
  const Header header = answer_header(packet, peer.device.session, task->image->crc(number),
                                      static_cast<std::uint16_t>(4 + data.size()));
  std::array<std::uint8_t, kHeaderBytes + 4> head{};
  std::copy(header.begin(), header.end(), head.begin());
  put_u16(&head[kHeaderBytes], number);
  output_.send(packet.from, head, data);
  progress(*task, number + 1U, now);
}

/// Fragments are first asked for in rising order, so the highest one tells how far a device is.
void Operations::progress(Task& task, std::uint32_t asked, Clock now) {
  Operation& record = task.record;
  const std::uint32_t before = percent(record);
  record.asked = std::max(record.asked, asked);
  const bool whole = record.asked == record.fragments;
  const auto state = whole ? OperationState::kRestarting : OperationState::kTransferring;
  if (state != record.state || percent(record) != before) {
    change(task, state, whole ? "the device has asked for the whole file" : "", now);
  }
}

void Operations::tick(Clock now) {
  std::vector<Peer*> due;
  for (const auto& [id, peer] : under_way_) {
    if (peer->tasks.front()->deadline_ms <= now.steady_ms) {
      due.push_back(peer);
    }
  }
  for (Peer* peer : due) {
    const std::shared_ptr<Task> task = peer->tasks.front();
    expire(*peer, *task, now);
  }
}

void Operations::expire(Peer& peer, Task& task, Clock now) {
  if (task.record.state == OperationState::kSent) {
    if (++task.tries < kTries) {
      task.deadline_ms = now.steady_ms + kGap_ms;
      send(peer, task);
      change(task, OperationState::kSent, "", now);
    } else {
      finish(peer, task, OperationState::kRefused,
             "no acknowledgement to " + std::to_string(task.record.sends) + " sends", now);
    }
    return;
  }
  const bool heard = now.unix_s - peer.device.last_seen < settings_.dead_after_s;
  finish(peer, task, heard ? OperationState::kFailed : OperationState::kDead,
         "no progress for " + std::to_string(settings_.dead_after_s) + " seconds, and the device " +
             (heard ? "went on without it" : "is silent"),
         now);
}

std::optional<std::int64_t> Operations::next_deadline() const {
  std::optional<std::int64_t> next;
  for (const auto& [id, peer] : under_way_) {
    const std::int64_t deadline = peer->tasks.front()->deadline_ms;
    next = next ? std::min(*next, deadline) : deadline;
  }
  return next;
}

} // namespace server
