// Small text files, whole or not at all.
#pragma once

#include <optional>
#include <string>

namespace virtual_router {

/// @return the file's bytes, or nothing when it cannot be read
std::optional<std::string> read_file(const std::string& path);

/// Puts `content` in the place of whatever stands at `path`, in one step: a reader sees the old
/// file or the new one. Throws std::system_error.
void replace_file(const std::string& path, const std::string& content);

/// Adds a line; the line end is added here. Throws std::system_error.
void append_line(const std::string& path, const std::string& line);

} // namespace virtual_router
