#include "local/deskmgr.h"

#include "core/say.h"
#include "local/owned_socket.h"
#include "platform/api/event_loop.h"
#include "platform/api/net.h"
#include "platform/api/nvram.h"

#include <cstring>

namespace rcmd {

namespace {

constexpr std::uint16_t kPort = 5000;
constexpr int kBacklog = 5;
constexpr int kDatagramMode = 1;
constexpr int kStreamMode = 2;
constexpr std::size_t kReadBytes = 1024;

constexpr std::uint8_t kRequest = 1;
constexpr std::uint8_t kResponse = 2;

constexpr std::uint32_t kDone = 0;
constexpr std::uint32_t kRefused = 1;
constexpr std::uint32_t kStatusDown = 1;
constexpr std::uint32_t kStatusOther = 2;

struct Entry {
  std::uint16_t code;
  int (*handler)(int connection, const DeskmgrHeader& message, std::uint32_t length,
                 const Entry& entry);
};

void respond(int connection, const DeskmgrHeader& request, std::uint32_t result) {
  DeskmgrResponse response{request, {}};
  response.header.kind = kResponse;
  response.header.length = sizeof response;
  response.result = result;
  // A peer that is gone, or that asks and never reads, loses its answer; it must not stop the
  // daemon by a signal or a full socket. A failed send is nobody's concern here.
  net_send(connection, &response, sizeof response, MSG_NOSIGNAL | MSG_DONTWAIT);
}

// DELIBERATE: an absent key allows the action; only a value that is set and differs, the empty text
// included, forbids it.
bool allows(const char* name, const char* wanted) {
  const char* value = nvram_get(name);
  return value == nullptr || std::strcmp(value, wanted) == 0;
}

std::uint32_t ask_wwan_for(const char* action) {
  if (!allows("wan0_enable", "1") || !allows("wan0_wwan_mode", "3")) {
    return kRefused;
  }
  nvram_set("wan0_action", action); // the requester is answered whatever the store returns
  return kDone;
}

int wwan_connect(int connection, const DeskmgrHeader& message, std::uint32_t, const Entry&) {
  console("receive a wwan_connect request ! \n");
  respond(connection, message, ask_wwan_for("start"));
  console("send response packet ! \n"); // also when the send failed
  return 0;
}

int wwan_disconnect(int connection, const DeskmgrHeader& message, std::uint32_t, const Entry&) {
  console("receive a wwan_disconnect request ! \n");
  respond(connection, message, ask_wwan_for("stop"));
  return 0;
}

int wwan_status(int connection, const DeskmgrHeader& message, std::uint32_t, const Entry&) {
  console("receive a status request ! \n");
  const char* status = nvram_get("wan0_status");
  const bool down = status != nullptr && std::strcmp(status, "down") == 0;
  respond(connection, message, down ? kStatusDown : kStatusOther);
  return 0;
}

int reserved(int, const DeskmgrHeader&, std::uint32_t, const Entry&) {
  return 0;
}

constexpr Entry entries[] = {
    {1, wwan_connect}, {2, wwan_disconnect}, {3, wwan_status}, {4, reserved}, {0, nullptr},
};
static_assert(sizeof entries / sizeof entries[0] == 5);

/// Closed before it is unregistered. @return 0: there is nothing left to ask again about
int drop(int connection) {
  net_close(connection);
  unregister_fd_desc(connection);
  return 0;
}

/// The connection's readiness handler. One call reads once and serves one message; what stands
/// behind that message in the same read is dropped.
int serve_connection(FdDescriptor* descriptor) {
  const int connection = static_cast<int>(descriptor->fd);
  console("call deskmgrp_rw_handler ... \n");
  std::uint8_t bytes[kReadBytes];
  const ssize_t count = net_read(connection, bytes, sizeof bytes);
  if (count < 1) {
    console("read fail .... \n");
    return drop(connection);
  }
  console("len = %d \n", static_cast<int>(count));
  DeskmgrHeader header;
  if (static_cast<std::size_t>(count) < sizeof header) {
    console("too short packet .. \n");
    return drop(connection);
  }
  std::memcpy(&header, bytes, sizeof header);
  if (static_cast<std::uint32_t>(count) < header.length) {
    console("mismatch length packet .. \n");
    return drop(connection);
  }
  console("msg_hdr->type = %02x (%d) \n", header.kind, header.kind);
  if (header.kind != kRequest) {
    console("We are only to accept request packet \n");
    return drop(connection);
  }
  deskmgr_msg_dispatch(connection, header, header.length); // an unknown code is just not answered
  return 0;
}

/// The server socket's readiness handler.
// DELIBERATE: start-up opens the server in datagram mode, in which accept always fails: the waiting
// datagram is never read and nobody is served. Requests are served in stream mode alone.
int accept_connection(FdDescriptor* descriptor) {
  console("call deskmgr_handler ... \n");
  const int connection = net_accept(static_cast<int>(descriptor->fd), nullptr, nullptr);
  if (connection < 0) {
    return -1;
  }
  console("recevie connect request ! \n");
  if (register_fd_desc(connection, serve_connection, nullptr) < 0) {
    net_close(connection); // more connections than the loop can watch
  }
  return 0;
}

} // namespace

int deskmgr_open(int socket_mode) {
  if (socket_mode != kDatagramMode && socket_mode != kStreamMode) {
    console("Unknown socket type %d \n", socket_mode);
    return -1;
  }
  OwnedSocket server(socket_mode == kStreamMode ? net_socket(AF_INET, SOCK_STREAM, IPPROTO_TCP)
                                                : net_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP));
  if (server.get() < 0) {
    console("socket() fail \n");
    return -1;
  }
  if (!switch_on(server, SO_REUSEADDR)) {
    console("setsockopt() fail \n");
    return -1;
  }
  if (!bind_to_port(server, kPort)) {
    console("bind() fail \n");
    return -1;
  }
  if (socket_mode == kStreamMode && net_listen(server.get(), kBacklog) < 0) {
    console("listen() fail \n");
    return -1;
  }
  if (register_fd_desc(server.get(), accept_connection, nullptr) < 0) {
    return -1;
  }
  return server.release();
}

int deskmgr_msg_dispatch(int connection, const DeskmgrHeader& message, std::uint32_t length) {
  for (const Entry& entry : entries) {
    if (entry.code == message.code && entry.handler != nullptr) {
      return entry.handler(connection, message, length, entry);
    }
  }
  return -1;
}

} // namespace rcmd
