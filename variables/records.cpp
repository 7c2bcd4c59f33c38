#include "variables/records.h"

#include "core/owned.h"
#include "core/result.h"
#include "rcm/exchange.h"

namespace rcmd {

RecordArea begin_records(RcmContext& context, PacketType type, VariableScope variable_type) {
  char* place = reinterpret_cast<char*>(tx_payload(context)) + sizeof(VariablePrefix);
  return {context, type, variable_type, 0, {place, kMaxPayloadBytes - sizeof(VariablePrefix), 0}};
}

int end_record(RecordArea& area) {
  area.records.used++; // the NUL stands there already
  if (area.records.used < kFillLimit) {
    return kSuccess;
  }
  const int result = send_rest(area);
  area.records.used = 0;
  return result;
}

int send_rest(const RecordArea& area) {
  if (area.records.used == 0) {
    return kSuccess;
  }
  return send_variable_param(area.context, area.type, area.variable_type, area.unit, area.records);
}

int send_count(RecordArea& area, const char* name, int count) {
  area.records.used = 0;
  ignore(area.records.append("%s=%d", name, count)); // fits an empty packet
  area.records.used++;
  return send_rest(area);
}

int send_variable_param(RcmContext& context, PacketType type, VariableScope variable_type,
                        std::uint16_t unit, const TextWriter& records) {
  begin_packet(context, type, kReportFlags);
  auto& prefix = *reinterpret_cast<VariablePrefix*>(tx_payload(context));
  prefix.variable_type = static_cast<std::uint16_t>(variable_type);
  prefix.unit = unit;
  const std::size_t bytes = finish_packet(context, sizeof prefix + records.used);
  // DELIBERATE: `seq` does not advance, so that all packets of one report carry the same.
  return exchange(context, bytes, kReportExchange) == Answer::kMatched ? kSuccess : kFailure;
}

} // namespace rcmd
