// The server: each step is an operation, a length (u16) and its bytes; see Step below.

#include "server/engine.h"

#include "fuzz/input.h"
#include "server/json.h"

#include <memory>

namespace {

constexpr std::int64_t kPauses_ms[16] = {0,    1,    20,   499,   500,    2000,   4000,   5000,
                                         8000, 9000, 1000, 60000, 120000, 299000, 301000, 3600000};

/// The lower half of a step's first byte; the upper half is the pause before it.
enum Step : std::uint8_t {
  kDatagram = 0, ///< from one of four addresses, 0 to 3
  kRawDatagram = 4,
  kSet = 5, ///< the rest are commands to the first device that there is
  kPlain = 6,
  kUpgrade = 7,
  kImport = 8,
  kNothing = 9,
};

class SomeImage : public server::Image {
public:
  explicit SomeImage(std::size_t size) : bytes_(size, 0x5A) { set_bytes(bytes_); }

private:
  server::Bytes bytes_;
};

class Checks : public server::Output {
public:
  void send(const server::Address&, server::View head, server::View body) override {
    fuzz::demand(head.size() >= 36 && head.size() + body.size() <= server::kLargestDatagram,
                 "a device can receive whatever is sent");
    sent++;
  }
  void event(server::Event event) override {
    fuzz::demand(!server::dump_json(server::to_json(event)).empty(), "every event can be told");
  }
  std::size_t sent = 0;
};

server::Settings settings() {
  server::Settings settings;
  settings.most_devices = 4;
  settings.new_session = [] { return server::Session{1, 2, 3, 4, 5, 6, 7, 8}; };
  return settings;
}

server::Command command(std::uint8_t step, fuzz::Input input) {
  if (step == kSet) {
    const std::uint16_t unit = input.u16();
    server::Values values;
    while (!input.empty()) {
      const std::string name = input.text();
      values.emplace_back(name, input.text());
    }
    return server::make_set(unit, values);
  }
  if (step == kPlain) {
    constexpr server::OperationKind kKinds[] = {server::OperationKind::kCommit,
                                                server::OperationKind::kRestoreDefaults,
                                                server::OperationKind::kStatus};
    return server::make_plain(kKinds[input.byte() % 3]);
  }
  const auto image = std::make_shared<SomeImage>(input.u16());
  return server::make_transfer(step == kUpgrade ? server::OperationKind::kUpgrade
                                                : server::OperationKind::kImport,
                               image, input.text(), "/images/some");
}

class World {
public:
  void play(fuzz::Input& input) {
    const std::uint8_t control = input.byte();
    const std::uint16_t length = input.u16();
    const fuzz::Bytes bytes = input.bytes(length);
    now_.steady_ms += kPauses_ms[control >> 4];
    now_.unix_s = 1'000'000'000 + now_.steady_ms / 1000;
    const std::uint8_t step = control & 0x0F;
    if (step <= kRawDatagram) {
      datagram(step, bytes);
    } else if (step < kNothing) {
      submit(step, {bytes.data(), bytes.size()});
    }
    engine_.tick(now_);
    const auto next = engine_.next_deadline();
    fuzz::demand(!next || *next > now_.steady_ms, "a tick leaves nothing to be done");
  }

  void check() {
    fuzz::demand(engine_.devices().size() <= 4, "there is a bound to what devices take");
  }

private:
  void datagram(std::uint8_t step, fuzz::Bytes bytes) {
    if (step != kRawDatagram) {
      fuzz::mend(bytes);
    }
    const auto exact = std::make_unique<std::uint8_t[]>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), exact.get());
    const server::Address from{0x0A000001U + step % 4U, 1161};
    const std::size_t before = output_.sent;
    engine_.datagram(from, {exact.get(), bytes.size()}, now_);
    fuzz::demand(output_.sent <= before + 2, "a datagram is answered by one, and a command");
  }

  void submit(std::uint8_t step, fuzz::Input input) {
    const auto devices = engine_.devices();
    if (devices.empty()) {
      return;
    }
    try {
      engine_.submit(devices.front().serial, command(step, input), now_);
    } catch (const std::invalid_argument&) { // what cannot be carried is refused by this alone
    }
  }

  Checks output_;
  server::Engine engine_{settings(), output_};
  server::Clock now_{0, 1'000'000'000};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  World world;
  fuzz::Input input(data, size);
  while (!input.empty()) {
    world.play(input);
  }
  world.check();
  return 0;
}
