// rcmctl: the command-line client of rcm-server.
#include "server/rcmctl.h"
#include "server/text.h"
#include "server/version.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace server {

namespace {

Json checked(const HttpAnswer& answer) {
  Json json = Json::parse(answer.body, nullptr, false);
  if (answer.status >= 400) {
    throw ServerError(json.is_object() && json.contains("error")
                          ? json.at("error").get<std::string>()
                          : "the server answers with status " + std::to_string(answer.status));
  }
  if (json.is_discarded()) {
    throw ServerError("the server's answer is no JSON");
  }
  return json;
}

} // namespace

Json Client::get(const std::string& target) const {
  return checked(http_request(url, "GET", target));
}

Json Client::post(const std::string& target, const Json& body) const {
  return checked(http_request(url, "POST", target, body.dump())); // throws on what is no UTF-8
}

std::string device_path(const std::string& serial, const std::string& part) {
  return "/devices/" + percent_encoded(serial) + (part.empty() ? "" : "/" + part);
}

void print(const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void print_json(const Json& json) {
  print(json.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

Deadline deadline_in(double seconds) {
  if (seconds <= 0) {
    return std::nullopt;
  }
  return std::chrono::steady_clock::now() +
         std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
}

} // namespace server

namespace {

using namespace server;

/// The options of every command, and the one that was chosen.
struct Program {
  CLI::App app{"Asks and steers rcm-server."};
  Client client;
  WatchOptions watching;
  HistoryOptions history;
  OrderOptions order;
  std::string serial;
  std::string name;
  std::optional<int> unit;
  int set_unit = 0;
  std::vector<std::string> assignments;
  std::string file;
  std::string file_name;
  std::function<int()> chosen;

  CLI::App* command(const std::string& word, const std::string& help,
                    const std::function<int()>& action) {
    CLI::App* sub = app.add_subcommand(word, help);
    sub->fallthrough();
    sub->callback([this, action] { chosen = action; });
    return sub;
  }
  CLI::App* device_command(const std::string& word, const std::string& help,
                           const std::function<int()>& action) {
    CLI::App* sub = command(word, help, action);
    sub->add_option("SERIAL", serial, "the device's serial number")->required();
    return sub;
  }
  CLI::App* order_command(const std::string& word, const std::string& help) {
    CLI::App* sub = device_command(word, help, [this, word] {
      order.serial = serial;
      order.verb = word;
      return give_order(client, order);
    });
    sub->add_option("--timeout", order.timeout_s, "seconds to wait; 0: as long as the server does");
    return sub;
  }

  void add_views();
  void add_history();
  void add_orders();
  void add_transfer(const std::string& word, const std::string& help);
};

void Program::add_views() {
  command("devices", "list the devices", [this] { return list_devices(client); });
  device_command("show", "a device and all its variables",
                 [this] { return show_device(client, serial); });
  CLI::App* get = device_command("get", "the value of one variable",
                                 [this] { return get_variable(client, serial, name, unit); });
  get->add_option("NAME", name)->required();
  get->add_option("--unit", unit, "of a wireless or WAN variable");
  CLI::App* watch_command = command("watch", "events as they happen", [this] {
    watching.serial = serial;
    return watch(client, watching);
  });
  watch_command->add_option("SERIAL", serial, "only this device's");
  watch_command->add_option("--event", watching.event,
                            "only this kind: registered, server-time, keepalive-parameters, "
                            "keepalive, configuration, status, log, traffic, position, operation");
  watch_command->add_option("--count", watching.count, "end after so many")
      ->check(CLI::NonNegativeNumber);
  watch_command->add_option("--timeout", watching.timeout_s,
                            "end after so many seconds; with --count that is an error");
  CLI::App* operations = command("operations", "what was ordered, and how it went",
                                 [this] { return list_operations(client, serial); });
  operations->add_option("SERIAL", serial, "only this device's");
}

void Program::add_history() {
  const auto add = [this](const std::string& word, const std::string& help, auto view) {
    CLI::App* sub = device_command(word, help, [this, view] {
      history.serial = serial;
      return view(client, history);
    });
    sub->add_option("--hours", history.hours, "only the latest so many hours")
        ->check(CLI::NonNegativeNumber);
    return sub;
  };
  CLI::App* logs = add("logs", "the device's system log", show_logs);
  logs->add_option("--limit", history.limit, "the latest so many lines")->default_val(100);
  logs->add_flag("--follow", history.follow, "go on with lines as they come");
  logs->add_option("--timeout", history.timeout_s, "end --follow after so many seconds");
  add("traffic", "hourly totals and a plot of the minutes", show_traffic);
  CLI::App* positions = add("positions", "where the device was", show_positions);
  positions->add_option("--limit", history.limit, "the latest so many")->default_val(100);
  positions->add_option("--gpx", history.gpx, "write a GPX track to this file; -: standard output");
}

void Program::add_orders() {
  CLI::App* set =
      device_command("set", "change variables (lost at a restart without commit)", [this] {
        order.serial = serial;
        return set_variables(client, order, assignments, set_unit);
      });
  set->add_option("NAME=VALUE", assignments)->required();
  set->add_option("--unit", set_unit, "of wireless or WAN variables")->check(CLI::Range(0, 65535));
  set->add_option("--timeout", order.timeout_s, "seconds to wait; 0: as long as the server does");
  for (CLI::App* sub :
       {order_command("commit", "keep what was set, and restart the device"),
        order_command("restore-defaults", "forget all settings, and restart the device")}) {
    sub->add_flag("--wait", order.wait_for_restart, "until the device has registered again");
  }
  order_command("status", "have the device report its status now");
  add_transfer("upgrade", "have the device fetch and install a firmware image");
  add_transfer("import", "have the device fetch and import a configuration file");
}

void Program::add_transfer(const std::string& word, const std::string& help) {
  CLI::App* sub = device_command(word, help, [this, word] {
    order.serial = serial;
    order.verb = word;
    order.body = {{"path", std::filesystem::absolute(file).lexically_normal().string()},
                  {"name", file_name}};
    return give_order(client, order);
  });
  sub->add_option("FILE", file, "a file that the server can read")->required();
  sub->add_option("--name", file_name, "what the device is told; else the file's own name");
  sub->add_option("--timeout", order.timeout_s, "seconds to wait; 0: as long as the server does");
}

int run(int argc, char** argv) {
  Program program;
  if (const char* url = std::getenv("RCM_SERVER")) {
    program.client.url = url;
  }
  program.app.set_version_flag("--version", std::string("rcmctl ") + server::kVersion);
  program.app.add_option("--server", program.client.url, "URL of the server (or RCM_SERVER)")
      ->capture_default_str();
  program.app.add_flag("--json", program.client.json, "print JSON, one text per line");
  program.app.require_subcommand(1);
  program.add_views();
  program.add_history();
  program.add_orders();
  CLI11_PARSE(program.app, argc, argv);
  return program.chosen();
}

} // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const ConnectionError& error) {
    std::fprintf(stderr, "rcmctl: %s\n", error.what());
    return kNoServer;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "rcmctl: %s\n", error.what());
    return kFailed;
  }
}
