// The folder that a pretend device lives in. Everything that the device knows as "/..." lies below
// it, and nothing outside it is ever written.
//
//   bin/              the device's own tools, links to programs of this project
//   dev/console       FIFO that the supervisor reads
//   dev/log           the syslog daemon's socket
//   dev/mtd/0, 1      flash partitions "linux" and "backup"
//   proc/mtd, proc/net/dev
//   tmp/              memory file system: empty after every boot
//   run/              how the pretend programs talk to each other: empty after every boot
//   flash/            the settings store's lasting image; the platform's
//   .virtual-router   says what the folder is; locked while a supervisor lives in it
//
// platform/virtual/device.h says what the platform looks for.
#pragma once

#include <string>
#include <vector>

namespace virtual_router {

/// A tool of the device, and the program beside this one that stands for it.
struct ToolLink {
  const char* name;
  const char* program;
};
const std::vector<ToolLink>& tool_links();

class DeviceFolder {
public:
  /// Makes the folder, or takes over one that an earlier run has left. Throws std::runtime_error
  /// when it holds something else, or when another virtual router lives in it.
  /// @param wanted  empty: a fresh temporary folder, removed when this object ends
  explicit DeviceFolder(const std::string& wanted);
  ~DeviceFolder();
  DeviceFolder(const DeviceFolder&) = delete;
  DeviceFolder& operator=(const DeviceFolder&) = delete;

  [[nodiscard]] const std::string& root() const { return root_; }
  /// Where a device path such as "/dev/console" lies.
  [[nodiscard]] std::string path(const std::string& device_path) const {
    return root_ + device_path;
  }

  /// Makes what is missing of the tree and empties the parts that live in the device's memory.
  void clear_memory() const;

  /// Links the tools to programs in `program_folder`. @return the names of those that are not there
  [[nodiscard]] std::vector<std::string> link_tools(const std::string& program_folder) const;

private:
  void lock();

  std::string root_;
  bool temporary_;
  int lock_fd_ = -1;
};

} // namespace virtual_router
