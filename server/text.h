// Text for a terminal: tables, times, sizes. What devices sent is made harmless first.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace server {

using Row = std::vector<std::string>;

/// Control characters as \xNN, so that no device can steer the terminal.
std::string printable(const std::string& text);
/// Columns of equal width, two blanks apart, the first row underlined; no trailing blanks.
std::string table(const std::vector<Row>& rows);
/// "2001-09-10 03:48:04" (UTC); "-" for 0.
std::string utc_text(std::int64_t seconds);
/// "5 s", "3 min", "2 h", "4 d"
std::string span_text(std::int64_t seconds);
/// "512 B", "1.5 KiB", with a minus sign when negative
std::string bytes_text(std::int64_t bytes);
/// For a path or query of a URL.
std::string percent_encoded(const std::string& text);

} // namespace server
