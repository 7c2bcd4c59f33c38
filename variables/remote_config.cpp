#include "variables/remote_config.h"

#include "core/owned.h"
#include "core/say.h"
#include "rcm/packet.h"
#include "variables/codec.h"
#include "variables/records.h"
#include "variables/tables.h"

namespace rcmd {

namespace {

void load_records(RcmContext& context, std::uint16_t length) {
  char* records = reinterpret_cast<char*>(context.rx_buf) + kHeaderBytes + sizeof(VariablePrefix);
  init_cgi(nullptr, 0);
  // DELIBERATE: `length` counts the prefix as well, so that 4 bytes behind the last record are
  // parsed too, with whatever an older datagram left there; the guard behind the buffer ends them.
  // A payload that is too short for the prefix has no records.
  init_cgi(records, length < sizeof(VariablePrefix) ? 0 : length);
}

} // namespace

void rcm_config_func(RcmContext* context) {
  const std::uint16_t length = rx_header(*context).length;
  const auto& prefix = *reinterpret_cast<const VariablePrefix*>(rx_payload(*context));
  const std::uint16_t variable_type = prefix.variable_type;
  const std::uint16_t unit = prefix.unit;
  diag("payloadlen = %d ,variable_type = %d\n", length, variable_type);
  load_records(*context, length);
  diag("cgi count = %d \n", count_cgi());
  do_upgrade_cgi(variable_type, unit);
  acknowledge_request(*context);
}

void do_upgrade_cgi(std::uint16_t, std::uint16_t unit) {
  // DELIBERATE: rows of every scope are applied, whatever variable_type the request names, all of
  // them to its one unit.
  for (const VariableEntry* row = config_variables; row->name != nullptr; row++) {
    const char* value = get_cgi(row->name);
    if (value == nullptr) {
      continue;
    }
    diag("%s(%d)=%s\n", row->name, unit, value);
    if (row->set != nullptr) {
      ignore(row->set(unit, value, row)); // the server is answered whatever a writer returns
    }
  }
}

} // namespace rcmd
