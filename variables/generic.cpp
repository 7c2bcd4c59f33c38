#include "variables/generic.h"

#include "core/owned.h"
#include "platform/api/nvram.h"
#include "variables/keys.h"

namespace rcmd {

namespace {

constexpr std::int32_t kNoSuchScope = 2;

} // namespace

char* generic_nvram_get(std::int32_t unit, const VariableEntry* row) {
  if (row->scope > kPerWan) {
    // DELIBERATE: a row of an unknown scope reads as the number 2 in place of a text. There is no
    // such row, and no caller guards against one.
    return reinterpret_cast<char*>(kNoSuchScope);
  }
  return stored_copy(variable_key(*row, unit).text);
}

std::int32_t generic_nvram_set(std::int32_t unit, const char* value, const VariableEntry* row) {
  if (row->scope > kPerWan) {
    return kNoSuchScope;
  }
  const int result = nvram_set(variable_key(*row, unit).text, value);
  // DELIBERATE: the result shows for WAN variables alone; a plain or wireless one answers 2
  // whatever became of the write. Nobody reads the status.
  return row->scope == kPerWan ? result : kNoSuchScope;
}

} // namespace rcmd
