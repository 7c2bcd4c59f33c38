#include "variables/reports.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "core/text.h"
#include "reporters/status.h"
#include "variables/leases.h"
#include "variables/records.h"
#include "variables/stations.h"
#include "variables/tables.h"

#include <cstring>

namespace rcmd {

namespace {

constexpr int kUnits = 1;

int add_variable(RecordArea& area, const char* name, const char* value) {
  if (value == nullptr || !area.records.append("%s=%s", name, value)) {
    diag("%s is left out of the report\n", name);
    return kSuccess;
  }
  return end_record(area);
}

} // namespace

int do_send_single_variable(RcmContext* context, const VariableEntry* table, PacketType type) {
  RecordArea area = begin_records(*context, type, kPlain);
  for (const VariableEntry* row = table; row->name != nullptr; row++) {
    if (row->scope != kPlain) {
      continue;
    }
    OwnedText value(row->get(0, row));
    const int result = add_variable(area, row->name, value.get());
    // DELIBERATE: in this pass, unlike the scoped one, the texts are not released.
    value.release();
    if (result != kSuccess) {
      return result;
    }
  }
  return send_rest(area);
}

int do_send_multiple_variable(RcmContext* context, const VariableEntry* table, PacketType type,
                              VariableScope scope, int units) {
  RecordArea area = begin_records(*context, type, scope);
  for (int unit = 0; unit < units; unit++) {
    area.unit = static_cast<std::uint16_t>(unit);
    for (const VariableEntry* row = table; row->name != nullptr; row++) {
      if (row->scope != scope) {
        continue;
      }
      OwnedText value(row->get(unit, row));
      const int result = add_variable(area, row->name, value.get());
      if (value.get() == shared_empty_text) {
        value.release(); // it is nobody's to free
      }
      if (result != kSuccess) {
        return kFailure;
      }
    }
    // DELIBERATE: the area is not emptied behind a unit's last packet, so the next unit's first
    // packet would begin with these records again. Every caller asks for one unit.
    if (send_rest(area) != kSuccess) {
      return kFailure;
    }
  }
  return kSuccess;
}

int do_config_send(RcmContext* context) {
  if (do_send_single_variable(context, config_variables, kConf) != kSuccess ||
      do_send_multiple_variable(context, config_variables, kConf, kPerWireless, kUnits) !=
          kSuccess) {
    return kFailure;
  }
  return do_send_multiple_variable(context, config_variables, kConf, kPerWan, kUnits);
}

int do_information_send(RcmContext* context) {
  if (do_send_single_variable(context, information_variables, kStatus) != kSuccess ||
      do_send_multiple_variable(context, information_variables, kStatus, kPerWan, kUnits) !=
          kSuccess ||
      do_send_dhcp_status(context, kStatus) != kSuccess) {
    return kFailure;
  }
  const bool has_wireless = std::strcmp(nvram_text("wifi_supported"), "1") == 0;
  return has_wireless ? do_send_wl_stalist(context, kStatus) : kSuccess;
}

} // namespace rcmd
