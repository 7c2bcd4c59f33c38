#include "tools/ring-syslogd/ring_line.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace rcmd {

namespace {

constexpr const char* kFacilities[] = {
    "kern",   "user",   "mail",     "daemon", "auth",   "syslog", "lpr",    "news",
    "uucp",   "cron",   "authpriv", "ftp",    "ntp",    "audit",  "alert",  "clock",
    "local0", "local1", "local2",   "local3", "local4", "local5", "local6", "local7"};
constexpr const char* kLevels[] = {"emerg",   "alert",  "crit", "err",
                                   "warning", "notice", "info", "debug"};
constexpr unsigned kUserNotice = 13;
constexpr unsigned kPriorities = 24 * 8;

struct Text {
  const char* at;
  std::size_t left;

  void skip(std::size_t count) {
    at += count;
    left -= count;
  }
};

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// Takes "<PRI>" off. What is no priority is left alone.
unsigned take_priority(Text& text) {
  unsigned value = 0;
  std::size_t i = 1;
  for (; i < text.left && i < 4 && is_digit(text.at[i]); i++) {
    value = value * 10 + static_cast<unsigned>(text.at[i] - '0');
  }
  if (text.left == 0 || text.at[0] != '<' || i == 1 || i >= text.left || text.at[i] != '>' ||
      value >= kPriorities) {
    return kUserNotice;
  }
  text.skip(i + 1);
  return value;
}

// Takes "Mon DD HH:MM:SS " off.
void take_stamp(Text& text) {
  constexpr char kShape[] = "   ?  ?  :  :  ?"; // a blank stands for anything, '?' for a blank
  constexpr std::size_t kChars = sizeof kShape - 1;
  if (text.left < kChars) {
    return;
  }
  for (std::size_t i = 0; i < kChars; i++) {
    const char wanted = kShape[i] == '?' ? ' ' : kShape[i];
    if (kShape[i] != ' ' && text.at[i] != wanted) {
      return;
    }
  }
  text.skip(kChars);
}

bool is_control(char c) {
  const auto code = static_cast<unsigned char>(c);
  return code < ' ' || code == 0x7F;
}

void trim(Text& text) {
  const auto blank = [](char c) { return c == ' ' || is_control(c); };
  while (text.left > 0 && blank(text.at[0])) {
    text.skip(1);
  }
  while (text.left > 0 && blank(text.at[text.left - 1])) {
    text.left--;
  }
}

} // namespace

std::size_t make_ring_line(char (&line)[kMaxLineChars + 1], const RingStamp& stamp,
                           const char* message, std::size_t length) {
  Text text{message, length};
  const unsigned priority = take_priority(text);
  take_stamp(text);
  trim(text);
  if (text.left == 0) {
    return 0;
  }
  const std::int64_t seconds = std::max<std::int64_t>(stamp.uptime_s, 0);
  const int start = std::snprintf(
      line, sizeof line, "%c %" PRId64 " days %02d:%02d:%02d %.64s %s.%s ", kUnreported,
      seconds / 86400, static_cast<int>(seconds / 3600 % 24), static_cast<int>(seconds / 60 % 60),
      static_cast<int>(seconds % 60), stamp.host, kFacilities[priority / 8], kLevels[priority % 8]);
  auto used = static_cast<std::size_t>(start);
  const std::size_t taken = std::min(text.left, kMaxLineChars - used - 1);
  std::replace_copy_if(text.at, text.at + taken, line + used, is_control, ' ');
  used += taken;
  line[used] = '\n';
  return used + 1;
}

} // namespace rcmd
