#include "server/rcmctl.h"
#include "server/text.h"

#include <cstdio>
#include <thread>
#include <unistd.h>

namespace server {

namespace {

constexpr auto kPoll = std::chrono::milliseconds(50);
constexpr int kBarWidth = 40;

std::string state_of(const Json& operation) {
  return operation.at("state").get<std::string>();
}

/// Prints how an operation goes on: a bar that grows on a terminal, else a line per step.
class Progress {
public:
  explicit Progress(const Client& client)
      : silent_(client.json), terminal_(isatty(STDOUT_FILENO) == 1) {}

  void show(const Json& operation) {
    const std::string state = state_of(operation);
    if (silent_ || !operation.contains("fragments") ||
        (state != "transferring" && state != "restarting" && state != "done")) {
      return;
    }
    const std::string line = line_of(operation);
    if (line == shown_) {
      return;
    }
    shown_ = line;
    print(terminal_ ? "\r" + line + "\033[K" : line + "\n");
  }
  void end() {
    if (terminal_ && !shown_.empty()) {
      print("\n");
    }
  }

private:
  [[nodiscard]] std::string line_of(const Json& operation) const {
    const auto fragments = operation.at("fragments").get<std::int64_t>();
    const auto asked = operation.at("asked").get<std::int64_t>();
    std::int64_t percent = fragments > 0 ? asked * 100 / fragments : 0;
    std::string name = state_of(operation);
    name.resize(12, ' ');
    if (!terminal_) {
      percent -= percent % 10; // a line per tenth is enough for a file
      return name + " " + std::to_string(percent) + "%";
    }
    const auto filled = static_cast<std::size_t>(percent * kBarWidth / 100);
    return name + " [" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
           std::to_string(percent) + "%  " + std::to_string(asked) + "/" +
           std::to_string(fragments) + " fragments";
  }

  bool silent_;
  bool terminal_;
  std::string shown_;
};

bool is_over(const Json& operation, const OrderOptions& options) {
  const bool transfer = operation.contains("fragments");
  return operation.at("final") ||
         (!transfer && !options.wait_for_restart && state_of(operation) == "restarting");
}

int outcome(const Client& client, const Json& operation) {
  const std::string state = state_of(operation);
  const bool good = state == "done" || state == "restarting";
  if (client.json) {
    print_json(operation);
  }
  const std::string text = operation.at("serial").get<std::string>() + ": " +
                           operation.at("kind").get<std::string>() + " " + state + ": " +
                           printable(operation.at("detail").get<std::string>()) + "\n";
  if (!good) {
    std::fprintf(stderr, "rcmctl: %s", text.c_str());
  } else if (!client.json) {
    print(text);
  }
  return good ? kDone : kFailed;
}

} // namespace

int give_order(const Client& client, const OrderOptions& options) {
  Json operation = client.post(device_path(options.serial, options.verb), options.body);
  const std::string target =
      "/operations/" + std::to_string(operation.at("id").get<std::int64_t>());
  const Deadline deadline = deadline_in(options.timeout_s);
  Progress progress(client);
  progress.show(operation);
  while (!is_over(operation, options)) {
    if (deadline && std::chrono::steady_clock::now() > *deadline) {
      progress.end();
      std::fprintf(stderr, "rcmctl: timed out; the operation is %s and goes on\n",
                   state_of(operation).c_str());
      return kTimedOut;
    }
    std::this_thread::sleep_for(kPoll);
    operation = client.get(target);
    progress.show(operation);
  }
  progress.end();
  return outcome(client, operation);
}

int set_variables(const Client& client, OrderOptions options,
                  const std::vector<std::string>& assignments, int unit) {
  Json values = Json::object();
  for (const std::string& assignment : assignments) {
    const std::size_t equals = assignment.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw ServerError("\"" + assignment + "\" is not NAME=VALUE");
    }
    const std::string name = assignment.substr(0, equals);
    if (client.get(device_path(options.serial, "variables") + "?name=" + percent_encoded(name))
            .empty()) {
      std::fprintf(stderr, "rcmctl: %s never reported %s and may not know it\n",
                   options.serial.c_str(), name.c_str());
    }
    values[name] = assignment.substr(equals + 1);
  }
  options.verb = "set";
  options.body = {{"unit", unit}, {"values", values}};
  return give_order(client, options);
}

} // namespace server
