#include "variables/stations.h"

#include "tests/variables/kit.h"

#include <malloc.h>

using namespace rcmd;
using fake::world;
using kit::records_of;
using kit::Texts;

namespace {

bool memory_is_out = false;

} // namespace

extern "C" {
void* __real_calloc(std::size_t count, std::size_t size);

void* __wrap_calloc(std::size_t count, std::size_t size) {
  return memory_is_out ? nullptr : __real_calloc(count, size);
}
}

namespace {

class Stations : public kit::VariablesFixture {
protected:
  // A driver with that many stations, 02:00:00:00:xx:yy, whose signal is -40 - index.
  void driver(std::uint32_t reported, int refuse_query_at = -1) {
    world().on_wireless = [=, this](const std::string& name, int command, void* buffer,
                                    int length) {
      names_.push_back(name);
      auto* bytes = static_cast<std::uint8_t*>(buffer);
      if (command == 262) {
        EXPECT_EQ(length, 1540);
        EXPECT_STREQ(static_cast<char*>(buffer), "authe_sta_list");
        std::memcpy(bytes, &reported, 4);
        for (std::uint32_t i = 0; i < std::min(reported, 256U); i++) {
          const std::uint8_t mac[6] = {2,
                                       0,
                                       0,
                                       0xab,
                                       static_cast<std::uint8_t>(i >> 8),
                                       static_cast<std::uint8_t>(i & 0xFF)};
          std::memcpy(bytes + 4 + 6 * i, mac, 6);
        }
        return 0;
      }
      EXPECT_EQ(command, 127);
      EXPECT_EQ(length, 12);
      EXPECT_EQ(fake::to_hex(bytes, 8), "0000000002000"
                                        "0ab");
      if (queries_++ == refuse_query_at) {
        return -1;
      }
      const std::int32_t strength = -40 - bytes[9];
      std::memcpy(bytes, &strength, 4);
      return 0;
    };
  }
  int send() { return do_send_wl_stalist(&context, kStatus); }

  Texts names_;
  int queries_ = 0;
};

TEST_F(Stations, AStationShowsAddressAndSignalAndTheCountStandsAlone) {
  world().nvram["wl0_ifname"] = "eth1";
  driver(2);
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(world().sent.size(), 2U);
  EXPECT_EQ(records_of(world().sent[0].bytes),
            (Texts{"wl0_sta0=02:00:00:AB:00:00,-40", "wl0_sta1=02:00:00:AB:00:01,-41"}));
  EXPECT_EQ(records_of(world().sent[1].bytes), Texts{"wl0_sta_maxunit=2"});
  EXPECT_EQ(fake::type_of(world().sent[0].bytes), 4);
  EXPECT_EQ(kit::scope_of(world().sent[0].bytes), 0);
  EXPECT_EQ(kit::unit_of(world().sent[0].bytes), 0);
  EXPECT_EQ(names_, (Texts{"eth1", "eth1", "eth1"}));
}

TEST_F(Stations, NoStationsAreOnePacketWithTheCountZero) {
  driver(0);
  EXPECT_EQ(send(), 0);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(kit::sent_records(), Texts{"wl0_sta_maxunit=0"});
  EXPECT_EQ(names_, Texts{""}); // the key is absent
}

TEST_F(Stations, TheUnitChoosesTheInterfaceAndTheNameSaysWl0AllTheSame) {
  world().nvram = {{"wl_unit", "1"}, {"wl0_ifname", "eth1"}, {"wl1_ifname", "eth2"}};
  driver(1);
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(names_, (Texts{"eth2", "eth2"}));
  EXPECT_EQ(kit::sent_records(), (Texts{"wl0_sta0=02:00:00:AB:00:00,-40", "wl0_sta_maxunit=1"}));
}

TEST_F(Stations, TheLargestUnitFormsAWholeKey) {
  world().nvram = {{"wl_unit", "99999999999"}, {"wl2147483647_ifname", "last-interface0"}};
  driver(0);
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(names_, Texts{"last-interface0"});
}

TEST_F(Stations, ANegativeUnitIsRefused) {
  world().nvram["wl_unit"] = "-1";
  driver(1);
  EXPECT_EQ(send(), -1);
  EXPECT_TRUE(names_.empty());
}

TEST_F(Stations, WithoutMemoryForTheListTheDriverIsNotAsked) {
  driver(1);
  memory_is_out = true;
  EXPECT_EQ(send(), -1);
  memory_is_out = false;
  EXPECT_TRUE(names_.empty());
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(Stations, ADriverThatRefusesTheListEndsIt) {
  for (const int result : {-1, 1}) {
    world().on_wireless = [result](const std::string&, int, void*, int) { return result; };
    EXPECT_EQ(send(), -1);
  }
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(Stations, ADriverThatRefusesASignalEndsItWithoutACount) {
  driver(3, 1);
  EXPECT_EQ(send(), -1);
  EXPECT_TRUE(world().sent.empty());
}

TEST_F(Stations, WhatWasSentBeforeADriverRefusesASignalStays) {
  driver(30, 20);
  EXPECT_EQ(send(), -1);
  ASSERT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(records_of(world().sent[0].bytes).size(), 17U);
  EXPECT_EQ(queries_, 21);
}

TEST_F(Stations, EveryPacketIsOfTheTypeThatIsAskedForAndOfNoUnit) {
  world().nvram["wl_unit"] = "1";
  driver(30);
  EXPECT_EQ(do_send_wl_stalist(&context, kConf), 0);
  ASSERT_EQ(world().sent.size(), 3U); // a full one, the rest, the count
  for (const fake::Datagram& datagram : world().sent) {
    EXPECT_EQ(fake::type_of(datagram.bytes), 3);
    EXPECT_EQ(kit::scope_of(datagram.bytes), 0);
    EXPECT_EQ(kit::unit_of(datagram.bytes), 0);
  }
}

TEST_F(Stations, APositiveAnswerToTheSignalQueryIsNoFailure) {
  world().on_wireless = [](const std::string&, int command, void* buffer, int) {
    std::uint32_t count = 1;
    if (command == 262) {
      std::memcpy(buffer, &count, 4);
      return 0;
    }
    return 5;
  };
  EXPECT_EQ(send(), 0);
  EXPECT_TRUE(kit::sent_records().at(0).ends_with(",0"));
}

TEST_F(Stations, ManyStationsFillPacketsToTheLimit) {
  driver(30);
  EXPECT_EQ(send(), 0);
  // "wl0_sta0=02:00:00:AB:00:00,-40" and its NUL are 31 bytes; from the tenth on 32.
  ASSERT_EQ(world().sent.size(), 3U);
  EXPECT_EQ(records_of(world().sent[0].bytes).size(), 17U);
  EXPECT_EQ(records_of(world().sent[1].bytes).size(), 13U);
  EXPECT_EQ(records_of(world().sent[2].bytes), Texts{"wl0_sta_maxunit=30"});
}

TEST_F(Stations, ACountBeyondTheBufferIsCutToWhatFits) {
  for (const std::uint32_t reported : {256U, 257U, 0xFFFFFFFFU}) {
    world().sent.clear();
    driver(reported);
    EXPECT_EQ(send(), 0);
    EXPECT_EQ(kit::sent_records().size(), 257U);
    EXPECT_EQ(kit::sent_records().back(), "wl0_sta_maxunit=256");
  }
}

TEST_F(Stations, AnUnacknowledgedPacketEndsTheList) {
  driver(30);
  for (const int good : {0, 1, 2}) {
    fail_only_send(good);
    EXPECT_EQ(send(), -1);
    EXPECT_EQ(world().sent.size(), static_cast<std::size_t>(good));
  }
}

TEST_F(Stations, AnInterfacesNameIsCutTo63Characters) {
  const std::string longest(63, 'n');
  world().nvram["wl0_ifname"] = longest;
  driver(0);
  EXPECT_EQ(send(), 0);
  world().nvram["wl0_ifname"] = longest + "name";
  EXPECT_EQ(send(), 0);
  EXPECT_EQ(names_, (Texts{longest, longest}));
}

TEST_F(Stations, AskingOverAndOverDoesNotGrowTheHeap) {
  world().recording = false;
  world().on_wireless = [](const std::string&, int, void*, int) { return -1; };
  EXPECT_EQ(send(), -1);
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 100; i++) { // of 1540 bytes each
    send();
  }
  EXPECT_LT(mallinfo2().uordblks, before + 20000);
}

} // namespace
