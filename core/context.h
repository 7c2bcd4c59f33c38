// The one record of the management client.
//
// Created zero-filled at start-up, never freed, passed by pointer to every management function and
// stored as the argument of the management socket and of all six timers. Integers are in host
// order, socket addresses and byte arrays as on the wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <netinet/in.h>

namespace rcmd {

/// The largest datagram that is sent or received.
constexpr std::size_t kBufferBytes = 8192;
/// Zero bytes behind `rx_buf`: a configuration request is parsed up to 4 bytes past its end, and a
/// record that nobody ended stops here.
constexpr std::size_t kRxGuardBytes = 8;

struct RcmContext {
  std::uint32_t in_use; ///< 1: the record is live
  std::int32_t sock;    ///< the management UDP socket
  sockaddr_in server_addr;
  std::uint8_t session_id[8]; ///< given by the server, copied into every packet
  char serial[12];            ///< the three identity fields and the domain carry no terminator
  char firmware_version[64];  ///< when all their bytes are used; what is not used is zero
  char product_model[64];
  char domain[64];
  std::int32_t server_time;         ///< seconds since the epoch, at the last server-time exchange
  std::int32_t server_time_uptime;  ///< the system uptime when `server_time` was taken
  std::uint32_t last_wwan_tx_bytes; ///< baselines of the traffic sampler
  std::uint32_t last_wwan_rx_bytes;
  std::uint32_t last_wwan_tx_packets;
  std::uint32_t last_wwan_rx_packets;
  std::uint8_t* rx_buf;   ///< kBufferBytes, and kRxGuardBytes of zero behind them
  std::int32_t rx_length; ///< length of the datagram that the receive dispatcher last took
  sockaddr_in peer_addr;  ///< its source; replies to server requests go here
  std::uint8_t* tx_buf;   ///< kBufferBytes; holds the last packet sent, and is never cleared
  std::uint32_t tx_length;
  std::int32_t miss_count;       ///< keepalives sent since the last keepalive acknowledgement
  std::int32_t retransmit_count; ///< retransmissions of the packet in tx_buf
  std::int32_t online;           ///< 1: nothing awaits an acknowledgement, last exchange good
  std::uint32_t seq;
  std::uint32_t request_seq;         ///< sequence number of the server's last request
  std::int32_t keepalive_interval;   ///< seconds
  std::int32_t keepalive_maxretries; ///< keepalives that may go unacknowledged
};

/// Period of the position reports in seconds, set once at start-up and at least 10 from then on.
extern int gps_send_interval;

} // namespace rcmd
