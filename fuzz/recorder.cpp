#include "fuzz/recorder.h"

#include "core/owned.h"
#include "rcm/client.h"
#include "rcm/registration.h"

#include <arpa/inet.h>

using fake::world;

namespace fuzz {

namespace {

constexpr std::uint8_t kDatagramStep = 0; // of the engine's target

server::Settings settings() {
  server::Settings settings;
  settings.new_session = [] { return server::Session{'S', 'E', 'S', 'S', 'I', 'O', 'N', '2'}; };
  return settings;
}

} // namespace

Bytes step_of(std::uint8_t control, const Bytes& bytes) {
  Bytes step{control, static_cast<std::uint8_t>(bytes.size() >> 8),
             static_cast<std::uint8_t>(bytes.size() & 0xFF)};
  append(step, bytes);
  return step;
}

void append(Bytes& to, const Bytes& more) {
  to.insert(to.end(), more.begin(), more.end());
}

Recorder::Recorder() : engine_(settings(), *this) {
  world().waitfor_result = nullptr;
  world().net_call_fails = nullptr;
  world().send_fails = nullptr;
  world().on_send = [this](const fake::Datagram& sent) {
    to_server_.push_back(sent.bytes);
    append(steps_, step_of(static_cast<std::uint8_t>(pause_ << 4 | kDatagramStep), sent.bytes));
    pause_ = 2;
    engine_.datagram({0x7F000001, 1161}, sent.bytes, clock());
  };
  register_fd_desc(device.context.sock, rcmd::rcm_receive_func, &device.context);
  rcmd::ignore(rcmd::do_rcm_register(&device.context));
  registration_ = step_of(kDatagramStep, to_server_.front());
}

void Recorder::record(const std::function<void()>& action) {
  steps_.clear();
  to_device_.clear();
  to_server_.clear();
  pause_ = 2;
  device.run(action);
}

void Recorder::command(std::uint8_t control, const Bytes& arguments, server::Command command) {
  append(steps_, step_of(control, arguments));
  engine_.submit("SN0123456789", std::move(command), clock());
  device.run([] { world().run_for(1); });
}

void Recorder::pass(int seconds) {
  pause_ = seconds >= 120 ? 12 : 11;
  world().run_for(seconds);
}

Bytes Recorder::script(std::size_t from) const {
  Bytes script;
  for (std::size_t i = from; i < to_device_.size(); i++) {
    append(script, step_of(0, to_device_[i]));
  }
  return script;
}

Bytes Recorder::engine_steps() const {
  Bytes steps = registration_;
  append(steps, steps_);
  return steps;
}

void Recorder::send(const server::Address&, server::View head, server::View body) {
  Bytes datagram(head.begin(), head.end());
  datagram.insert(datagram.end(), body.begin(), body.end());
  to_device_.push_back(datagram);
  world().deliver(1161, datagram, 20);
}

server::Clock Recorder::clock() const {
  return {world().now_ms, world().wall_base + world().now_ms / 1000};
}

} // namespace fuzz
