// The server's engine with a scripted clock, whose datagrams and events are kept for the test.
// Packets of devices are built by the house's own packet maker, not by the server's code.
#pragma once

#include "server/engine.h"
#include "tests/fake_platform/fixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace server {

constexpr Address kDevice{0x7F000001, 1161};
constexpr Address kOther{0x7F000001, 4000};

/// The REGISTER payload of a device that is up for `uptime_s`.
inline Bytes registration(std::uint32_t uptime_s, const std::string& firmware) {
  Bytes payload(200);
  payload[2] = static_cast<std::uint8_t>(uptime_s >> 8);
  payload[3] = static_cast<std::uint8_t>(uptime_s & 0xFF);
  std::copy(firmware.begin(), firmware.end(), payload.begin() + 72);
  return payload;
}

class TestImage final : public Image {
public:
  explicit TestImage(Bytes content) : content_(std::move(content)) { set_bytes(content_); }

private:
  Bytes content_;
};

class EngineFixture : public ::testing::Test, public Output {
protected:
  struct Sent {
    Address to;
    Bytes bytes;
  };

  EngineFixture() { start(); }

  void start() {
    settings.new_session = [this] {
      Session session{'S', 'E', 'S', 'S', 'I', 'O', 'N', '0'};
      session[7] = static_cast<std::uint8_t>('0' + ++sessions);
      return session;
    };
    engine = std::make_unique<Engine>(settings, *this);
  }

  void send(const Address& to, View head, View body) override {
    sent.push_back({to, {head.begin(), head.end()}});
    sent.back().bytes.insert(sent.back().bytes.end(), body.begin(), body.end());
  }
  void event(Event what) override { events.push_back(std::move(what)); }

  void hear(const Bytes& datagram, Address from = kDevice) {
    sent.clear();
    engine->datagram(from, datagram, now);
  }
  void hear(std::uint16_t type, std::uint16_t flags, std::uint32_t seq, const Bytes& payload = {},
            const std::string& serial = "SN0123456789") {
    hear(fake::server_packet(type, flags, seq, payload, "SESSION1", serial));
  }
  void enrol(std::uint32_t seq = 0, std::uint32_t uptime_s = 10,
             const std::string& firmware = "1.0", const std::string& serial = "SN0123456789") {
    hear(kRegister, 0, seq, registration(uptime_s, firmware), serial);
    sent.clear();
    events.clear();
  }
  void advance(std::int64_t milliseconds) {
    now.steady_ms += milliseconds;
    now.unix_s = kStart_s + now.steady_ms / 1000;
  }
  /// Lets the time pass, with every deadline met on its way.
  void pass(std::int64_t milliseconds) {
    const std::int64_t end = now.steady_ms + milliseconds;
    while (const auto next = engine->next_deadline()) {
      if (*next > end) {
        break;
      }
      advance(*next - now.steady_ms);
      engine->tick(now);
    }
    advance(end - now.steady_ms);
  }
  /// The device's acknowledgement of the last command sent.
  void acknowledge() {
    Bytes reply(sent.back().bytes.begin(), sent.back().bytes.begin() + 36);
    reply[31] = 1;
    reply[32] = reply[33] = 0xFF;
    reply[34] = reply[35] = 0;
    hear(reply);
  }
  [[nodiscard]] std::string answer() const {
    return sent.size() == 1 ? fake::to_hex(sent[0].bytes) : "not one answer";
  }
  template <typename What> const What* last_event() const {
    return events.empty() ? nullptr : std::get_if<What>(&events.back().what);
  }
  /// The latest record of an operation.
  [[nodiscard]] Operation operation(std::int64_t id) const {
    Operation found;
    for (const Event& event : events) {
      const auto* changed = std::get_if<OperationChanged>(&event.what);
      if (changed != nullptr && changed->operation.id == id) {
        found = changed->operation;
      }
    }
    return found;
  }
  Operation submit(Command command, const std::string& serial = "SN0123456789") {
    sent.clear();
    return engine->submit(serial, std::move(command), now);
  }

  static constexpr std::int64_t kStart_s = 1000000000; // 2001-09-09 01:46:40
  Settings settings;
  Clock now{0, kStart_s};
  int sessions = 0;
  std::vector<Sent> sent;
  std::vector<Event> events;
  std::unique_ptr<Engine> engine;
};

} // namespace server
