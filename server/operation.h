// What was ordered of a device, and how it goes: the record that everyone sees. Times are seconds
// since the epoch.
#pragma once

#include <cstdint>
#include <string>

namespace server {

enum class OperationKind { kSet, kCommit, kRestoreDefaults, kStatus, kUpgrade, kImport };

/// queued -> sent -> done, and for what restarts the device
/// queued -> sent -> (accepted -> transferring ->) restarting -> done.
enum class OperationState {
  kQueued,       ///< waits for an earlier one on the same device
  kSent,         ///< waits for the device's acknowledgement, is sent again
  kAccepted,     ///< acknowledged; the device has yet to ask for the file
  kTransferring, ///< the device asks for fragments
  kRestarting,   ///< the device has all it needs; it has yet to register again
  kDone,
  kRefused, ///< never acknowledged
  kFailed,  ///< `detail` says why
  kDead,    ///< the device fell silent on the way
};

struct Operation {
  std::int64_t id = 0;
  std::string serial;
  OperationKind kind = OperationKind::kSet;
  OperationState state = OperationState::kQueued;
  std::string detail;
  std::int64_t created = 0;
  std::int64_t updated = 0;
  std::int64_t sends = 0; ///< how often the command went out
  std::string name;       ///< of the file, as the device is told; the rest is for transfers alone
  std::string path;
  std::uint64_t digest = 0; ///< of the file's bytes
  std::uint32_t length = 0;
  std::uint32_t fragments = 0;
  std::uint32_t asked = 0; ///< different fragments that the device has asked for
  std::string firmware_before;
  std::string firmware_after;
};

const char* to_text(OperationKind kind);
const char* to_text(OperationState state);
bool is_final(OperationState state);
bool is_transfer(OperationKind kind);

} // namespace server
