// A small HTTP client for one server: requests one at a time, and streams of events.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace server {

/// The server could not be reached or did not answer in time.
struct ConnectionError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct HttpAnswer {
  unsigned status = 0;
  std::string body;
};

struct ServerEvent {
  std::string name;
  std::string data;
};

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// A stream of events, open from its making to its end.
class EventStream {
public:
  EventStream(const std::string& url, const std::string& target);
  ~EventStream();
  /// @return nothing when the deadline passed. @throw ConnectionError when the server ended it
  std::optional<ServerEvent> next(const Deadline& deadline);

private:
  struct Wire;
  std::unique_ptr<Wire> wire_;
};

/// `url` is http://HOST[:PORT]. @throw ConnectionError
HttpAnswer http_request(const std::string& url, const std::string& method,
                        const std::string& target, const std::string& json_body = "");

} // namespace server
