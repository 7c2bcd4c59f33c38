#include "tests/simulation/headquarters.h"

#include "tests/fake_platform/fake.h"

#include <algorithm>
#include <cstring>

using fake::world;

namespace sim {

Headquarters::Headquarters(std::uint64_t seed, Chronicle& chronicle)
    : random_(seed, 3), chronicle_(chronicle) {
  settings_.new_session = [this] {
    server::Session session{};
    server::put_u32(session.data(), static_cast<std::uint32_t>(random_.next()) | 1U);
    server::put_u32(session.data() + 4, static_cast<std::uint32_t>(random_.next()));
    return session;
  };
}

server::Clock Headquarters::clock() {
  return {world().now_ms, server_time_s()};
}

void Headquarters::start(bool with_its_store) {
  run_++;
  armed_ms_ = -1;
  if (!with_its_store || store_ == nullptr) {
    age_++;
    delivered_.clear();
    logs_.clear();
    store_ = std::make_unique<server::Store>(":memory:");
  }
  engine_ = std::make_unique<server::Engine>(settings_, *this);
  chronicle_.tell("the server is up, %s", with_its_store ? "with its store" : "knowing nothing");
  restore();
}

void Headquarters::restore() {
  for (server::Device& device : store_->devices()) {
    engine_->restore(std::move(device));
  }
  engine_->set_next_operation(store_->last_operation_id() + 1);
  for (server::Operation& operation : store_->unfinished_operations()) {
    const auto file = files.find(operation.path);
    engine_->restore(std::move(operation), file == files.end() ? nullptr : file->second, clock());
  }
  settle();
}

void Headquarters::die() {
  if (engine_ != nullptr) {
    chronicle_.tell("the server dies");
    chronicle_.count("server deaths");
    engine_.reset();
  }
}

void Headquarters::datagram(const server::Address& from, const server::Bytes& bytes, bool altered) {
  if (engine_ == nullptr) {
    return;
  }
  altered_ = altered;
  note_variables(bytes);
  engine_->datagram(from, bytes, clock());
  altered_ = false;
  settle();
}

std::int64_t Headquarters::submit(server::Command command) {
  if (engine_ == nullptr || engine_->device(kSerial) == nullptr) {
    return 0;
  }
  const std::int64_t id = engine_->submit(kSerial, std::move(command), clock()).id;
  settle();
  return id;
}

server::Operation Headquarters::operation(std::int64_t id) {
  return store_->operation(id).value_or(server::Operation{});
}

bool Headquarters::heard_since(std::int64_t unix_s) const {
  const server::Device* device = engine_ == nullptr ? nullptr : engine_->device(kSerial);
  return device != nullptr && device->last_seen >= unix_s;
}

void Headquarters::send(const server::Address& to, server::View head, server::View body) {
  server::Bytes datagram(head.begin(), head.end());
  datagram.insert(datagram.end(), body.begin(), body.end());
  on_send(to, datagram);
}

void Headquarters::event(server::Event event) {
  if (event.serial != kSerial) {
    chronicle_.count("explained: events of a serial number that the network altered");
    return;
  }
  const bool kept = store_->apply(event);
  if (const auto* log = std::get_if<server::LogReported>(&event.what);
      log != nullptr && kept && !logs_.insert(log->digest).second) {
    chronicle_.violated("the store keeps a log report twice");
  }
  if (!altered_ || std::holds_alternative<server::OperationChanged>(event.what)) {
    on_event(event);
  }
}

/// After whatever was done: it is stored, and the next deadline is awaited.
void Headquarters::settle() {
  store_->flush();
  const auto next = engine_->next_deadline();
  if (!next || (armed_ms_ >= 0 && armed_ms_ <= *next)) {
    return;
  }
  armed_ms_ = *next;
  world().after(std::max<std::int64_t>(*next - world().now_ms, 0), [this, run = run_] {
    if (run == run_ && engine_ != nullptr) {
      armed_ms_ = -1;
      engine_->tick(clock());
      settle();
    }
  });
}

/// What the store must hold once the engine has taken this datagram, whatever the network made it.
void Headquarters::note_variables(const server::Bytes& bytes) {
  const auto packet = server::parse_packet({}, bytes);
  const server::Device* device = engine_->device(kSerial);
  if (!packet || packet->serial != kSerial || device == nullptr ||
      !std::equal(device->session.begin(), device->session.end(), bytes.begin()) ||
      packet->flags != server::kReport ||
      (packet->type != server::kConf && packet->type != server::kStatus)) {
    return;
  }
  const auto report = server::read_variables(packet->payload);
  if (!report) {
    return;
  }
  const int kind = packet->type == server::kConf ? 0 : 1;
  for (const auto& [name, value] : report->values) {
    if (report->unit == 0) {
      delivered_[{kind, name}] = value;
    }
    if (name.ends_with("_maxunit")) { // ends a list: entries beyond it are gone
      const std::string stem = name.substr(0, name.size() - std::strlen("_maxunit"));
      std::erase_if(delivered_, [&](const auto& entry) {
        const std::string& other = entry.first.second;
        return entry.first.first == 1 && other.starts_with(stem) &&
               std::isdigit(static_cast<unsigned char>(other[stem.size()])) != 0 &&
               std::stol(other.substr(stem.size())) >= std::stol(value);
      });
    }
  }
}

void Headquarters::compare_store() {
  std::map<std::pair<int, std::string>, std::string> stored;
  for (const server::Variable& variable : store_->variables(kSerial)) {
    if (variable.unit == 0) {
      stored[{static_cast<int>(variable.kind), variable.name}] = variable.value;
    }
  }
  for (const auto& [name, value] : delivered_) {
    if (stored[name] != value) {
      chronicle_.violated("the store holds %s=\"%s\", \"%s\" was delivered", name.second.c_str(),
                          stored[name].c_str(), value.c_str());
    }
  }
  if (stored.size() != delivered_.size()) {
    chronicle_.violated("the store holds %zu values, %zu were delivered", stored.size(),
                        delivered_.size());
  }
}

} // namespace sim
