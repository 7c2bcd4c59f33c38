#include "rcm/client.h"

#include "core/owned.h"
#include "core/say.h"
#include "core/timers.h"
#include "platform/api/net.h"
#include "rcm/packet.h"
#include "rcm/registration.h"
#include "rcm/requests.h"

#include <arpa/inet.h>
#include <initializer_list>
#include <netinet/in.h>

namespace rcmd {

namespace {

constexpr std::uint16_t kClientPort = 1161;

int failed_to(const char* message) {
  diag("%s", message);
  return -1;
}

void say_acknowledgement(std::uint16_t type, std::uint32_t seq) {
  const int number = static_cast<int>(seq);
  switch (type) {
  case kLog:
    return diag("receive Log ACK(seq=%d)\n", number);
  case kConf:
    return diag("receive CONF ACK(seq=%d)\n", number);
  case kStatus:
    return diag("receive Status ACK(seq=%d)\n", number);
  case kKeepalive:
    return diag("receive keepalive ACK(seq=%d)\n", number);
  default:
    return diag("receive unknown(%04x) ACK(seq=%d) .... \n", type, number);
  }
}

// DELIBERATE: any acknowledgement closes the outstanding packet; its seq is not compared with it.
void take_acknowledgement(RcmContext& context) {
  const RcmPacketHeader& header = rx_header(context);
  say_acknowledgement(header.type, header.seq);
  if (header.type == kKeepalive) {
    context.miss_count = 0;
  }
  context.seq++;
  context.online = 1;
  context.retransmit_count = 0;
  cancel(rcm_retransmit);
}

void take_request(RcmContext& context) {
  const std::uint32_t seq = rx_header(context).seq;
  const RequestRoute* route = request_routes;
  while (route->message != nullptr && route->type != rx_header(context).type) {
    route++;
  }
  if (route->message != nullptr) {
    diag("%s", route->message);
  }
  route->handler(&context);
  context.request_seq = seq;
}

} // namespace

int rcm_open(RcmContext* context) {
  const int fd = net_socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (fd < 0) {
    return failed_to("socket() fail \n");
  }
  const int on = 1;
  if (net_setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) < 0) {
    return failed_to("setsockopt() fail \n");
  }
  sockaddr_in local{};
  local.sin_family = AF_INET;
  local.sin_port = htons(kClientPort);
  local.sin_addr.s_addr = htonl(INADDR_ANY);
  if (net_bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) < 0) {
    return failed_to("bind() fail \n");
  }
  ignore(register_fd_desc(fd, rcm_receive_func, context)); // the loop's table has room at start-up
  context->sock = fd;
  for (RcmTimer* timer : {&rcm_retransmit, &rcm_keepalive, &rcm_logsender, &rcm_gpssender,
                          &rcm_trafficget, &rcm_trafficsender}) {
    timer->arg = context;
  }
  ignore(do_rcm_register(context)); // it returns once registered
  return fd;
}

int rcm_close(int fd) {
  ignore(net_close(fd)); // nothing is left to do about it
  return 0;
}

int rcm_receive_func(FdDescriptor* descriptor) {
  RcmContext& context = *static_cast<RcmContext*>(descriptor->arg);
  sockaddr_in peer{};
  socklen_t peer_bytes = sizeof peer;
  const ssize_t received =
      net_recvfrom(static_cast<int>(descriptor->fd), context.rx_buf, kBufferBytes, 0,
                   reinterpret_cast<sockaddr*>(&peer), &peer_bytes);
  if (received <= 0) {
    return failed_to("read fail .... \n");
  }
  context.peer_addr = peer;
  context.rx_length = static_cast<std::int32_t>(received);
  switch (check_packet(context.rx_buf, static_cast<std::size_t>(received))) {
  case PacketCheck::kTooShort:
    return failed_to("too short packet .. \n");
  case PacketCheck::kBadChecksum:
    return -1;
  case PacketCheck::kGood:
    break;
  }
  switch (rx_header(context).flags) {
  case kReplyFlags:
  case kServerReplyFlags:
    take_acknowledgement(context);
    break;
  case kReportFlags:
  case kTransferFlags:
    take_request(context);
    break;
  default: // no packet of this protocol
    break;
  }
  return 0;
}

} // namespace rcmd
