// The running server: the engine between its socket, its store, its clock and its HTTP clients.
#pragma once

#include "server/http.h"
#include "server/udp.h"

#include <boost/asio/signal_set.hpp>

#include <string>

namespace server {

struct Options {
  std::string bind = "0.0.0.0";
  std::uint16_t port = 1162;
  std::string http_address = "127.0.0.1";
  std::uint16_t http_port = 8162;
  std::string database = "rcm-server.db";
  int keep_days = 0; ///< 0: everything is kept
  Settings settings;
  FaultSettings faults;
};

class Hub final : public Output {
public:
  /// Opens the database and both sockets; takes up what an earlier run left.
  explicit Hub(const Options& options);

  [[nodiscard]] std::uint16_t udp_port() const { return link_.port(); }
  [[nodiscard]] std::uint16_t http_port() const { return http_.port(); }
  /// Returns after SIGINT or SIGTERM.
  void run();

  void send(const Address& to, View head, View body) override;
  void event(Event event) override;

private:
  void restore();
  ApiReply handle(const ApiRequest& request);
  void commit();
  void settle();
  void arm();
  void housekeeping();
  void save_last_seen();

  boost::asio::io_context loop_;
  Store store_;
  ImageFiles images_;
  Engine engine_;
  Api api_;
  UdpLink link_;
  HttpServer http_;
  boost::asio::signal_set signals_;
  boost::asio::steady_timer deadline_;
  boost::asio::steady_timer housekeeping_;
  int keep_days_;
  std::int64_t last_seen_saved_ = 0;
  std::optional<std::int64_t> armed_ms_; ///< when `deadline_` fires
};

} // namespace server
