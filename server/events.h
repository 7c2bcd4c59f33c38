// What the engine tells the rest of the server: one record per thing that happened.
#pragma once

#include "server/operation.h"
#include "server/reports.h"

#include <string>
#include <variant>

namespace server {

struct Registered {
  Device device;
  bool restarted = false; ///< the device itself started anew, as far as one can tell
};
struct Asked { ///< kServerTime or kKeepaliveParam
  Type type;
};
struct Alive {};
struct VariablesReported {
  VariableKind kind;
  VariableReport report;
};
struct LogReported {
  std::vector<LogLine> lines;
  std::uint64_t digest; ///< of the payload: a report that was sent again has the same
};
struct TrafficReported {
  TrafficHour hour;
  std::uint64_t digest;
};
struct PositionReported {
  Position position;
};
struct OperationChanged {
  Operation operation;
};

struct Event {
  std::string serial;
  std::int64_t time = 0;
  std::variant<Registered, Asked, Alive, VariablesReported, LogReported, TrafficReported,
               PositionReported, OperationChanged>
      what;
};

} // namespace server
