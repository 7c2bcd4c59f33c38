// The handlers of all variables: for every step a row, a unit and a text that is set and read back.

#include "core/context.h"
#include "fuzz/device.h"
#include "variables/tables.h"

#include <cstdlib>
#include <memory>

namespace {

using Text = std::unique_ptr<char, decltype(&std::free)>;

Text read(const rcmd::VariableEntry& row, std::int32_t unit) {
  Text text(row.get(unit, &row), std::free);
  fuzz::demand(text != nullptr, "a variable always reads as a text");
  return text;
}

// A rule reads as it was set, with its flag made 1 or 0; hidden; or as before, if it is no rule.
void check_rule(const std::string& before, const std::string& set, const std::string& after) {
  const std::size_t comma = set.rfind(',');
  const std::string rule = comma == std::string::npos
                               ? ""
                               : set.substr(0, comma) + (set.substr(comma) == ",1" ? ",1" : ",0");
  fuzz::demand(after == before || after == rule, "a rule reads as it was set, or as before");
}

void step(fuzz::Input& input) {
  const rcmd::VariableEntry& row = rcmd::config_variables[input.byte() % rcmd::kConfigRows];
  const std::int32_t unit = input.byte() % 4 == 3 ? input.u16() : 0;
  const std::string value = input.text().substr(0, rcmd::kBufferBytes - 41);
  const std::string before = read(row, unit).get();
  if (row.set != nullptr) {
    row.set(unit, value.c_str(), &row);
  }
  const std::string after = read(row, unit).get();
  if (std::string(row.name).find("rule") != std::string::npos && row.name[0] == 'f') {
    check_rule(before, value, after);
  }
  fuzz::demand(fake::world().nvram["wl0_maclist"].size() < 8 * 18, "a MAC list holds eight rules");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::make_world();
  fuzz::Input input(data, size);
  while (!input.empty()) {
    step(input);
  }
  fuzz::end_world();
  return 0;
}
