#include "variables/wireless.h"

#include "tests/variables/kit.h"

using namespace rcmd;
using fake::world;
using kit::Texts;

namespace {

class Wireless : public fake::Fixture {};

TEST_F(Wireless, AuthenticationModeOneIsOpen) {
  EXPECT_EQ(kit::write("wl_auth_mode", "1"), 0);
  EXPECT_EQ(world().events, (Texts{"nvram_set wl0_net_auth_mode=1", "nvram_set wl0_auth=0",
                                   "nvram_set wl0_auth_mode=none", "nvram_set wl0_akm="}));
  EXPECT_EQ(kit::read("wl_auth_mode"), "1");
}

TEST_F(Wireless, AuthenticationModeTwoIsSharedKey) {
  EXPECT_EQ(kit::write("wl_auth_mode", "2", 1), 0);
  EXPECT_EQ(world().events, (Texts{"nvram_set wl1_net_auth_mode=2", "nvram_set wl1_auth=1",
                                   "nvram_set wl1_auth_mode=none", "nvram_set wl1_akm="}));
  EXPECT_EQ(kit::read("wl_auth_mode", 1), "2");
}

TEST_F(Wireless, AuthenticationModeThreeIsPreSharedKey) {
  EXPECT_EQ(kit::write("wl_auth_mode", "3"), 0);
  EXPECT_EQ(world().events, (Texts{"nvram_set wl0_net_auth_mode=3", "nvram_set wl0_auth=0",
                                   "nvram_set wl0_auth_mode=none", "nvram_set wl0_akm=psk"}));
  EXPECT_EQ(kit::read("wl_auth_mode"), "3");
}

TEST_F(Wireless, AnAuthenticationModeOutsideOneToThreeIsOnlyKept) {
  const std::pair<const char*, int> cases[] = {
      {"0", 1}, {"-1", 1}, {"", 1}, {"psk", 1}, {"4", 3}, {"7", 3}, {"99999999999999999999", 3}};
  for (const auto& [value, status] : cases) {
    world().events.clear();
    EXPECT_EQ(kit::write("wl_auth_mode", value), status) << value;
    EXPECT_EQ(world().events, Texts{std::string("nvram_set wl0_net_auth_mode=") + value});
    EXPECT_EQ(kit::read("wl_auth_mode"), value);
  }
}

TEST_F(Wireless, TheAuthenticationModesStatusIsTheLastWrites) {
  world().nvram_set_result = -5;
  EXPECT_EQ(kit::write("wl_auth_mode", "3"), -5);
}

TEST_F(Wireless, ARefusedWriteKeepsNoneOfTheOthersBack) {
  world().nvram_set_result = -5;
  kit::write("wl_auth_mode", "3");
  kit::write("wl_macrule0", "00:11:22:33:44:55");
  EXPECT_EQ(world().events,
            (Texts{"nvram_set wl0_net_auth_mode=3", "nvram_set wl0_auth=0",
                   "nvram_set wl0_auth_mode=none", "nvram_set wl0_akm=psk",
                   "nvram_set wl0_macrule0=00:11:22:33:44:55", "nvram_set wl0_maclist="}));
}

TEST_F(Wireless, TheUnitMayBeAnythingThatARequestCarries) {
  EXPECT_EQ(kit::write("wl_auth_mode", "2", 65535), 0);
  EXPECT_EQ(kit::write("wl_macmode", "1", 65535), 0);
  EXPECT_EQ(kit::write("wl_wep", "1", 65535), 0);
  EXPECT_EQ(kit::write("wl_macrule7", "00:11:22:33:44:55", 65535), 0);
  EXPECT_EQ(world().nvram, (std::map<std::string, std::string>{
                               {"wl65535_net_auth_mode", "2"},
                               {"wl65535_auth", "1"},
                               {"wl65535_auth_mode", "none"},
                               {"wl65535_akm", ""},
                               {"wl65535_macmode", "deny"},
                               {"wl65535_wep", "enabled"},
                               {"wl65535_macrule7", "00:11:22:33:44:55"},
                               {"wl65535_maclist", "00:11:22:33:44:55"},
                           }));
  EXPECT_EQ(kit::read("wl_auth_mode", 65535), "2");
  EXPECT_EQ(kit::read("wl_macmode", 65535), "1");
  EXPECT_EQ(kit::read("wl_wep", 65535), "1");
}

TEST_F(Wireless, TheAuthenticationModeKeepsTheTextAsItCame) {
  EXPECT_EQ(kit::write("wl_auth_mode", " 3 psk"), 0);
  EXPECT_EQ(kit::read("wl_auth_mode"), " 3 psk");
  EXPECT_EQ(world().nvram["wl0_akm"], "psk");
}

TEST_F(Wireless, MacModesAreStoredAsWords) {
  const char* words[] = {"disabled", "deny", "allow"};
  for (int mode = 0; mode < 3; mode++) {
    EXPECT_EQ(kit::write("wl_macmode", std::to_string(mode), 1), 0);
    EXPECT_EQ(world().nvram["wl1_macmode"], words[mode]);
    EXPECT_EQ(kit::read("wl_macmode", 1), std::to_string(mode));
  }
}

TEST_F(Wireless, AMacModeOutsideTheListLeavesTheKeyUntouched) {
  for (const char* value : {"3", "-1", "2147483648", "-99999999999999"}) {
    EXPECT_EQ(kit::write("wl_macmode", value), -1);
  }
  EXPECT_TRUE(world().events.empty());
  EXPECT_EQ(kit::write("wl_macmode", "text"), 0); // as a number this is 0
  EXPECT_EQ(world().nvram["wl0_macmode"], "disabled");
}

TEST_F(Wireless, AnUnknownMacModeReadsAsANewEmptyText) {
  EXPECT_EQ(kit::read("wl_macmode"), "");
  world().nvram["wl0_macmode"] = "Deny";
  EXPECT_EQ(kit::read("wl_macmode"), "");
  world().nvram["wl0_macmode"] = "";
  EXPECT_EQ(kit::read("wl_macmode"), "");
}

TEST_F(Wireless, AWordThatOnlyBeginsLikeAModeIsNone) {
  for (const char* word : {"disabledx", "deny ", "allowed", "allo"}) {
    world().nvram["wl0_macmode"] = word;
    EXPECT_EQ(kit::read("wl_macmode"), "") << word;
  }
  for (const char* word : {"enabledx", "enabled ", "enable"}) {
    world().nvram["wl0_wep"] = word;
    EXPECT_EQ(kit::read("wl_wep"), "0") << word;
  }
}

TEST_F(Wireless, WepIsStoredAsAWord) {
  EXPECT_EQ(kit::write("wl_wep", "1"), 0);
  EXPECT_EQ(world().nvram["wl0_wep"], "enabled");
  EXPECT_EQ(kit::read("wl_wep"), "1");
  EXPECT_EQ(kit::write("wl_wep", "0"), 0);
  EXPECT_EQ(world().nvram["wl0_wep"], "disabled");
  EXPECT_EQ(kit::read("wl_wep"), "0");
}

TEST_F(Wireless, EveryUnitHasItsOwnWep) {
  EXPECT_EQ(kit::write("wl_wep", "1", 1), 0);
  EXPECT_EQ(world().events, Texts{"nvram_set wl1_wep=enabled"});
  EXPECT_EQ(kit::read("wl_wep", 1), "1");
  EXPECT_EQ(kit::read("wl_wep", 0), "0");
}

TEST_F(Wireless, AnyOtherWepWordReadsAsZero) {
  EXPECT_EQ(kit::read("wl_wep"), "0");
  world().nvram["wl0_wep"] = "on";
  EXPECT_EQ(kit::read("wl_wep"), "0");
}

TEST_F(Wireless, AWepNumberOutsideTheListLeavesTheKeyUntouched) {
  for (const char* value : {"2", "-1", "99999999999999999999"}) {
    EXPECT_EQ(kit::write("wl_wep", value), -1);
  }
  EXPECT_TRUE(world().events.empty());
}

TEST_F(Wireless, SettingAMacRuleJoinsTheList) {
  EXPECT_EQ(kit::write("wl_macrule0", "00:11:22:33:44:55"), 0);
  EXPECT_EQ(kit::write("wl_macrule2", "66:77:88:99:AA:BB"), 0);
  EXPECT_EQ(world().events, (Texts{"nvram_set wl0_macrule0=00:11:22:33:44:55",
                                   "nvram_set wl0_maclist=00:11:22:33:44:55",
                                   "nvram_set wl0_macrule2=66:77:88:99:AA:BB",
                                   "nvram_set wl0_maclist=00:11:22:33:44:55 66:77:88:99:AA:BB"}));
}

TEST_F(Wireless, ARuleThatIsStoredEmptyHasNoPlaceInTheList) {
  for (const char* empty : {"wl_macrule0", "wl_macrule2", "wl_macrule7"}) {
    kit::write(empty, "");
  }
  kit::write("wl_macrule1", "00:11:22:33:44:55");
  kit::write("wl_macrule3", "66:77");
  EXPECT_EQ(world().nvram["wl0_maclist"], "00:11:22:33:44:55 66:77");
}

TEST_F(Wireless, TheListOfAUnitHoldsItsOwnRules) {
  kit::write("wl_macrule0", "00:11:22:33:44:55", 0);
  kit::write("wl_macrule0", "66:77:88:99:AA:BB", 1);
  EXPECT_EQ(world().nvram["wl1_maclist"], "66:77:88:99:AA:BB");
}

TEST_F(Wireless, TheListCutsARuleTo17CharactersAndTheRuleItselfIsKept) {
  kit::write("wl_macrule4", "00:11:22:33:44:55,x1");
  EXPECT_EQ(world().nvram["wl0_maclist"], "00:11:22:33:44:55");
  EXPECT_EQ(kit::read("wl_macrule4"), "00:11:22:33:44:55,x1");
}

TEST_F(Wireless, EightFullRulesFitTheList) {
  std::string expected;
  for (int n = 0; n < 8; n++) {
    kit::write("wl_macrule" + std::to_string(n), std::string(8000, static_cast<char>('a' + n)));
    expected += (n == 0 ? "" : " ") + std::string(17, static_cast<char>('a' + n));
  }
  EXPECT_EQ(world().nvram["wl0_maclist"], expected);
}

TEST_F(Wireless, WithoutRulesTheListIsStoredEmpty) {
  kit::write("wl_macrule0", "");
  EXPECT_EQ(world().events, (Texts{"nvram_set wl0_macrule0=", "nvram_set wl0_maclist="}));
}

TEST_F(Wireless, ARulesStatusIsTheLists) {
  world().nvram_set_result = -3;
  EXPECT_EQ(kit::write("wl_macrule0", "a"), -3);
  EXPECT_EQ(wl_maclist_update(0), -3);
}

TEST_F(Wireless, ANinthRuleHasNoPlaceInTheList) {
  world().nvram["wl0_macrule8"] = "66:77:88:99:AA:BB";
  kit::write("wl_macrule0", "00:11:22:33:44:55");
  EXPECT_EQ(world().nvram["wl0_maclist"], "00:11:22:33:44:55");
}

} // namespace
