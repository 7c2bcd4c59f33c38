// rcm-lan: finds routers on the local network, sets a few of their values, and asks a router to
// bring its WWAN connection up or down.

#include "tools/rcm-lan/client.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <iostream>

namespace {

using namespace rcm_lan;

constexpr int kDone = 0;
constexpr int kNotDone = 1; ///< nobody answered, or the router refused
constexpr int kWrongUse = 2;

struct Options {
  std::string broadcast = "255.255.255.255";
  std::string address;
  std::uint16_t scan_port = 2719;
  std::uint16_t manager_port = 5000;
  int discover_ms = 2000; ///< how long each command waits for answers
  int set_ms = 10000;
  int order_ms = 3000;
  bool json = false;
  bool udp = false;
  std::string community;
  std::string lan_address;
  std::string lan_address2;
  std::uint32_t reconnect_interval_s = 0;
};

Address checked_address(const std::string& text) {
  return address_of(text).value(); // the option's check has seen it
}

std::string mac_text(const Router& router) {
  std::string text;
  for (const unsigned byte : router.mac) {
    char piece[8];
    std::snprintf(piece, sizeof piece, "%s%02X", text.empty() ? "" : ":", byte);
    text += piece;
  }
  return text;
}

void print_json(const std::vector<Found>& all) {
  auto list = nlohmann::json::array();
  for (const auto& [from, router] : all) {
    list.push_back({{"from", text_of(from)},
                    {"address", text_of(router.address)},
                    {"netmask", text_of(router.netmask)},
                    {"mac", mac_text(router)},
                    {"model", router.model},
                    {"reconnect_interval_s", router.reconnect_interval_s}});
  }
  // The model is the router's own text and need not be UTF-8.
  std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

void print_table(const std::vector<Found>& all) {
  std::size_t model_width = 5;
  for (const Found& found : all) {
    model_width = std::max(model_width, found.router.model.size());
  }
  const auto width = static_cast<int>(model_width);
  std::printf("%-15s  %-15s  %-15s  %-17s  %-*s  %s\n", "FROM", "ADDRESS", "NETMASK", "MAC", width,
              "MODEL", "RECONNECT");
  for (const auto& [from, router] : all) {
    std::printf("%-15s  %-15s  %-15s  %-17s  %-*s  %u s\n", text_of(from).c_str(),
                text_of(router.address).c_str(), text_of(router.netmask).c_str(),
                mac_text(router).c_str(), width, router.model.c_str(), router.reconnect_interval_s);
  }
}

int run_discover(const Options& options) {
  const auto all = discover({checked_address(options.broadcast), options.scan_port},
                            std::chrono::milliseconds(options.discover_ms));
  if (options.json) {
    print_json(all);
  } else if (all.empty()) {
    std::fprintf(stderr, "rcm-lan: no router answered within %d ms\n", options.discover_ms);
  } else {
    print_table(all);
  }
  return all.empty() ? kNotDone : kDone;
}

int run_set(const Options& options, const CLI::App& command) {
  Changes changes;
  if (command.count("--community") > 0) {
    changes.community = options.community;
  }
  if (command.count("--lan-address") > 0) {
    changes.lan_address = checked_address(options.lan_address);
  }
  if (command.count("--lan-address2") > 0) {
    changes.lan_address2 = checked_address(options.lan_address2);
  }
  if (command.count("--reconnect-interval") > 0) {
    changes.reconnect_interval_s = options.reconnect_interval_s;
  }
  if (!set({checked_address(options.address), options.scan_port}, changes,
           std::chrono::milliseconds(options.set_ms))) {
    std::fprintf(stderr,
                 "rcm-lan: no answer from %s within %d ms; it may have no backup partition, or "
                 "its scan service has ended\n",
                 options.address.c_str(), options.set_ms);
    return kNotDone;
  }
  std::printf("%s has taken the values and restarts\n", options.address.c_str());
  return kDone;
}

int say_no_order(const Options& options, const char* reason) {
  std::fprintf(stderr, "rcm-lan: %s: %s\n", options.address.c_str(), reason);
  return kNotDone;
}

int say_result(Order order, std::uint32_t result) {
  if (order == Order::kStatus) {
    std::puts(result == 1 ? "the WWAN connection is down" : "the WWAN connection is not down");
    return kDone;
  }
  const bool done = result == 0;
  std::puts(done ? "done" : "refused: the WWAN is disabled or in another mode");
  return done ? kDone : kNotDone;
}

int run_order(const Options& options, Order order) {
  const Peer router{checked_address(options.address), options.manager_port};
  const auto [kind, result] =
      give_order(router, order, options.udp ? Transport::kUdp : Transport::kTcp,
                 std::chrono::milliseconds(options.order_ms));
  switch (kind) {
  case Outcome::kRefusedConnection:
    return say_no_order(options, "connection refused: the router serves the desktop manager in "
                                 "datagram mode only, in which no request is answered");
  case Outcome::kNoAnswer:
    return say_no_order(options, options.udp
                                     ? "no answer: in datagram mode the router leaves requests "
                                       "unread"
                                     : "no answer in time");
  case Outcome::kClosed:
    return say_no_order(options, "the router closed the connection without an answer");
  case Outcome::kNotUnderstood:
    return say_no_order(options, "the answer is none to this request");
  case Outcome::kAnswered:
    break;
  }
  return say_result(order, result);
}

void add_timeout(CLI::App& command, int& timeout_ms) {
  command.add_option("--timeout", timeout_ms, "milliseconds to wait for answers")
      ->check(CLI::Range(1, 600'000))
      ->capture_default_str();
}

void add_address(CLI::App& command, Options& options) {
  command.add_option("ADDRESS", options.address, "the router's IPv4 address")
      ->required()
      ->check(CLI::ValidIPV4);
}

CLI::App* add_discover(CLI::App& app, Options& options) {
  CLI::App* command = app.add_subcommand("discover", "list the routers that answer a broadcast");
  command->add_option("--broadcast", options.broadcast, "where to ask")
      ->check(CLI::ValidIPV4)
      ->capture_default_str();
  command->add_option("--port", options.scan_port, "the scan service's UDP port")
      ->capture_default_str();
  command->add_flag("--json", options.json, "print a JSON list instead of a table");
  add_timeout(*command, options.discover_ms);
  return command;
}

CLI::App* add_set(CLI::App& app, Options& options) {
  CLI::App* command =
      app.add_subcommand("set", "set values of a router, which then commits them and restarts");
  add_address(*command, options);
  auto* values = command->add_option_group("values", "at least one of");
  values->add_option("--community", options.community, "both SNMP communities, up to 32 bytes")
      ->check([](const std::string& text) {
        return text.size() <= 32 ? std::string() : "longer than 32 bytes";
      });
  values->add_option("--lan-address", options.lan_address, "the LAN address")
      ->check(CLI::ValidIPV4);
  values
      ->add_option("--lan-address2", options.lan_address2,
                   "the LAN address, in the field that wins over --lan-address")
      ->check(CLI::ValidIPV4);
  values
      ->add_option("--reconnect-interval", options.reconnect_interval_s,
                   "seconds between attempts to reconnect; also kept in the backup partition")
      ->check(CLI::Range(0U, 2147483647U));
  values->require_option(1, 0);
  command->add_option("--port", options.scan_port, "the scan service's UDP port")
      ->capture_default_str();
  add_timeout(*command, options.set_ms);
  return command;
}

void add_order(CLI::App& app, Options& options, const char* name, const char* text) {
  CLI::App* command = app.add_subcommand(name, text);
  add_address(*command, options);
  command->add_option("--port", options.manager_port, "the desktop manager's port")
      ->capture_default_str();
  command->add_flag("--udp", options.udp, "ask by datagram instead of over TCP");
  add_timeout(*command, options.order_ms);
}

int run(CLI::App& app, int argc, char** argv) {
  Options options;
  app.require_subcommand(1);
  const CLI::App* find = add_discover(app, options);
  const CLI::App* change = add_set(app, options);
  add_order(app, options, "connect", "bring the WWAN connection up");
  add_order(app, options, "disconnect", "bring the WWAN connection down");
  add_order(app, options, "status", "ask whether the WWAN connection is down");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kWrongUse;
  }
  if (find->parsed()) {
    return run_discover(options);
  }
  if (change->parsed()) {
    return run_set(options, *change);
  }
  return run_order(options, app.got_subcommand("connect")      ? Order::kConnect
                            : app.got_subcommand("disconnect") ? Order::kDisconnect
                                                               : Order::kStatus);
}

} // namespace

int main(int argc, char** argv) {
  try {
    CLI::App app("Speaks to routers on the local network: finds them, sets a few of their values, "
                 "and connects or disconnects their WWAN link.",
                 "rcm-lan");
    return run(app, argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "rcm-lan: %s\n", error.what());
    return kNotDone;
  }
}
