#include "core/startup.h"

#include "core/context.h"
#include "core/say.h"
#include "rcm/packet.h"
#include "tests/fake_platform/fixture.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <getopt.h>
#include <iterator>
#include <malloc.h>

using fake::Bytes;
using fake::to_hex;
using fake::world;

namespace {

int callocs = 0;
int failing_calloc = -1;
bool noting_callocs = false;
std::size_t noted_callocs[8];
std::size_t noted_count = 0;

} // namespace

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
// Notes the allocations of start-up, and refuses one of them.
void* __wrap_calloc(std::size_t count, std::size_t size) {
  if (noting_callocs && noted_count < std::size(noted_callocs)) {
    noted_callocs[noted_count++] = count * size;
  }
  if (failing_calloc >= 0 && callocs++ == failing_calloc) {
    return nullptr;
  }
  return __real_calloc(count, size);
}
}

namespace {

class Startup : public fake::Fixture {
protected:
  Startup() {
    rcmd::debug = 0;
    rcmd::gps_send_interval = 60;
    world().nvram["SN"] = "SN0123456789";
    // A server that answers everything, so that registration returns.
    world().on_send = [](const fake::Datagram& sent) {
      world().deliver(
          1161, fake::server_packet(fake::type_of(sent.bytes), 1, fake::seq_of(sent.bytes)), 10);
    };
  }
  ~Startup() override {
    rcmd::debug = 0;
    failing_calloc = -1;
    noting_callocs = false;
    noted_count = 0;
  }

  // Calls `look` with the context when the first REGISTER goes out; everything is answered.
  void at_first_packet(std::function<void(rcmd::RcmContext&)> look) {
    auto answer = world().on_send;
    world().on_send = [look, answer](const fake::Datagram& sent) {
      if (world().sent.size() == 1) {
        look(*static_cast<rcmd::RcmContext*>(world().watches.back().arg));
      }
      answer(sent);
    };
  }

  int run(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "rcmd");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    optind = 0; // a fresh scan
    world().sockets.clear();
    return rcmd::run_daemon(static_cast<int>(arguments.size()), argv.data());
  }

  // @return the exit status, or -100 when it did not exit
  int exit_status(const std::vector<std::string>& arguments) {
    try {
      run(arguments);
    } catch (const fake::Exited& exited) {
      return exited.status;
    }
    return -100;
  }
};

TEST_F(Startup, EverythingIsOpenedInOrderAndTheLoopRuns) {
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "example"}), 0);
  EXPECT_EQ(world().events_of({"resolve", "bind", "do_fd"}),
            (std::vector<std::string>{"resolve 127.0.0.1", "bind 0.0.0.0:5000", "bind 0.0.0.0:2719",
                                      "bind 0.0.0.0:1161", "do_fd"}));
  EXPECT_EQ(world().events.back(), "do_fd");
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Startup, TheRegistrationCarriesTheIdentityTheDomainAndTheServersAddress) {
  world().nvram["SN"] = "SERIAL-LONGER-THAN-TWELVE";
  world().nvram["version_firmware"] = std::string(70, 'V');
  world().nvram["product_model"] = "R1";
  EXPECT_EQ(run({"-m", std::string(65, 'd'), "-s", "10.20.30.40"}), 0);
  const fake::Datagram& first = world().sent[0];
  EXPECT_EQ(first.peer.sin_addr.s_addr, inet_addr("10.20.30.40"));
  EXPECT_EQ(first.peer.sin_port, htons(1162));
  EXPECT_EQ(std::string(first.bytes.begin() + 12, first.bytes.begin() + 24), "SERIAL-LONGE");
  EXPECT_EQ(std::string(first.bytes.begin() + 44, first.bytes.begin() + 108), std::string(64, 'd'));
  EXPECT_EQ(std::string(first.bytes.begin() + 108, first.bytes.begin() + 172),
            std::string(64, 'V'));
  EXPECT_EQ(std::string(first.bytes.begin() + 172, first.bytes.end()),
            "R1" + std::string(62, '\0'));
}

TEST_F(Startup, AnUnsetIdentityIsEmpty) {
  world().nvram.clear();
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
  EXPECT_EQ(Bytes(world().sent[0].bytes.begin() + 12, world().sent[0].bytes.begin() + 24),
            Bytes(12, 0));
}

TEST_F(Startup, TheContextIsBornLiveOnlineAndOtherwiseZero) {
  mallopt(M_PERTURB, 0x5A); // memory that nobody clears is not zero
  int looked = 0;
  at_first_packet([&](const rcmd::RcmContext& born) {
    looked++;
    EXPECT_EQ(born.in_use, 1U);
    EXPECT_EQ(born.online, 1);
    EXPECT_EQ(born.sock, world().watches.back().fd);
    EXPECT_EQ(to_hex(&born.server_addr, sizeof born.server_addr), "0200" // AF_INET, little-endian
                                                                  "048a"
                                                                  "0a141e28"
                                                                  "0000000000000000");
    EXPECT_EQ(to_hex(born.session_id, 8), "0000000000000000");
    EXPECT_EQ(born.server_time, 0);
    EXPECT_EQ(born.server_time_uptime, 0);
    EXPECT_EQ(born.last_wwan_tx_bytes + born.last_wwan_rx_bytes, 0U);
    EXPECT_EQ(born.last_wwan_tx_packets + born.last_wwan_rx_packets, 0U);
    EXPECT_EQ(born.rx_length, 0);
    EXPECT_EQ(to_hex(&born.peer_addr, sizeof born.peer_addr), std::string(32, '0'));
    EXPECT_EQ(born.miss_count, 0);
    EXPECT_EQ(born.retransmit_count, 0);
    EXPECT_EQ(born.seq, 0U);
    EXPECT_EQ(born.request_seq, 0U);
    EXPECT_EQ(born.keepalive_interval, 0);
    EXPECT_EQ(born.keepalive_maxretries, 0);
  });
  EXPECT_EQ(run({"-s", "10.20.30.40", "-m", "x"}), 0);
  mallopt(M_PERTURB, 0);
  EXPECT_EQ(looked, 1);
}

TEST_F(Startup, TheBuffersHoldTheLargestDatagramAndEightZeroBytesStandBehindTheReceived) {
  int looked = 0;
  at_first_packet([&](rcmd::RcmContext& born) {
    looked++;
    EXPECT_EQ(Bytes(born.rx_buf, born.rx_buf + 8200), Bytes(8200, 0));
    born.rx_buf[8191] = 0;
    born.tx_buf[8191] = 0;
  });
  noting_callocs = true;
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
  noting_callocs = false;
  EXPECT_EQ(looked, 1);
  const std::size_t expected[] = {sizeof(rcmd::RcmContext), 8192 + 8, 8192};
  EXPECT_TRUE(std::equal(std::begin(expected), std::end(expected), noted_callocs));
}

TEST_F(Startup, TheLocalServersAreOpenedInDatagramMode) {
  std::vector<int> types;
  at_first_packet([&](rcmd::RcmContext&) {
    for (const auto& [fd, socket] : world().sockets) {
      types.push_back(socket.type);
    }
  });
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
  EXPECT_EQ(types, (std::vector<int>{SOCK_DGRAM, SOCK_DGRAM, SOCK_DGRAM}));
  EXPECT_TRUE(world().events_of({"listen"}).empty());
}

TEST_F(Startup, ThePositionIntervalIsAtLeastTenSeconds) {
  struct Row {
    const char* stored;
    int interval;
  };
  for (const Row& row : {Row{nullptr, 10}, Row{"0", 10}, Row{"5", 10}, Row{"-3", 10}, Row{"10", 10},
                         Row{"30", 30}, Row{"abc", 10}}) {
    world().nvram.erase("gps_send_interval");
    if (row.stored != nullptr) {
      world().nvram["gps_send_interval"] = row.stored;
    }
    EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
    EXPECT_EQ(rcmd::gps_send_interval, row.interval);
  }
}

TEST_F(Startup, OptionDTurnsDiagnosticsOn) {
  EXPECT_EQ(run({"-d", "-s", "127.0.0.1", "-m", "x"}), 0);
  EXPECT_EQ(rcmd::debug, 1);
  EXPECT_NE(world().diagnostics(), "");
}

TEST_F(Startup, OptionDMayComeLast) {
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x", "-d"}), 0);
  EXPECT_EQ(rcmd::debug, 1);
}

TEST_F(Startup, AWrongOptionEndsSilently) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(exit_status({"-x", "-s", "127.0.0.1", "-m", "x"}), 1);
  EXPECT_EQ(exit_status({"-s"}), 1);
  EXPECT_EQ(exit_status({"-s", "127.0.0.1", "-m", "x", "stray"}), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(world().events.empty());
}

TEST_F(Startup, AMissingServerIsToldOnTheConsole) {
  EXPECT_EQ(exit_status({"-m", "x"}), 1);
  EXPECT_EQ(world().events, std::vector<std::string>{"console miss rcm server ... \n"});
}

TEST_F(Startup, WithNeitherServerNorDomainOnlyTheServerIsMissed) {
  EXPECT_EQ(exit_status({}), 1);
  EXPECT_EQ(world().events, std::vector<std::string>{"console miss rcm server ... \n"});
}

TEST_F(Startup, AnEmptyDomainIsADomain) {
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", ""}), 0);
  EXPECT_EQ(Bytes(world().sent[0].bytes.begin() + 44, world().sent[0].bytes.begin() + 108),
            Bytes(64, 0));
  EXPECT_EQ(world().console().find("miss"), std::string::npos);
}

TEST_F(Startup, AnEmptyServerNameCanNotBeResolved) {
  EXPECT_EQ(exit_status({"-s", "", "-m", "x"}), 1);
  EXPECT_EQ(world().events, (std::vector<std::string>{"resolve ", "console can not resolve  \n"}));
}

TEST_F(Startup, TheLastOfTwoServersAndOfTwoDomainsCounts) {
  EXPECT_EQ(run({"-s", "10.0.0.1", "-m", "one", "-s", "10.0.0.2", "-m", "two"}), 0);
  EXPECT_EQ(world().sent[0].peer.sin_addr.s_addr, inet_addr("10.0.0.2"));
  EXPECT_EQ(std::string(world().sent[0].bytes.begin() + 44, world().sent[0].bytes.begin() + 48),
            std::string("two\0", 4));
}

TEST_F(Startup, AMissingDomainIsToldOnlyOnceTheServerHasResolved) {
  int lookups = 0;
  world().on_resolve = [&](const std::string&, in_addr* address) {
    address->s_addr = htonl(0x7F000001);
    return lookups++ < 2 ? "name lookup failed" : nullptr;
  };
  EXPECT_EQ(exit_status({"-s", "server.example"}), 1);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"resolve server.example", "sleep 1", "resolve server.example",
                                      "sleep 1", "resolve server.example",
                                      "console miss rcm domain ... \n"}));
}

TEST_F(Startup, AServerThatCanNeverResolveIsToldOnTheConsole) {
  for (const char* error : {"not an address", "name lookup", "name lookup failed!"}) {
    world().events.clear();
    world().on_resolve = [&](const std::string&, in_addr*) { return error; };
    EXPECT_EQ(exit_status({"-s", "..bad", "-m", "x"}), 1);
    EXPECT_EQ(world().events,
              (std::vector<std::string>{"resolve ..bad", "console can not resolve ..bad \n"}));
  }
}

TEST_F(Startup, AServerAddressOfZeroEndsSilently) {
  EXPECT_EQ(exit_status({"-s", "0.0.0.0", "-m", "x"}), 1);
  EXPECT_EQ(world().events, std::vector<std::string>{"resolve 0.0.0.0"});
}

TEST_F(Startup, WithoutAConsoleItEndsWithoutAWord) {
  world().console_broken = true;
  EXPECT_EQ(exit_status({}), 1);
  EXPECT_EQ(exit_status({"-s", "127.0.0.1"}), 1);
  EXPECT_EQ(exit_status({"-s", "..bad", "-m", "x"}), 1);
  EXPECT_EQ(world().console(), "");
}

TEST_F(Startup, AFailedAllocationReturnsMinusOne) {
  for (int which = 0; which < 3; which++) {
    callocs = 0;
    failing_calloc = which;
    EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), -1) << which;
    failing_calloc = -1;
  }
  EXPECT_TRUE(world().events.empty());
}

TEST_F(Startup, IdentityBuffersIntervalAndOptionsComeInThisOrder) {
  world().nvram["gps_send_interval"] = "30";
  std::vector<std::string> story;
  world().on_nvram_get = [&](const std::string& name) {
    story.push_back(name + " behind " + std::to_string(callocs));
  };
  callocs = 0;
  failing_calloc = 99;
  EXPECT_EQ(exit_status({"-x"}), 1);
  EXPECT_EQ(story,
            (std::vector<std::string>{"SN behind 1", "version_firmware behind 1",
                                      "product_model behind 1", "gps_send_interval behind 3"}));
  EXPECT_EQ(rcmd::gps_send_interval, 30);
}

TEST_F(Startup, AFailedAllocationIsFoundBeforeAWrongOption) {
  callocs = 0;
  failing_calloc = 2;
  EXPECT_EQ(run({"-x"}), -1);
}

TEST_F(Startup, AMissingDomainIsToldBeforeAnAddressOfZeroIsNoticed) {
  EXPECT_EQ(exit_status({"-s", "0.0.0.0"}), 1);
  EXPECT_EQ(world().events,
            (std::vector<std::string>{"resolve 0.0.0.0", "console miss rcm domain ... \n"}));
}

TEST_F(Startup, ALoopThatEndsGivesZeroWhateverItsResult) {
  world().on_do_fd = [] { return -7; };
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
}

TEST_F(Startup, APortThatCannotBeBoundLeavesTheRestRunning) {
  int binds = 0;
  world().net_call_fails = [&](const std::string& call) { return call == "bind" && binds++ < 2; };
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
  EXPECT_FALSE(world().sent.empty());
  EXPECT_EQ(world().events.back(), "do_fd");
}

TEST_F(Startup, WithoutAManagementSocketTheLoopRunsAllTheSame) {
  world().net_call_fails = [&](const std::string& call) { return call == "bind"; };
  EXPECT_EQ(run({"-s", "127.0.0.1", "-m", "x"}), 0);
  EXPECT_TRUE(world().sent.empty());
  EXPECT_EQ(world().events.back(), "do_fd");
}

} // namespace
