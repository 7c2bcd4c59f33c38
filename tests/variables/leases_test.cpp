#include "variables/leases.h"

#include "tests/variables/kit.h"

#include <filesystem>

using namespace rcmd;
using fake::world;
using kit::records_of;
using kit::Texts;

namespace {

// 88 bytes as the DHCP server writes them.
std::string lease(const std::string& mac, const std::string& address, const std::string& remaining,
                  const std::string& host) {
  fake::Bytes bytes = fake::hex(mac);
  bytes.resize(16, 0xEE); // of the hardware address only six bytes count
  for (const auto& part : {fake::hex(address), fake::hex(remaining), fake::bytes_of(host)}) {
    bytes.insert(bytes.end(), part.begin(), part.end());
  }
  bytes.resize(88, 0);
  return {bytes.begin(), bytes.end()};
}

std::ptrdiff_t open_files() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

class Leases : public kit::VariablesFixture {
protected:
  static void file(const std::string& content) {
    world().write_file("/tmp/udhcpd.leases", content);
  }
  int send() { return do_send_dhcp_status(&context, kStatus); }
};

TEST_F(Leases, TheServerIsAskedToWriteItsFileFirst) {
  file("");
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(world().tools.size(), 1U);
  EXPECT_EQ(world().tools[0].arguments, (Texts{"killall", "-16", "udhcpd"}));
  EXPECT_EQ(world().tools[0].output, ">/dev/console");
  EXPECT_EQ(world().tools[0].timeout_s, 0);
  EXPECT_TRUE(world().tools[0].waited);
  EXPECT_EQ(world().events.front(), "tool killall -16 udhcpd >/dev/console");
}

TEST_F(Leases, TheFileIsReadAsTheToolLeftIt) {
  file(lease("001122334455", "0a000001", "00000000", "older"));
  world().on_tool = [](const fake::ToolRun&) {
    std::filesystem::remove(world().path("/tmp/udhcpd.leases"));
    world().uptime_base = 200;
    file(lease("001122334455", "0a000002", "00000000", "newer"));
    return 0;
  };
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records(),
            (Texts{"lan_lease0=10.0.0.2,00:11:22:33:44:55,newer,200", "lan_lease_maxunit=1"}));
}

TEST_F(Leases, EveryPacketIsOfTheTypeThatIsAskedForAndOfNoUnit) {
  EXPECT_EQ(do_send_dhcp_status(&context, kConf), 0);
  std::string content;
  for (int i = 0; i < 6; i++) {
    content += lease("001122334455", "0a000001", "00000000", std::string(60, 'h'));
  }
  file(content);
  EXPECT_EQ(do_send_dhcp_status(&context, kConf), 0);
  ASSERT_EQ(world().sent.size(), 4U); // without a file one, then a full one, the rest, the count
  for (const fake::Datagram& datagram : world().sent) {
    EXPECT_EQ(fake::type_of(datagram.bytes), 3);
    EXPECT_EQ(kit::scope_of(datagram.bytes), 0);
    EXPECT_EQ(kit::unit_of(datagram.bytes), 0);
  }
}

TEST_F(Leases, ALeaseShowsAddressMacHostAndTheUptimeOfItsEnd) {
  file(lease("abcdefabcdef", "c0a80105", "00000e10", "laptop"));
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(records_of(world().sent[0].bytes),
            Texts{"lan_lease0=192.168.1.5,AB:cd:EF:AB:CD:EF,laptop,3700"});
  EXPECT_EQ(records_of(world().sent[1].bytes), Texts{"lan_lease_maxunit=1"});
  EXPECT_EQ(fake::type_of(world().sent[0].bytes), 4);
  EXPECT_EQ(kit::scope_of(world().sent[0].bytes), 0);
  EXPECT_EQ(kit::unit_of(world().sent[0].bytes), 0);
}

TEST_F(Leases, AnEmptyHostNameIsShownAsUnknown) {
  file(lease("001122334455", "0a000001", "00000000", ""));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records().at(0), "lan_lease0=10.0.0.1,00:11:22:33:44:55,unknown,100");
}

TEST_F(Leases, AHostNameOf64CharactersNeedsNoNul) {
  file(lease("001122334455", "0a000001", "00000000", std::string(64, 'h')) +
       lease("001122334456", "0a000002", "00000000", "next"));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records().at(0),
            "lan_lease0=10.0.0.1,00:11:22:33:44:55," + std::string(64, 'h') + ",100");
}

TEST_F(Leases, ARecordWithoutHardwareAddressIsSkippedAndNotCounted) {
  file(lease("000000000000", "0a000001", "00000000", "ghost") +
       lease("000000000001", "0a000002", "00000001", "real"));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records(),
            (Texts{"lan_lease0=10.0.0.2,00:00:00:00:00:01,real,101", "lan_lease_maxunit=1"}));
}

TEST_F(Leases, NoLeasesShownIsOnePacketWithTheCountZero) {
  file(lease("000000000000", "0a000001", "00000000", "ghost"));
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(kit::sent_records(), Texts{"lan_lease_maxunit=0"});
}

TEST_F(Leases, ACutShortLastRecordDoesNotCount) {
  file(lease("001122334455", "0a000001", "00000000", "whole") +
       lease("001122334456", "0a000002", "00000000", "cut").substr(0, 87));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records().back(), "lan_lease_maxunit=1");
}

TEST_F(Leases, AnEndBeyondTheLargestNumberIsTheLargestNumber) {
  file(lease("001122334455", "0a000001", "ffffffff", "forever") +
       lease("001122334455", "0a000001", "7fffff9b", "just"));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records().at(0), "lan_lease0=10.0.0.1,00:11:22:33:44:55,forever,2147483647");
  EXPECT_EQ(kit::sent_records().at(1), "lan_lease1=10.0.0.1,00:11:22:33:44:55,just,2147483647");
}

TEST_F(Leases, ManyLeasesFillPacketsToTheLimitAndTheCountStandsAlone) {
  std::string content;
  for (int i = 0; i < 12; i++) {
    content += lease("001122334455", "0a000001", "00000000", std::string(60, 'h'));
  }
  file(content);
  EXPECT_EQ(send(), 0);
  // "lan_lease0=10.0.0.1,00:11:22:33:44:55,hhh...,100" and its NUL are 103 bytes.
  ASSERT_EQ(world().sent.size(), 4U);
  EXPECT_EQ(records_of(world().sent[0].bytes).size(), 5U);
  EXPECT_EQ(records_of(world().sent[1].bytes).size(), 5U);
  EXPECT_EQ(records_of(world().sent[2].bytes).size(), 2U);
  EXPECT_EQ(records_of(world().sent[3].bytes), Texts{"lan_lease_maxunit=12"});
}

TEST_F(Leases, WithoutAFileOnlyThatPacketsResultIsForgiven) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(send(), 0);
  file("");
  EXPECT_EQ(send(), -1);
}

TEST_F(Leases, AFailedSendEndsTheListAndClosesTheFile) {
  std::string content;
  for (int i = 0; i < 6; i++) {
    content += lease("001122334455", "0a000001", "00000000", std::string(60, 'h'));
  }
  file(content);
  const std::ptrdiff_t open_before = open_files();
  for (const int good : {0, 1, 2}) {
    fail_only_send(good);
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(world().sent.size(), static_cast<std::size_t>(good));
  }
  EXPECT_EQ(open_files(), open_before);
}

TEST_F(Leases, AToolThatFailsChangesNothing) {
  world().on_tool = [](const fake::ToolRun&) { return 1; };
  file(lease("001122334455", "0a000001", "00000000", "host"));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(world().sent.size(), 2U);
}

TEST_F(Leases, AHostMayHaveANameOfOneCharacter) {
  file(lease("001122334455", "0a000001", "00000000", "x"));
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(kit::sent_records(),
            (Texts{"lan_lease0=10.0.0.1,00:11:22:33:44:55,x,100", "lan_lease_maxunit=1"}));
}

} // namespace
