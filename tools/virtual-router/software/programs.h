// The pretend programs of the device, as far as they exist: which of them have been stopped, and
// what signals they were sent. Kept in "/run", which a boot empties, so every boot starts them all.
#pragma once

#include <string>
#include <vector>

namespace virtual_router {

class Programs {
public:
  /// @param root  the device's folder
  explicit Programs(std::string root) : root_(std::move(root)) {}

  [[nodiscard]] static bool known(const std::string& name);
  [[nodiscard]] bool stopped(const std::string& name) const;

  /// Delivers a signal. 15 and 9 stop the program; any other is only written down here.
  /// @return false when no such program runs
  [[nodiscard]] bool signal(const std::string& name, int number) const;

  /// @return whether the program was sent signal 1 since the last question
  [[nodiscard]] bool take_hangup(const std::string& name) const;

private:
  [[nodiscard]] std::string note(const std::string& kind, const std::string& name) const {
    return root_ + "/run/" + name + "." + kind;
  }
  std::string root_;
};

} // namespace virtual_router
