// The scan tools server over real sockets.

#include "local/scantools.h"

#include "tests/local/real_router.h"

#include <random>

using real::Bytes;
using real::Client;

namespace {

Bytes message(std::uint8_t type) {
  Bytes bytes(696, 0);
  bytes[0] = 0xBA;
  bytes[1] = type;
  return bytes;
}

class ScantoolsSocket : public real::RouterFixture {
protected:
  ScantoolsSocket() {
    setting("lan0_ifname", "br0");
    setting("lan0_ipaddr", "192.168.7.1");
    setting("et0macaddr", "02:52:43:4D:00:01");
    setting("product_model", "Virtual Router");
    setting("jqa_reconnect_interval", "60");
  }
  static Bytes answer_to(const Client& client, const Bytes& question) {
    Bytes bytes;
    EXPECT_TRUE(client.send(question));
    serve_until([&] { return !(bytes = client.received()).empty(); });
    return bytes;
  }
};

TEST_F(ScantoolsSocket, ADiscoveryIsAnsweredWithTheInterfacesValues) {
  opened(rcmd::scantools_open(1));
  const Bytes reply = answer_to(datagrams_to(2719), message(1));
  ASSERT_EQ(reply.size(), 696U);
  EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 10),
            (Bytes{0xBA, 2, 0x24, 0xD7, '*', '*', '*', '*', '*', 0}));
  EXPECT_EQ(Bytes(reply.begin() + 36, reply.begin() + 48),
            (Bytes{2, 0x52, 0x43, 0x4D, 0, 1, 0, 0, 192, 168, 7, 1}));
  EXPECT_STREQ(reinterpret_cast<const char*>(&reply[48]), "Virtual Router");
  EXPECT_EQ(Bytes(reply.begin() + 600, reply.begin() + 604), (Bytes{255, 255, 255, 0}));
  EXPECT_EQ(Bytes(reply.end() - 4, reply.end()), (Bytes{0, 0, 0, 60}));
}

TEST_F(ScantoolsSocket, OfALongDatagramTheRestIsDropped) {
  opened(rcmd::scantools_open(1));
  const Client client = datagrams_to(2719);
  Bytes question = message(1);
  question.resize(9000, 0xAA);
  EXPECT_EQ(answer_to(client, question).size(), 696U);
  EXPECT_EQ(answer_to(client, message(1)).size(), 696U);
}

TEST_F(ScantoolsSocket, OneMalformedDatagramEndsTheServiceAndTheLoopRunsOn) {
  rcmd::scantools_open(1);
  const Client client = datagrams_to(2719);
  ASSERT_TRUE(client.send({0xBA, 1}));
  EXPECT_TRUE(serve_until([] { return count(console(), "too short packet .. \n") == 1; }));
  client.send(message(1)); // nobody listens any more
  serve_for(20);
  EXPECT_TRUE(client.received().empty());
}

TEST_F(ScantoolsSocket, RandomDatagramsLeaveTheDaemonRunning) {
  std::mt19937 dice(2719);
  for (int life = 0; life < 40; life++) {
    const int fd = rcmd::scantools_open(1);
    ASSERT_GE(fd, 0);
    const Client client = datagrams_to(2719);
    for (int i = 0; i < 20; i++) {
      Bytes bytes = message(static_cast<std::uint8_t>(dice() % 6));
      for (std::size_t at = dice() % 6 == 0 ? 0 : 2; at < bytes.size(); at++) {
        bytes[at] = static_cast<std::uint8_t>(dice());
      }
      client.send(bytes);
    }
    client.send({1});
    const int ends = life + 1;
    ASSERT_TRUE(serve_until([ends] {
      const std::string text = console();
      return count(text, "too short") + count(text, "Unknown Packet") + count(text, "read f") ==
             ends;
    }));
  }
  opened(rcmd::scantools_open(1));
  EXPECT_EQ(answer_to(datagrams_to(2719), message(1)).size(), 696U);
}

} // namespace
