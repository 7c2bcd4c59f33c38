// What the factory puts into a pretend device: its settings, and the few of them that are its
// identity and outlive a restore of defaults.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace virtual_router {

using Settings = std::map<std::string, std::string>;

struct Setting {
  const char* name;
  const char* value;
};

/// The table itself, in the order of the file.
const std::vector<Setting>& factory_table();

/// The table as a map, with the overrides of one device ("NAME=VALUE" each) laid over it. Throws
/// std::invalid_argument for a text without a name or without '='.
Settings factory_settings(const std::vector<std::string>& overrides);

/// The names that a restore of defaults leaves alone.
const std::vector<std::string>& identity_names();

} // namespace virtual_router
