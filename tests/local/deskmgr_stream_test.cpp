// The desktop manager in stream mode, over real TCP connections.

#include "local/deskmgr.h"

#include "platform/api/nvram.h"
#include "tests/local/real_router.h"

#include <random>

using real::Bytes;
using real::Client;

namespace {

// The request's first four bytes tell the clients apart.
Bytes request(std::uint8_t tag, std::uint8_t code) {
  return {tag, 0, 0, 0, 0, code, 0, 1, 0, 0, 0, 12};
}
Bytes answer(std::uint8_t tag, std::uint8_t code, std::uint8_t result) {
  return {tag, 0, 0, 0, 0, code, 0, 2, 0, 0, 0, 16, 0, 0, 0, result};
}

class DeskmgrStream : public real::RouterFixture {
protected:
  DeskmgrStream() { opened(rcmd::deskmgr_open(2)); }

  static Client accepted() {
    Client client = connect(5000);
    const int before = count(console(), "recevie connect request");
    EXPECT_TRUE(serve_until([&] { return count(console(), "recevie connect request") > before; }));
    return client;
  }
  static Bytes served(const Client& client) {
    Bytes bytes;
    serve_until([&] { return !(bytes = client.received()).empty(); });
    return bytes;
  }
  static bool dropped(const Client& client) {
    return serve_until([&] { return client.at_end(); });
  }
};

TEST_F(DeskmgrStream, AConnectionServesOneRequestAfterTheOther) {
  const Client client = accepted();
  ASSERT_TRUE(client.send(request(1, 1)));
  EXPECT_EQ(served(client), answer(1, 1, 0));
  EXPECT_STREQ(nvram_get("wan0_action"), "start");
  ASSERT_TRUE(client.send(request(2, 2)));
  EXPECT_EQ(served(client), answer(2, 2, 0));
  EXPECT_STREQ(nvram_get("wan0_action"), "stop");
  setting("wan0_status", "down");
  ASSERT_TRUE(client.send(request(3, 3)));
  EXPECT_EQ(served(client), answer(3, 3, 1));
}

TEST_F(DeskmgrStream, SeveralConnectionsAreServedSideBySide) {
  std::vector<Client> clients;
  for (int i = 0; i < 8; i++) {
    clients.push_back(accepted());
  }
  for (std::uint8_t i = 8; i-- > 0;) {
    ASSERT_TRUE(clients[i].send(request(i, 3)));
  }
  for (std::uint8_t i = 0; i < 8; i++) {
    EXPECT_EQ(served(clients[i]), answer(i, 3, 2));
  }
}

TEST_F(DeskmgrStream, ARequestThatArrivesInTwoReadsIsTooShort) {
  const Client client = accepted();
  ASSERT_TRUE(client.send({1, 0, 0, 0, 0}));
  EXPECT_TRUE(dropped(client));
  EXPECT_EQ(count(console(), "len = 5 \ntoo short packet .. \n"), 1);
}

TEST_F(DeskmgrStream, ARequestWrittenInTwoPiecesIsServedWhenTheyArriveTogether) {
  const Client client = accepted();
  ASSERT_TRUE(client.send({1, 0, 0, 0, 0}));
  ASSERT_TRUE(client.send({3, 0, 1, 0, 0, 0, 12}));
  EXPECT_EQ(served(client), answer(1, 3, 2));
}

TEST_F(DeskmgrStream, OfTwoRequestsInOneReadTheFirstIsServed) {
  const Client client = accepted();
  Bytes two = request(1, 3);
  const Bytes second = request(2, 3);
  two.insert(two.end(), second.begin(), second.end());
  ASSERT_TRUE(client.send(two));
  EXPECT_EQ(served(client), answer(1, 3, 2));
  ASSERT_TRUE(client.send(request(3, 3)));
  EXPECT_EQ(served(client), answer(3, 3, 2)) << "the second one is gone, the connection is not";
}

TEST_F(DeskmgrStream, APeerThatHasFinishedWritingStillGetsItsAnswer) {
  const Client client = accepted();
  ASSERT_TRUE(client.send(request(1, 3)));
  client.shut_writing();
  EXPECT_EQ(served(client), answer(1, 3, 2));
  EXPECT_TRUE(dropped(client));
  EXPECT_EQ(count(console(), "read fail .... \n"), 1);
}

TEST_F(DeskmgrStream, APeerThatVanishesEndsItsOwnConnectionAlone) {
  Client vanishing = accepted();
  const Client staying = accepted();
  vanishing.reset();
  EXPECT_TRUE(serve_until([] { return count(console(), "read fail .... \n") == 1; }));
  ASSERT_TRUE(staying.send(request(1, 3)));
  EXPECT_EQ(served(staying), answer(1, 3, 2));
}

TEST_F(DeskmgrStream, APeerThatDoesNotWaitForItsAnswerEndsItsOwnConnectionAlone) {
  Client hasty = accepted();
  for (int i = 0; i < 3; i++) {
    ASSERT_TRUE(hasty.send(request(1, 3)));
    serve_until([i] { return count(console(), "receive a status request") > i; });
  }
  ASSERT_TRUE(hasty.send(request(1, 3)));
  hasty.reset();
  const Client staying = accepted();
  ASSERT_TRUE(staying.send(request(2, 3)));
  EXPECT_EQ(served(staying), answer(2, 3, 2));
}

TEST_F(DeskmgrStream, MoreConnectionsThanTheLoopWatchesAreClosedAgain) {
  std::vector<Client> clients;
  for (int i = 0; i < 70; i++) {
    clients.push_back(accepted());
  }
  EXPECT_TRUE(dropped(clients.back()));
  EXPECT_FALSE(clients.front().at_end());
  ASSERT_TRUE(clients.front().send(request(1, 3)));
  EXPECT_EQ(served(clients.front()), answer(1, 3, 2));
  clients.pop_back();
  clients.front().reset();
  serve_until([] { return count(console(), "read fail .... \n") == 1; });
  const Client late = accepted();
  ASSERT_TRUE(late.send(request(2, 3)));
  EXPECT_EQ(served(late), answer(2, 3, 2)) << "a place that became free is given away again";
}

TEST_F(DeskmgrStream, RandomStreamsLeaveItRunning) {
  std::mt19937 dice(1717);
  for (int round = 0; round < 150; round++) {
    Client client = connect(5000);
    for (unsigned pieces = dice() % 4; pieces > 0; pieces--) {
      Bytes bytes = request(1, static_cast<std::uint8_t>(dice() % 6));
      bytes.resize(dice() % 2 == 0 ? 12 : dice() % 2000);
      for (std::size_t i = dice() % 3 == 0 ? 0 : 12; i < bytes.size(); i++) {
        bytes[i] = static_cast<std::uint8_t>(dice());
      }
      client.send(bytes); // the server may have closed already
      serve_for(static_cast<int>(dice() % 2));
    }
    if (dice() % 2 == 0) {
      client.reset();
    }
  }
  const Client client = accepted();
  ASSERT_TRUE(client.send(request(9, 3)));
  EXPECT_EQ(served(client), answer(9, 3, 2));
}

} // namespace
