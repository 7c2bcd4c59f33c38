// The server's UDP socket on the event loop of the process. Datagrams are handed on in batches, so
// that the work which follows a batch (a commit, a timer) is done once.
#pragma once

#include "server/faults.h"
#include "server/wire.h"

#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <map>
#include <string>

namespace server {

class UdpLink {
public:
  struct Handlers {
    std::function<void(const Address& from, View datagram)> datagram;
    std::function<void()> batch_done;
  };

  /// Binds at once; port 0 takes a free one. @throw boost::system::system_error
  UdpLink(boost::asio::io_context& loop, const std::string& address, std::uint16_t port,
          const FaultSettings& faults, Handlers handlers);

  [[nodiscard]] std::uint16_t port() const;
  /// Sends one datagram of two parts; what cannot be sent now is lost, as on any such link.
  void send(const Address& to, View head, View body);

private:
  struct Held {
    bool outgoing;
    Address address;
    Bytes bytes;
  };

  void wait();
  void receive_batch();
  void received(const Address& from, View datagram);
  void hold(int delay_ms, Held datagram);
  void release_held();
  void send_now(const Address& to, View head, View body);

  boost::asio::ip::udp::socket socket_;
  boost::asio::steady_timer timer_;
  Handlers handlers_;
  bool faulty_;
  Faults faults_;
  std::multimap<std::chrono::steady_clock::time_point, Held> held_;
  Bytes buffer_;
};

} // namespace server
