#include "tests/server/engine_fixture.h"

using namespace server;
using fake::bytes_of;
using fake::hex;
using fake::to_hex;
using testing::ElementsAre;
using testing::Pair;

namespace {

std::string joined(std::string text) {
  std::erase(text, ' ');
  return text;
}

class Engines : public EngineFixture {};

const char kEnrolmentText[] =
    "32303031303930393031343634303b6b656570616c6976655f696e74657276616c3d3132303b6b65"
    "6570616c6976655f6d6178726574726965733d3130"; // 20010909014640;keepalive_interval=120;...

TEST_F(Engines, ARegistrationIsAnsweredWithASession) {
  hear(hex("0000000000000000 00010002 534e30313233343536373839 00000000 0001 0000 0f35 00c8"
           "0000004d0a400007666c656574000000000000000000000000000000000000000000000000000000"
           "0000000000000000000000000000000000000000000000000000000000000000322e310000000000"
           "00000000000000000000000000000000000000000000000000000000000000000000000000000000"
           "00000000000000000000000000000000525252525252525252525252525252525252525252525252"
           "52525252525252525252525252525252525252525252525252525252525252525252525252525252"));
  EXPECT_EQ(answer(), joined("53455353494f4e31 00010002 534e30313233343536373839 00000000 "
                             "0001 0001 fcdb 003d") +
                          kEnrolmentText);
  EXPECT_EQ(sent[0].to, kDevice);
  const auto* registered = last_event<Registered>();
  ASSERT_NE(registered, nullptr);
  EXPECT_EQ(registered->device.serial, "SN0123456789");
  EXPECT_EQ(registered->device.uptime, 77U);
  EXPECT_EQ(ip_text(registered->device.wan_address), "10.64.0.7");
  EXPECT_EQ(registered->device.domain, "fleet");
  EXPECT_EQ(registered->device.firmware, "2.1");
  EXPECT_EQ(registered->device.model, std::string(64, 'R')); // all 64 bytes, no terminator
  EXPECT_EQ(registered->device.registered, kStart_s);
}

struct Exchange {
  const char* name;
  const char* request;
  const char* answer;
};

void PrintTo(const Exchange& exchange, std::ostream* out) {
  *out << exchange.name;
}

class Exchanges : public EngineFixture, public testing::WithParamInterface<Exchange> {};

TEST_P(Exchanges, AreAnsweredByteForByte) {
  enrol();
  hear(hex(GetParam().request));
  EXPECT_EQ(answer(), joined(GetParam().answer));
}

INSTANTIATE_TEST_SUITE_P(
    Engine, Exchanges,
    testing::Values(
        Exchange{"ServerTime",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 000b 0000 ffff 0000",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 000b 0001 fcdb 003d"
                 "32303031303930393031343634303b6b656570616c6976655f696e74657276616c3d3132303b6b65"
                 "6570616c6976655f6d6178726574726965733d3130"},
        Exchange{"KeepaliveParameters",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 000e 0000 ffff 0000",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 000e 0001 fcdb 003d"
                 "32303031303930393031343634303b6b656570616c6976655f696e74657276616c3d3132303b6b65"
                 "6570616c6976655f6d6178726574726965733d3130"},
        Exchange{"Keepalive",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0007 0000 ffff 0000",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0007 0001 6784 000e"
                 "3230303130393039303134363430"},
        Exchange{"Configuration",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0003 0000 2258 0018"
                 "00010000776c5f737369643d613d6200776c5f6b65793d00",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0003 0001 fcdb 003d"
                 "32303031303930393031343634303b6b656570616c6976655f696e74657276616c3d3132303b6b65"
                 "6570616c6976655f6d6178726574726965733d3130"},
        Exchange{"Status",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0004 0000 39c7 0019"
                 "0002000077616e5f6970616464723d31302e36342e302e3700",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0004 0001 fcdb 003d"
                 "32303031303930393031343634303b6b656570616c6976655f696e74657276616c3d3132303b6b65"
                 "6570616c6976655f6d6178726574726965733d3130"},
        Exchange{"Log",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0002 0000 9fa8 0021"
                 "323030312d30392d31302030333a34383a30347320707070645b375d3a2075700a",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0002 0001 6784 000e"
                 "3230303130393039303134363430"},
        Exchange{"Traffic",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0040 0000 6524 0024"
                 "000028000001589232303031313030393033343830302c31303234302c38383231300d0a",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0040 0001 6784 000e"
                 "3230303130393039303134363430"},
        Exchange{"Position",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0009 0004 4072 0012"
                 "6c61743d34302e373132383b6c6f6e673d00",
                 "53455353494f4e31 00010002 534e30313233343536373839 00000005 0009 0001 6784 000e"
                 "3230303130393039303134363430"}),
    [](const auto& exchange) { return std::string(exchange.param.name); });

TEST_F(Engines, AnswersGoToTheSourceOfTheQuestion) {
  enrol();
  hear(fake::server_packet(7, 0, 1), kOther);
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].to, kOther);
}

TEST_F(Engines, VariablesComeWithScopeUnitAndEveryRecord) {
  enrol();
  hear(kConf, 0, 1, bytes_of(std::string("\0\1\0\2wl_ssid=a=b\0wl_key=\0novalue\0=x\0", 33)));
  const auto* reported = last_event<VariablesReported>();
  ASSERT_NE(reported, nullptr);
  EXPECT_EQ(reported->kind, VariableKind::kConf);
  EXPECT_EQ(reported->report.scope, 1);
  EXPECT_EQ(reported->report.unit, 2);
  EXPECT_THAT(reported->report.values, ElementsAre(Pair("wl_ssid", "a=b"), Pair("wl_key", "")));
}

TEST_F(Engines, LogLinesCarryTheDevicesOwnTime) {
  enrol();
  hear(kLog, 0, 1,
       bytes_of("2001-09-10 03:48:04s pppd[7]: up\nno stamp\n2001-13-01 00:00:00s x\n"));
  const auto* reported = last_event<LogReported>();
  ASSERT_NE(reported, nullptr);
  ASSERT_EQ(reported->lines.size(), 3U);
  EXPECT_EQ(reported->lines[0].time, 1000093684);
  EXPECT_EQ(reported->lines[0].message, "pppd[7]: up");
  EXPECT_EQ(reported->lines[1].time, 0);
  EXPECT_EQ(reported->lines[1].message, "no stamp");
  EXPECT_EQ(reported->lines[2].time, 0); // there is no month 13
  EXPECT_EQ(reported->lines[2].message, "2001-13-01 00:00:00s x");
}

TEST_F(Engines, TrafficMayBeNegative) {
  enrol();
  Bytes payload = hex("00002800 00015892");
  for (const char c :
       std::string("20011009034800,10240,88210\r\n20011009034900,-7,0\r\nx,1,2\r\n")) {
    payload.push_back(static_cast<std::uint8_t>(c));
  }
  hear(kTraffic, 0, 1, payload);
  const auto* reported = last_event<TrafficReported>();
  ASSERT_NE(reported, nullptr);
  EXPECT_EQ(reported->hour.tx, 10240U);
  EXPECT_EQ(reported->hour.rx, 88210U);
  ASSERT_EQ(reported->hour.samples.size(), 2U);
  EXPECT_EQ(reported->hour.samples[0].time, 1002599280);
  EXPECT_EQ(reported->hour.samples[0].tx, 10240);
  EXPECT_EQ(reported->hour.samples[0].rx, 88210);
  EXPECT_EQ(reported->hour.samples[1].tx, -7);
}

TEST_F(Engines, AnEmptyPositionIsAPosition) {
  enrol();
  hear(kGps, 4, 1, bytes_of(std::string("lat=;long=\0", 11)));
  const auto* reported = last_event<PositionReported>();
  ASSERT_NE(reported, nullptr);
  EXPECT_EQ(reported->position.latitude, "");
  EXPECT_EQ(reported->position.longitude, "");
  EXPECT_EQ(reported->position.received, kStart_s);
}

TEST_F(Engines, AnUnreadablePayloadIsAcknowledgedAndLeftOut) {
  enrol();
  hear(kConf, 0, 1, {0, 0, 0});
  EXPECT_EQ(sent.size(), 1U);
  hear(kTraffic, 0, 1, {0, 0, 0, 0, 0, 0, 0});
  EXPECT_EQ(sent.size(), 1U);
  hear(kGps, 4, 1, bytes_of("nowhere"));
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_TRUE(events.empty());
}

TEST_F(Engines, ADeviceThatNeverRegisteredIsNotAnswered) {
  for (const std::uint16_t type :
       {kLog, kConf, kStatus, kKeepalive, kServerTime, kKeepaliveParam, kTraffic}) {
    hear(type, 0, 1, bytes_of("12345678"));
    EXPECT_TRUE(sent.empty()) << type;
  }
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(engine->counters().unknown, 7U);
}

TEST_F(Engines, ADeviceThatHoldsAnotherSessionIsNotAnsweredUntilItRegisters) {
  enrol();
  advance(60000);
  hear(fake::server_packet(kKeepalive, 0, 1, {}, "ALTERED!"));
  hear(fake::server_packet(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)), "ALTERED!"));
  EXPECT_TRUE(sent.empty());
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(engine->counters().unknown, 2U);
  EXPECT_EQ(engine->device("SN0123456789")->last_seen, kStart_s);
  hear(kRegister, 0, 1, registration(70, "1.0"));
  EXPECT_EQ(sent.size(), 1U);
}

TEST_F(Engines, ARegistrationThatWasSentAgainKeepsItsSession) {
  enrol();
  advance(5000);
  hear(kRegister, 0, 0, registration(10, "1.0"));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].bytes[7], '1');
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(engine->device("SN0123456789")->registrations, 1);
}

TEST_F(Engines, ANewRegistrationGetsANewSession) {
  enrol(0, 10);
  hear(kKeepalive, 0, 0);
  advance(60000);
  hear(kRegister, 0, 1, registration(70, "1.0"));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].bytes[7], '2');
  EXPECT_EQ(engine->device("SN0123456789")->registrations, 2);
  EXPECT_FALSE(last_event<Registered>()->restarted);
}

TEST_F(Engines, ARestartShowsInTheSequenceOrInTheUptime) {
  enrol(0, 100);
  hear(kKeepalive, 0, 7);
  advance(60000);
  hear(kRegister, 0, 0, registration(160, "1.0"));
  EXPECT_TRUE(last_event<Registered>()->restarted);
  advance(60000);
  hear(kRegister, 0, 1, registration(3, "1.0"));
  EXPECT_TRUE(last_event<Registered>()->restarted);
}

TEST_F(Engines, ARegistrationThatWasSentAgainThroughAnOutageIsNoRestart) {
  enrol(0, 100);
  hear(kKeepalive, 0, 7);
  advance(600000); // its uptime tells of the moment when it was made, 8 minutes ago
  hear(kRegister, 0, 7, registration(220, "1.0"));
  EXPECT_FALSE(last_event<Registered>()->restarted);
}

TEST_F(Engines, ADeviceThatIsUpForLongerThanItIsRegisteredHasNotRestarted) {
  enrol(0, 100);
  advance(60000);
  hear(kRegister, 0, 0, registration(130, "1.0"));
  EXPECT_FALSE(last_event<Registered>()->restarted);
}

TEST_F(Engines, ALateCopyOfARegistrationIsNoNewOne) {
  enrol(0, 20);
  hear(kServerTime, 0, 0);
  hear(kKeepalive, 0, 1);
  advance(15000);
  events.clear();
  hear(kRegister, 0, 0, registration(20, "1.0"));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].bytes[7], '1'); // the session that the device has
  EXPECT_TRUE(events.empty());
}

// The bytes are the same: it was up for as long when it registered as when it registered before.
TEST_F(Engines, ADeviceThatRestartsAsSoonAsItHasRegisteredIsRegisteredAnew) {
  enrol(0, 60);
  hear(kServerTime, 0, 0);
  advance(60000);
  events.clear();
  hear(kRegister, 0, 0, registration(60, "1.0"));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].bytes[7], '2');
  ASSERT_NE(last_event<Registered>(), nullptr);
  EXPECT_TRUE(last_event<Registered>()->restarted);
  EXPECT_EQ(engine->device("SN0123456789")->registrations, 2);
}

TEST_F(Engines, ACopyThatTheNetworkMadeIsNotAnsweredASecondTime) {
  enrol();
  hear(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)));
  EXPECT_EQ(sent.size(), 1U);
  advance(499);
  hear(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)));
  EXPECT_TRUE(sent.empty());
  EXPECT_EQ(events.size(), 1U);
}

TEST_F(Engines, AReportThatTheDeviceSendsAgainIsAcknowledgedAgain) {
  enrol();
  hear(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)));
  advance(5000);
  hear(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)));
  EXPECT_EQ(sent.size(), 1U);
}

TEST_F(Engines, PacketsOfOneSequenceNumberAreAllTaken) {
  enrol();
  hear(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)));
  hear(kConf, 0, 1, bytes_of(std::string("\0\0\0\0b=1\0", 8)));
  EXPECT_EQ(sent.size(), 1U);
  EXPECT_EQ(events.size(), 2U);
}

TEST_F(Engines, TheLocalTimeIsToldOnDemand) {
  settings.local_time = true;
  settings.keepalive_interval = 5;
  settings.keepalive_maxretries = 2;
  const char* zone = std::getenv("TZ");
  const std::string before = zone != nullptr ? zone : "";
  setenv("TZ", "XYZ-2", 1);
  tzset();
  start();
  hear(kRegister, 0, 0, registration(1, "1.0"));
  before.empty() ? unsetenv("TZ") : setenv("TZ", before.c_str(), 1);
  tzset();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(std::string(sent[0].bytes.begin() + 36, sent[0].bytes.end()),
            "20010909034640;keepalive_interval=5;keepalive_maxretries=2");
}

TEST_F(Engines, TwoDevicesAreKeptApart) {
  enrol(0, 10, "1.0", "SN0123456789");
  enrol(0, 10, "2.0", "SHORT");
  ASSERT_EQ(engine->devices().size(), 2U);
  EXPECT_EQ(engine->devices()[0].serial, "SHORT");
  EXPECT_EQ(engine->devices()[0].firmware, "2.0");
  EXPECT_EQ(engine->devices()[1].firmware, "1.0");
  hear(fake::server_packet(kKeepalive, 0, 0, {}, "SESSION2", "SHORT"));
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(to_hex(Bytes(sent[0].bytes.begin(), sent[0].bytes.begin() + 24)),
            joined("53455353494f4e32 a1a2a3a4 53484f525400000000000000"));
}

TEST_F(Engines, NoMoreDevicesThanAllowedRegister) {
  settings.most_devices = 1;
  start();
  enrol();
  hear(kRegister, 0, 0, registration(1, "1.0"), "OTHER");
  EXPECT_TRUE(sent.empty());
  EXPECT_EQ(engine->devices().size(), 1U);
}

TEST_F(Engines, ASerialThatIsNoTextIsIgnored) {
  for (const std::string& serial :
       {std::string(), std::string("A B"), std::string("A\x80"), std::string("\n")}) {
    hear(kRegister, 0, 0, registration(1, "1.0"), serial);
    EXPECT_TRUE(sent.empty());
  }
  EXPECT_TRUE(engine->devices().empty());
}

TEST_F(Engines, AShortRegistrationIsIgnored) {
  hear(kRegister, 0, 0, Bytes(199));
  EXPECT_TRUE(sent.empty());
  EXPECT_TRUE(engine->devices().empty());
}

TEST_F(Engines, AGuessedSerialDoesNotDivertTheDevicesCommands) {
  enrol();
  hear(fake::server_packet(kKeepalive, 0, 1, {}, "GUESSED!"), kOther);
  EXPECT_EQ(engine->device("SN0123456789")->address, kDevice);
  hear(fake::server_packet(kKeepalive, 0, 2, {}, "SESSION1"), kOther);
  EXPECT_EQ(engine->device("SN0123456789")->address, kOther);
}

TEST_F(Engines, FlagsThatNoDeviceSendsAreIgnored) {
  enrol();
  for (std::uint16_t flags = 2; flags < 600; flags++) {
    hear(kKeepalive, flags, 1);
    EXPECT_TRUE(sent.empty()) << flags;
  }
  hear(kGps, 0, 1, bytes_of(std::string("lat=;long=\0", 11)));
  EXPECT_TRUE(sent.empty());
  hear(99, 0, 1);
  EXPECT_TRUE(sent.empty());
  EXPECT_TRUE(events.empty());
}

TEST_F(Engines, ADeviceCountsAsOnlineForTwoKeepalivesAndABit) {
  enrol();
  const Device device = *engine->device("SN0123456789");
  advance(255000);
  EXPECT_TRUE(engine->is_online(device, now));
  advance(1000);
  EXPECT_FALSE(engine->is_online(device, now));
}

// Bad input

TEST_F(Engines, EveryTruncationOfAPacketIsIgnored) {
  enrol();
  const Bytes whole = fake::server_packet(kConf, 0, 1, bytes_of(std::string("\0\0\0\0a=1\0", 8)));
  for (std::size_t length = 0; length < whole.size(); length++) {
    Bytes part(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
    part.shrink_to_fit(); // a sanitizer sees any byte read behind it
    hear(part);
    EXPECT_TRUE(sent.empty()) << length;
  }
  EXPECT_TRUE(events.empty());
}

TEST_F(Engines, AWrongChecksumIsIgnored) {
  enrol();
  Bytes packet = fake::server_packet(kLog, 0, 1, bytes_of("x\n"));
  packet[36] ^= 1;
  hear(packet);
  EXPECT_TRUE(sent.empty());
  EXPECT_EQ(engine->counters().malformed, 1U);
}

TEST_F(Engines, RandomBytesChangeNothing) {
  enrol();
  const Device before = *engine->device("SN0123456789");
  std::uint32_t random = 1;
  for (std::size_t round = 0; round < 4100; round++) {
    Bytes bytes(round % 41);
    for (std::uint8_t& byte : bytes) {
      random = random * 1664525 + 1013904223;
      byte = static_cast<std::uint8_t>(random >> 24);
    }
    bytes.shrink_to_fit();
    hear(bytes);
    ASSERT_TRUE(sent.empty());
  }
  EXPECT_TRUE(events.empty());
  EXPECT_EQ(engine->devices().size(), 1U);
  EXPECT_EQ(engine->device("SN0123456789")->session, before.session);
}

TEST_F(Engines, EveryTypeAndFlagsWithRandomPayloadsIsSurvived) {
  enrol();
  std::uint32_t random = 7;
  const auto next = [&random] { return (random = random * 1664525 + 1013904223) >> 16; };
  for (int round = 0; round < 5000; round++) {
    Bytes payload(next() % 60);
    for (std::uint8_t& byte : payload) {
      byte = static_cast<std::uint8_t>(next());
    }
    hear(static_cast<std::uint16_t>(next() % 66), static_cast<std::uint16_t>(next() % 5), next(),
         payload);
  }
  EXPECT_EQ(engine->devices().size(), 1U);
}

} // namespace
