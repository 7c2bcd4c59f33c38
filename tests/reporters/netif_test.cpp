#include "reporters/netif.h"

#include "tests/fake_platform/fixture.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <linux/sockios.h>
#include <malloc.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <unistd.h>

using namespace rcmd;
using fake::world;

namespace {

// The allocations left until one fails; negative: none does.
int good_callocs = -1;
int good_strdups = -1;

bool fails(int& good) {
  return good >= 0 && good-- == 0;
}

} // namespace

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);
char* __real_strdup(const char* text);

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return fails(good_callocs) ? nullptr : __real_calloc(count, size);
}
char* __wrap_strdup(const char* text) {
  return fails(good_strdups) ? nullptr : __real_strdup(text);
}
}

namespace {

constexpr char kNewHeader[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop "
    "fifo colls carrier compressed\n";
constexpr char kOldHeader[] =
    "Inter-|   Receive                  |  Transmit\n"
    " face |packets errs drop fifo frame|packets errs drop fifo colls carrier\n";

// What the queries tell of one interface.
struct Answers {
  std::string address = "192.168.1.1";
  std::string netmask = "255.255.255.0";
  std::string broadcast = "192.168.1.255";
  int flags = IFF_UP | IFF_RUNNING;
  int family = 1;
  int metric = 3;
  int mtu = 1500;
};

void put_address(sockaddr& place, const std::string& text) {
  const sockaddr_in address = fake::address(text, 0);
  std::memcpy(&place, &address, sizeof place);
}

class Interfaces : public fake::Fixture {
protected:
  Interfaces() {
    world().on_ioctl = [this](int fd, unsigned long what, void* argument) {
      socket_ = world().sockets.at(fd);
      auto& request = *static_cast<ifreq*>(argument);
      asked_.emplace_back(what, request.ifr_name);
      const auto found = answers_.find(request.ifr_name);
      return found == answers_.end() || what == refused_ ? -1
                                                         : answer(found->second, what, request);
    };
  }
  ~Interfaces() override {
    good_callocs = -1;
    good_strdups = -1;
    netif_fina();
  }

  int answer(const Answers& answers, unsigned long what, ifreq& request) {
    switch (what) {
    case SIOCGIFADDR:
      put_address(request.ifr_addr, answers.address);
      return 0;
    case SIOCGIFNETMASK:
      put_address(request.ifr_netmask, answers.netmask);
      return 0;
    case SIOCGIFBRDADDR:
      put_address(request.ifr_broadaddr, answers.broadcast);
      return 0;
    case SIOCGIFFLAGS:
      request.ifr_flags = static_cast<short>(answers.flags);
      return 0;
    case SIOCGIFHWADDR:
      request.ifr_hwaddr.sa_family = static_cast<sa_family_t>(answers.family);
      std::memcpy(request.ifr_hwaddr.sa_data, "\x02\x11\x22\x33\x44\x55", 6);
      return 0;
    case SIOCGIFMETRIC:
      request.ifr_metric = answers.metric;
      return 0;
    case SIOCGIFMTU:
      request.ifr_mtu = answers.mtu;
      return 0;
    case SIOCETHTOOL:
      std::memcpy(tool_request_, request.ifr_data, sizeof tool_request_);
      return 0;
    default:
      ADD_FAILURE() << "unknown query " << what;
      return -1;
    }
  }

  static int init(const std::string& content) {
    world().write_file("/proc/net/dev", content);
    return netif_init();
  }
  static std::vector<std::string> names() {
    std::vector<std::string> result;
    for (const NetIf* at = interface_list; at != nullptr; at = at->next) {
      result.push_back(std::string(at->if_name) + "|" + at->if_unit);
    }
    return result;
  }
  // The number in a column; -1 when there is none.
  static std::int64_t number(const char* name, int column) {
    std::uint32_t value = 0;
    return netif_get(name, column, &value) == 4 ? std::int64_t{value} : -1;
  }
  [[nodiscard]] bool asked(unsigned long what, const std::string& name) const {
    return std::find(asked_.begin(), asked_.end(), std::pair(what, name)) != asked_.end();
  }

  std::map<std::string, Answers> answers_;
  std::vector<std::pair<unsigned long, std::string>> asked_;
  fake::Socket socket_;
  unsigned long refused_ = 0;
  std::uint32_t tool_request_[11] = {};
};

TEST_F(Interfaces, TheNewFormatGivesSevenCounters) {
  EXPECT_EQ(init(std::string(kNewHeader) +
                 "  eth0: 101 102 103 104 105 106 107 108 201 202 203 204 205 206 207 208\n"),
            0);
  EXPECT_EQ(number("eth0", 10), 101);
  EXPECT_EQ(number("eth0", 11), 102);
  EXPECT_EQ(number("eth0", 14), 103);
  EXPECT_EQ(number("eth0", 16), 201);
  EXPECT_EQ(number("eth0", 17), 202);
  EXPECT_EQ(number("eth0", 20), 203);
  EXPECT_EQ(number("eth0", 25), 206);
}

TEST_F(Interfaces, TheOldFormatCounts308BytesForAPacket) {
  EXPECT_EQ(init(std::string(kOldHeader) + "  eth0: 10 1 2 3 4 20 5 6 7 8 9\n"), 0);
  EXPECT_EQ(number("eth0", 10), 3080);
  EXPECT_EQ(number("eth0", 11), 10);
  EXPECT_EQ(number("eth0", 14), 1);
  EXPECT_EQ(number("eth0", 16), 6160);
  EXPECT_EQ(number("eth0", 17), 20);
  EXPECT_EQ(number("eth0", 20), 5);
  EXPECT_EQ(number("eth0", 25), 8);
}

TEST_F(Interfaces, TheStatisticsMayFollowTheColonWithoutABlank) {
  EXPECT_EQ(init(std::string(kNewHeader) + "eth0:1234 5 0 0 0 0 0 0 6 7 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(number("eth0", 10), 1234);
  EXPECT_EQ(number("eth0", 17), 7);
}

TEST_F(Interfaces, TheNameEndsAtTheLastColon) {
  EXPECT_EQ(init(std::string(kNewHeader) + "eth0:1:1 2 0 0 0 0 0 0 6 7 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(names(), std::vector<std::string>{"eth|0:1"});
  EXPECT_EQ(number("eth0:1", 11), 2);
}

TEST_F(Interfaces, NamesAreSplitAtTheirFirstDigitAndKeepTheFilesOrder) {
  const std::string zeros = ": 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
  EXPECT_EQ(
      init(kNewHeader + ("    lo" + zeros) + "  eth0" + zeros + "vlan10a" + zeros + "6to4" + zeros),
      0);
  EXPECT_EQ(names(), (std::vector<std::string>{"lo|", "eth|0", "vlan|10a", "|6to4"}));
  EXPECT_EQ(number("6to4", 11), 0);
}

TEST_F(Interfaces, EveryDigitSplitsAName) {
  std::string content = kNewHeader;
  std::vector<std::string> expected;
  for (const char digit : std::string("0123456789")) {
    content += std::string("if") + digit + ": 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n";
    expected.push_back(std::string("if|") + digit);
  }
  EXPECT_EQ(init(content), 0);
  EXPECT_EQ(names(), expected);
}

TEST_F(Interfaces, OfANameOnlyTheBlanksBeforeItAreDropped) {
  const std::string zeros = ": 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
  EXPECT_EQ(init(kNewHeader + ("   eth0 " + zeros) + " \tppp" + zeros), 0);
  EXPECT_EQ(names(), (std::vector<std::string>{"eth|0 ", "\tppp|"}));
}

TEST_F(Interfaces, NamesMatchExactly) {
  EXPECT_EQ(init(std::string(kNewHeader) + "eth0: 0 9 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(number("eth0", 11), 9);
  for (const char* other : {"eth", "eth00", "eth01", "et", "", "Eth0", " eth0", "eth0 "}) {
    EXPECT_EQ(number(other, 11), -1) << other;
  }
}

TEST_F(Interfaces, LinesThatAreNoInterfaceAreSkipped) {
  EXPECT_EQ(init(std::string(kNewHeader) + "no colon here\n" +
                 "short: 1 2 3 4 5 6 7 8 9 10 11 12 13\n" +
                 "words: 1 2 x 4 5 6 7 8 9 10 11 12 13 14\n" + "empty:\n" + "\n" +
                 "good: 1 2 3 4 5 6 7 8 9 10 11 12 13 14"),
            0);
  EXPECT_EQ(names(), std::vector<std::string>{"good|"});
}

TEST_F(Interfaces, AnOldLineNeedsTenNumbers) {
  EXPECT_EQ(
      init(std::string(kOldHeader) + "short: 1 2 3 4 5 6 7 8 9\n" + "good: 1 2 3 4 5 6 7 8 9 10\n"),
      0);
  EXPECT_EQ(names(), std::vector<std::string>{"good|"});
}

TEST_F(Interfaces, AFileWithoutItsHeadersIsEmpty) {
  for (const char* content : {"", "one line\n", "one line\ntwo: 1 2 3 4 5 6 7 8 9 10\n"}) {
    EXPECT_EQ(init(content), 0);
    EXPECT_EQ(interface_list, nullptr);
  }
}

TEST_F(Interfaces, OnlyTheSecondHeaderLineTellsTheFormat) {
  EXPECT_EQ(init("compressed\nnot so here\neth0: 10 1 2 3 4 20 5 6 7 8\n"), 0);
  EXPECT_EQ(number("eth0", 11), 10);
}

TEST_F(Interfaces, ALineLongerThan255CharactersIsReadInPieces) {
  EXPECT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14" +
                 std::string(300, ' ') + "\n" + std::string(250, 'n') +
                 "eth1: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"),
            0);
  ASSERT_EQ(names().size(), 1U);
  EXPECT_EQ(names()[0], "eth|0");
}

// The 255th character is the first digit of the last number that counts.
TEST_F(Interfaces, APieceOfALineHas255Characters) {
  std::string line = "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 ";
  line.resize(254, ' ');
  EXPECT_EQ(init(kNewHeader + line + "14 15 16\n"), 0);
  EXPECT_EQ(number("eth0", 25), 1);
}

TEST_F(Interfaces, CountersKeepTheirLow32Bits) {
  EXPECT_EQ(init(std::string(kNewHeader) +
                 "eth0: 4294967297 18446744073709551615 99999999999999999999999 0 0 0 0 0 "
                 "4294967298 4294967299 4294967300 0 0 4294967301 0 0\n"),
            0);
  EXPECT_EQ(number("eth0", 10), 1);
  EXPECT_EQ(number("eth0", 11), 0xFFFFFFFF);
  EXPECT_EQ(number("eth0", 14), 0xFFFFFFFF);
  EXPECT_EQ(number("eth0", 16), 2);
  EXPECT_EQ(number("eth0", 17), 3);
  EXPECT_EQ(number("eth0", 20), 4);
  EXPECT_EQ(number("eth0", 25), 5);
}

// 14,000,000 packets of 308 bytes are 17,032,704 beyond 32 bits.
TEST_F(Interfaces, EstimatedBytesKeepTheirLow32Bits) {
  EXPECT_EQ(init(std::string(kOldHeader) + "eth0: 14000000 0 0 0 0 14000000 0 0 0 0\n"), 0);
  EXPECT_EQ(number("eth0", 10), 17'032'704);
  EXPECT_EQ(number("eth0", 16), 17'032'704);
}

TEST_F(Interfaces, ALoopbackThatCountsNoSentPacketsMirrorsTheReceivedOnes) {
  EXPECT_EQ(init(std::string(kNewHeader) + "lo: 1 50 0 0 0 0 0 0 2 0 0 0 0 0 0 0\n" +
                 "lo0: 1 50 0 0 0 0 0 0 2 0 0 0 0 0 0 0\n"),
            0);
  EXPECT_EQ(number("lo", 17), 50);
  EXPECT_EQ(number("lo", 16), 2);
  EXPECT_EQ(number("lo0", 17), 0);
  EXPECT_EQ(init(std::string(kNewHeader) + "lo: 1 50 0 0 0 0 0 0 2 7 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(number("lo", 17), 7);
}

TEST_F(Interfaces, AnOldKernelsLoopbackMirrorsThePacketsBeforeTheBytesAreEstimated) {
  EXPECT_EQ(init(std::string(kOldHeader) + "lo: 50 0 0 0 0 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(number("lo", 17), 50);
  EXPECT_EQ(number("lo", 10), 15400);
  EXPECT_EQ(number("lo", 16), 15400);
}

TEST_F(Interfaces, ALoopbackMirrorsASinglePacket) {
  EXPECT_EQ(init(std::string(kNewHeader) + "lo: 1 1 0 0 0 0 0 0 2 0 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(number("lo", 17), 1);
}

TEST_F(Interfaces, TheLoopbacksMirrorLooksAtAll64Bits) {
  EXPECT_EQ(
      init(std::string(kNewHeader) + "lo: 1 4294967296 0 0 0 0 0 0 2 4294967296 0 0 0 0 0 0\n"), 0);
  EXPECT_EQ(number("lo", 17), 0);
}

TEST_F(Interfaces, TheQueriesFillTheRest) {
  answers_["eth0"] = {};
  EXPECT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n"), 0);
  ASSERT_NE(interface_list, nullptr);
  EXPECT_EQ(interface_list->mtu, 1500);
  EXPECT_EQ(interface_list->metric, 3);
  EXPECT_EQ(interface_list->if_type, 6);
  EXPECT_EQ(interface_list->broadaddr.sin_addr.s_addr, inet_addr("192.168.1.255"));
  EXPECT_EQ(number("eth0", 5), 10'000'000);
  EXPECT_EQ(number("eth0", 7), 1);
  EXPECT_EQ(number("eth0", 8), 1);
  EXPECT_EQ(number("eth0", 23), std::int64_t{inet_addr("192.168.1.1")});
  EXPECT_EQ(number("eth0", 24), std::int64_t{inet_addr("255.255.255.0")});
  std::uint8_t mac[7] = {0, 0, 0, 0, 0, 0, 0xEE};
  EXPECT_EQ(netif_get("eth0", 6, mac), 6);
  EXPECT_EQ(fake::to_hex(mac, 7), "021122334455ee");
}

TEST_F(Interfaces, AnAddressIsKeptWithItsWholeRecord) {
  answers_["eth0"] = {};
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  const std::pair<const sockaddr_in*, const char*> records[] = {
      {&interface_list->addr, "192.168.1.1"},
      {&interface_list->broadaddr, "192.168.1.255"},
      {&interface_list->netmask, "255.255.255.0"}};
  for (const auto& [record, text] : records) {
    const sockaddr_in expected = fake::address(text, 0);
    EXPECT_EQ(fake::to_hex(record, 16), fake::to_hex(&expected, 16)) << text;
  }
}

TEST_F(Interfaces, EveryQueryIsAskedOnceInOrderOverAnIpv4DatagramSocket) {
  answers_["eth0"] = {};
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  std::vector<unsigned long> queries;
  for (const auto& [what, name] : asked_) {
    queries.push_back(what);
  }
  EXPECT_EQ(queries,
            (std::vector<unsigned long>{SIOCGIFADDR, SIOCGIFBRDADDR, SIOCGIFNETMASK, SIOCGIFFLAGS,
                                        SIOCGIFHWADDR, SIOCGIFMETRIC, SIOCGIFMTU, SIOCETHTOOL}));
  EXPECT_EQ(socket_.domain, AF_INET);
  EXPECT_EQ(socket_.type, SOCK_DGRAM);
}

TEST_F(Interfaces, AFailedQueryLeavesItsFieldAloneZero) {
  answers_["eth0"] = {};
  const std::string content =
      std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
  for (const auto what : {SIOCGIFADDR, SIOCGIFBRDADDR, SIOCGIFNETMASK, SIOCGIFFLAGS, SIOCGIFHWADDR,
                          SIOCGIFMETRIC, SIOCGIFMTU}) {
    refused_ = static_cast<unsigned long>(what);
    ASSERT_EQ(init(content), 0);
    EXPECT_EQ(interface_list->addr.sin_addr.s_addr == 0, what == SIOCGIFADDR);
    EXPECT_EQ(interface_list->broadaddr.sin_addr.s_addr == 0, what == SIOCGIFBRDADDR);
    EXPECT_EQ(interface_list->netmask.sin_addr.s_addr == 0, what == SIOCGIFNETMASK);
    EXPECT_EQ(interface_list->if_flags == 0, what == SIOCGIFFLAGS);
    EXPECT_EQ(interface_list->hwaddr[0] == 0, what == SIOCGIFHWADDR);
    EXPECT_EQ(interface_list->metric == 0, what == SIOCGIFMETRIC);
    EXPECT_EQ(interface_list->mtu == 0, what == SIOCGIFMTU);
  }
}

TEST_F(Interfaces, TheAdministrativeAndTheOperatingStatusAreTheTwoFlags) {
  const std::string content =
      std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
  answers_["eth0"].flags = IFF_UP;
  ASSERT_EQ(init(content), 0);
  EXPECT_EQ(number("eth0", 7), 1);
  EXPECT_EQ(number("eth0", 8), 2);
  answers_["eth0"].flags = 0xFFFF & ~1;
  ASSERT_EQ(init(content), 0);
  EXPECT_EQ(number("eth0", 7), 2);
  EXPECT_EQ(number("eth0", 8), 1);
}

TEST_F(Interfaces, TheHardwareFamilyTellsTheTypeAndTheTypeTheSpeed) {
  struct Case {
    int family, type;
    std::int64_t speed;
  };
  const Case cases[] = {
      {1, 6, 10'000'000}, {7, 35, 0},   {256, 28, 0},  {257, 28, 0},  {258, 28, 0},
      {259, 28, 0},       {512, 23, 0}, {768, 131, 0}, {769, 131, 0}, {772, 24, 10'000'000},
      {773, 42, 0},       {774, 15, 0}, {776, 131, 0}};
  for (const Case& c : cases) {
    answers_["x0"].family = c.family;
    ASSERT_EQ(init(std::string(kNewHeader) + "x0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
    EXPECT_EQ(interface_list->if_type, c.type) << c.family;
    EXPECT_EQ(number("x0", 5), c.speed) << c.family;
  }
}

TEST_F(Interfaces, AnyOtherFamilyOrNoneLeavesTheTypeToTheName) {
  for (const int family : {0, 2, 6, 255, 260, 513, 767, 770, 771, 775, 777, 65535}) {
    answers_["tr0"].family = family;
    ASSERT_EQ(init(std::string(kNewHeader) + "tr0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
    EXPECT_EQ(interface_list->if_type, 9) << family;
    EXPECT_EQ(number("tr0", 5), 4'000'000);
  }
  ASSERT_EQ(init(std::string(kNewHeader) + "usb0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  EXPECT_EQ(interface_list->if_type, 1);
  EXPECT_EQ(number("usb0", 5), 0);
}

TEST_F(Interfaces, ANameTellsItsTypeByItsBeginning) {
  EXPECT_EQ(netif_type_by_name("lo"), 24);
  EXPECT_EQ(netif_type_by_name("local"), 24);
  EXPECT_EQ(netif_type_by_name("eth"), 6);
  EXPECT_EQ(netif_type_by_name("tr"), 9);
  EXPECT_EQ(netif_type_by_name("ppp"), 23);
  EXPECT_EQ(netif_type_by_name("sl"), 28);
  EXPECT_EQ(netif_type_by_name("slow"), 28);
  EXPECT_EQ(netif_type_by_name("pp"), 1);
  EXPECT_EQ(netif_type_by_name("Eth"), 1);
  EXPECT_EQ(netif_type_by_name(""), 1);
}

TEST_F(Interfaces, OnlyEthernetIsAskedForItsSettings) {
  answers_["eth0"] = {};
  answers_["ppp0"].family = 512;
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n" +
                 "ppp0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n" +
                 "eth1: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"),
            0);
  EXPECT_TRUE(asked(SIOCETHTOOL, "eth0"));
  EXPECT_TRUE(asked(SIOCETHTOOL, "eth1")); // Ethernet by its name alone
  EXPECT_FALSE(asked(SIOCETHTOOL, "ppp0"));
  EXPECT_EQ(tool_request_[0], 1U);
  EXPECT_EQ(tool_request_[10], 0U);
}

TEST_F(Interfaces, TheTypeAndNotTheNameDecidesWhetherTheSettingsAreAsked) {
  answers_["br0"].family = 1;
  answers_["eth0"].family = 512;
  ASSERT_EQ(init(std::string(kNewHeader) + "br0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n" +
                 "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"),
            0);
  EXPECT_TRUE(asked(SIOCETHTOOL, "br0"));
  EXPECT_FALSE(asked(SIOCETHTOOL, "eth0"));
}

TEST_F(Interfaces, TheQueriesNameTheWholeInterface) {
  ASSERT_EQ(init(std::string(kNewHeader) + "  eth0.12: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n" + "eth" +
                 std::string(100, 'n') + ": 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"),
            0);
  const std::string cut = "eth" + std::string(12, 'n'); // no interface's name is longer
  for (const auto what : {SIOCGIFADDR, SIOCETHTOOL}) {
    EXPECT_TRUE(asked(static_cast<unsigned long>(what), "eth0.12"));
    EXPECT_TRUE(asked(static_cast<unsigned long>(what), cut));
  }
}

TEST_F(Interfaces, ColumnsThatAreNotServedGiveNothing) {
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  for (const int column : {-1, 0, 1, 2, 3, 4, 9, 12, 13, 15, 18, 19, 21, 22, 26, 27, 1000}) {
    EXPECT_EQ(number("eth0", column), -1) << column;
  }
}

TEST_F(Interfaces, WithoutASocketOrTheFileTheListIsEmpty) {
  const std::string content = std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n";
  ASSERT_EQ(init(content), 0);
  world().socket_fails_at = world().sockets_made;
  EXPECT_EQ(netif_init(), -1);
  EXPECT_EQ(interface_list, nullptr);
  ASSERT_EQ(init(content), 0);
  unlink(world().path("/proc/net/dev").c_str());
  EXPECT_EQ(netif_init(), -1);
  EXPECT_EQ(interface_list, nullptr);
  EXPECT_TRUE(world().sockets.empty()) << "a query socket stayed open";
}

TEST_F(Interfaces, WhenMemoryIsOutTheListEndsWithWhatItHolds) {
  const std::string counters = ": 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n";
  const std::string content =
      kNewHeader + ("eth0" + counters) + "eth1" + counters + "eth2" + counters;
  for (int* good : {&good_callocs, &good_strdups}) {
    world().write_file("/proc/net/dev", content);
    *good = 1;
    EXPECT_EQ(netif_init(), 0);
    EXPECT_EQ(names(), std::vector<std::string>{"eth|0"});
    EXPECT_TRUE(world().sockets.empty());
    *good = -1;
  }
}

TEST_F(Interfaces, TheListIsBuiltAnewEveryTimeAndFreed) {
  const std::string zeros = ": 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0\n";
  ASSERT_EQ(init(kNewHeader + ("eth0" + zeros)), 0);
  ASSERT_EQ(init(kNewHeader + ("eth1" + zeros)), 0);
  EXPECT_EQ(names(), std::vector<std::string>{"eth|1"});
  EXPECT_EQ(netif_fina(), 0);
  EXPECT_EQ(interface_list, nullptr);
  EXPECT_EQ(netif_fina(), 0);
  EXPECT_TRUE(world().sockets.empty());
}

TEST_F(Interfaces, AnUnknownInterfaceAndAnUnknownColumnGiveMinusOne) {
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  std::uint32_t value = 0;
  EXPECT_EQ(netif_get("eth1", kIfInOctets, &value), -1);
  EXPECT_EQ(netif_get("eth0", 9, &value), -1);
}

TEST_F(Interfaces, TheQuerySocketMayHaveTheNumberZero) {
  world().next_fd = 0;
  EXPECT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  EXPECT_EQ(names(), std::vector<std::string>{"eth|0"});
}

TEST_F(Interfaces, TheQuerySocketIsOfTheFamilysOwnProtocol) {
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  EXPECT_EQ(socket_.protocol, 0);
}

TEST_F(Interfaces, TheFileIsClosed) {
  const std::string path = world().path("/proc/net/dev");
  ASSERT_EQ(init(kNewHeader), 0);
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    EXPECT_NE(std::filesystem::read_symlink(entry.path(), gone), path);
  }
}

// A leak of the smallest kind would be 2000 blocks of 24 bytes.
TEST_F(Interfaces, BuildingTheListOverAndOverDoesNotGrowTheHeap) {
  world().recording = false;
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  world().on_ioctl = nullptr;
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 2000; i++) {
    netif_init();
  }
  EXPECT_LT(mallinfo2().uordblks, before + 20000);
}

TEST_F(Interfaces, AnInterfaceWithoutMemoryForItsUnitIsFreed) {
  world().recording = false;
  ASSERT_EQ(init(std::string(kNewHeader) + "eth0: 1 2 3 4 5 6 7 8 9 10 11 12 13 14\n"), 0);
  world().on_ioctl = nullptr;
  netif_fina();
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 2000; i++) {
    good_strdups = 0;
    netif_init();
    EXPECT_EQ(interface_list, nullptr);
  }
  EXPECT_LT(mallinfo2().uordblks, before + 20000);
}

// The queries as the kernel answers them, on the one interface that every machine has.
TEST_F(Interfaces, TheRealLoopbackAnswers) {
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  ASSERT_GE(fd, 0);
  world().on_ioctl = [fd](int, unsigned long what, void* argument) {
    return ioctl(fd, what, argument);
  };
  std::ifstream file("/proc/net/dev");
  ASSERT_EQ(init({std::istreambuf_iterator<char>(file), {}}), 0);
  EXPECT_EQ(number("lo", 7), 1);
  EXPECT_EQ(number("lo", 8), 1);
  EXPECT_EQ(number("lo", 5), 10'000'000);
  EXPECT_EQ(number("lo", 23), std::int64_t{inet_addr("127.0.0.1")});
  EXPECT_EQ(number("lo", 24), std::int64_t{inet_addr("255.0.0.0")});
  EXPECT_GE(number("lo", 17), 0);
  const NetIf* at = interface_list;
  while (std::strcmp(at->if_name, "lo") != 0) {
    at = at->next;
  }
  EXPECT_EQ(at->if_type, 24);
  EXPECT_EQ(fake::to_hex(at->hwaddr, 6), "000000000000");
  close(fd);
}

} // namespace
