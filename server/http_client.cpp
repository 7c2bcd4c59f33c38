#include "server/http_client.h"

#include <boost/asio/connect.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace server {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;
using Error = boost::system::error_code;

constexpr auto kPatience = std::chrono::seconds(20);
constexpr std::uint64_t kLargestAnswer = 1ULL << 30;

struct Place {
  std::string host;
  std::string port = "8162";
};

Place place_of(const std::string& url) {
  constexpr std::string_view kScheme = "http://";
  if (!url.starts_with(kScheme)) {
    throw ConnectionError("the server's URL must be http://HOST:PORT, not " + url);
  }
  std::string rest = url.substr(kScheme.size());
  while (rest.ends_with('/')) {
    rest.pop_back();
  }
  Place place{.host = rest};
  const std::size_t colon = rest.rfind(':');
  if (colon != std::string::npos && rest.find(']', colon) == std::string::npos) {
    place.host = rest.substr(0, colon);
    place.port = rest.substr(colon + 1);
  }
  if (place.host.starts_with('[') && place.host.ends_with(']')) {
    place.host = place.host.substr(1, place.host.size() - 2);
  }
  return place;
}

/// A connection whose operations are waited for one at a time.
class Line {
public:
  explicit Line(const std::string& url) : stream_(loop_), place_(place_of(url)) {
    try {
      const auto targets = tcp::resolver(loop_).resolve(place_.host, place_.port);
      patience(kPatience);
      wait([&](auto done) { stream_.async_connect(targets, done); });
    } catch (const boost::system::system_error& error) {
      throw ConnectionError("no server at " + url + ": " + error.code().message());
    }
  }

  template <typename Start> Error try_wait(Start start) {
    Error result;
    start([&result](const Error& error, auto&&...) { result = error; });
    loop_.restart();
    loop_.run();
    return result;
  }
  template <typename Start> void wait(Start start) {
    if (const Error error = try_wait(start)) {
      throw boost::system::system_error(error);
    }
  }
  template <typename Duration> void patience(Duration duration) { stream_.expires_after(duration); }
  void endless_patience() { stream_.expires_never(); }
  beast::tcp_stream& stream() { return stream_; }
  [[nodiscard]] const std::string& host() const { return place_.host; }

private:
  asio::io_context loop_;
  beast::tcp_stream stream_;
  Place place_;
};

http::request<http::string_body> make_request(const Line& line, const std::string& method,
                                              const std::string& target, const std::string& body) {
  http::request<http::string_body> request{http::string_to_verb(method), target, 11};
  request.set(http::field::host, line.host());
  request.set(http::field::user_agent, "rcmctl");
  request.keep_alive(false);
  if (method == "POST") {
    request.set(http::field::content_type, "application/json");
    request.body() = body;
    request.prepare_payload();
  }
  return request;
}

} // namespace

HttpAnswer http_request(const std::string& url, const std::string& method,
                        const std::string& target, const std::string& json_body) {
  Line line(url);
  try {
    const auto request = make_request(line, method, target, json_body);
    line.wait([&](auto done) { http::async_write(line.stream(), request, done); });
    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    parser.body_limit(kLargestAnswer);
    line.patience(kPatience);
    line.wait([&](auto done) { http::async_read(line.stream(), buffer, parser, done); });
    return {parser.get().result_int(), std::move(parser.get().body())};
  } catch (const boost::system::system_error& error) {
    throw ConnectionError("the server at " + url + " did not answer: " + error.code().message());
  }
}

struct EventStream::Wire {
  Line line;
  std::string buffer;

  explicit Wire(const std::string& url) : line(url) {}

  /// What comes before `mark`, which is taken too; nothing when the time is up.
  std::optional<std::string> read_until(const std::string& mark) {
    std::size_t length = 0;
    const Error error = line.try_wait([&](auto done) {
      asio::async_read_until(line.stream(), asio::dynamic_buffer(buffer), mark,
                             [&length, done](const Error& result, std::size_t bytes) {
                               length = bytes;
                               done(result);
                             });
    });
    if (error == beast::error::timeout) {
      return std::nullopt;
    }
    if (error) {
      throw ConnectionError("the server ended the stream of events: " + error.message());
    }
    std::string text = buffer.substr(0, length - mark.size());
    buffer.erase(0, length);
    return text;
  }
};

EventStream::EventStream(const std::string& url, const std::string& target)
    : wire_(std::make_unique<Wire>(url)) {
  Line& line = wire_->line;
  const auto request = make_request(line, "GET", target, "");
  try {
    line.wait([&](auto done) { http::async_write(line.stream(), request, done); });
  } catch (const boost::system::system_error& error) {
    throw ConnectionError("the server at " + url + " did not answer: " + error.code().message());
  }
  line.patience(kPatience);
  const auto header = wire_->read_until("\r\n\r\n");
  if (!header || !header->starts_with("HTTP/1.1 200")) {
    throw ConnectionError("the server at " + url + " gives no events");
  }
}

EventStream::~EventStream() = default;

std::optional<ServerEvent> EventStream::next(const Deadline& deadline) {
  constexpr std::string_view kName = "event: ";
  constexpr std::string_view kData = "\ndata: ";
  while (true) {
    if (deadline) {
      wire_->line.patience(std::max(*deadline - std::chrono::steady_clock::now(),
                                    std::chrono::steady_clock::duration::zero()));
    } else {
      wire_->line.endless_patience();
    }
    const auto block = wire_->read_until("\n\n");
    if (!block) {
      return std::nullopt;
    }
    const std::size_t data = block->find(kData);
    if (block->starts_with(kName) && data != std::string::npos) {
      return ServerEvent{block->substr(kName.size(), data - kName.size()),
                         block->substr(data + kData.size())};
    }
  }
}

} // namespace server
