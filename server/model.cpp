#include "server/model.h"
#include "server/operation.h"

namespace server {

std::string ip_text(std::uint32_t ip) {
  return std::to_string(ip >> 24) + "." + std::to_string((ip >> 16) & 0xFF) + "." +
         std::to_string((ip >> 8) & 0xFF) + "." + std::to_string(ip & 0xFF);
}

std::string to_text(const Address& address) {
  return ip_text(address.ip) + ":" + std::to_string(address.port);
}

const char* to_text(OperationKind kind) {
  switch (kind) {
  case OperationKind::kSet:
    return "set";
  case OperationKind::kCommit:
    return "commit";
  case OperationKind::kRestoreDefaults:
    return "restore-defaults";
  case OperationKind::kStatus:
    return "status";
  case OperationKind::kUpgrade:
    return "upgrade";
  case OperationKind::kImport:
    return "import";
  }
  return "";
}

const char* to_text(OperationState state) {
  switch (state) {
  case OperationState::kQueued:
    return "queued";
  case OperationState::kSent:
    return "sent";
  case OperationState::kAccepted:
    return "accepted";
  case OperationState::kTransferring:
    return "transferring";
  case OperationState::kRestarting:
    return "restarting";
  case OperationState::kDone:
    return "done";
  case OperationState::kRefused:
    return "refused";
  case OperationState::kFailed:
    return "failed";
  case OperationState::kDead:
    return "dead";
  }
  return "";
}

bool is_final(OperationState state) {
  return state == OperationState::kDone || state == OperationState::kRefused ||
         state == OperationState::kFailed || state == OperationState::kDead;
}

bool is_transfer(OperationKind kind) {
  return kind == OperationKind::kUpgrade || kind == OperationKind::kImport;
}

} // namespace server
