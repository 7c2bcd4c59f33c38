#include "tests/fake_platform/context.h"

#include "core/say.h"
#include "core/timers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

namespace fake {

namespace {

constexpr std::size_t kGuard = 64;
constexpr std::uint8_t kMark = 0xC7;

} // namespace

ContextFixture::ContextFixture()
    : rx_storage_(kGuard + rcmd::kBufferBytes + rcmd::kRxGuardBytes + kGuard, kMark),
      tx_storage_(kGuard + rcmd::kBufferBytes + kGuard, kMark) {
  rcmd::debug = 1;
  rcmd::gps_send_interval = 60;
  context.in_use = 1;
  context.sock = world().make_socket(1161);
  context.server_addr = address("127.0.0.1", 1162);
  std::memcpy(context.session_id, "ABCDEFGH", 8);
  std::memcpy(context.serial, "SN0123456789", 12);
  std::memcpy(context.domain, "example", 7);
  context.online = 1;
  context.rx_buf = rx_storage_.data() + kGuard;
  context.tx_buf = tx_storage_.data() + kGuard;
  std::memset(context.rx_buf, 0, rcmd::kBufferBytes + rcmd::kRxGuardBytes);
  std::memset(context.tx_buf, 0, rcmd::kBufferBytes);
  const std::pair<RcmTimer*, const char*> timers[] = {
      {&rcmd::rcm_keepalive, "rcm_keepalive"},   {&rcmd::rcm_retransmit, "rcm_retransmit"},
      {&rcmd::rcm_logsender, "rcm_logsender"},   {&rcmd::rcm_gpssender, "rcm_gpssender"},
      {&rcmd::rcm_trafficget, "rcm_trafficget"}, {&rcmd::rcm_trafficsender, "rcm_trafficsender"}};
  for (const auto& [timer, name] : timers) {
    world().name_timer(timer, name);
    timer->arg = &context;
  }
}

ContextFixture::~ContextFixture() {
  rcmd::debug = 0;
  EXPECT_TRUE(guards_stand()) << "bytes beside a buffer were written";
}

bool ContextFixture::guards_stand() const {
  auto marked = [](const std::uint8_t* from, std::size_t count) {
    return std::all_of(from, from + count, [](std::uint8_t byte) { return byte == kMark; });
  };
  const std::uint8_t* behind_rx = context.rx_buf + rcmd::kBufferBytes;
  return marked(rx_storage_.data(), kGuard) && marked(tx_storage_.data(), kGuard) &&
         std::all_of(behind_rx, behind_rx + rcmd::kRxGuardBytes,
                     [](std::uint8_t byte) { return byte == 0; }) &&
         marked(behind_rx + rcmd::kRxGuardBytes, kGuard) &&
         marked(context.tx_buf + rcmd::kBufferBytes, kGuard);
}

void ContextFixture::receive(const Bytes& datagram) {
  std::memcpy(context.rx_buf, datagram.data(), datagram.size());
  context.rx_length = static_cast<std::int32_t>(datagram.size());
  context.peer_addr = address("10.1.2.3", 4000);
}

void ContextFixture::answer_everything() {
  world().on_send = [](const Datagram& sent) {
    if (ntohs(sent.peer.sin_port) == 1162) {
      world().deliver(1161, server_packet(type_of(sent.bytes), 1, seq_of(sent.bytes)), 20);
    }
  };
}

Bytes ContextFixture::tx(std::size_t bytes) const {
  return {context.tx_buf, context.tx_buf + bytes};
}

} // namespace fake
