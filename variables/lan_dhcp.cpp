#include "variables/lan_dhcp.h"

#include "core/text.h"
#include "platform/api/nvram.h"
#include "variables/keys.h"

#include <cstdio>
#include <cstring>

namespace rcmd {

namespace {

NvramKey rule_key(const VariableEntry& row) {
  NvramKey key;
  std::snprintf(key.text, sizeof key.text, "lan_dhcp%d_rule",
                decimal(row.name + std::strlen("lan_dhcp_rule")));
  return key;
}

} // namespace

char* lan_dhcp_rule_get(std::int32_t, const VariableEntry* row) {
  return stored_copy(rule_key(*row).text);
}

std::int32_t lan_dhcp_rule_set(std::int32_t, const char* value, const VariableEntry* row) {
  return nvram_set(rule_key(*row).text, value);
}

} // namespace rcmd
