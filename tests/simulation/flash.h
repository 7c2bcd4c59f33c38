// The flash partition "linux" and the tool that writes it: as the virtual router's, it looks at the
// whole image first. Writing takes time, in which the power may go.
#pragma once

#include "tests/simulation/chronicle.h"

#include <set>

namespace sim {

class Flash {
public:
  explicit Flash(Chronicle& chronicle);

  /// An image that the operator offered, sound or not.
  void offer(const std::string& image);
  /// "mtd upgrade_trx FILE linux": lets time pass. @return the exit status
  int upgrade(const std::string& image);
  /// The boot loader starts what is there; a torn image is replaced by the technician, for whom the
  /// router waits. @return the firmware's version
  [[nodiscard]] std::string boot();
  /// @throw Violation when it holds anything but one whole offered image, or what the tool had
  /// written when the power went
  void check() const;

private:
  Chronicle& chronicle_;
  std::string content_;
  std::set<std::string> offered_;
  bool writing_ = false; ///< still true at power-on: the power went while the tool wrote
};

/// An image for this router, checksum included.
std::string firmware_image(const std::string& version, std::string body);

} // namespace sim
