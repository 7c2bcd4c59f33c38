#include "server/store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using namespace server;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

const std::string kSerial = "SN0123456789";

class Stores : public testing::Test {
protected:
  using Values = std::vector<std::pair<std::string, std::string>>;

  std::vector<std::string> shown(Store& from) {
    std::vector<std::string> list;
    for (const Variable& variable : from.variables(kSerial)) {
      list.push_back(variable.name + "/" + std::to_string(variable.unit) + "=" + variable.value);
    }
    return list;
  }
  bool report(VariableKind kind, std::uint16_t unit, Values values) {
    return apply(VariablesReported{kind, {0, unit, std::move(values)}});
  }
  template <typename What> bool apply(What what, std::int64_t time = 1000) {
    Event event{kSerial, time, std::move(what)};
    return store.apply(event);
  }
  bool ended(std::int64_t id) {
    Operation operation;
    operation.id = id;
    operation.state = OperationState::kDone;
    operation.updated = 100;
    return apply(OperationChanged{operation});
  }

  Store store{":memory:"};
};

TEST_F(Stores, AVariableIsKeptByKindNameAndUnit) {
  report(VariableKind::kConf, 0, {{"wl_ssid", "a"}, {"x", "1"}});
  report(VariableKind::kConf, 1, {{"wl_ssid", "b"}});
  report(VariableKind::kStatus, 0, {{"x", "2"}});
  report(VariableKind::kConf, 0, {{"wl_ssid", "c"}});
  EXPECT_THAT(shown(store), ElementsAre("wl_ssid/0=c", "wl_ssid/1=b", "x/0=1", "x/0=2"));
}

TEST_F(Stores, AListThatBecameShorterLosesItsEnd) {
  report(VariableKind::kStatus, 0,
         {{"lan_lease0", "a"}, {"lan_lease1", "b"}, {"lan_lease2", "c"}, {"lan_lease10", "d"}});
  report(VariableKind::kStatus, 0, {{"wl0_sta0", "s"}, {"lan_leases", "no entry"}});
  report(VariableKind::kConf, 0, {{"lan_lease9", "a setting"}});
  report(VariableKind::kStatus, 0, {{"lan_lease_maxunit", "2"}});
  EXPECT_THAT(shown(store),
              ElementsAre("lan_lease9/0=a setting", "lan_lease0/0=a", "lan_lease1/0=b",
                          "lan_lease_maxunit/0=2", "lan_leases/0=no entry", "wl0_sta0/0=s"));
  report(VariableKind::kStatus, 0, {{"wl0_sta_maxunit", "0"}, {"lan_lease_maxunit", "0"}});
  EXPECT_THAT(shown(store), ElementsAre("lan_lease9/0=a setting", "lan_lease_maxunit/0=0",
                                        "lan_leases/0=no entry", "wl0_sta_maxunit/0=0"));
}

TEST_F(Stores, ACountThatIsNoNumberRemovesNothing) {
  report(VariableKind::kStatus, 0, {{"lan_lease0", "a"}, {"lan_lease_maxunit", "-1"}});
  report(VariableKind::kStatus, 0, {{"lan_lease_maxunit", "0x"}});
  report(VariableKind::kStatus, 0, {{"lan_lease_maxunit", ""}});
  EXPECT_EQ(shown(store).size(), 2U);
}

TEST_F(Stores, ValuesAreKeptByteForByte) {
  const std::string value("a\xff\x01'\"; DROP TABLE variables", 27);
  report(VariableKind::kConf, 0, {{"x\xfe", value}});
  const auto variables = store.variables(kSerial);
  ASSERT_EQ(variables.size(), 1U);
  EXPECT_EQ(variables[0].name, "x\xfe");
  EXPECT_EQ(variables[0].value, value);
}

TEST_F(Stores, ALogReportThatComesAgainIsKeptOnce) {
  EXPECT_TRUE(apply(LogReported{{{0, 50, "one"}, {0, 50, "one"}}, 7}));
  EXPECT_FALSE(apply(LogReported{{{0, 50, "one"}, {0, 50, "one"}}, 7}));
  EXPECT_TRUE(apply(LogReported{{{0, 51, "two"}}, 8}));
  const auto lines = store.logs(kSerial, 0, 0, 100);
  ASSERT_EQ(lines.size(), 3U); // two equal lines of one report are two lines
  EXPECT_EQ(lines[0].message, "one");
  EXPECT_EQ(lines[2].message, "two");
  EXPECT_EQ(lines[2].time, 51);
}

TEST_F(Stores, EqualLinesOfALaterReportAreOtherLines) {
  const LogReported flood{{{0, 50, "one"}, {0, 50, "one"}}, 7};
  EXPECT_TRUE(apply(flood, 1000));
  EXPECT_FALSE(apply(flood, 1060));
  EXPECT_TRUE(apply(flood, 1300));
  EXPECT_EQ(store.logs(kSerial, 0, 0, 100).size(), 4U);
}

TEST_F(Stores, LogLinesAreReadFromEitherEnd) {
  for (int i = 1; i <= 5; i++) {
    apply(LogReported{{{0, i, "line " + std::to_string(i)}}, static_cast<std::uint64_t>(i)});
  }
  EXPECT_EQ(store.logs(kSerial, 0, 0, 2).front().message, "line 4");
  EXPECT_EQ(store.logs(kSerial, 2, 0, 2).front().message, "line 3");
  EXPECT_EQ(store.logs(kSerial, 0, 5, 100).size(), 1U);
  EXPECT_THAT(store.logs("OTHER", 0, 0, 100), IsEmpty());
}

TEST_F(Stores, AnIdGoesWithEveryNewLine) {
  Event event{kSerial, 1000, LogReported{{{0, 1, "x"}}, 1}};
  store.apply(event);
  EXPECT_GT(std::get<LogReported>(event.what).lines[0].id, 0);
}

TEST_F(Stores, ATrafficReportThatComesAgainIsKeptOnce) {
  TrafficHour hour{.received = 5000, .tx = 10, .rx = 20, .samples = {{100, 1, -2}, {160, 9, 22}}};
  EXPECT_TRUE(apply(TrafficReported{hour, 1}));
  hour.received = 5020;
  EXPECT_FALSE(apply(TrafficReported{hour, 1}));
  EXPECT_EQ(store.hours(kSerial, 0).size(), 1U);
  const auto samples = store.samples(kSerial, 0);
  ASSERT_EQ(samples.size(), 2U);
  EXPECT_EQ(samples[0].rx, -2);
}

TEST_F(Stores, TwoHoursWithoutTrafficAreTwoHours) {
  TrafficHour hour;
  hour.received = 5000;
  apply(TrafficReported{hour, 1});
  hour.received = 8600;
  EXPECT_TRUE(apply(TrafficReported{hour, 1}));
  EXPECT_EQ(store.hours(kSerial, 0).size(), 2U);
  EXPECT_EQ(store.hours(kSerial, 6000).size(), 1U);
}

TEST_F(Stores, PositionsAreKeptAsTextAndInOrder) {
  apply(PositionReported{{10, "40.7", ""}});
  apply(PositionReported{{20, "40.8", "-74"}});
  const auto positions = store.positions(kSerial, 0, 1);
  ASSERT_EQ(positions.size(), 1U);
  EXPECT_EQ(positions[0].latitude, "40.8");
  EXPECT_EQ(positions[0].longitude, "-74");
  EXPECT_EQ(store.positions(kSerial, 0, 10).front().longitude, "");
}

TEST_F(Stores, OperationsAreKeptAndFound) {
  Operation operation{.id = 3,
                      .serial = kSerial,
                      .kind = OperationKind::kUpgrade,
                      .state = OperationState::kTransferring,
                      .detail = "d",
                      .created = 1,
                      .updated = 2,
                      .sends = 3,
                      .name = "n",
                      .path = "/p",
                      .digest = 0xFFFFFFFFFFFFFFFE,
                      .length = 4000000000,
                      .fragments = 65535,
                      .asked = 6,
                      .firmware_before = "a",
                      .firmware_after = "b"};
  apply(OperationChanged{operation});
  const auto found = store.operation(3);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->digest, 0xFFFFFFFFFFFFFFFE);
  EXPECT_EQ(found->length, 4000000000U);
  EXPECT_EQ(found->fragments, 65535U);
  EXPECT_EQ(found->state, OperationState::kTransferring);
  EXPECT_EQ(found->firmware_after, "b");
  EXPECT_EQ(store.unfinished_operations().size(), 1U);
  EXPECT_EQ(store.last_operation_id(), 3);
  operation.state = OperationState::kDone;
  apply(OperationChanged{operation});
  EXPECT_THAT(store.unfinished_operations(), IsEmpty());
  EXPECT_FALSE(store.operation(4));
  EXPECT_EQ(store.operations("OTHER", 10).size(), 0U);
  EXPECT_EQ(store.operations("", 10).size(), 1U);
}

TEST_F(Stores, OldHistoryGoesAndTheRestStays) {
  apply(LogReported{{{0, 1, "old"}}, 1}, 100);
  apply(LogReported{{{0, 1, "new"}}, 2}, 300);
  apply(PositionReported{{100, "", ""}});
  apply(TrafficReported{{100, 0, 0, {{100, 1, 1}}}, 1});
  ended(1);
  ended(2);
  store.prune(200);
  EXPECT_EQ(store.logs(kSerial, 0, 0, 10).size(), 1U);
  EXPECT_THAT(store.positions(kSerial, 0, 10), IsEmpty());
  EXPECT_THAT(store.hours(kSerial, 0), IsEmpty());
  EXPECT_THAT(store.samples(kSerial, 0), IsEmpty());
  EXPECT_EQ(store.last_operation_id(), 2); // numbers are not given twice
}

class StoreFiles : public Stores {
protected:
  StoreFiles() {
    char name[] = "/tmp/rcm-store-XXXXXX";
    folder = mkdtemp(name);
  }
  ~StoreFiles() override { std::filesystem::remove_all(folder); }
  std::string folder;
};

TEST_F(StoreFiles, ADatabaseThatIsOpenedAgainHoldsEverything) {
  Device device{.serial = kSerial,
                .session = {1, 2, 3, 4, 5, 6, 7, 0xFF},
                .address = {0xFFFFFFFF, 65535},
                .first_seen = 1,
                .last_seen = 2,
                .registered = 3,
                .registrations = 4,
                .uptime = 4294967295,
                .wan_address = 0x0A400007,
                .domain = "d",
                .firmware = "f",
                .model = "m\xff"};
  {
    Store first(folder + "/db");
    Event event{kSerial, 1000, Registered{device, true}};
    first.apply(event);
    Event variables{kSerial, 1000, VariablesReported{VariableKind::kConf, {2, 0, {{"a", "1"}}}}};
    first.apply(variables);
  }
  Store second(folder + "/db");
  ASSERT_EQ(second.devices().size(), 1U);
  const Device found = second.devices()[0];
  EXPECT_EQ(found.session, device.session);
  EXPECT_EQ(found.address, device.address);
  EXPECT_EQ(found.uptime, 4294967295U);
  EXPECT_EQ(found.wan_address, 0x0A400007U);
  EXPECT_EQ(found.model, "m\xff");
  EXPECT_EQ(found.registrations, 4);
  EXPECT_THAT(shown(second), ElementsAre("a/0=1"));
}

TEST_F(StoreFiles, AFileThatIsNoDatabaseIsAnError) {
  std::ofstream(folder + "/db") << std::string(4096, 'x');
  EXPECT_THROW(Store(folder + "/db"), StoreError);
  EXPECT_THROW(Store(folder + "/nowhere/db"), StoreError);
}

} // namespace
