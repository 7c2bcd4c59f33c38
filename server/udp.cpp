#include "server/udp.h"

#include <arpa/inet.h>
#include <cerrno>
#include <sys/socket.h>

namespace server {

namespace {

constexpr int kBatch = 64; ///< datagrams before timers and HTTP get their turn
constexpr std::size_t kReceiveBytes = 65536;
constexpr int kSocketBuffer_bytes = 1 << 20;

sockaddr_in to_sockaddr(const Address& address) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_addr.s_addr = htonl(address.ip);
  result.sin_port = htons(address.port);
  return result;
}

} // namespace

UdpLink::UdpLink(boost::asio::io_context& loop, const std::string& address, std::uint16_t port,
                 const FaultSettings& faults, Handlers handlers)
    : socket_(loop, {boost::asio::ip::make_address_v4(address), port}), timer_(loop),
      handlers_(std::move(handlers)), faulty_(faults.any()), faults_(faults),
      buffer_(kReceiveBytes) {
  boost::system::error_code ignored; // smaller buffers only make bursts less welcome
  socket_.set_option(boost::asio::socket_base::receive_buffer_size(kSocketBuffer_bytes), ignored);
  socket_.set_option(boost::asio::socket_base::send_buffer_size(kSocketBuffer_bytes), ignored);
  socket_.non_blocking(true);
  wait();
}

std::uint16_t UdpLink::port() const {
  return socket_.local_endpoint().port();
}

void UdpLink::wait() {
  socket_.async_wait(boost::asio::socket_base::wait_read,
                     [this](const boost::system::error_code& error) {
                       if (error != boost::asio::error::operation_aborted) {
                         receive_batch();
                         wait();
                       }
                     });
}

void UdpLink::receive_batch() {
  for (int i = 0; i < kBatch; i++) {
    sockaddr_in source{};
    socklen_t source_bytes = sizeof source;
    const ssize_t length = recvfrom(socket_.native_handle(), buffer_.data(), buffer_.size(), 0,
                                    reinterpret_cast<sockaddr*>(&source), &source_bytes);
    if (length < 0) {
      if (errno == EAGAIN) {
        break;
      }
      continue; // the report of an earlier send that found nobody
    }
    received({ntohl(source.sin_addr.s_addr), ntohs(source.sin_port)},
             View(buffer_.data(), static_cast<std::size_t>(length)));
  }
  handlers_.batch_done();
}

void UdpLink::received(const Address& from, View datagram) {
  if (!faulty_) {
    handlers_.datagram(from, datagram);
    return;
  }
  for (const int delay_ms : faults_.delays_ms(false)) {
    hold(delay_ms, {false, from, {datagram.begin(), datagram.end()}});
  }
}

void UdpLink::send(const Address& to, View head, View body) {
  if (!faulty_) {
    send_now(to, head, body);
    return;
  }
  Bytes bytes(head.begin(), head.end());
  bytes.insert(bytes.end(), body.begin(), body.end());
  for (const int delay_ms : faults_.delays_ms(true)) {
    hold(delay_ms, {true, to, bytes});
  }
}

void UdpLink::hold(int delay_ms, Held datagram) {
  const auto due = std::chrono::steady_clock::now() + std::chrono::milliseconds(delay_ms);
  const auto at = held_.emplace(due, std::move(datagram));
  if (at != held_.begin()) {
    return;
  }
  timer_.expires_at(due);
  timer_.async_wait([this](const boost::system::error_code& error) {
    if (!error) {
      release_held();
    }
  });
}

void UdpLink::release_held() {
  while (!held_.empty() && held_.begin()->first <= std::chrono::steady_clock::now()) {
    const Held datagram = std::move(held_.extract(held_.begin()).mapped());
    if (datagram.outgoing) {
      send_now(datagram.address, datagram.bytes, {});
    } else {
      handlers_.datagram(datagram.address, datagram.bytes);
    }
  }
  handlers_.batch_done();
  if (!held_.empty()) {
    timer_.expires_at(held_.begin()->first);
    timer_.async_wait([this](const boost::system::error_code& error) {
      if (!error) {
        release_held();
      }
    });
  }
}

void UdpLink::send_now(const Address& to, View head, View body) {
  sockaddr_in target = to_sockaddr(to);
  iovec parts[2] = {{const_cast<std::uint8_t*>(head.data()), head.size()},
                    {const_cast<std::uint8_t*>(body.data()), body.size()}};
  msghdr message{};
  message.msg_name = &target;
  message.msg_namelen = sizeof target;
  message.msg_iov = parts;
  message.msg_iovlen = body.empty() ? 1 : 2;
  // A datagram that the kernel cannot take is a lost datagram.
  static_cast<void>(sendmsg(socket_.native_handle(), &message, MSG_DONTWAIT | MSG_NOSIGNAL));
}

} // namespace server
