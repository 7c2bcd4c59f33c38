// A program that the supervisor keeps running between boot and restart.
#pragma once

#include "tools/virtual-router/child.h"
#include "tools/virtual-router/printer.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace virtual_router {

using Clock = std::chrono::steady_clock;

class Service {
public:
  Service(const std::string& speaker, std::vector<std::string> command, Printer& printer)
      : child_(speaker), command_(std::move(command)), printer_(printer) {}

  void start();
  void stop(); ///< its output up to its end is shown

  /// Notices that the program has ended by itself: says so and has it start again after a pause.
  /// @return false when it has ended at once too often, and will not be started any more
  [[nodiscard]] bool watch();

  /// Starts it again if the pause is over.
  void start_if_due();
  [[nodiscard]] std::optional<Clock::time_point> due() const { return due_; }

  void show_output();
  [[nodiscard]] int output() const { return child_.output(); }
  [[nodiscard]] pid_t pid() const { return child_.pid(); }

private:
  Child child_;
  std::vector<std::string> command_;
  Printer& printer_;
  Clock::time_point started_;
  std::optional<Clock::time_point> due_;
  int short_lives_ = 0;
};

} // namespace virtual_router
