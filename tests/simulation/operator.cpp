#include "tests/simulation/operator.h"

#include "tests/fake_platform/fake.h"
#include "variables/tables.h"

#include <stdexcept>

using fake::world;
using server::OperationKind;
using server::OperationState;

namespace sim {

namespace {

constexpr std::size_t kMostOpen = 3;
constexpr std::uint16_t kAnswerTypes[] = {257, 258, 259, 260, 256, 261}; // by OperationKind

std::uint16_t answer_type(OperationKind kind) {
  return kAnswerTypes[static_cast<std::size_t>(kind)];
}

} // namespace

Operator::Operator(std::uint64_t seed, Headquarters& headquarters, Router& router,
                   Chronicle& chronicle)
    : random_(seed, 5), headquarters_(headquarters), router_(router), chronicle_(chronicle) {}

std::int64_t Operator::give(server::Command command, const std::string& file) {
  const OperationKind kind = command.kind;
  const std::int64_t id = headquarters_.submit(std::move(command));
  if (id == 0) {
    return 0;
  }
  chronicle_.count("orders");
  chronicle_.tell("the operator orders %lld: %s %s", static_cast<long long>(id),
                  server::to_text(kind), file.c_str());
  const Order order{kind, world().now_ms, file};
  if (age_ != headquarters_.age()) { // a server that knows nothing counts from 1 again
    age_ = headquarters_.age();
    orders_.clear();
    open_.clear();
    answered_.clear();
  }
  orders_[id] = order;
  if (!server::is_final(headquarters_.operation(id).state)) {
    open_[id] = order;
  }
  return id;
}

void Operator::give_order() {
  if (open_.size() >= kMostOpen && age_ == headquarters_.age()) {
    return;
  }
  const std::size_t kind = random_.below(100);
  if (kind < 45) {
    give(random_values());
  } else if (kind < 60) {
    ask_for_status();
  } else if (kind < 75) {
    give(server::make_plain(OperationKind::kCommit));
  } else if (kind < 78) {
    give(server::make_plain(OperationKind::kRestoreDefaults));
  } else if (kind < 90) {
    give_file(archive(OperationKind::kUpgrade, random_firmware()));
  } else {
    give_file(archive(OperationKind::kImport, random_configuration()));
  }
}

std::int64_t Operator::ask_for_status() {
  return give(server::make_plain(OperationKind::kStatus));
}

std::string Operator::archive(OperationKind kind, const std::string& content) {
  const std::string name =
      (kind == OperationKind::kUpgrade ? "firmware-" : "settings-") + std::to_string(++file_count_);
  files_[name] = {kind, content};
  headquarters_.files[name] = std::make_shared<Archived>(content);
  if (kind == OperationKind::kUpgrade) {
    router_.flash().offer(content);
  }
  return name;
}

std::int64_t Operator::give_file(const std::string& name) {
  const File& file = files_.at(name);
  return give(server::make_transfer(file.kind, headquarters_.files.at(name), name, name), name);
}

bool Operator::offer_again(const FileAsked& asked) {
  const auto found = files_.find(asked.name);
  const auto kind = asked.type == 8 ? OperationKind::kUpgrade : OperationKind::kImport;
  if (found == files_.end() || found->second.kind != kind) {
    return false;
  }
  chronicle_.count("files offered again to a device that still asked for them");
  give_file(asked.name);
  return true;
}

void Operator::answered(std::uint32_t seq, std::uint16_t type) {
  answered_.insert({seq, type});
}

void Operator::imported(const std::string& content) {
  const auto found = files_.find(router_.file_asked().name);
  if (found != files_.end() && found->second.content == content) {
    return;
  }
  if (router_.download_failed()) {
    chronicle_.count("explained: an import after a failed download");
    return;
  }
  chronicle_.violated("%s is imported, but the %zu bytes are not that file's",
                      router_.file_asked().name.c_str(), content.size());
}

void Operator::event(const server::Event& event) {
  const auto* changed = std::get_if<server::OperationChanged>(&event.what);
  if (changed == nullptr) {
    return;
  }
  const server::Operation& operation = changed->operation;
  chronicle_.tell("order %lld: %s, %s", static_cast<long long>(operation.id),
                  server::to_text(operation.state), operation.detail.c_str());
  if (!server::is_final(operation.state) || age_ != headquarters_.age()) {
    return;
  }
  open_.erase(operation.id);
  chronicle_.count((std::string("orders that ended ") + server::to_text(operation.state)).c_str());
  const auto order = orders_.find(operation.id);
  if (operation.state == OperationState::kDone && order != orders_.end()) {
    check_done(operation, order->second);
  }
}

void Operator::check_done(const server::Operation& operation, const Order& order) {
  const std::uint32_t seq = 0x80000000U | static_cast<std::uint32_t>(operation.id);
  const auto id = static_cast<long long>(operation.id);
  if (!is_transfer(order.kind) && !answered_.contains({seq, answer_type(order.kind)})) {
    chronicle_.violated("order %lld is called done, and the device never answered it", id);
  }
  const bool restarts = order.kind != OperationKind::kSet && order.kind != OperationKind::kStatus;
  if (restarts && router_.started_ms() < order.given_ms) {
    chronicle_.violated("order %lld is called done, and the device did not restart since", id);
  }
}

void Operator::check_all_ended() {
  if (age_ == headquarters_.age() && !open_.empty()) {
    const auto& [id, order] = *open_.begin();
    chronicle_.violated("order %lld (%s) has not come to an end: %s", static_cast<long long>(id),
                        server::to_text(order.kind),
                        server::to_text(headquarters_.operation(id).state));
  }
}

server::Command Operator::random_values() {
  server::Values values;
  std::size_t bytes = 0;
  for (std::size_t count = 1 + random_.below(random_.percent(10) ? 40 : 4); count > 0; count--) {
    const rcmd::VariableEntry& row = rcmd::config_variables[random_.below(rcmd::kConfigRows)];
    values.emplace_back(row.name, random_value(row.name));
    bytes += values.back().first.size() + values.back().second.size() + 2;
    if (bytes > 7000) {
      values.pop_back();
      break;
    }
  }
  if (values.empty()) {
    values.emplace_back("hostname", "router");
  }
  return server::make_set(random_.percent(90) ? 0 : static_cast<std::uint16_t>(random_.below(3)),
                          values);
}

std::string Operator::random_value(const std::string& name) {
  if (name == "gps_send_interval") {
    return std::to_string(random_.between(20, 900));
  }
  if (name.starts_with("firewall_") && name.find("_rule") != std::string::npos) {
    std::string text;
    for (int i = name.starts_with("firewall_access") ? 10 : 8; i > 0; i--) {
      text += (random_.percent(80) ? std::to_string(random_.below(70000)) : "") + ",";
    }
    return random_.percent(85) ? text + (random_.percent(50) ? "1" : "0") : "";
  }
  if (random_.percent(40)) {
    return std::to_string(random_.between(-1, 4));
  }
  std::string text;
  const std::size_t most = random_.percent(3) ? 2500 : 24;
  for (std::size_t i = random_.below(most); i > 0; i--) {
    text += static_cast<char>(1 + random_.below(255)); // any byte but NUL
  }
  return text;
}

std::string Operator::random_firmware() {
  const std::size_t size = random_.percent(60)   ? 10 + random_.below(4000)
                           : random_.percent(90) ? random_.below(120'000)
                                                 : random_.below(1'200'000);
  std::string body(size, '\0');
  for (char& c : body) {
    c = static_cast<char>(random_.next());
  }
  std::string image = firmware_image("2." + std::to_string(file_count_), std::move(body));
  if (random_.percent(10)) { // the operator took the wrong file
    image[random_.below(image.size())] ^= 1;
  }
  return image;
}

std::string Operator::random_configuration() {
  std::string text;
  for (std::size_t i = 1 + random_.below(60); i > 0; i--) {
    const rcmd::VariableEntry& row = rcmd::config_variables[random_.below(rcmd::kConfigRows)];
    std::string value;
    for (std::size_t left = random_.below(60); left > 0; left--) {
      value += static_cast<char>(' ' + random_.below(95));
    }
    const bool number = std::string_view(row.name) == "gps_send_interval";
    text += std::string(row.name) + "=" + (number ? "120" : value) + "\n";
  }
  return text;
}

} // namespace sim
