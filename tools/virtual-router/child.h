// A child process of the supervisor, in a process group of its own so that whatever it starts ends
// with it. The kernel ends it too when the supervisor is killed.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace virtual_router {

class Child {
public:
  /// @param speaker  the name that its output is shown under
  explicit Child(std::string speaker) : speaker_(std::move(speaker)) {}
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  /// Starts the program with its standard output and error on one pipe, standard input empty.
  /// Throws std::system_error when it cannot be started.
  void start(const std::vector<std::string>& arguments);

  [[nodiscard]] bool running() const { return pid_ > 0; }
  [[nodiscard]] pid_t pid() const { return pid_; }
  [[nodiscard]] const std::string& speaker() const { return speaker_; }
  /// Its output; -1 once that has ended. May be read after the process has ended.
  [[nodiscard]] int output() const { return output_; }
  /// @return what can be read now; empty when nothing can
  std::string read_output();

  /// Collects the process if it has ended by itself. @return its wait status, or nothing
  std::optional<int> collect();

  /// Ends it: SIGTERM, and SIGKILL when it is not gone in time. Its whole group is gone afterwards.
  void end(std::chrono::milliseconds patience);

private:
  [[nodiscard]] bool has_ended() const;
  int reap();

  std::string speaker_;
  pid_t pid_ = -1;
  int output_ = -1;
};

struct Finished {
  int status; ///< exit status; 128 and the signal's number for a process that a signal ended
  std::string output;
};
/// Runs a program to its end, ten seconds at most. Throws std::system_error when it cannot be
/// started.
Finished run_to_end(const std::vector<std::string>& arguments);

/// "ended with status 1", "was ended by signal 9".
std::string describe_end(int wait_status);

} // namespace virtual_router
