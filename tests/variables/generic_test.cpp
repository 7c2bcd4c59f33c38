#include "variables/generic.h"

#include "tests/variables/kit.h"
#include "variables/keys.h"

using namespace rcmd;
using fake::world;

namespace {

class GenericHandlers : public fake::Fixture {};

TEST_F(GenericHandlers, APlainVariableIsTheKeyOfItsName) {
  kit::write("hostname", "gate");
  EXPECT_EQ(world().nvram["hostname"], "gate");
  EXPECT_EQ(kit::read("hostname"), "gate");
}

TEST_F(GenericHandlers, AWirelessVariableIsTheUnitsKey) {
  kit::write("wl_ssid", "home", 0);
  kit::write("wl_channel", "11", 1);
  EXPECT_EQ(world().events, (kit::Texts{"nvram_set wl0_ssid=home", "nvram_set wl1_channel=11"}));
  EXPECT_EQ(kit::read("wl_channel", 1), "11");
  EXPECT_EQ(kit::read("wl_channel", 0), "");
}

TEST_F(GenericHandlers, AWanVariableIsTheUnitsKey) {
  kit::write("wan_mode", "ppp", 0);
  kit::write("wan_keepalive_reset_interval", "9", 65535);
  EXPECT_EQ(world().events, (kit::Texts{"nvram_set wan0_mode=ppp",
                                        "nvram_set wan65535_keepalive_reset_interval=9"}));
  EXPECT_EQ(kit::read("wan_mode"), "ppp");
}

TEST_F(GenericHandlers, TheUnitMeansNothingToAPlainVariable) {
  kit::write("hostname", "gate", 7);
  EXPECT_EQ(world().nvram["hostname"], "gate");
}

TEST_F(GenericHandlers, TheKeysOfWirelessPassphrasesAreTheirOwn) {
  kit::write("wl_key", "2");
  kit::write("wl_key1", "secret");
  EXPECT_EQ(world().nvram["wl0_key"], "2");
  EXPECT_EQ(world().nvram["wl0_key1"], "secret");
}

TEST_F(GenericHandlers, AnAbsentKeyReadsAsANewEmptyText) {
  char* first = generic_nvram_get(0, &kit::row("hostname"));
  char* second = generic_nvram_get(0, &kit::row("hostname"));
  EXPECT_STREQ(first, "");
  EXPECT_NE(first, second);
  std::free(first);
  std::free(second);
}

TEST_F(GenericHandlers, AnEmptyValueIsStored) {
  kit::write("hostname", "");
  EXPECT_TRUE(world().nvram.contains("hostname"));
  EXPECT_EQ(kit::read("hostname"), "");
}

TEST_F(GenericHandlers, OnlyAWanVariableAnswersWithTheResultOfTheWrite) {
  EXPECT_EQ(kit::write("hostname", "a"), 2);
  EXPECT_EQ(kit::write("wl_ssid", "a"), 2);
  EXPECT_EQ(kit::write("wan_mode", "a"), 0);
  world().nvram_set_result = -1;
  EXPECT_EQ(kit::write("hostname", "a"), 2);
  EXPECT_EQ(kit::write("wl_ssid", "a"), 2);
  EXPECT_EQ(kit::write("wan_mode", "a"), -1);
}

TEST_F(GenericHandlers, ARowOfAnUnknownScopeIsTheNumberTwoAndWritesNothing) {
  const VariableEntry odd = {"odd", static_cast<VariableScope>(3), nullptr, nullptr};
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(generic_nvram_get(0, &odd)), 2U);
  EXPECT_EQ(generic_nvram_set(0, "a", &odd), 2);
  EXPECT_TRUE(world().events.empty());
}

TEST_F(GenericHandlers, NothingIsCommitted) {
  kit::write("wan_mode", "a");
  EXPECT_TRUE(world().events_of({"nvram_commit"}).empty());
}

TEST_F(GenericHandlers, AKeyHoldsTheLongestUnitAndNeverMoreThanItsPlace) {
  EXPECT_STREQ(wireless_key(-2147483647 - 1, "ifname").text, "wl-2147483648_ifname");
  const std::string name = "wl_" + std::string(300, 'x');
  const VariableEntry odd = {name.c_str(), kPerWireless, nullptr, nullptr};
  EXPECT_EQ(variable_key(odd, 0).text, "wl0_" + std::string(kKeyBytes - 1 - 4, 'x'));
}

} // namespace
