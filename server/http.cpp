#include "server/http.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include <deque>
#include <optional>
#include <set>

namespace server {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;
using Error = boost::system::error_code;

constexpr std::size_t kLargestBody = std::size_t{64} * 1024;
constexpr std::uint32_t kLargestHeader = 16 * 1024;
constexpr std::size_t kMostConnections = 256;
constexpr std::size_t kMostPending_bytes = std::size_t{4} * 1024 * 1024;
constexpr auto kPatience = std::chrono::seconds(30);
constexpr auto kHeartbeat = std::chrono::seconds(15);
constexpr auto kRetry = std::chrono::milliseconds(200);

constexpr char kStreamHeader[] = "HTTP/1.1 200 OK\r\n"
                                 "Content-Type: text/event-stream\r\n"
                                 "Cache-Control: no-store\r\n"
                                 "Connection: close\r\n\r\n";

using Text = std::shared_ptr<const std::string>;

/// The device in "/events?serial=S"; empty for every device; nothing for another target.
std::optional<std::string> events_of(const std::string& target) {
  Target parts = split_target(target);
  return parts.path == std::vector<std::string>{"events"} ? std::optional(parts.query["serial"])
                                                          : std::nullopt;
}

} // namespace

class Connection;

class HttpServer::Listener : public std::enable_shared_from_this<Listener> {
public:
  Listener(asio::io_context& loop, const tcp::endpoint& endpoint, Handler handler)
      : acceptor_(loop, endpoint), heartbeat_(loop), retry_(loop), handler_(std::move(handler)) {}

  void start() {
    accept();
    beat();
  }
  void stop();
  [[nodiscard]] std::uint16_t port() const { return acceptor_.local_endpoint().port(); }
  void publish(const std::string& serial, const Text& text);
  [[nodiscard]] bool has_readers() const { return !readers_.empty(); }

  ApiReply handle(const ApiRequest& request) { return handler_(request); }
  void add(Connection* connection) { connections_.insert(connection); }
  void add_reader(Connection* connection) { readers_.insert(connection); }
  void remove(Connection* connection) {
    connections_.erase(connection);
    readers_.erase(connection);
  }

private:
  void accept();
  void accept_later();
  void beat();

  tcp::acceptor acceptor_;
  asio::steady_timer heartbeat_;
  asio::steady_timer retry_;
  Handler handler_;
  std::set<Connection*> connections_; ///< each owns itself while something is pending on it
  std::set<Connection*> readers_;
};

/// One client: requests one after another, or events until it leaves.
class Connection : public std::enable_shared_from_this<Connection> {
public:
  Connection(tcp::socket socket, std::shared_ptr<HttpServer::Listener> listener);
  ~Connection();

  void read();
  void close();
  void push(const std::string& serial, const Text& text);

private:
  void answer();
  void reply(const ApiReply& reply);
  void stream(std::string serial);
  void await_end();
  void write_next();

  beast::tcp_stream stream_;
  std::shared_ptr<HttpServer::Listener> listener_;
  beast::flat_buffer buffer_;
  std::optional<http::request_parser<http::string_body>> parser_;
  http::response<http::string_body> response_;
  std::string serial_; ///< whose events are read
  std::deque<Text> pending_;
  std::size_t pending_bytes_ = 0;
  char sink_[64]{};
};

Connection::Connection(tcp::socket socket, std::shared_ptr<HttpServer::Listener> listener)
    : stream_(std::move(socket)), listener_(std::move(listener)) {
  listener_->add(this);
}

Connection::~Connection() {
  listener_->remove(this);
}

void Connection::close() {
  Error ignored;
  stream_.socket().shutdown(tcp::socket::shutdown_both, ignored);
  stream_.cancel();
}

void Connection::read() {
  parser_.emplace();
  parser_->body_limit(kLargestBody);
  parser_->header_limit(kLargestHeader);
  stream_.expires_after(kPatience);
  http::async_read(
      stream_, buffer_, *parser_, [self = shared_from_this()](const Error& error, std::size_t) {
        if (!error) {
          self->answer();
        } else if (error == http::error::body_limit || error == http::error::header_limit) {
          self->parser_->get().keep_alive(false);
          self->reply({413, {{"error", "the request is too large"}}});
        }
      });
}

void Connection::answer() {
  const auto& request = parser_->get();
  const std::string target(request.target());
  auto serial = request.method() == http::verb::get ? events_of(target) : std::nullopt;
  if (serial) {
    stream(std::move(*serial));
    return;
  }
  try {
    reply(listener_->handle({std::string(request.method_string()), target,
                             std::string(request[http::field::content_type]), request.body()}));
  } catch (const std::exception& error) {
    reply({500, {{"error", error.what()}}});
  }
}

void Connection::reply(const ApiReply& reply) {
  response_ = {};
  response_.result(static_cast<unsigned>(reply.status));
  response_.version(11);
  response_.set(http::field::content_type, "application/json");
  response_.set(http::field::cache_control, "no-store");
  response_.keep_alive(parser_->get().keep_alive());
  response_.body() = dump_json(reply.body) + "\n";
  response_.prepare_payload();
  stream_.expires_after(kPatience);
  http::async_write(stream_, response_,
                    [self = shared_from_this()](const Error& error, std::size_t) {
                      if (!error && self->response_.keep_alive()) {
                        self->read();
                      } else {
                        self->close();
                      }
                    });
}

void Connection::stream(std::string serial) {
  serial_ = std::move(serial);
  stream_.expires_never();
  listener_->add_reader(this);
  push("", std::make_shared<const std::string>(kStreamHeader));
  await_end();
}

/// A reader of events has nothing more to say: what comes is thrown away until it leaves.
void Connection::await_end() {
  stream_.async_read_some(asio::buffer(sink_),
                          [self = shared_from_this()](const Error& error, std::size_t) {
                            if (error) {
                              self->close();
                            } else {
                              self->await_end();
                            }
                          });
}

void Connection::push(const std::string& serial, const Text& text) {
  if (!serial.empty() && !serial_.empty() && serial != serial_) {
    return;
  }
  if (pending_bytes_ + text->size() > kMostPending_bytes) {
    close(); // it does not keep up
    return;
  }
  pending_.push_back(text);
  pending_bytes_ += text->size();
  if (pending_.size() == 1) {
    write_next();
  }
}

void Connection::write_next() {
  asio::async_write(stream_, asio::buffer(*pending_.front()),
                    [self = shared_from_this()](const Error& error, std::size_t) {
                      if (error) {
                        self->close();
                        return;
                      }
                      self->pending_bytes_ -= self->pending_.front()->size();
                      self->pending_.pop_front();
                      if (!self->pending_.empty()) {
                        self->write_next();
                      }
                    });
}

void HttpServer::Listener::accept() {
  acceptor_.async_accept([self = shared_from_this()](const Error& error, tcp::socket socket) {
    if (error == asio::error::operation_aborted || !self->acceptor_.is_open()) {
      return;
    }
    if (error) {
      self->accept_later();
      return;
    }
    if (self->connections_.size() < kMostConnections) {
      std::make_shared<Connection>(std::move(socket), self)->read();
    }
    self->accept();
  });
}

/// Out of descriptors, for instance: some may be free again in a while.
void HttpServer::Listener::accept_later() {
  retry_.expires_after(kRetry);
  retry_.async_wait([self = shared_from_this()](const Error& error) {
    if (!error) {
      self->accept();
    }
  });
}

void HttpServer::Listener::beat() {
  heartbeat_.expires_after(kHeartbeat);
  heartbeat_.async_wait([self = shared_from_this()](const Error& error) {
    if (!error) {
      self->publish("", std::make_shared<const std::string>(":\n\n"));
      self->beat();
    }
  });
}

void HttpServer::Listener::publish(const std::string& serial, const Text& text) {
  const std::set<Connection*> readers = readers_; // a reader that is cut off leaves the set
  for (Connection* reader : readers) {
    reader->push(serial, text);
  }
}

void HttpServer::Listener::stop() {
  Error ignored;
  acceptor_.close(ignored);
  heartbeat_.cancel();
  retry_.cancel();
  for (Connection* connection : connections_) {
    connection->close();
  }
}

HttpServer::HttpServer(asio::io_context& loop, const std::string& address, std::uint16_t port,
                       Handler handler)
    : listener_(std::make_shared<Listener>(
          loop, tcp::endpoint(asio::ip::make_address(address), port), std::move(handler))) {
  listener_->start();
}

HttpServer::~HttpServer() {
  try {
    listener_->stop();
  } catch (const std::exception&) { // the process ends anyway
  }
}

std::uint16_t HttpServer::port() const {
  return listener_->port();
}

bool HttpServer::has_readers() const {
  return listener_->has_readers();
}

void HttpServer::publish(const std::string& name, const std::string& serial,
                         const std::string& json) {
  listener_->publish(
      serial, std::make_shared<const std::string>("event: " + name + "\ndata: " + json + "\n\n"));
}

} // namespace server
