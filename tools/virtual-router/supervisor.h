// The init of a pretend device: boots it, keeps its programs running, serves its requests for a
// restart, and takes everything down at the end. One thread, one poll.
#pragma once

#include "tools/virtual-router/boot_time.h"
#include "tools/virtual-router/defaults.h"
#include "tools/virtual-router/device_folder.h"
#include "tools/virtual-router/fifo.h"
#include "tools/virtual-router/options.h"
#include "tools/virtual-router/printer.h"
#include "tools/virtual-router/service.h"

#include <memory>
#include <optional>
#include <vector>

namespace virtual_router {

class Supervisor {
public:
  /// @param programs  the folder that this project's programs lie in
  Supervisor(const Options& options, std::string programs, Printer& printer);
  ~Supervisor();
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  /// Runs the device until a signal asks for its end. @return the exit status
  int run();

private:
  void set_environment() const;
  void add_services(const BootTime& boot_time);
  void add_service(const std::string& speaker, std::vector<std::string> command,
                   const std::string& shows);
  void boot();
  void take_down();
  void restart(const std::string& reason);
  void start_services();

  void wait_for_something();
  [[nodiscard]] int milliseconds_to_wait() const;
  void serve_signals();
  void serve_requests();
  void watch_services();

  const Options& options_;
  std::string programs_;
  Printer& printer_;
  DeviceFolder folder_;
  Settings factory_;
  int signals_;
  std::optional<Fifo> console_;
  std::optional<Fifo> requests_;
  struct Started {
    std::unique_ptr<Service> service;
    std::string shows; ///< the device path whose being there says that it is at work
  };
  std::vector<Started> services_; ///< in the order of their start
  std::optional<int> end_status_;
};

} // namespace virtual_router
