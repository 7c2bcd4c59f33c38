// The management server as it runs: the real engine and the real store between the pretend network
// and the pretend clock. It dies and comes back, with its store or with an empty one.
#pragma once

#include "server/engine.h"
#include "server/store.h"
#include "tests/simulation/chronicle.h"
#include "tests/simulation/random.h"

#include <set>

namespace sim {

/// A file that the operator has, whole in memory.
class Archived final : public server::Image {
public:
  explicit Archived(const std::string& content) : content_(content.begin(), content.end()) {
    set_bytes(content_);
  }

private:
  server::Bytes content_;
};

class Headquarters final : public server::Output {
public:
  /// Where the server's datagrams go.
  std::function<void(const server::Address& to, const server::Bytes& datagram)> on_send;
  std::function<void(const server::Event& event)> on_event;
  /// The files that a server which comes back finds again, by their paths.
  std::map<std::string, std::shared_ptr<const server::Image>> files;

  Headquarters(std::uint64_t seed, Chronicle& chronicle);

  void start(bool with_its_store);
  void die();
  [[nodiscard]] bool is_up() const { return engine_ != nullptr; }

  /// `altered`: the network changed it.
  void datagram(const server::Address& from, const server::Bytes& bytes, bool altered);
  /// @return the operation's id; 0 when the server is down or does not know the device
  std::int64_t submit(server::Command command);
  [[nodiscard]] server::Operation operation(std::int64_t id);
  /// Whether the server has heard of the device since the moment.
  [[nodiscard]] bool heard_since(std::int64_t unix_s) const;
  [[nodiscard]] server::Settings& settings() { return settings_; }
  /// Grows with every server that begins with an empty store.
  [[nodiscard]] int age() const { return age_; }
  /// @throw Violation when the store holds other values of the device than what was delivered
  void compare_store();

  void send(const server::Address& to, server::View head, server::View body) override;
  void event(server::Event event) override;

private:
  [[nodiscard]] static server::Clock clock();
  void restore();
  void settle();
  void note_variables(const server::Bytes& bytes);

  Random random_;
  Chronicle& chronicle_;
  server::Settings settings_;
  std::unique_ptr<server::Store> store_;
  std::unique_ptr<server::Engine> engine_;
  int age_ = 0;
  int run_ = 0;
  std::int64_t armed_ms_ = -1;
  bool altered_ = false; ///< the datagram that is being taken
  std::map<std::pair<int, std::string>, std::string> delivered_; ///< what the store must hold
  std::set<std::uint64_t> logs_; ///< digests of the reports that were kept
};

constexpr char kSerial[] = "SN0000000001";

} // namespace sim
