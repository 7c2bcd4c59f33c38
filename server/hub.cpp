#include "server/hub.h"

#include <spdlog/spdlog.h>

#include <csignal>

namespace server {

namespace {

constexpr auto kHousekeeping = std::chrono::seconds(10);
constexpr std::int64_t kDay_s = 86400;

Clock clock_now() {
  using namespace std::chrono;
  return {duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count(),
          duration_cast<seconds>(system_clock::now().time_since_epoch()).count()};
}

/// One line per event; of a transfer's progress only the steps.
void log(const Event& event, const std::string& name) {
  const auto* changed = std::get_if<OperationChanged>(&event.what);
  if (changed == nullptr) {
    spdlog::info("{} {}", event.serial, name);
    return;
  }
  const Operation& operation = changed->operation;
  const bool step = operation.state != OperationState::kTransferring || operation.asked == 0;
  spdlog::log(step ? spdlog::level::info : spdlog::level::debug, "{} {} {}: {} {}", event.serial,
              to_text(operation.kind), operation.id, to_text(operation.state), operation.detail);
}

} // namespace

Hub::Hub(const Options& options)
    : store_(options.database), engine_(options.settings, *this),
      api_(engine_, store_, images_, clock_now),
      link_(loop_, options.bind, options.port, options.faults,
            {.datagram = [this](const Address& from,
                                View datagram) { engine_.datagram(from, datagram, clock_now()); },
             .batch_done = [this] { settle(); }}),
      http_(loop_, options.http_address, options.http_port,
            [this](const ApiRequest& request) { return handle(request); }),
      signals_(loop_, SIGINT, SIGTERM), deadline_(loop_), housekeeping_(loop_),
      keep_days_(options.keep_days) {
  restore();
}

void Hub::restore() {
  for (Device& device : store_.devices()) {
    engine_.restore(std::move(device));
  }
  engine_.set_next_operation(store_.last_operation_id() + 1);
  for (Operation& operation : store_.unfinished_operations()) {
    std::shared_ptr<const Image> image;
    if (is_transfer(operation.kind)) {
      try {
        image = images_.load(operation.path);
      } catch (const ImageError& error) {
        spdlog::warn("operation {} cannot go on: {}", operation.id, error.what());
      }
    }
    engine_.restore(std::move(operation), std::move(image), clock_now());
  }
  settle();
}

void Hub::run() {
  signals_.async_wait([this](const boost::system::error_code&, int) { loop_.stop(); });
  housekeeping();
  loop_.run();
  save_last_seen();
  settle();
}

void Hub::event(Event event) {
  try {
    if (!store_.apply(event)) {
      return;
    }
  } catch (const StoreError& error) { // the devices are served all the same
    spdlog::error("database: {}", error.what());
  }
  if (!http_.has_readers() && !spdlog::should_log(spdlog::level::info)) {
    return;
  }
  const Json json = to_json(event);
  const auto& name = json["event"].get_ref<const std::string&>();
  const std::string text = dump_json(json);
  log(event, name);
  spdlog::debug("{}", text);
  http_.publish(name, event.serial, text);
}

ApiReply Hub::handle(const ApiRequest& request) {
  ApiReply reply = api_.handle(request);
  spdlog::debug("{} {} {}", request.method, request.target, reply.status);
  settle();
  return reply;
}

/// After whatever was done: what it stored is committed, and the next deadline is awaited.
void Hub::settle() {
  commit();
  arm();
}

void Hub::commit() {
  try {
    store_.flush();
  } catch (const StoreError& error) {
    spdlog::error("database: {}", error.what());
  }
}

/// A device forgets what was acknowledged, so that is committed first.
void Hub::send(const Address& to, View head, View body) {
  commit();
  link_.send(to, head, body);
}

void Hub::arm() {
  const auto next = engine_.next_deadline();
  if (!next || (armed_ms_ && *armed_ms_ <= *next)) {
    return; // a deadline that moved away is found out when the timer fires
  }
  armed_ms_ = next;
  deadline_.expires_at(std::chrono::steady_clock::time_point(std::chrono::milliseconds(*next)));
  deadline_.async_wait([this](const boost::system::error_code& error) {
    if (!error) {
      armed_ms_.reset();
      engine_.tick(clock_now());
      settle();
    }
  });
}

void Hub::housekeeping() {
  save_last_seen();
  try {
    if (keep_days_ > 0) {
      store_.prune(clock_now().unix_s - keep_days_ * kDay_s);
    }
  } catch (const StoreError& error) {
    spdlog::error("database: {}", error.what());
  }
  settle();
  housekeeping_.expires_after(kHousekeeping);
  housekeeping_.async_wait([this](const boost::system::error_code& error) {
    if (!error) {
      housekeeping();
    }
  });
}

void Hub::save_last_seen() {
  try {
    for (const Device& device : engine_.devices()) {
      if (device.last_seen >= last_seen_saved_) {
        store_.save(device);
      }
    }
    last_seen_saved_ = clock_now().unix_s;
  } catch (const StoreError& error) {
    spdlog::error("database: {}", error.what());
  }
}

} // namespace server
