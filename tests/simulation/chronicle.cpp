#include "tests/simulation/chronicle.h"

#include "tests/fake_platform/fake.h"

#include <cstdarg>
#include <cstdio>

namespace sim {

namespace {

std::string formatted(const char* format, va_list arguments) {
  char line[1024];
  std::vsnprintf(line, sizeof line, format, arguments);
  return line;
}

} // namespace

std::int64_t server_time_s() {
  return 1'000'000'000 + fake::world().now_ms / 1000;
}

std::string time_text(std::int64_t now_ms) {
  const std::int64_t seconds = now_ms / 1000;
  char text[64];
  std::snprintf(text, sizeof text, "day %lld %02lld:%02lld:%02lld.%03lld",
                static_cast<long long>(seconds / 86400),
                static_cast<long long>(seconds / 3600 % 24),
                static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60),
                static_cast<long long>(now_ms % 1000));
  return text;
}

void Chronicle::tell(const char* format, ...) {
  if (!verbose_) {
    return;
  }
  va_list arguments;
  va_start(arguments, format);
  std::printf("%s  %s\n", time_text(fake::world().now_ms).c_str(),
              formatted(format, arguments).c_str());
  va_end(arguments);
}

void Chronicle::violated(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  throw Violation{time_text(fake::world().now_ms) + ": " + text};
}

} // namespace sim
