// The person at the server: sets values, asks for the status, commits, restores, sends firmware and
// configuration files, at random; and keeps what was ordered, to hold the server's word against
// what the device did.
#pragma once

#include "tests/simulation/headquarters.h"
#include "tests/simulation/router.h"

namespace sim {

class Operator {
public:
  Operator(std::uint64_t seed, Headquarters& headquarters, Router& router, Chronicle& chronicle);

  /// Gives one order of a random kind. Nothing happens while too much is under way.
  void give_order();
  /// @return the operation's id, or 0
  std::int64_t ask_for_status();
  /// The device asks for a file that the server knows no more: it is offered once more.
  /// @return false when nobody ever offered such a file
  bool offer_again(const FileAsked& asked);
  /// @throw Violation unless every order has come to its end
  void check_all_ended();

  void answered(std::uint32_t seq, std::uint16_t type);
  void imported(const std::string& content);
  void event(const server::Event& event);

private:
  struct Order {
    server::OperationKind kind;
    std::int64_t given_ms;
    std::string file; ///< the name
  };
  struct File {
    server::OperationKind kind;
    std::string content;
  };

  std::int64_t give(server::Command command, const std::string& file = "");
  std::int64_t give_file(const std::string& name);
  std::string archive(server::OperationKind kind, const std::string& content);
  server::Command random_values();
  std::string random_value(const std::string& name);
  std::string random_firmware();
  std::string random_configuration();
  void check_done(const server::Operation& operation, const Order& order);

  Random random_;
  Headquarters& headquarters_;
  Router& router_;
  Chronicle& chronicle_;
  std::map<std::int64_t, Order> orders_;
  std::map<std::int64_t, Order> open_;
  std::map<std::string, File> files_; ///< by name
  std::set<std::pair<std::uint32_t, std::uint16_t>> answered_;
  int age_ = 0; ///< the server's, which the numbers above belong to
  int file_count_ = 0;
};

} // namespace sim
