// The walks over the tables: which records go into which packet.
#include "variables/reports.h"

#include "reporters/status.h"
#include "tests/variables/kit.h"

#include <map>

using namespace rcmd;
using fake::world;
using kit::records_of;
using kit::Texts;

namespace {

// A table of the test's own: values by name, and the texts that were handed out.
std::map<std::string, std::string> values;
std::vector<char*> handed_out;
std::vector<int> units;

char* value_of(std::int32_t unit, const VariableEntry* row) {
  units.push_back(unit);
  handed_out.push_back(strdup(values[row->name].c_str()));
  return handed_out.back();
}

constexpr VariableEntry kPlainTable[] = {
    {"a", kPlain, value_of, nullptr},       {"b", kPlain, value_of, nullptr},
    {"w", kPerWireless, value_of, nullptr}, {"c", kPlain, value_of, nullptr},
    {nullptr, kPlain, nullptr, nullptr},
};

constexpr VariableEntry kUnitTable[] = {
    {"p", kPlain, value_of, nullptr},
    {"x", kPerWireless, value_of, nullptr},
    {"y", kPerWireless, value_of, nullptr},
    {nullptr, kPlain, nullptr, nullptr},
};

// A record of "n=", that many bytes long with its NUL.
std::string value_for(std::size_t record_bytes) {
  return std::string(record_bytes - 3, 'v');
}

Texts names(const Texts& records) {
  Texts result;
  for (const std::string& record : records) {
    result.push_back(record.substr(0, record.find('=')));
  }
  return result;
}

class Reports : public kit::VariablesFixture {
protected:
  Reports() {
    values = {{"a", "1"}, {"b", "2"}, {"c", "3"}, {"w", "4"}, {"p", "5"}, {"x", "6"}, {"y", "7"}};
    handed_out.clear();
    units.clear();
  }
  // The plain pass leaves its texts to nobody; the test that runs it takes them.
  static void release_texts() {
    for (char* text : handed_out) {
      std::free(text);
    }
    handed_out.clear();
  }
  int send_plain() {
    const int result = do_send_single_variable(&context, kPlainTable, kConf);
    release_texts();
    return result;
  }
  int send_units(int count) {
    return do_send_multiple_variable(&context, kUnitTable, kConf, kPerWireless, count);
  }
};

TEST_F(Reports, PlainRowsBelowTheFillLimitGoInOnePacket) {
  values["a"] = value_for(256);
  values["b"] = value_for(252);
  EXPECT_EQ(send_plain(), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(names(records_of(world().sent[0].bytes)), (Texts{"a", "b", "c"}));
  EXPECT_EQ(fake::length_of(world().sent[0].bytes), 4 + 512);
  EXPECT_EQ(kit::scope_of(world().sent[0].bytes), 0);
  EXPECT_EQ(kit::unit_of(world().sent[0].bytes), 0);
  EXPECT_EQ(units, (std::vector<int>{0, 0, 0}));
}

TEST_F(Reports, TheRecordThatReachesTheFillLimitIsSentRightBehind) {
  values["a"] = value_for(256);
  values["b"] = value_for(257);
  EXPECT_EQ(send_plain(), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(names(records_of(world().sent[0].bytes)), (Texts{"a", "b"}));
  EXPECT_EQ(fake::length_of(world().sent[0].bytes), 4 + 513);
  EXPECT_EQ(records_of(world().sent[1].bytes), (Texts{"c=3"}));
}

TEST_F(Reports, ALastRecordThatReachesTheFillLimitLeavesNothingToSend) {
  values["a"] = value_for(256);
  values["b"] = value_for(253);
  EXPECT_EQ(send_plain(), 0);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(Reports, AnAreaOf512BytesTakesOneMoreRecordOfAnyLength) {
  values["a"] = value_for(256);
  values["b"] = value_for(256);
  values["c"] = value_for(7000);
  EXPECT_EQ(send_plain(), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(fake::length_of(world().sent[0].bytes), 4 + 7512);
}

TEST_F(Reports, AllPacketsOfAReportCarryTheSameSequenceNumber) {
  context.seq = 42;
  values["a"] = value_for(600);
  EXPECT_EQ(send_plain(), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(fake::seq_of(world().sent[0].bytes), 42U);
  EXPECT_EQ(fake::seq_of(world().sent[1].bytes), 42U);
  EXPECT_EQ(context.seq, 42U);
}

TEST_F(Reports, APacketCarriesTheSessionOfTheAcknowledgementBeforeIt) {
  values["a"] = value_for(600);
  EXPECT_EQ(send_plain(), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(fake::to_hex(world().sent[0].bytes.data(), 8), "4142434445464748"); // ABCDEFGH
  EXPECT_EQ(fake::to_hex(world().sent[1].bytes.data(), 8), "53455353494f4e31"); // SESSION1
}

TEST_F(Reports, RowsAreReadWhenThePacketBeforeThemIsAcknowledged) {
  values["a"] = value_for(600);
  values["x"] = value_for(600);
  world().on_receive = [](const fake::Datagram&) {
    values["c"] = "changed meanwhile";
    values["y"] = "changed too";
  };
  EXPECT_EQ(send_plain(), 0);
  EXPECT_EQ(records_of(world().sent.back().bytes), (Texts{"b=2", "c=changed meanwhile"}));
  values["y"] = "7";
  EXPECT_EQ(send_units(1), 0);
  EXPECT_EQ(records_of(world().sent.back().bytes), (Texts{"y=changed too"}));
}

TEST_F(Reports, ThePlainPassLeavesItsTextsUnreleased) {
  EXPECT_EQ(do_send_single_variable(&context, kPlainTable, kConf), 0);
  ASSERT_EQ(handed_out.size(), 3U);
  EXPECT_STREQ(handed_out[0], "1"); // whole, and still to be freed: the sanitizers watch
  EXPECT_STREQ(handed_out[2], "3");
  release_texts();
}

TEST_F(Reports, TheScopedPassReleasesItsTexts) {
  EXPECT_EQ(send_units(1), 0); // a leak would be reported at the end
  EXPECT_EQ(handed_out.size(), 2U);
  values["x"] = value_for(600);
  fail_only_send(0);
  EXPECT_EQ(send_units(1), -1);
}

TEST_F(Reports, ScopedRowsCarryTheirScopeAndUnit) {
  EXPECT_EQ(send_units(1), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(records_of(world().sent[0].bytes), (Texts{"x=6", "y=7"}));
  EXPECT_EQ(kit::scope_of(world().sent[0].bytes), 1);
  EXPECT_EQ(kit::unit_of(world().sent[0].bytes), 0);
}

TEST_F(Reports, ASecondUnitsFirstPacketBeginsWithTheFirstUnitsRemainder) {
  EXPECT_EQ(send_units(2), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(records_of(world().sent[0].bytes), (Texts{"x=6", "y=7"}));
  EXPECT_EQ(records_of(world().sent[1].bytes), (Texts{"x=6", "y=7", "x=6", "y=7"}));
  EXPECT_EQ(kit::unit_of(world().sent[1].bytes), 1);
  EXPECT_EQ(units, (std::vector<int>{0, 0, 1, 1}));
}

TEST_F(Reports, APacketSentAtTheFillLimitLeavesTheSecondUnitNothing) {
  values["y"] = value_for(600);
  EXPECT_EQ(send_units(2), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(names(records_of(world().sent[1].bytes)), (Texts{"x", "y"}));
}

TEST_F(Reports, AUnitsNumberHasTwoBytes) {
  EXPECT_EQ(send_units(258), 0);
  EXPECT_EQ(kit::unit_of(world().sent.back().bytes), 257);
}

TEST_F(Reports, NoUnitsSendNothing) {
  EXPECT_EQ(send_units(0), 0);
  EXPECT_EQ(send_units(-1), 0);
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(Reports, AnEmptyScopeSendsNothing) {
  EXPECT_EQ(do_send_multiple_variable(&context, kUnitTable, kConf, kPerWan, 1), 0);
  EXPECT_EQ(do_send_single_variable(&context, kUnitTable + 1, kConf), 0);
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(Reports, AnUnacknowledgedPacketEndsThePass) {
  values["a"] = value_for(600);
  for (const int good : {0, 1}) {
    units.clear();
    fail_only_send(good);
    EXPECT_EQ(send_plain(), -1);
    EXPECT_EQ(world().sent.size(), static_cast<std::size_t>(good));
    EXPECT_EQ(units.size(), good == 0 ? 1U : 3U); // rows behind the packet are not even read
  }
}

TEST_F(Reports, AnUnacknowledgedPacketEndsTheScopedPassAndNoFurtherUnitFollows) {
  values["x"] = value_for(600);
  for (const int good : {0, 1}) {
    units.clear();
    fail_only_send(good);
    EXPECT_EQ(send_units(2), -1);
    EXPECT_EQ(world().sent.size(), static_cast<std::size_t>(good));
    EXPECT_EQ(units.size(), good == 0 ? 1U : 2U);
  }
}

TEST_F(Reports, ARecordThatDoesNotFitTheBufferIsLeftOutWhole) {
  values["b"] = std::string(9000, 'v');
  EXPECT_EQ(send_plain(), 0);
  EXPECT_EQ(kit::sent_records(), (Texts{"a=1", "c=3"}));
  EXPECT_EQ(world().diagnostics(), "b is left out of the report\n");
}

TEST_F(Reports, ARowWithoutMemoryForItsTextIsLeftOut) {
  constexpr auto kNone = [](std::int32_t, const VariableEntry*) -> char* { return nullptr; };
  constexpr VariableEntry kRows[] = {{"n", kPlain, kNone, nullptr},
                                     {"m", kPerWan, kNone, nullptr},
                                     {nullptr, kPlain, nullptr, nullptr}};
  EXPECT_EQ(do_send_single_variable(&context, kRows, kConf), 0);
  EXPECT_EQ(do_send_multiple_variable(&context, kRows, kConf, kPerWan, 1), 0);
  EXPECT_TRUE(world().sent.empty());
  EXPECT_EQ(world().diagnostics(), "n is left out of the report\nm is left out of the report\n");
}

TEST_F(Reports, TheLargestRecordThatFitsFillsTheBufferToItsLastByte) {
  values["a"] = value_for(8192 - 40);
  EXPECT_EQ(send_plain(), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(world().sent[0].bytes.size(), 8192U);
  values["a"] += 'v';
  EXPECT_EQ(send_plain(), 0);
  EXPECT_EQ(records_of(world().sent.back().bytes), (Texts{"b=2", "c=3"}));
}

TEST_F(Reports, ValuesGoOutAsTheyStand) {
  values["a"] = " x=y,%s\n";
  EXPECT_EQ(send_plain(), 0);
  EXPECT_EQ(records_of(world().sent[0].bytes).at(0), "a= x=y,%s\n");
}

class WholeReports : public kit::VariablesFixture {
protected:
  static std::vector<int> scopes() {
    std::vector<int> result;
    for (const fake::Datagram& datagram : world().sent) {
      result.push_back(kit::scope_of(datagram.bytes));
    }
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
  }
  static std::vector<int> types() {
    std::vector<int> result;
    for (const fake::Datagram& datagram : world().sent) {
      result.push_back(fake::type_of(datagram.bytes));
    }
    result.erase(std::unique(result.begin(), result.end()), result.end());
    return result;
  }
  static Texts names_of(const VariableEntry* table, VariableScope scope) {
    Texts names;
    for (; table->name != nullptr; table++) {
      if (table->scope == scope) {
        names.push_back(table->name);
      }
    }
    return names;
  }
};

TEST_F(WholeReports, TheConfigurationIsPlainThenWirelessThenWanInTheTablesOrder) {
  EXPECT_EQ(do_config_send(&context), 0);
  EXPECT_EQ(types(), std::vector<int>{3});
  EXPECT_EQ(scopes(), (std::vector<int>{0, 1, 2}));
  Texts expected;
  for (const VariableScope scope : {kPlain, kPerWireless, kPerWan}) {
    const Texts names = names_of(config_variables, scope);
    expected.insert(expected.end(), names.begin(), names.end());
  }
  EXPECT_EQ(names(kit::sent_records()), expected);
}

TEST_F(WholeReports, TheConfigurationReadsUnitZeroAndNamesNoUnit) {
  world().nvram = {{"hostname", "gate"},
                   {"wl0_ssid", "home"},
                   {"wl1_ssid", "guest"},
                   {"wan0_mode", "ppp"},
                   {"wan1_mode", "dhcp"}};
  EXPECT_EQ(do_config_send(&context), 0);
  const Texts records = kit::sent_records();
  EXPECT_THAT(records, testing::IsSupersetOf({"hostname=gate", "wl_ssid=home", "wan_mode=ppp"}));
  EXPECT_THAT(records, testing::Not(testing::Contains("wl_ssid=guest")));
}

TEST_F(WholeReports, TheConfigurationEndsAtTheFirstFailure) {
  for (const int broken : {0, 1, 2}) {
    world().sent.clear();
    world().send_fails = [broken](const fake::Datagram& datagram) {
      return kit::scope_of(datagram.bytes) == broken;
    };
    EXPECT_EQ(do_config_send(&context), -1);
    EXPECT_EQ(scopes().size(), static_cast<std::size_t>(broken));
  }
}

TEST_F(WholeReports, TheStatusIsPlainThenWanThenTheLeases) {
  world().nvram = {{"wan0_ipaddr", "10.9.8.7"}, {"wan1_ipaddr", "10.9.8.8"}};
  EXPECT_EQ(do_information_send(&context), 0);
  EXPECT_EQ(types(), std::vector<int>{4});
  EXPECT_EQ(scopes(), (std::vector<int>{0, 2, 0}));
  EXPECT_EQ(kit::sent_records(),
            (Texts{"lan_status=", "lan_inpkts=0", "lan_outpkts=0", "mem_usage=50",
                   "mem_total=16777216", "wan_uptime=", "wan_wwan_gps=", "wan_wwan_prodid=",
                   "wan_ipaddr=10.9.8.7", "wan_wwan_rssi=", "wan_wwan_esn=", "wan_inpkts=0",
                   "wan_outpkts=0", "lan_lease_maxunit=0"}));
}

TEST_F(WholeReports, TheStationsFollowOnlyWhereWirelessIsSupported) {
  world().on_wireless = [](const std::string&, int, void* buffer, int) {
    std::memset(buffer, 0, 4);
    return 0;
  };
  for (const char* other : {"0", "", "11", " 1", "yes"}) {
    world().nvram["wifi_supported"] = other;
    EXPECT_EQ(do_information_send(&context), 0);
    EXPECT_EQ(kit::sent_records().back(), "lan_lease_maxunit=0") << other;
  }
  world().nvram["wifi_supported"] = "1";
  EXPECT_EQ(do_information_send(&context), 0);
  EXPECT_EQ(kit::sent_records().back(), "wl0_sta_maxunit=0");
}

TEST_F(WholeReports, TheStationsTravelAsStatusToo) {
  world().nvram["wifi_supported"] = "1";
  world().on_wireless = [](const std::string&, int, void* buffer, int) {
    std::memset(buffer, 0, 4);
    return 0;
  };
  EXPECT_EQ(do_information_send(&context), 0);
  ASSERT_EQ(kit::sent_records().back(), "wl0_sta_maxunit=0");
  EXPECT_EQ(fake::type_of(world().sent.back().bytes), 4);
}

TEST_F(WholeReports, WhetherThereIsWirelessIsReadBehindTheLeases) {
  world().on_wireless = [](const std::string&, int, void* buffer, int) {
    std::memset(buffer, 0, 4);
    return 0;
  };
  world().on_tool = [](const fake::ToolRun&) {
    world().nvram["wifi_supported"] = "1";
    return 0;
  };
  EXPECT_EQ(do_information_send(&context), 0);
  EXPECT_EQ(kit::sent_records().back(), "wl0_sta_maxunit=0");
}

TEST_F(WholeReports, WithoutALeaseFileTheStationsStillFollow) {
  world().nvram["wifi_supported"] = "1";
  world().send_fails = [](const fake::Datagram& datagram) {
    return records_of(datagram.bytes).at(0).starts_with("lan_lease");
  };
  EXPECT_EQ(do_information_send(&context), -1); // the driver refuses, which is not forgiven
  world().on_wireless = [](const std::string&, int, void* buffer, int) {
    std::memset(buffer, 0, 4);
    return 0;
  };
  EXPECT_EQ(do_information_send(&context), 0);
  EXPECT_EQ(kit::sent_records().back(), "wl0_sta_maxunit=0");
}

TEST_F(WholeReports, TheStatusEndsAtTheFirstFailure) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(do_information_send(&context), -1);
  EXPECT_TRUE(world().tools.empty());
  world().send_fails = [](const fake::Datagram& datagram) {
    return kit::scope_of(datagram.bytes) == 2;
  };
  EXPECT_EQ(do_information_send(&context), -1);
  EXPECT_TRUE(world().tools.empty());
  world().write_file("/tmp/udhcpd.leases", "");
  world().nvram["wifi_supported"] = "1";
  world().send_fails = [](const fake::Datagram& datagram) {
    return records_of(datagram.bytes).at(0).starts_with("lan_lease");
  };
  world().on_wireless = [](const std::string&, int, void*, int) {
    ADD_FAILURE() << "stations were asked for";
    return -1;
  };
  EXPECT_EQ(do_information_send(&context), -1);
}

// Tables of the test's own whose rows answer with the text that nobody may free.
TEST_F(WholeReports, TheSharedEmptyTextIsNeverFreed) {
  constexpr VariableEntry kRows[] = {
      {"lan_odd", kPlain, interfaces_info_get, nullptr},
      {"wan_odd", kPerWan, interfaces_info_get, nullptr},
      {nullptr, kPlain, nullptr, nullptr},
  };
  EXPECT_EQ(do_send_single_variable(&context, kRows, kStatus), 0);
  EXPECT_EQ(do_send_multiple_variable(&context, kRows, kStatus, kPerWan, 1), 0);
  EXPECT_EQ(kit::sent_records(), (Texts{"lan_odd=", "wan_odd="}));
}

} // namespace
