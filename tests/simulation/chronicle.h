// What happened in a simulated world: told line by line on request, counted always, and ended by
// the first broken promise, which leaves as an exception.
#pragma once

#include <cstdint>
#include <map>
#include <string>

namespace sim {

struct Violation {
  std::string text;
};

class Chronicle {
public:
  explicit Chronicle(bool verbose) : verbose_(verbose) {}

  /// One line with the world's time before it.
  void tell(const char* format, ...) __attribute__((format(printf, 2, 3)));
  /// @throw Violation always
  [[noreturn]] void violated(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void count(const char* what, std::uint64_t by = 1) { counts_[what] += by; }

  [[nodiscard]] bool verbose() const { return verbose_; }
  [[nodiscard]] const std::map<std::string, std::uint64_t>& counts() const { return counts_; }

private:
  bool verbose_;
  std::map<std::string, std::uint64_t> counts_;
};

/// The server's clock, which is right.
std::int64_t server_time_s();

/// "day 3 04:05:06.789"
std::string time_text(std::int64_t now_ms);

} // namespace sim
