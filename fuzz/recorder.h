// A registered device and the real server, joined by a perfect network, and a record of what went
// over it, in the forms that the fuzz targets read.
#pragma once

#include "fuzz/device.h"
#include "server/engine.h"

#include <deque>
#include <functional>
#include <memory>
#include <string>

namespace fuzz {

/// One step of a script: control byte, length, bytes.
Bytes step_of(std::uint8_t control, const Bytes& bytes);
void append(Bytes& to, const Bytes& more);

class Recorder : private server::Output {
public:
  Recorder();

  /// Forgets what was recorded so far and records what `action` brings about.
  void record(const std::function<void()>& action);
  /// Gives the device a command; the upper half of `control` is the pause before it.
  void command(std::uint8_t control, const Bytes& arguments, server::Command command);
  void pass(int seconds); ///< time passes, at most a pause of the engine's steps

  /// The datagrams that the device received since `from`, as a script.
  [[nodiscard]] Bytes script(std::size_t from = 0) const;
  [[nodiscard]] std::size_t received() const { return to_device_.size(); }
  /// The registration, and what was recorded since, as the steps of the engine's target.
  [[nodiscard]] Bytes engine_steps() const;
  [[nodiscard]] const std::deque<Bytes>& reports() const { return to_server_; }

  Device device{Input(nullptr, 0)};

private:
  void send(const server::Address& to, server::View head, server::View body) override;
  void event(server::Event) override {}
  [[nodiscard]] server::Clock clock() const;

  server::Engine engine_;
  Bytes registration_;
  Bytes steps_;
  std::deque<Bytes> to_device_;
  std::deque<Bytes> to_server_;
  std::uint8_t pause_ = 0;
};

} // namespace fuzz
