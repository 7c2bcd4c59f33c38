#include "variables/keys.h"

#include "core/text.h"

#include <cstdio>
#include <cstring>

namespace rcmd {

namespace {

constexpr char kWirelessStem[] = "wl";
constexpr char kWanStem[] = "wan";

NvramKey unit_key(const char* stem, int unit, const char* suffix) {
  NvramKey key;
  std::snprintf(key.text, sizeof key.text, "%s%d_%s", stem, unit, suffix);
  return key;
}

} // namespace

NvramKey variable_key(const VariableEntry& row, int unit) {
  switch (row.scope) {
  case kPerWireless:
    return unit_key(kWirelessStem, unit, row.name + std::strlen("wl_"));
  case kPerWan:
    return unit_key(kWanStem, unit, row.name + std::strlen("wan_"));
  default:
    NvramKey key;
    std::snprintf(key.text, sizeof key.text, "%s", row.name);
    return key;
  }
}

NvramKey wireless_key(int unit, const char* suffix) {
  return unit_key(kWirelessStem, unit, suffix);
}

char* stored_copy(const char* key) {
  return strdup(nvram_text(key));
}

} // namespace rcmd
