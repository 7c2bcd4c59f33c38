#include "rcm/generic.h"

#include "rcm/packet.h"
#include "tests/fake_platform/context.h"

using namespace rcmd;
using fake::Bytes;
using fake::bytes_of;
using fake::server_packet;
using fake::to_hex;
using fake::type_of;
using fake::world;

namespace {

class GenericCommand : public fake::ContextFixture {
protected:
  GenericCommand() { context.seq = 77; }
};

TEST_F(GenericCommand, AnUnknownRequestIsAcknowledgedAndReported) {
  receive(server_packet(1, 0, 0x55667788, bytes_of("junk")));
  rcm_generic_func(&context);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(to_hex(world().sent[0].bytes), "53455353494f4e31"
                                           "a1a2a3a4"
                                           "534e30313233343536373839"
                                           "55667788"
                                           "0001"
                                           "0001"
                                           "ffff"
                                           "0000");
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"send 36 to 10.1.2.3:4000",
                                      "diag unknown request with oid = 0001.... \n"}));
  EXPECT_EQ(context.tx_length, 0U);
}

TEST_F(GenericCommand, TheOidIsShownInFourHexadecimalDigits) {
  receive(server_packet(0xBEEF, 2, 1));
  rcm_generic_func(&context);
  EXPECT_EQ(world().diagnostics(), "unknown request with oid = beef.... \n");
}

TEST_F(GenericCommand, CommitAnswersFirstThenCommitsSignalsInitAndWaitsWithoutEnd) {
  receive(server_packet(258, 0, 5));
  EXPECT_THROW(rcm_generic_func(&context), fake::Restarted);
  EXPECT_EQ(world().events, (std::vector<std::string>{"send 36 to 10.1.2.3:4000", "nvram_commit",
                                                      "signal 15", "await_restart"}));
}

TEST_F(GenericCommand, RestoringTheDefaultsLeavesItsMarkCommitted) {
  receive(server_packet(259, 2, 5));
  EXPECT_THROW(rcm_generic_func(&context), fake::Restarted);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"send 36 to 10.1.2.3:4000", "nvram_set restore_defaults=1",
                                      "nvram_commit", "signal 15", "await_restart"}));
  EXPECT_EQ(world().committed["restore_defaults"], "1");
}

TEST_F(GenericCommand, TheStatusReportFollowsTheAcknowledgementUnderTheDevicesOwnSeq) {
  answer_everything();
  receive(server_packet(260, 0, 5));
  rcm_generic_func(&context);
  ASSERT_GE(world().sent.size(), 2U);
  EXPECT_EQ(type_of(world().sent[0].bytes), 260);
  EXPECT_EQ(fake::flags_of(world().sent[0].bytes), 1);
  EXPECT_EQ(fake::seq_of(world().sent[0].bytes), 5U);
  for (std::size_t i = 1; i < world().sent.size(); i++) {
    EXPECT_EQ(type_of(world().sent[i].bytes), kStatus);
    EXPECT_EQ(fake::seq_of(world().sent[i].bytes), 77U);
  }
  EXPECT_EQ(world().diagnostics(), "\nSend status to server ... \n");
}

TEST_F(GenericCommand, TheStatusReportIsAnnouncedBetweenTheAcknowledgementAndItsFirstPacket) {
  answer_everything();
  receive(server_packet(260, 0, 5));
  rcm_generic_func(&context);
  const auto order = world().events_of({"send", "diag"});
  ASSERT_GE(order.size(), 3U);
  EXPECT_EQ(order[0], "send 36 to 10.1.2.3:4000");
  EXPECT_EQ(order[1], "diag \nSend status to server ... \n");
  EXPECT_TRUE(order[2].ends_with(" to 127.0.0.1:1162")) << order[2];
}

TEST_F(GenericCommand, TheAcknowledgementOfACommandKeepsTheWholeRequestInTheBuffer) {
  receive(server_packet(1, 0, 5, bytes_of("junk")));
  rcm_generic_func(&context);
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 36, context.tx_buf + 40)), "6a756e6b");
  EXPECT_EQ(context.seq, 77U);
}

TEST_F(GenericCommand, AStatusReportThatFailsIsIgnored) {
  receive(server_packet(260, 0, 5));
  rcm_generic_func(&context);
  EXPECT_EQ(world().diagnostics(), "\nSend status to server ... \n");
}

TEST_F(GenericCommand, AFailedAcknowledgementIsReportedAndTheCommandCarriedOut) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  receive(server_packet(258, 0, 5));
  EXPECT_THROW(rcm_generic_func(&context), fake::Restarted);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"send 36 to 10.1.2.3:4000", "diag sendto fail .. \n",
                                      "nvram_commit", "signal 15", "await_restart"}));
}

TEST_F(GenericCommand, AMarkThatCannotBeStoredStillRestarts) {
  world().nvram_set_result = -1;
  receive(server_packet(259, 0, 5));
  EXPECT_THROW(rcm_generic_func(&context), fake::Restarted);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"send 36 to 10.1.2.3:4000", "nvram_set restore_defaults=1",
                                      "nvram_commit", "signal 15", "await_restart"}));
}

TEST_F(GenericCommand, AFailedCommitStillRestarts) {
  world().commit_result = -1;
  receive(server_packet(258, 0, 5));
  EXPECT_THROW(rcm_generic_func(&context), fake::Restarted);
  EXPECT_EQ(world().events.back(), "await_restart");
}

} // namespace
