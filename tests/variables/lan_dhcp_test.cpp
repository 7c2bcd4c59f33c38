#include "variables/lan_dhcp.h"

#include "tests/variables/kit.h"

using fake::world;

namespace {

class LanDhcpRules : public fake::Fixture {};

TEST_F(LanDhcpRules, TheKeyCarriesTheRuleNumberInTheMiddle) {
  for (int n = 0; n < 8; n++) {
    const std::string number = std::to_string(n);
    EXPECT_EQ(kit::write("lan_dhcp_rule" + number, "rule " + number), 0);
    EXPECT_EQ(world().nvram["lan_dhcp" + number + "_rule"], "rule " + number);
    EXPECT_EQ(kit::read("lan_dhcp_rule" + number), "rule " + number);
  }
  EXPECT_EQ(world().nvram.size(), 8U);
}

TEST_F(LanDhcpRules, TheRuleNumberIsWhatTheNameEndsWith) {
  const rcmd::VariableEntry row = {"lan_dhcp_rule12x", rcmd::kPlain, nullptr, nullptr};
  EXPECT_EQ(rcmd::lan_dhcp_rule_set(0, "a", &row), 0);
  EXPECT_EQ(world().events, kit::Texts{"nvram_set lan_dhcp12_rule=a"});
}

TEST_F(LanDhcpRules, AnAbsentRuleReadsAsTheEmptyText) {
  EXPECT_EQ(kit::read("lan_dhcp_rule5"), "");
}

TEST_F(LanDhcpRules, TheValueIsOpaqueAndTheUnitIsIgnored) {
  kit::write("lan_dhcp_rule5", " a,b=;%s", 3);
  EXPECT_EQ(world().events, kit::Texts{"nvram_set lan_dhcp5_rule= a,b=;%s"});
  EXPECT_EQ(kit::read("lan_dhcp_rule5", 4), " a,b=;%s");
}

TEST_F(LanDhcpRules, TheWriterAnswersWithTheResultOfTheWrite) {
  world().nvram_set_result = -1;
  EXPECT_EQ(kit::write("lan_dhcp_rule0", "a"), -1);
}

} // namespace
