// Variable packets: the records of a report, written straight into the transmit buffer.
//
// Payload: variable_type (16 bits, the scope), unit (16 bits), then records, each the text
// name=value and one NUL; big-endian, worked out in docs/protocol.md. A packet is sent as soon as
// its records reach kFillLimit, so it holds at most one byte less than that plus one record.
#pragma once

#include "core/context.h"
#include "core/text.h"
#include "rcm/packet.h"
#include "variables/entry.h"

#include <cstddef>
#include <cstdint>

namespace rcmd {

constexpr std::size_t kFillLimit = 513;

struct VariablePrefix { // as on the wire
  be16 variable_type;
  be16 unit;
};
static_assert(sizeof(VariablePrefix) == 4 && alignof(VariablePrefix) == 1);

/// One run of packets. `records` stands behind the prefix in the context's transmit buffer; a NUL
/// fits behind whatever it accepts.
struct RecordArea {
  RcmContext& context;
  PacketType type;
  VariableScope variable_type;
  std::uint16_t unit;
  TextWriter records;
};

/// An empty area of unit 0.
RecordArea begin_records(RcmContext& context, PacketType type, VariableScope variable_type);

/// Ends the record that was appended last with its NUL, and sends the packet when the fill limit is
/// reached; the area is empty then. @return 0, or -1 when the packet was not acknowledged
[[nodiscard]] int end_record(RecordArea& area);

/// Sends what the area holds, if anything. Does not empty it. @return as end_record
[[nodiscard]] int send_rest(const RecordArea& area);

/// A packet of its own, whose only record is NAME=COUNT; what the area held is forgotten.
/// @return as end_record
[[nodiscard]] int send_count(RecordArea& area, const char* name, int count);

/// Sends one packet with the records that stand in the transmit buffer and waits for the
/// acknowledgement, sending again as kReportExchange says. Neither `seq` nor tx_length is touched.
/// @return 0 when it was acknowledged, else -1
[[nodiscard]] int send_variable_param(RcmContext& context, PacketType type,
                                      VariableScope variable_type, std::uint16_t unit,
                                      const TextWriter& records);

} // namespace rcmd
