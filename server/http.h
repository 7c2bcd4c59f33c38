// HTTP on the event loop of the process: requests go to one handler, events to everyone who reads
// GET /events (text/event-stream). All of it is asynchronous and bounded: the size of a request,
// the number of connections, the time a request may take, and what may pile up for a slow reader,
// who is then cut off. The wire's datagrams never wait for a client.
#pragma once

#include "server/api.h"

#include <boost/asio/io_context.hpp>

#include <functional>
#include <memory>
#include <string>

namespace server {

class HttpServer {
public:
  using Handler = std::function<ApiReply(const ApiRequest&)>;

  /// Listens at once; port 0 takes a free one. @throw boost::system::system_error
  HttpServer(boost::asio::io_context& loop, const std::string& address, std::uint16_t port,
             Handler handler);
  ~HttpServer();

  [[nodiscard]] std::uint16_t port() const;
  /// Sends an event to its readers. `serial` is whom it is about, for those who asked for one.
  void publish(const std::string& name, const std::string& serial, const std::string& json);
  /// Whether anybody reads events.
  [[nodiscard]] bool has_readers() const;

  class Listener; // of http.cpp alone

private:
  std::shared_ptr<Listener> listener_;
};

} // namespace server
