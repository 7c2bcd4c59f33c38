// What the daemon's variables mean, written down once more and not with the daemon's code: which
// keys a CONFIG request sets, and what a report says of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sim {

using Settings = std::map<std::string, std::string>;

/// The value of a key; empty when it is absent.
std::string value_of(const Settings& settings, const std::string& key);

/// One value that the server sets.
void apply_value(Settings& settings, unsigned unit, const std::string& name,
                 const std::string& value);

/// The records of a request, `length` bytes from `records` on; a record that begins there is taken
/// to its NUL. As the daemon does, each record's first '=' is overwritten by a NUL.
void apply_records(Settings& settings, unsigned unit, char* records, std::size_t length);

/// What a CONF report says of a variable of unit 0.
std::string reported_setting(const Settings& settings, const std::string& name);

/// The lines "name=value" of a configuration file.
/// @return false when one is malformed, or when it holds a NUL: nothing is applied then
[[nodiscard]] bool apply_import(Settings& settings, const std::string& text);

} // namespace sim
