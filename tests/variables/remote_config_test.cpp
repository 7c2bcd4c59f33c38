#include "variables/remote_config.h"

#include "tests/variables/kit.h"
#include "variables/codec.h"

using namespace rcmd;
using fake::Bytes;
using fake::to_hex;
using fake::world;
using kit::config_request;
using kit::text;
using kit::Texts;

namespace {

class RemoteConfiguration : public fake::ContextFixture {
protected:
  void handle(const Bytes& datagram) {
    receive(datagram);
    rcm_config_func(&context);
  }
  static Texts sets() { return world().events_of({"nvram_"}); }
  static std::string of(const std::string& key) {
    const auto found = world().nvram.find(key);
    return found == world().nvram.end() ? "<absent>" : found->second;
  }
  static constexpr char kAcknowledgement[] = "53455353494f4e31"
                                             "a1a2a3a4"
                                             "534e30313233343536373839"
                                             "0a0b0c0d"
                                             "0101"
                                             "0001"
                                             "ffff"
                                             "0000";
  static void expect_acknowledged(std::size_t times = 1) {
    ASSERT_EQ(world().sent.size(), times);
    EXPECT_EQ(to_hex(world().sent.back().bytes), kAcknowledgement);
    EXPECT_EQ(world().events.back(), "send 36 to 10.1.2.3:4000");
  }
};

TEST_F(RemoteConfiguration, TheAcknowledgementEchoesTheHeaderAndGoesToTheSender) {
  context.seq = 5;
  context.online = 0;
  context.tx_length = 77;
  handle(config_request(0, Texts{"hostname=gate"}));
  expect_acknowledged();
  EXPECT_EQ(of("hostname"), "gate");
  EXPECT_EQ(context.seq, 5U);
  EXPECT_EQ(context.online, 0);
  EXPECT_EQ(context.tx_length, 77U);
  EXPECT_EQ(to_hex(context.session_id, 8), "4142434445464748");
}

TEST_F(RemoteConfiguration, TheWholeDatagramIsCopiedToTheTransmitBuffer) {
  handle(config_request(0x0102, Texts{"nobody"}));
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 36, context.tx_buf + 47)), "00000102"
                                                                     "6e6f626f647900");
}

TEST_F(RemoteConfiguration, WhatFollowsThePayloadInTheDatagramIsCopiedAsWell) {
  Bytes request = config_request(0, Texts{"nobody"});
  const Bytes behind = fake::hex("d1d2d3d4");
  request.insert(request.end(), behind.begin(), behind.end());
  context.tx_buf[request.size()] = 0x77;
  handle(request);
  EXPECT_EQ(to_hex(Bytes(context.tx_buf + 47, context.tx_buf + 52)), "d1d2d3d477");
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, ItIsAcknowledgedOnceAfterTheWriters) {
  handle(config_request(0, Texts{"hostname=a", "console=b"}));
  EXPECT_EQ(world().events_of({"nvram_", "send"}),
            (Texts{"nvram_set console=b", "nvram_set hostname=a", "send 36 to 10.1.2.3:4000"}));
  world().run_for(60);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(RemoteConfiguration, WhatItSaysUnderDebug) {
  handle(config_request(3, text("wl_ssid=home\0et0macaddr=x\0"), 1));
  EXPECT_EQ(world().diagnostics(), "payloadlen = 30 ,variable_type = 1\n"
                                   "cgi count = 2 \n"
                                   "wl_ssid(3)=home\n"
                                   "et0macaddr(3)=x\n");
}

TEST_F(RemoteConfiguration, AValueIsToldBeforeItIsWrittenAndTheAcknowledgementIsLast) {
  handle(config_request(65535, text("wl_ssid=home\0hostname=gate\0"), 65535));
  EXPECT_EQ(world().events, (Texts{"diag payloadlen = 31 ,variable_type = 65535\n",
                                   "diag cgi count = 2 \n", "diag hostname(65535)=gate\n",
                                   "nvram_set hostname=gate", "diag wl_ssid(65535)=home\n",
                                   "nvram_set wl65535_ssid=home", "send 36 to 10.1.2.3:4000"}));
}

TEST_F(RemoteConfiguration, NamesThatAreNoSettingsAreCountedAndPassedOverWithoutAWord) {
  handle(config_request(0, Texts{"mem_usage=1", "wan_ipaddr=1", "HOSTNAME=x", "hostname", "=y"}));
  EXPECT_EQ(world().diagnostics(), "payloadlen = 52 ,variable_type = 0\n"
                                   "cgi count = 4 \n");
}

TEST_F(RemoteConfiguration, TheUnitNamesTheKey) {
  for (const int unit : {0, 1, 65535}) {
    handle(config_request(static_cast<std::uint16_t>(unit), Texts{"wl_ssid=home", "wan_mode=ppp"}));
    EXPECT_EQ(of("wl" + std::to_string(unit) + "_ssid"), "home");
    EXPECT_EQ(of("wan" + std::to_string(unit) + "_mode"), "ppp");
  }
}

TEST_F(RemoteConfiguration, RowsOfEveryScopeAreAppliedWhateverTheRequestsScope) {
  for (const std::uint8_t scope :
       {std::uint8_t{0}, std::uint8_t{1}, std::uint8_t{2}, std::uint8_t{9}}) {
    world().nvram.clear();
    const Texts records = {"hostname=a", "wl_ssid=b", "wan_mode=c"};
    Bytes request = config_request(1, records);
    request[36] = 0;
    request[37] = scope;
    fake::mend_checksum(request);
    handle(request);
    EXPECT_EQ(of("hostname") + of("wl1_ssid") + of("wan1_mode"), "abc");
  }
}

TEST_F(RemoteConfiguration, ReadOnlyStatusAndUnknownNamesChangeNothing) {
  handle(config_request(0, Texts{"et0macaddr=x", "mem_usage=1", "wan_ipaddr=1", "HOSTNAME=x",
                                 "restore_defaults=1", "hostname", "=y"}));
  EXPECT_EQ(sets(), Texts{});
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, TheLastOfDuplicatesIsAppliedOnce) {
  handle(config_request(0, Texts{"hostname=a", "console=c", "hostname=b"}));
  EXPECT_EQ(sets(), (Texts{"nvram_set console=c", "nvram_set hostname=b"}));
}

TEST_F(RemoteConfiguration, AnEmptyValueIsSet) {
  handle(config_request(0, Texts{"hostname="}));
  EXPECT_EQ(of("hostname"), "");
}

TEST_F(RemoteConfiguration, ASecondRequestReplacesTheFirstEntirely) {
  handle(config_request(0, Texts{"hostname=a", "console=c"}));
  world().events.clear();
  handle(config_request(0, Texts{"http_port=80"}));
  EXPECT_EQ(sets(), Texts{"nvram_set http_port=80"});
}

TEST_F(RemoteConfiguration, WithoutRecordsNothingIsAppliedAndItIsAcknowledged) {
  handle(config_request(0, Texts{}));
  EXPECT_EQ(sets(), Texts{});
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, ALengthBelowFourAppliesNothingAndIsAcknowledged) {
  for (std::size_t length = 0; length < 4; length++) {
    world().sent.clear();
    std::memcpy(context.rx_buf + 40, "hostname=stale", 15); // an older datagram left it behind
    handle(fake::server_packet(257, 0, 0x0A0B0C0D, Bytes(length, 0)));
    EXPECT_EQ(sets(), Texts{});
    EXPECT_EQ(count_cgi(), 0);
    expect_acknowledged();
  }
}

TEST_F(RemoteConfiguration, FourBytesBehindTheLastRecordAreParsedToo) {
  std::memcpy(context.rx_buf + 40, "hostname=stale", 15);
  handle(config_request(0, Texts{})); // length 4
  EXPECT_EQ(of("hostname"), "stale");
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, StaleRecordsThatBeginBehindTheParsedBytesAreLeftAlone) {
  std::memcpy(context.rx_buf + 44, "hostname=stale", 15);
  handle(config_request(0, Texts{}));
  EXPECT_EQ(of("hostname"), "<absent>");
  std::memcpy(context.rx_buf + 43, "hostname=stale", 15);
  handle(config_request(0, Texts{}));
  EXPECT_EQ(of("hostname"), "stale");
}

TEST_F(RemoteConfiguration, AShorterDatagramsRecordsEndBeforeTheStaleOnes) {
  handle(config_request(0, Texts{"console=1", "hostname=long", "http_port=80"}));
  world().nvram.clear();
  handle(config_request(0, Texts{"console=2"})); // its end falls on the stale "hostname"
  EXPECT_EQ(of("console"), "2");
  EXPECT_EQ(of("http_port"), "<absent>");
  // The '=' of the older datagram's records became NULs when they were taken apart.
  EXPECT_EQ(of("hostname"), "<absent>");
  expect_acknowledged(2);
}

TEST_F(RemoteConfiguration, ARecordWithoutNulRunsIntoTheStaleBytes) {
  std::memset(context.rx_buf + 36, 'z', 20);
  handle(config_request(0, "hostname=abc"));
  EXPECT_EQ(of("hostname"), "abczzzz");
}

TEST_F(RemoteConfiguration, AFullDatagramIsAppliedToItsLastByte) {
  const std::string value(8192 - 40 - 9 - 1, 'v');
  const Bytes request = config_request(0, Texts{"hostname=" + value});
  ASSERT_EQ(request.size(), 8192U);
  handle(request);
  EXPECT_EQ(of("hostname"), value);
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, AFullDatagramWithoutAnyNulEndsAtTheGuard) {
  std::memset(context.rx_buf, 'z', 8192);
  Bytes request = config_request(0x0101, "hostname=" + std::string(8192 - 40 - 9, 'v'), 0x0101);
  ASSERT_EQ(request.size(), 8192U);
  handle(request);
  EXPECT_EQ(of("hostname"), std::string(8192 - 40 - 9, 'v'));
  expect_acknowledged();
  EXPECT_TRUE(guards_stand());
}

TEST_F(RemoteConfiguration, AFullDatagramOfEqualsSignsLeavesTheGuardAlone) {
  std::memset(context.rx_buf, '=', 8192);
  handle(config_request(0x3D3D, std::string(8192 - 40, '='), 0x3D3D));
  EXPECT_EQ(count_cgi(), 1);
  EXPECT_TRUE(guards_stand());
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, ValuesOfAnyLengthAreStored) {
  for (const std::size_t length : {0U, 1U, 1023U, 8000U}) {
    for (const char* name : {"hostname", "lan_dhcp_rule3", "wl_macrule7", "wl_auth_mode"}) {
      world().sent.clear();
      const std::string value(length, 'v');
      handle(config_request(0, Texts{std::string(name) + "=" + value}));
      expect_acknowledged();
      EXPECT_EQ(kit::read(name), value);
    }
  }
}

TEST_F(RemoteConfiguration, OddValuesNeverHarmAWriter) {
  const std::string values[] = {"",
                                std::string(8000, ','),
                                std::string(1023, '9'),
                                "-" + std::string(8000, '9'),
                                "99999999999999999999",
                                "%s%n%d",
                                ",,,,,,,,,,",
                                ",,,,,,,,",
                                "=",
                                std::string(8000, ' ') + "1"};
  for (const VariableEntry* row = config_variables; row->name != nullptr; row++) {
    for (const std::string& value : values) {
      for (const int unit : {0, 1, 65535}) {
        world().sent.clear();
        handle(config_request(static_cast<std::uint16_t>(unit),
                              Texts{std::string(row->name) + "=" + value}));
        expect_acknowledged();
      }
    }
  }
}

TEST_F(RemoteConfiguration, AFailedSendIsReportedAndNothingElse) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  handle(config_request(0, Texts{"hostname=a"}));
  EXPECT_TRUE(world().diagnostics().ends_with("sendto fail .. \n"));
  EXPECT_EQ(of("hostname"), "a");
}

TEST_F(RemoteConfiguration, AWriterThatFailsIsAcknowledgedAllTheSame) {
  world().nvram_set_result = -1;
  handle(config_request(0, Texts{"hostname=a", "firewall_access_rule0=a,b"}));
  expect_acknowledged();
}

TEST_F(RemoteConfiguration, NothingIsCommittedAndNoToolRuns) {
  handle(config_request(0, Texts{"hostname=a"}));
  EXPECT_TRUE(world().events_of({"nvram_commit", "tool"}).empty());
}

} // namespace
