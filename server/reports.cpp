#include "server/reports.h"

#include <algorithm>
#include <charconv>
#include <ctime>
#include <string_view>

namespace server {

namespace {

constexpr std::size_t kRegistrationBytes = 200;
constexpr std::size_t kIdentityBytes = 64;

std::string_view chars_of(View bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

template <typename Number> bool read_number(std::string_view text, Number& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc{} && end == text.data() + text.size();
}

/// Year, month, day, hour, minute and second in UTC; nothing when the calendar has no such moment.
std::optional<std::int64_t> utc_time(const int (&part)[6]) {
  std::tm calendar{};
  calendar.tm_year = part[0] - 1900;
  calendar.tm_mon = part[1] - 1;
  calendar.tm_mday = part[2];
  calendar.tm_hour = part[3];
  calendar.tm_min = part[4];
  calendar.tm_sec = part[5];
  std::tm normalised = calendar;
  const std::time_t seconds = timegm(&normalised);
  if (normalised.tm_mon != calendar.tm_mon || normalised.tm_mday != calendar.tm_mday ||
      normalised.tm_hour != calendar.tm_hour || normalised.tm_min != calendar.tm_min) {
    return std::nullopt;
  }
  return seconds;
}

/// The six numbers of a moment, at the given columns of the text.
std::optional<std::int64_t> read_time(std::string_view text, const std::size_t (&columns)[6]) {
  int part[6];
  for (std::size_t i = 0; i < 6; i++) {
    const std::string_view digits = text.substr(columns[i], i == 0 ? 4 : 2);
    const bool all_digits =
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!all_digits || !read_number(digits, part[i])) {
      return std::nullopt;
    }
  }
  return utc_time(part);
}

/// The next line of `text`, without its line end; takes it away from `text`.
std::string_view take_line(std::string_view& text) {
  const std::size_t end = text.find('\n');
  const std::string_view line = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return line;
}

LogLine read_log_line(std::string_view line) {
  constexpr std::size_t kStampChars = 21; // "2001-09-10 03:48:04s "
  constexpr std::size_t kColumns[6] = {0, 5, 8, 11, 14, 17};
  LogLine result;
  const bool shaped = line.size() >= kStampChars && line[4] == '-' && line[7] == '-' &&
                      line[10] == ' ' && line[13] == ':' && line[16] == ':' && line[19] == 's' &&
                      line[20] == ' ';
  const auto time = shaped ? read_time(line, kColumns) : std::nullopt;
  result.time = time.value_or(0);
  result.message = time ? line.substr(kStampChars) : line;
  return result;
}

} // namespace

std::optional<std::int64_t> read_digits_time(std::string_view text) {
  constexpr std::size_t kColumns[6] = {0, 4, 6, 8, 10, 12};
  return text.size() == 14 ? read_time(text, kColumns) : std::nullopt;
}

bool read_registration(View payload, Device& device) {
  if (payload.size() < kRegistrationBytes) {
    return false;
  }
  device.uptime = u32_at(payload, 0);
  device.wan_address = u32_at(payload, 4);
  device.domain = text_of(payload.subspan(8, kIdentityBytes));
  device.firmware = text_of(payload.subspan(72, kIdentityBytes));
  device.model = text_of(payload.subspan(136, kIdentityBytes));
  return true;
}

std::optional<VariableReport> read_variables(View payload) {
  if (payload.size() < 4) {
    return std::nullopt;
  }
  VariableReport report{.scope = u16_at(payload, 0), .unit = u16_at(payload, 2), .values = {}};
  View left = payload.subspan(4);
  while (!left.empty()) {
    const std::string record = text_of(left);
    left = left.subspan(std::min(left.size(), record.size() + 1));
    const std::size_t equals = record.find('=');
    if (equals != std::string::npos && equals != 0) {
      report.values.emplace_back(record.substr(0, equals), record.substr(equals + 1));
    }
  }
  return report;
}

std::vector<LogLine> read_log(View payload) {
  std::vector<LogLine> lines;
  std::string_view text = chars_of(payload);
  while (!text.empty()) {
    const std::string_view line = take_line(text);
    if (!line.empty()) {
      lines.push_back(read_log_line(line));
    }
  }
  return lines;
}

std::optional<TrafficHour> read_traffic(View payload) {
  if (payload.size() < 8) {
    return std::nullopt;
  }
  TrafficHour hour;
  hour.tx = u32_at(payload, 0);
  hour.rx = u32_at(payload, 4);
  std::string_view text = chars_of(payload.subspan(8));
  while (!text.empty()) {
    std::string_view line = take_line(text);
    if (line.ends_with('\r')) {
      line.remove_suffix(1);
    }
    const std::size_t first = line.find(',');
    const std::size_t second = first == line.npos ? line.npos : line.find(',', first + 1);
    if (second == line.npos) {
      continue;
    }
    TrafficSample sample;
    const auto time = read_digits_time(line.substr(0, first));
    if (time && read_number(line.substr(first + 1, second - first - 1), sample.tx) &&
        read_number(line.substr(second + 1), sample.rx)) {
      sample.time = *time;
      hour.samples.push_back(sample);
    }
  }
  return hour;
}

std::optional<Position> read_position(View payload) {
  const std::string text = text_of(payload);
  const std::size_t separator = text.find(";long=");
  if (!text.starts_with("lat=") || separator == std::string::npos) {
    return std::nullopt;
  }
  Position position;
  position.latitude = text.substr(4, separator - 4);
  position.longitude = text.substr(separator + 6);
  return position;
}

std::uint64_t digest_of(View bytes) {
  std::uint64_t digest = 0xCBF29CE484222325;
  for (const std::uint8_t byte : bytes) {
    digest = (digest ^ byte) * 0x100000001B3;
  }
  return digest;
}

} // namespace server
