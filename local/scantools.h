// The scan tools server: a LAN tool finds the router by a broadcast and sets a few of its values.
// UDP port 2719 on all addresses.
//
// Every message of both directions is one ScanMessage of 696 bytes; a longer datagram is cut, a
// shorter one refused. Integers are big-endian, addresses in network order. Failures are told to
// the console, whatever `debug` says; a console that cannot be opened loses the text and nothing
// else. docs/local-protocols.md shows the bytes.
#pragma once

#include "core/wire.h"

#include <cstddef>
#include <cstdint>
#include <sys/socket.h>

namespace rcmd {

struct ScanMessage {   // as on the wire
  std::uint8_t magic;  ///< requests 0xBA or 0xAB, replies 0xBA
  std::uint8_t type;   ///< 1 discovery, 2 its reply, 3 set, 4 its reply
  be16 fields;         ///< the fields that a set carries; 0x24D7 in the reply to a discovery
  char community[32];  ///< ends at its first NUL, if it has one
  std::uint8_t mac[6]; ///< of the LAN interface
  std::uint8_t zero[2];
  std::uint8_t address[4];
  char product_model[292];
  std::uint8_t file_server[4];
  char file_name[13];
  std::uint8_t unused[243];
  std::uint8_t second_address[4]; ///< set: an address; reply to a discovery: the netmask
  std::uint8_t unused_too[4];
  be32 word; ///< 1 in the reply to a discovery
  std::uint8_t unused_last[80];
  be32 reconnect_interval; ///< seconds
};
static_assert(sizeof(ScanMessage) == 696 && alignof(ScanMessage) == 1);
static_assert(offsetof(ScanMessage, community) == 4 && offsetof(ScanMessage, mac) == 36);
static_assert(offsetof(ScanMessage, address) == 44 && offsetof(ScanMessage, product_model) == 48);
static_assert(offsetof(ScanMessage, file_server) == 340 && offsetof(ScanMessage, file_name) == 344);
static_assert(offsetof(ScanMessage, second_address) == 600 && offsetof(ScanMessage, word) == 608);
static_assert(offsetof(ScanMessage, reconnect_interval) == 692);

/// Opens the server and has the event loop serve it.
/// @param socket_mode  1: datagram, the only one there is
/// @return the socket, which is the event loop's from then on, or -1: the reason is on the console,
/// or the loop has no room
int scantools_open(int socket_mode);

/// Calls the handler of the message's type.
/// @param socket  where the reply leaves, to `sender`
/// @param length  of the datagram as received
/// @return 0; -1 when the type has no handler (no reply), or when its handler failed
int scantools_msg_dispatch(int socket, const ScanMessage& message, std::size_t length,
                           const sockaddr* sender, socklen_t sender_bytes);

/// Hangs the WWAN link's daemon up, commits nvram and restarts the device. Works once per process:
/// every further call returns at once.
/// @return only when it did nothing, or when the commit failed
void do_system_reboot();

} // namespace rcmd
