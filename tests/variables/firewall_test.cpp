#include "variables/firewall.h"

#include "tests/variables/kit.h"

#include <malloc.h>

using fake::world;
using kit::Texts;

namespace {

int good_reallocs = -1; // how many succeed before one fails; negative: all

} // namespace

extern "C" {
void* __real_realloc(void* memory, std::size_t size);

void* __wrap_realloc(void* memory, std::size_t size) {
  if (good_reallocs >= 0 && good_reallocs-- == 0) {
    return nullptr;
  }
  return __real_realloc(memory, size);
}
}

namespace {

constexpr char kAccess[] = "eth0,1.2.3.4,ppp0,5.6.7.8,tcp,80,90,0,ACCEPT,web,1";
constexpr char kForwarding[] = "ppp0,tcp,0.0.0.0,8080,192.168.1.9,80,0,camera,1";

class Firewall : public fake::Fixture {};

TEST_F(Firewall, AnAccessRuleIsStoredFieldByFieldAndReadsBack) {
  EXPECT_EQ(kit::write("firewall_access_rule3", kAccess), 0);
  EXPECT_EQ(
      world().events,
      (Texts{"nvram_set firewall_access3_indev=eth0", "nvram_set firewall_access3_from_ip=1.2.3.4",
             "nvram_set firewall_access3_outdev=ppp0", "nvram_set firewall_access3_to_ip=5.6.7.8",
             "nvram_set firewall_access3_protocol=tcp", "nvram_set firewall_access3_startport=80",
             "nvram_set firewall_access3_endport=90", "nvram_set firewall_access3_log=0",
             "nvram_set firewall_access3_action=ACCEPT", "nvram_set firewall_access3_desc=web",
             "nvram_set firewall_access3_status=2"}));
  EXPECT_EQ(kit::read("firewall_access_rule3"), kAccess);
}

TEST_F(Firewall, AForwardingRuleIsStoredFieldByFieldAndReadsBack) {
  EXPECT_EQ(kit::write("firewall_portforwarding_rule7", kForwarding), 0);
  EXPECT_EQ(world().events, (Texts{"nvram_set firewall_portforwarding7_interface=ppp0",
                                   "nvram_set firewall_portforwarding7_protocol=tcp",
                                   "nvram_set firewall_portforwarding7_srcip=0.0.0.0",
                                   "nvram_set firewall_portforwarding7_externalport=8080",
                                   "nvram_set firewall_portforwarding7_natip=192.168.1.9",
                                   "nvram_set firewall_portforwarding7_localport=80",
                                   "nvram_set firewall_portforwarding7_autofw=0",
                                   "nvram_set firewall_portforwarding7_desc=camera",
                                   "nvram_set firewall_portforwarding7_status=2"}));
  EXPECT_EQ(kit::read("firewall_portforwarding_rule7"), kForwarding);
}

TEST_F(Firewall, AFlagOtherThanExactlyOneDisables) {
  for (const char* flag : {"0", "1 ", "10", " 1", ""}) {
    EXPECT_EQ(kit::write("firewall_access_rule0", "a,b,c,d,e,f,g,h,i,j," + std::string(flag)), 0);
    EXPECT_EQ(world().nvram["firewall_access0_status"], "1") << flag;
    EXPECT_EQ(kit::read("firewall_access_rule0"), "a,b,c,d,e,f,g,h,i,j,0");
  }
  EXPECT_EQ(kit::write("firewall_portforwarding_rule0", "a,b,c,d,e,f,g,h,10"), 0);
  EXPECT_EQ(kit::read("firewall_portforwarding_rule0"), "a,b,c,d,e,f,g,h,0");
}

TEST_F(Firewall, TheStoredStatusTellsWhetherThereIsARule) {
  kit::write("firewall_access_rule0", kAccess);
  const std::string disabled = std::string(kAccess).substr(0, sizeof kAccess - 2) + "0";
  const std::pair<const char*, std::string> cases[] = {
      {"0", ""},      {"", ""},        {"no", ""},       {"1", disabled},
      {"2", kAccess}, {"3", disabled}, {"-1", disabled}, {"2x", kAccess}};
  for (const auto& [status, text] : cases) {
    world().nvram["firewall_access0_status"] = status;
    EXPECT_EQ(kit::read("firewall_access_rule0"), text) << status;
  }
  world().nvram.erase("firewall_access0_status");
  EXPECT_EQ(kit::read("firewall_access_rule0"), "");
}

TEST_F(Firewall, AWrongNumberOfFieldsIsAnsweredWithItAndChangesNothing) {
  EXPECT_EQ(kit::write("firewall_access_rule0", "a,b,c,d,e,f,g,h,i,1"), 10);
  EXPECT_EQ(kit::write("firewall_access_rule0", "a,b,c,d,e,f,g,h,i,a, comma,1"), 12);
  EXPECT_EQ(kit::write("firewall_access_rule0", "one"), 1);
  EXPECT_EQ(kit::write("firewall_access_rule0", std::string(8000, ',')), 8001);
  EXPECT_EQ(kit::write("firewall_portforwarding_rule0", "a,b,c,d,e,f,g,1"), 8);
  EXPECT_EQ(kit::write("firewall_portforwarding_rule0", kAccess), 11);
  EXPECT_TRUE(world().events.empty());
}

TEST_F(Firewall, AnEmptyValueHidesTheRuleAndKeepsItsFields) {
  kit::write("firewall_access_rule1", kAccess);
  world().events.clear();
  EXPECT_EQ(kit::write("firewall_access_rule1", ""), 0);
  EXPECT_EQ(world().events, Texts{"nvram_set firewall_access1_status=0"});
  EXPECT_EQ(kit::read("firewall_access_rule1"), "");
  EXPECT_EQ(world().nvram["firewall_access1_desc"], "web");
  kit::write("firewall_access_rule1", kAccess);
  EXPECT_EQ(kit::read("firewall_access_rule1"), kAccess);
}

TEST_F(Firewall, EmptyFieldsKeepTheirPlaces) {
  EXPECT_EQ(kit::write("firewall_access_rule0", "a,,c,,,,,,,,"), 0);
  EXPECT_TRUE(world().nvram.contains("firewall_access0_from_ip"));
  EXPECT_EQ(kit::read("firewall_access_rule0"), "a,,c,,,,,,,,0");
  EXPECT_EQ(kit::write("firewall_portforwarding_rule0", ",,,,,,,,1"), 0);
  EXPECT_EQ(kit::read("firewall_portforwarding_rule0"), ",,,,,,,,1");
}

TEST_F(Firewall, AbsentFieldsReadAsEmpty) {
  world().nvram["firewall_access0_status"] = "2";
  world().nvram["firewall_portforwarding0_status"] = "1";
  EXPECT_EQ(kit::read("firewall_access_rule0"), ",,,,,,,,,,1");
  EXPECT_EQ(kit::read("firewall_portforwarding_rule0"), ",,,,,,,,0");
}

TEST_F(Firewall, FieldsOfAnyLengthAreKept) {
  const std::string value = "a,b,c,d,e,f,g,h,i," + std::string(8000, 'd') + ",1";
  EXPECT_EQ(kit::write("firewall_access_rule0", value), 0);
  EXPECT_EQ(kit::read("firewall_access_rule0"), value);
}

TEST_F(Firewall, WithoutMemoryForItsTextARuleHasNone) {
  kit::write("firewall_access_rule0", kAccess);
  for (const int good : {0, 5, 10}) {
    good_reallocs = good;
    EXPECT_EQ(kit::read("firewall_access_rule0"), "<null>");
    good_reallocs = -1;
  }
  EXPECT_EQ(kit::read("firewall_access_rule0"), kAccess);
}

TEST_F(Firewall, ATextThatCannotGrowIsFreed) {
  const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  kit::write("firewall_access_rule0", kAccess);
  world().nvram["firewall_access0_indev"] = std::string(4 << 20, 'x');
  const std::size_t before = in_use();
  good_reallocs = 1;
  EXPECT_EQ(kit::read("firewall_access_rule0"), "<null>");
  good_reallocs = -1;
  EXPECT_LT(in_use(), before + (1 << 20));
}

TEST_F(Firewall, AValueLongerThanAnyDatagramIsRefused) {
  EXPECT_EQ(kit::write("firewall_access_rule0", std::string(8192, 'x')), -1);
  EXPECT_TRUE(world().events.empty());
}

TEST_F(Firewall, TheUnitIsIgnoredAndRulesDoNotMix) {
  kit::write("firewall_access_rule0", kAccess, 5);
  EXPECT_EQ(kit::read("firewall_access_rule0", 9), kAccess);
  EXPECT_EQ(kit::read("firewall_access_rule1"), "");
  EXPECT_EQ(kit::read("firewall_portforwarding_rule0"), "");
}

TEST_F(Firewall, TheRuleNumberIsWhatTheNameEndsWith) {
  const rcmd::VariableEntry access = {"firewall_access_rule12", rcmd::kPlain, nullptr, nullptr};
  EXPECT_EQ(rcmd::firewall_access_set(0, "", &access), 0);
  const rcmd::VariableEntry forwarding = {"firewall_portforwarding_rule12x", rcmd::kPlain, nullptr,
                                          nullptr};
  EXPECT_EQ(rcmd::firewall_portforwarding_set(0, "", &forwarding), 0);
  EXPECT_EQ(world().events, (Texts{"nvram_set firewall_access12_status=0",
                                   "nvram_set firewall_portforwarding12_status=0"}));
}

TEST_F(Firewall, ARefusedWriteKeepsNoneOfTheOthersBack) {
  world().nvram_set_result = -1;
  kit::write("firewall_portforwarding_rule2", kForwarding);
  EXPECT_EQ(world().events, (Texts{"nvram_set firewall_portforwarding2_interface=ppp0",
                                   "nvram_set firewall_portforwarding2_protocol=tcp",
                                   "nvram_set firewall_portforwarding2_srcip=0.0.0.0",
                                   "nvram_set firewall_portforwarding2_externalport=8080",
                                   "nvram_set firewall_portforwarding2_natip=192.168.1.9",
                                   "nvram_set firewall_portforwarding2_localport=80",
                                   "nvram_set firewall_portforwarding2_autofw=0",
                                   "nvram_set firewall_portforwarding2_desc=camera",
                                   "nvram_set firewall_portforwarding2_status=2"}));
}

TEST_F(Firewall, TheStatusOfAWriteIsTheStatusKeys) {
  world().nvram_set_result = -4;
  EXPECT_EQ(kit::write("firewall_access_rule0", kAccess), -4);
  EXPECT_EQ(kit::write("firewall_access_rule0", ""), -4);
  EXPECT_EQ(kit::write("firewall_portforwarding_rule0", kForwarding), -4);
}

} // namespace
