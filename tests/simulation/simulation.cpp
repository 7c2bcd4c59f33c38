#include "tests/simulation/simulation.h"

#include "tests/simulation/libc_calls.h"
#include "tests/simulation/link.h"
#include "tests/simulation/operator.h"

#include <cstdlib>
#include <unistd.h>

using fake::world;

namespace sim {

namespace {

struct WorldEnds {};

constexpr std::int64_t kMinute_ms = 60'000;
constexpr std::int64_t kHour_ms = 60 * kMinute_ms;
constexpr std::uint16_t kDevicePort = 1161;

class Simulation {
public:
  Simulation(std::uint64_t seed, bool verbose);
  Outcome run();

private:
  void wire();
  void begin_bad_weather();
  void begin_good_weather();
  void change_faults();
  void next_power_cut();
  void next_server_death();
  void next_order();
  void next_lan_message();
  void rescue();
  void check_registered();
  void end_good_weather();
  void lan_message();
  void in_bad_weather(std::int64_t after_ms, void (Simulation::*action)());
  [[nodiscard]] std::int64_t bound_ms() const;

  Random random_;
  Chronicle chronicle_;
  Faults faults_;
  Link link_;
  Headquarters headquarters_;
  Router router_;
  Operator operator_;
  int spell_ = 0; ///< of weather, good or bad
  bool bad_ = false;
  int spells_left_;
  std::int64_t good_since_ms_ = 0;
  std::int64_t status_order_ = 0;
  bool lan_floods_;
};

Simulation::Simulation(std::uint64_t seed, bool verbose)
    : random_(seed, 6), chronicle_(verbose), link_(seed, faults_, chronicle_),
      headquarters_(seed, chronicle_), router_(seed, faults_, chronicle_),
      operator_(seed, headquarters_, router_, chronicle_), spells_left_(random_.between(2, 5)),
      lan_floods_(random_.percent(3)) {
  constexpr int kIntervals_s[] = {20, 60, 120, 120, 300};
  constexpr int kRetries[] = {0, 1, 3, 10};
  headquarters_.settings().keepalive_interval = random_.pick(kIntervals_s);
  headquarters_.settings().keepalive_maxretries = random_.pick(kRetries);
  wire();
}

void Simulation::wire() {
  router_.on_send = [this](const fake::Bytes& datagram) {
    const server::Address from{router_.address(), kDevicePort};
    if (from.ip == 0) {
      return; // the WAN link is down
    }
    link_.carry(datagram, [this, from](const fake::Bytes& arrived, bool altered) {
      headquarters_.datagram(from, arrived, altered);
    });
  };
  headquarters_.on_send = [this](const server::Address& to, const server::Bytes& datagram) {
    link_.carry(datagram, [this, to](const fake::Bytes& arrived, bool altered) {
      if (router_.is_running() && to.ip == router_.address() && to.port == kDevicePort) {
        router_.receive(kDevicePort, arrived, altered, "10.0.0.1", 1162);
      }
    });
  };
  headquarters_.on_event = [this](const server::Event& event) {
    if (const auto* log = std::get_if<server::LogReported>(&event.what)) {
      for (const server::LogLine& line : log->lines) {
        if (!router_.reports().was_reported(line.message)) {
          chronicle_.violated("the server took a log line that was never reported");
        }
      }
    }
    operator_.event(event);
  };
  router_.on_answer = [this](std::uint32_t seq, std::uint16_t type) {
    operator_.answered(seq, type);
  };
  router_.on_import = [this](const std::string& content) { operator_.imported(content); };
}

Outcome Simulation::run() {
  Outcome outcome;
  try {
    headquarters_.start(true);
    begin_good_weather();
    next_order();
    next_lan_message();
    for (;;) {
      router_.live();
    }
  } catch (const WorldEnds&) {
    chronicle_.tell("the world ends well");
  } catch (const Violation& violation) {
    outcome.violation = violation.text;
  } catch (const std::exception& error) {
    outcome.violation = time_text(world().now_ms) + ": " + error.what();
  }
  end_holdings();
  outcome.device_days = static_cast<double>(world().now_ms) / (24.0 * kHour_ms);
  outcome.counts = chronicle_.counts();
  return outcome;
}

/// Schedules what belongs to the present spell of bad weather alone.
void Simulation::in_bad_weather(std::int64_t after_ms, void (Simulation::*action)()) {
  world().after(after_ms, [this, action, spell = spell_] {
    if (bad_ && spell == spell_) {
      (this->*action)();
    }
  });
}

void Simulation::begin_bad_weather() {
  spell_++;
  bad_ = true;
  const std::int64_t duration_ms = random_.between(20 * kMinute_ms, 10 * kHour_ms);
  chronicle_.tell("bad weather for %lld minutes", static_cast<long long>(duration_ms / kMinute_ms));
  change_faults();
  in_bad_weather(random_.between(kMinute_ms, 4 * kHour_ms), &Simulation::next_power_cut);
  in_bad_weather(random_.between(kMinute_ms, 4 * kHour_ms), &Simulation::next_server_death);
  in_bad_weather(duration_ms, &Simulation::begin_good_weather);
}

void Simulation::change_faults() {
  constexpr double kLosses[] = {0, 0, 2, 10, 30, 60, 100};
  constexpr double kDuplicates[] = {0, 2, 20};
  constexpr double kAlterations[] = {0, 0, 1, 10};
  constexpr double kFailures[] = {0, 0, 0, 1, 10};
  constexpr int kDelays_ms[] = {50, 300, 1500, 6000, kMostDelay_ms};
  faults_ = {};
  faults_.lose = random_.pick(kLosses);
  faults_.duplicate = random_.pick(kDuplicates);
  faults_.corrupt = random_.pick(kAlterations);
  faults_.truncate = random_.pick(kAlterations);
  faults_.most_delay_ms = random_.pick(kDelays_ms);
  faults_.redials = 0.3;
  faults_.send_fails = random_.pick(kFailures);
  faults_.wait_fails = random_.pick(kFailures) / 10;
  faults_.tool_fails = random_.pick(kFailures) * 3;
  faults_.name_lookup_fails = random_.percent(15);
  faults_.disk_full = random_.percent(10);
  faults_.memory_low = random_.percent(10);
  faults_.nvram_full = random_.percent(10);
  faults_.commit_fails = random_.percent(10);
  faults_.flash_tool_missing = random_.percent(10);
  faults_.nvram_tool_missing = random_.percent(10);
  fill_disk(faults_.disk_full);
  world().nvram_set_result = faults_.nvram_full ? -1 : 0;
  world().commit_result = faults_.commit_fails ? -1 : 0;
  if (random_.percent(10)) { // the device learns the time from somebody else
    world().wall_base += random_.between(-60, 60);
  }
  chronicle_.tell("loss %.0f %%, copies %.0f %%, altered %.0f %%, cut %.0f %%, up to %d ms",
                  faults_.lose, faults_.duplicate, faults_.corrupt, faults_.truncate,
                  faults_.most_delay_ms);
  in_bad_weather(random_.between(kMinute_ms, 50 * kMinute_ms), &Simulation::change_faults);
}

void Simulation::next_power_cut() {
  in_bad_weather(random_.between(10 * kMinute_ms, 5 * kHour_ms), &Simulation::next_power_cut);
  router_.cut_power(random_.percent(50) ? 0 : static_cast<int>(random_.below(200)));
}

void Simulation::next_server_death() {
  headquarters_.die();
  in_bad_weather(random_.between(kMinute_ms, 5 * kHour_ms), &Simulation::next_server_death);
  world().after(random_.between(std::int64_t{1000}, 90 * kMinute_ms),
                [this, keep = random_.percent(70)] {
                  if (!headquarters_.is_up()) {
                    headquarters_.start(keep);
                  }
                });
}

void Simulation::next_order() {
  world().after(random_.between(kMinute_ms, 40 * kMinute_ms), [this] { next_order(); });
  if (bad_ || world().now_ms - good_since_ms_ < 10 * kMinute_ms) {
    operator_.give_order();
  }
}

void Simulation::next_lan_message() {
  world().after(random_.between(kHour_ms, 20 * kHour_ms), [this] { next_lan_message(); });
  lan_message();
}

/// Somebody on the router's LAN finds it, sets it, or sends nonsense.
void Simulation::lan_message() {
  if (!router_.is_running()) {
    return;
  }
  if (lan_floods_) { // the desktop manager's datagram stays unread for the rest of that life
    router_.receive(5000, fake::Bytes(20, 1), false, "192.168.1.50", 4000);
  }
  fake::Bytes message(696, 0);
  message[0] = random_.percent(50) ? 0xBA : 0xAB;
  message[1] = 1;
  if (bad_ && random_.percent(20)) {
    message[1] = 3;
    message[3] = static_cast<std::uint8_t>(random_.next());
    message[2] = static_cast<std::uint8_t>(random_.next());
    for (std::size_t i = 4; i < message.size(); i++) {
      message[i] = static_cast<std::uint8_t>(random_.next());
    }
  } else if (random_.percent(10)) {
    message.resize(random_.below(696));
  }
  router_.receive(2719, message, false, "192.168.1.50", 4001);
}

/// By then whatever the daemon waits for has come, or was given up; see docs/reliability.md.
std::int64_t Simulation::bound_ms() const {
  const server::Settings& settings = const_cast<Simulation*>(this)->headquarters_.settings();
  const std::int64_t silence_s =
      std::int64_t{settings.keepalive_maxretries + 2} * settings.keepalive_interval;
  return silence_s * 1000 + 20 * kMinute_ms;
}

void Simulation::begin_good_weather() {
  spell_++;
  bad_ = false;
  good_since_ms_ = world().now_ms;
  faults_ = {};
  fill_disk(false);
  world().nvram_set_result = world().commit_result = 0;
  if (!headquarters_.is_up()) {
    headquarters_.start(random_.percent(50));
  }
  chronicle_.tell("good weather");
  chronicle_.count("spells of good weather");
  world().after(bound_ms(), [this] { rescue(); });
  world().after(2 * bound_ms(), [this] { check_registered(); });
  world().after(2 * bound_ms() + 20 * kMinute_ms, [this] { end_good_weather(); });
  if (router_.is_running() && (router_.address() == 0 || router_.is_held())) {
    chronicle_.count("explained: restarted by hand, without a WAN link or held by a command");
    router_.cut_power(0);
  }
}

/// A device that asks for a file does so until it gets it, whatever became of the server.
void Simulation::rescue() {
  const FileAsked asked = router_.file_asked();
  if (!router_.is_running() || asked.type == 0 || world().now_ms - asked.last_ms > 5 * kMinute_ms) {
    return;
  }
  if (!operator_.offer_again(asked)) {
    chronicle_.count(
        "explained: restarted by hand, asking for a file that an altered command named");
    router_.cut_power(0);
  }
}

void Simulation::check_registered() {
  const std::int64_t since_s = server_time_s() - bound_ms() / 1000;
  if (!router_.is_running() || !headquarters_.heard_since(since_s)) {
    chronicle_.violated("the device is not registered again");
  }
  operator_.check_all_ended();
  status_order_ = operator_.ask_for_status();
}

void Simulation::end_good_weather() {
  const server::OperationState state = headquarters_.operation(status_order_).state;
  if (status_order_ == 0 || state != server::OperationState::kDone) {
    chronicle_.violated("in good weather the device does not carry out an order: %s",
                        server::to_text(state));
  }
  headquarters_.compare_store();
  router_.flash().check();
  if (--spells_left_ < 0) {
    throw WorldEnds{};
  }
  begin_bad_weather();
}

} // namespace

Outcome simulate(std::uint64_t seed, bool verbose) {
  setenv("TZ", "UTC", 1);
  fake::reset();
  if (access("/dev/shm", W_OK) == 0) {
    world().root_parent = "/dev/shm"; // in memory, as a router's /tmp
  }
  Outcome outcome;
  {
    Simulation simulation(seed, verbose);
    outcome = simulation.run();
  }
  fake::reset();
  return outcome;
}

} // namespace sim
