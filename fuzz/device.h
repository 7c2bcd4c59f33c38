// A registered device on the pretend router, and the script of what the network brings it.
//
// A script is a run of steps, each a control byte, a length (u16) and so many bytes of datagram:
//   bit 0       the checksum stays as it is; otherwise it is mended
//   bit 1       `seq` stays as it is; otherwise it becomes the one that the device waits for
//   bit 2       no datagram: the wait, or the receiving, fails
//   bits 4 to 7 how long it takes to arrive: kDelays_s
// Whenever the device waits, the next step arrives. Once the script is over a good server takes its
// place: everything is acknowledged, so that exchanges and registrations end by themselves, and
// requests for fragments cannot be sent, so that downloads end as well.
#pragma once

#include "core/context.h"
#include "fuzz/input.h"
#include "tests/fake_platform/fake.h"

#include <functional>
#include <optional>

namespace fuzz {

constexpr int kDelays_s[16] = {0, 0, 0, 0, 1, 2, 4, 5, 6, 9, 10, 11, 30, 60, 120, 300};

enum StepBits : std::uint8_t { kRaw = 1, kForeignSeq = 2, kFails = 4 };

struct Step {
  std::uint8_t bits = 0;
  int after_s = 0;
  Bytes datagram;
};

/// A download that asks for nothing waits for ever, by design; only that ends so.
struct WaitsForEver {};

class Device {
public:
  explicit Device(Input input);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Runs `action` to its end, to a restart or to the end of the process.
  void run(const std::function<void()>& action);
  /// Delivers the steps to the management port, one after the other, while time passes.
  void play();

  /// Arms the timers as a registration does, the hourly one to come after five minutes.
  void arm_timers();

  rcmd::RcmContext context{};

private:
  std::optional<Step> next();
  int wait();
  int answer();
  void arrive(Step step);

  Input input_;
  bool over_ = false;
  bool receive_fails_ = false;
  std::size_t answered_ = 0; ///< packets sent when the last one was acknowledged
  int idle_waits_ = 0;
};

/// Writes a file of the device; the folder is one for all runs of the process, and what a run
/// leaves there the next one finds.
void write_file(const std::string& device_path, const Bytes& content);

/// A fresh pretend router with the settings, files and driver answers of a usual one.
void make_world();
void end_world();

} // namespace fuzz
