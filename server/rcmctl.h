// rcmctl's commands: each asks the server and prints. They return the program's exit status.
#pragma once

#include "server/http_client.h"

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace server {

using Json = nlohmann::json;

enum ExitStatus : int { kDone = 0, kFailed = 1, kNoServer = 2, kTimedOut = 3 };

/// The server said no.
struct ServerError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct Client {
  std::string url = "http://127.0.0.1:8162";
  bool json = false; ///< print what the server answers, one JSON text per line

  /// @throw ServerError, ConnectionError
  [[nodiscard]] Json get(const std::string& target) const;
  [[nodiscard]] Json post(const std::string& target, const Json& body) const;
};

/// "/devices/SERIAL" + part
std::string device_path(const std::string& serial, const std::string& part = "");
void print(const std::string& text);
void print_json(const Json& json);
Deadline deadline_in(double seconds); ///< none for 0

// What the server knows (views.cpp, history.cpp)
int list_devices(const Client& client);
int show_device(const Client& client, const std::string& serial);
int get_variable(const Client& client, const std::string& serial, const std::string& name,
                 std::optional<int> unit);
int list_operations(const Client& client, const std::string& serial);

struct WatchOptions {
  std::string serial; ///< empty: every device
  std::string event;  ///< empty: every kind
  int count = 0;      ///< end after so many; 0: go on
  double timeout_s = 0;
};
int watch(const Client& client, const WatchOptions& options);

struct HistoryOptions {
  std::string serial;
  int hours = 0; ///< 0: no bound
  int limit = 20;
  bool follow = false;
  double timeout_s = 0;
  std::string gpx;
};
int show_logs(const Client& client, const HistoryOptions& options);
int show_traffic(const Client& client, const HistoryOptions& options);
int show_positions(const Client& client, const HistoryOptions& options);

// Commands to a device (orders.cpp)
struct OrderOptions {
  std::string serial;
  std::string verb; ///< as the server's interface names it
  Json body = Json::object();
  bool wait_for_restart = false; ///< of a commit: until the device is back
  double timeout_s = 0;          ///< 0: the server decides when to give up
};
int give_order(const Client& client, const OrderOptions& options);
int set_variables(const Client& client, OrderOptions options,
                  const std::vector<std::string>& assignments, int unit);

} // namespace server
