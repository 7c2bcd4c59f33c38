// The daemon's own two tables: the timers with their callbacks, and the requests with their
// handlers.

#include "core/timers.h"
#include "rcm/client.h"
#include "rcm/generic.h"
#include "rcm/keepalive.h"
#include "rcm/requests.h"
#include "reporters/gps.h"
#include "reporters/log_sender.h"
#include "reporters/traffic.h"
#include "tests/fake_platform/context.h"
#include "transfer/config_file.h"
#include "transfer/firmware.h"
#include "variables/remote_config.h"

using namespace rcmd;
using fake::server_packet;
using fake::world;

namespace {

struct Row {
  RcmTimer as_loaded; ///< a copy that was taken before any test ran
  void (*callback)(void*);
};
const Row timer_rows[] = {
    {rcm_keepalive, rcm_keepalive_func},   {rcm_retransmit, rcm_retransmit_func},
    {rcm_logsender, rcm_logsender_func},   {rcm_gpssender, rcm_gpssender_func},
    {rcm_trafficget, rcm_trafficget_func}, {rcm_trafficsender, rcm_trafficsender_func},
};

TEST(Wiring, EachOfTheSixTimersNamesItsCallbackFromTheStart) {
  for (const Row& row : timer_rows) {
    EXPECT_EQ(row.as_loaded.callback, row.callback) << &row - timer_rows;
  }
}

TEST(Wiring, ATimerIsZeroButForItsCallback) {
  for (const Row& row : timer_rows) {
    EXPECT_EQ(row.as_loaded.loop_words[0], 0U);
    EXPECT_EQ(row.as_loaded.loop_words[1], 0U);
    EXPECT_EQ(row.as_loaded.interval, 0);
    EXPECT_EQ(row.as_loaded.loop_word, 0U);
    EXPECT_EQ(row.as_loaded.arg, nullptr);
  }
}

TEST(Wiring, ThreeRequestsHaveHandlersOfTheirOwnAndTheLastRowTakesTheRest) {
  EXPECT_EQ(request_routes[0].type, 256);
  EXPECT_STREQ(request_routes[0].message, "get upgradecmd ... \n");
  EXPECT_EQ(request_routes[0].handler, rcm_upgradecmd_func);
  EXPECT_EQ(request_routes[1].type, 257);
  EXPECT_STREQ(request_routes[1].message, "get config .... \n");
  EXPECT_EQ(request_routes[1].handler, rcm_config_func);
  EXPECT_EQ(request_routes[2].type, 261);
  EXPECT_STREQ(request_routes[2].message, "get config file.... \n");
  EXPECT_EQ(request_routes[2].handler, rcm_config_upgrade_func);
  EXPECT_EQ(request_routes[3].message, nullptr);
  EXPECT_EQ(request_routes[3].handler, rcm_generic_func);
}

class WiredRequests : public fake::ContextFixture {
protected:
  void take(std::uint16_t type) {
    world().events.clear();
    world().deliver(1161, server_packet(type, 0, 0x51));
    FdDescriptor descriptor{context.sock, 0, &context};
    rcm_receive_func(&descriptor);
  }
};

TEST_F(WiredRequests, AnUnknownTypeIsAcknowledgedAndReported) {
  take(1);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"send 36 to 127.0.0.1:1162",
                                      "diag unknown request with oid = 0001.... \n"}));
  EXPECT_EQ(context.request_seq, 0x51U);
}

TEST_F(WiredRequests, CommitAndRestoreRestartTheDeviceAndAreNeverRecorded) {
  for (const std::uint16_t type : {std::uint16_t{258}, std::uint16_t{259}}) {
    EXPECT_THROW(take(type), fake::Restarted);
    EXPECT_EQ(world().events.front(), "send 36 to 127.0.0.1:1162");
    EXPECT_EQ(world().events.back(), "await_restart");
  }
  EXPECT_EQ(context.request_seq, 0U);
}

TEST_F(WiredRequests, TheStatusIsSentAtOnce) {
  world().send_fails = [](const fake::Datagram& sent) { return fake::type_of(sent.bytes) == 4; };
  take(260);
  const std::vector<std::string> first(world().events.begin(), world().events.begin() + 2);
  EXPECT_EQ(first, (std::vector<std::string>{"send 36 to 127.0.0.1:1162",
                                             "diag \nSend status to server ... \n"}));
}

} // namespace
