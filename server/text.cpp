#include "server/text.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace server {

namespace {

/// Characters of UTF-8 text, as columns go.
std::size_t width_of(const std::string& text) {
  return static_cast<std::size_t>(
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

std::string line_of(const Row& row, const std::vector<std::size_t>& widths, char pad) {
  std::string line;
  for (std::size_t i = 0; i < row.size(); i++) {
    line += i == 0 ? "" : "  ";
    line += row[i];
    line.append(widths[i] - width_of(row[i]), pad);
  }
  return line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
}

} // namespace

std::string printable(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
      result += escaped;
    } else {
      result += c;
    }
  }
  return result;
}

std::string table(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); i++) {
      widths[i] = std::max(widths[i], width_of(row[i]));
    }
  }
  std::string text = line_of(rows.front(), widths, ' ');
  text += line_of(Row(widths.size()), widths, '-');
  for (std::size_t i = 1; i < rows.size(); i++) {
    text += line_of(rows[i], widths, ' ');
  }
  return text;
}

std::string utc_text(std::int64_t seconds) {
  if (seconds == 0) {
    return "-";
  }
  const auto time = static_cast<std::time_t>(seconds);
  std::tm calendar{};
  char text[32];
  if (gmtime_r(&time, &calendar) == nullptr ||
      std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &calendar) == 0) {
    return std::to_string(seconds);
  }
  return text;
}

std::string span_text(std::int64_t seconds) {
  if (seconds < 120) {
    return std::to_string(std::max<std::int64_t>(seconds, 0)) + " s";
  }
  if (seconds < 7200) {
    return std::to_string(seconds / 60) + " min";
  }
  return seconds < 172800 ? std::to_string(seconds / 3600) + " h"
                          : std::to_string(seconds / 86400) + " d";
}

std::string bytes_text(std::int64_t bytes) {
  constexpr const char* kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB"};
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  while ((amount >= 1024 || amount <= -1024) && unit + 1 < std::size(kUnits)) {
    amount /= 1024;
    unit++;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", amount, kUnits[unit]);
  return text;
}

std::string percent_encoded(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' ||
        c == '_' || c == '.') {
      result += c;
    } else {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "%%%02X", byte);
      result += escaped;
    }
  }
  return result;
}

} // namespace server
