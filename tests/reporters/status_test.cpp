#include "reporters/status.h"

#include "reporters/netif.h"
#include "tests/fake_platform/fixture.h"

#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>

using namespace rcmd;
using fake::world;

namespace {

class Status : public fake::Fixture {
protected:
  Status() {
    world().write_file(
        "/proc/net/dev",
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets\n"
        "  eth0: 1 111 0 0 0 0 0 0 2 222 0 0 0 0 0 0\n"
        "  ppp0: 1 333 0 0 0 0 0 0 2 444 0 0 0 0 0 0\n"
        "  ppp1: 1 4294967295 0 0 0 0 0 0 2 666 0 0 0 0 0 0\n");
    world().nvram = {{"lan_ifname", "eth0"}, {"wan0_ifname", "ppp0"}, {"wan1_ifname", "ppp1"}};
    flags_ = IFF_UP | IFF_RUNNING;
    world().on_ioctl = [this](int, unsigned long what, void* argument) {
      if (what != SIOCGIFFLAGS) {
        return -1;
      }
      static_cast<ifreq*>(argument)->ifr_flags = static_cast<short>(flags_);
      return 0;
    };
  }
  ~Status() override { netif_fina(); }

  static std::string read(const char* name, VariableScope scope, int unit = 0) {
    const VariableEntry row = {name, scope, interfaces_info_get, nullptr};
    char* text = row.get(unit, &row);
    if (text == shared_empty_text) {
      return "<shared>";
    }
    std::string value = text;
    std::free(text);
    return value;
  }
  static std::string memory(char* (*handler)(std::int32_t, const VariableEntry*)) {
    const VariableEntry row = {"mem", kPlain, handler, nullptr};
    char* text = handler(0, &row);
    std::string value = text;
    EXPECT_NE(text, shared_empty_text);
    std::free(text);
    return value;
  }

  int flags_ = 0;
};

TEST_F(Status, TheAdministrativeFlagDecidesTheStatus) {
  EXPECT_EQ(read("lan_status", kPlain), "1");
  flags_ = IFF_UP;
  EXPECT_EQ(read("lan_status", kPlain), "1");
  flags_ = IFF_RUNNING;
  EXPECT_EQ(read("lan_status", kPlain), "0");
}

TEST_F(Status, TheLanCountsAreTheLanInterfaces) {
  EXPECT_EQ(read("lan_inpkts", kPlain), "111");
  EXPECT_EQ(read("lan_outpkts", kPlain), "222");
  EXPECT_EQ(read("lan_inpkts", kPlain, 1), "111");
}

TEST_F(Status, TheWanCountsAreTheUnitsInterfaces) {
  EXPECT_EQ(read("wan_inpkts", kPerWan, 0), "333");
  EXPECT_EQ(read("wan_outpkts", kPerWan, 0), "444");
  EXPECT_EQ(read("wan_inpkts", kPerWan, 1), "4294967295");
  EXPECT_EQ(read("wan_outpkts", kPerWan, 1), "666");
}

TEST_F(Status, TheWanUnitMayBeAnyNumber) {
  world().nvram["wan65535_ifname"] = "eth0";
  world().nvram["wan-1_ifname"] = "ppp0";
  EXPECT_EQ(read("wan_inpkts", kPerWan, 65535), "111");
  EXPECT_EQ(read("wan_inpkts", kPerWan, -1), "333");
}

TEST_F(Status, AWanInterfacesStatusIsServedLikeTheLans) {
  EXPECT_EQ(read("wan_status", kPerWan, 1), "1");
  flags_ = IFF_RUNNING;
  EXPECT_EQ(read("wan_status", kPerWan, 1), "0");
  EXPECT_EQ(read("wan_status", kPerWan, 2), "<shared>");
}

TEST_F(Status, WithoutAnInterfaceNameTheCountsAreZero) {
  world().nvram.clear();
  EXPECT_EQ(read("lan_inpkts", kPlain), "0");
  EXPECT_EQ(read("lan_outpkts", kPlain), "0");
  EXPECT_EQ(read("wan_inpkts", kPerWan, 2), "0");
}

TEST_F(Status, AnInterfaceThatIsNotThereHasNoCountsAndNoStatus) {
  world().nvram["lan_ifname"] = "br0";
  EXPECT_EQ(read("lan_inpkts", kPlain), "0");
  EXPECT_EQ(read("lan_outpkts", kPlain), "0");
  EXPECT_EQ(read("lan_status", kPlain), "<shared>");
}

TEST_F(Status, TheNameAndTheScopeChooseTheInterfaceTogether) {
  EXPECT_EQ(read("wan_inpkts", kPlain), "0");
  EXPECT_EQ(read("lan_inpkts", kPerWan), "0");
  EXPECT_EQ(read("lan_inpkts", kPerWireless), "0");
}

TEST_F(Status, AnUnknownVariableIsTheSharedEmptyText) {
  for (const char* name : {"lan_", "lan", "", "lan_inpktsx", "lan_Status"}) {
    EXPECT_EQ(read(name, kPlain), "<shared>") << name;
  }
  EXPECT_STREQ(shared_empty_text, "");
}

TEST_F(Status, OnlyTheSharedEmptyTextFreesTheList) {
  EXPECT_EQ(read("lan_inpkts", kPlain), "111");
  EXPECT_NE(interface_list, nullptr);
  EXPECT_EQ(read("lan_status", kPlain), "1");
  EXPECT_NE(interface_list, nullptr);
  EXPECT_EQ(read("lan_other", kPlain), "<shared>");
  EXPECT_EQ(interface_list, nullptr);
}

TEST_F(Status, WithoutTheFileTheAnswersAreThoseOfNoInterface) {
  std::remove(world().path("/proc/net/dev").c_str());
  EXPECT_EQ(read("lan_inpkts", kPlain), "0");
  EXPECT_EQ(read("lan_outpkts", kPlain), "0");
  EXPECT_EQ(read("lan_status", kPlain), "<shared>");
}

TEST_F(Status, MemoryUsageIsWhatIsNeitherFreeNorCached) {
  world().memory = {16384, 99, 4096, 99, 99, 4096};
  EXPECT_EQ(memory(memusage_get), "50");
  world().memory = {1000, 0, 333, 0, 0, 333};
  EXPECT_EQ(memory(memusage_get), "34"); // 66.6 is cut to 66
  world().memory = {1000, 0, 1000, 0, 0, 0};
  EXPECT_EQ(memory(memusage_get), "0");
}

TEST_F(Status, MemoryUsageIsUnsignedArithmeticShownAsASignedNumber) {
  world().memory = {100, 0, 100, 0, 0, 100};
  EXPECT_EQ(memory(memusage_get), "-100");
  world().memory = {50'000'000, 0, 42'949'673, 0, 0, 0}; // times 100 is 4 beyond 32 bits
  EXPECT_EQ(memory(memusage_get), "100");
}

TEST_F(Status, MemoryTotalIsInBytes) {
  world().memory.total = 16384;
  EXPECT_EQ(memory(memtotal_get), "16777216");
  world().memory.total = 2097151;
  EXPECT_EQ(memory(memtotal_get), "2147482624");
}

TEST_F(Status, AMemoryTotalBeyondTheLargestNumberIsTheLargestNumber) {
  world().memory.total = 2097152;
  EXPECT_EQ(memory(memtotal_get), "2147483647");
  world().memory.total = 0xFFFFFFFF;
  EXPECT_EQ(memory(memtotal_get), "2147483647");
}

TEST_F(Status, WithoutFiguresTheMemoryIsTheEmptyText) {
  world().memory_result = -1;
  EXPECT_EQ(memory(memusage_get), "");
  EXPECT_EQ(memory(memtotal_get), "");
}

TEST_F(Status, ATotalOfZeroIsNeverDividedBy) {
  world().memory.total = 0;
  EXPECT_EQ(memory(memusage_get), "");
  EXPECT_EQ(memory(memtotal_get), "0");
}

} // namespace
