#include "transfer/download.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "tests/transfer/server.h"
#include "transfer/file_request.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <numeric>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace rcmd;
using fake::Bytes;
using fake::server_packet;
using fake::world;

namespace {

constexpr char kFile[] = "/tmp/file";

class Downloads : public fake::TransferFixture {
protected:
  int download(std::uint32_t last, std::uint32_t first = 0) {
    rules.first = first;
    rules.last = last;
    const UniqueFd fd(create_download_file(kFile));
    EXPECT_TRUE(fd);
    return download_fragments(context, rules, fd.get());
  }
  [[nodiscard]] Bytes written() const { return fake::bytes_of(world().read_file(kFile)); }
  [[nodiscard]] static std::vector<int> counted(int count, int from = 0) {
    std::vector<int> numbers(static_cast<std::size_t>(count));
    std::iota(numbers.begin(), numbers.end(), from);
    return numbers;
  }
  [[nodiscard]] static Bytes tiny(std::uint16_t number) {
    return server_packet(
        6, 1, 0,
        {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number), 0, 0, 0x5A});
  }

  Download rules = {do_request_fw_fragment, 0, 0, nullptr, "DEAD"};
};

class DownloadSizes : public Downloads, public ::testing::WithParamInterface<int> {};

TEST_P(DownloadSizes, AreAskedForInOrderOnceEachAndWrittenByteForByte) {
  const int count = GetParam();
  serve(fake::pattern(static_cast<std::size_t>(count) * 1024 - 3));
  EXPECT_EQ(download(static_cast<std::uint32_t>(count)), kSuccess);
  EXPECT_EQ(asked(), counted(count));
  EXPECT_TRUE(written() == file);
  EXPECT_EQ(world().diagnostics(), std::string(static_cast<std::size_t>(count), '#'));
}

INSTANTIATE_TEST_SUITE_P(Counts, DownloadSizes, ::testing::Values(1, 2, 31, 32, 33, 640, 641));

TEST_F(Downloads, TheLargestCountWorks) {
  world().on_send = [](const fake::Datagram& sent) {
    world().events.clear();
    world().deliver(1161, tiny(fake::u16_at(sent.bytes, 36)));
  };
  EXPECT_EQ(download(65535), kSuccess);
  EXPECT_EQ(asked(), counted(65535));
  struct stat status {};
  ASSERT_EQ(stat(world().path(kFile).c_str(), &status), 0);
  EXPECT_EQ(status.st_size, 65534 * 1024 + 1);
}

TEST_F(Downloads, AnEmptyOneWaitsForEverAndAsksForNothing) {
  struct Enough {};
  int waits = 0;
  world().waitfor_result = [&](int, int) {
    if (++waits == 1000) {
      throw Enough{};
    }
    return waits % 2 == 0 ? 0 : INT_MIN;
  };
  world().deliver(1161, tiny(0));
  EXPECT_THROW(download(0), Enough);
  EXPECT_TRUE(world().sent.empty());
  EXPECT_EQ(world().diagnostics(), "*");
}

TEST_F(Downloads, TheFileIsCreatedAfreshForItsOwnerAlone) {
  world().write_file(kFile, std::string(5000, 'x'));
  unlink(world().path(kFile).c_str());
  serve(fake::pattern(10));
  EXPECT_EQ(download(1), kSuccess);
  struct stat status {};
  ASSERT_EQ(stat(world().path(kFile).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  world().write_file(kFile, std::string(5000, 'x'));
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(written().size(), 10U);
}

TEST_F(Downloads, AtMost32RequestsAreOutstandingAndAnAcceptedFragmentFreesOneAtOnce) {
  world().deliver(1161, tiny(9), 3000);
  world().send_fails = [](const fake::Datagram& sent) { return sent.at_ms > 3000; };
  EXPECT_EQ(download(100), kFailure);
  EXPECT_EQ(asked(), counted(33));
  EXPECT_EQ(world().sent[31].at_ms, 0);
  EXPECT_EQ(world().sent[32].at_ms, 3000);
}

TEST_F(Downloads, DuplicatesAndNumbersNeverAskedForAreMarkedAndDropped) {
  serve(fake::pattern(2048));
  answers = [&](const fake::Datagram& sent) {
    if (fake::u16_at(sent.bytes, 36) == 1) {
      world().deliver(1161, fragment(0), 30);
      world().deliver(1161, tiny(2), 31);
      world().deliver(1161, tiny(0xFFFF), 32);
      world().deliver(1161, fragment(1), 50);
      return false;
    }
    return true;
  };
  EXPECT_EQ(download(2), kSuccess);
  EXPECT_EQ(world().diagnostics(), "#***#");
  EXPECT_TRUE(written() == file);
}

TEST_F(Downloads, AWaitGoesOnBehindADroppedPacketForItsFullTime) {
  world().deliver(1161, tiny(7), 4900);
  world().deliver(1161, tiny(7), 9800);
  world().deliver(1161, tiny(0), 9900);
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(world().diagnostics(), "**#");
}

TEST_F(Downloads, ShortDamagedAndDatalessPacketsAreSkippedWithoutAMark) {
  Bytes damaged = tiny(0);
  damaged.back() ^= 1;
  Bytes cut = tiny(0);
  cut.resize(35);
  Bytes overlong = tiny(0);
  overlong.pop_back();
  world().deliver(1161, cut);
  world().deliver(1161, damaged);
  world().deliver(1161, overlong);
  world().deliver(1161, server_packet(6, 1, 0, {0, 0, 0, 0}));
  world().deliver(1161, server_packet(6, 1, 0));
  world().deliver(1161, tiny(0), 10);
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().diagnostics(), "crc is error\ncrc is error\n#");
  EXPECT_EQ(world().read_file(kFile), "Z");
}

TEST_F(Downloads, AnyGoodPacketWithAnAwaitedNumberIsThatFragment) {
  world().deliver(1161, server_packet(257, 4, 0xDEAD, {0, 0, 9, 9, 'a', 'b'}, "ANOTHER!", "OTHER"),
                  0, "10.9.9.9", 53);
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().read_file(kFile), "ab");
}

TEST_F(Downloads, TheServersCommandsAreReadAndDropped) {
  world().deliver(1161, server_packet(258, 0, 1));
  world().deliver(1161, server_packet(7, 1, 0));
  world().deliver(1161, tiny(0), 10);
  context.miss_count = 3;
  const std::uint32_t seq = context.seq;
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().sent.size(), 1U);
  EXPECT_EQ(context.miss_count, 3);
  EXPECT_EQ(context.seq, seq + 1);
}

TEST_F(Downloads, ALongFragmentIsWrittenWholeAndTheNextOverIt) {
  Bytes payload(8156, 'L');
  payload[0] = payload[1] = 0;
  world().deliver(1161, server_packet(6, 1, 0, payload));
  world().deliver(1161, tiny(1), 10);
  EXPECT_EQ(download(2), kSuccess);
  Bytes expected(8152, 'L');
  expected[1024] = 0x5A;
  EXPECT_TRUE(written() == expected);
}

TEST_F(Downloads, FragmentsInAnyOrderLandInTheirPlaces) {
  serve(fake::pattern(5000));
  answers = [&](const fake::Datagram& sent) {
    const std::uint16_t number = fake::u16_at(sent.bytes, 36);
    world().deliver(1161, fragment(number), 100 - number * 10);
    return false;
  };
  EXPECT_EQ(download(5), kSuccess);
  EXPECT_TRUE(written() == file);
}

TEST_F(Downloads, ARunThatStartsLaterIsCountedFromItsFirst) {
  world().on_send = [](const fake::Datagram& sent) {
    world().deliver(1161, tiny(fake::u16_at(sent.bytes, 36)));
  };
  EXPECT_EQ(download(642, 640), kSuccess);
  EXPECT_EQ(asked(), counted(2, 640));
  Bytes expected(1025, 0);
  expected[0] = expected[1024] = 0x5A;
  EXPECT_TRUE(written() == expected);
}

TEST_F(Downloads, AShortWriteFailsWithoutTheMark) {
  ASSERT_EQ(symlink("/dev/full", world().path(kFile).c_str()), 0);
  serve(fake::pattern(5000));
  EXPECT_EQ(download(5), kFailure);
  EXPECT_EQ(world().diagnostics(), "");
}

TEST_F(Downloads, AWriteThatTakesAPartOnlyFailsToo) {
  serve(fake::pattern(2048));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit tight = {1500, before.rlim_max};
  setrlimit(RLIMIT_FSIZE, &tight);
  const int result = download(2);
  setrlimit(RLIMIT_FSIZE, &before);
  EXPECT_EQ(result, kFailure);
  EXPECT_EQ(written().size(), 1500U);
  EXPECT_EQ(world().diagnostics(), "#");
}

TEST_F(Downloads, AFirstRequestThatCannotBeSentFails) {
  world().send_fails = [](const fake::Datagram& sent) { return fake::u16_at(sent.bytes, 36) == 4; };
  EXPECT_EQ(download(10), kFailure);
  EXPECT_EQ(asked(), counted(4));
}

TEST_F(Downloads, ARepeatedRequestThatCannotBeSentFails) {
  world().send_fails = [](const fake::Datagram& sent) { return sent.at_ms > 0; };
  EXPECT_EQ(download(1), kFailure);
  EXPECT_EQ(world().now_ms, 10000);
  EXPECT_EQ(world().diagnostics(), "1");
}

TEST_F(Downloads, ASilentServerIsDeadAtTheScanBehindTheTwentiethResend) {
  EXPECT_EQ(download(1), kPeerDead);
  ASSERT_EQ(world().sent.size(), 21U);
  for (int i = 0; i < 21; i++) {
    EXPECT_EQ(world().sent[static_cast<std::size_t>(i)].at_ms, i * 10000);
  }
  EXPECT_EQ(world().now_ms, 205000);
  EXPECT_EQ(world().diagnostics(), "1234567891011121314151617181920DEAD");
}

TEST_F(Downloads, AnAnswerToTheTwentiethResendStillCounts) {
  serve(fake::pattern(10));
  answers = [](const fake::Datagram&) { return world().sent.size() == 21; };
  EXPECT_EQ(download(1), kSuccess);
}

TEST_F(Downloads, TheWholeWindowIsRepeatedSlotBySlot) {
  serve(fake::pattern(3 * 1024));
  answers = [](const fake::Datagram& sent) { return sent.at_ms > 0; };
  EXPECT_EQ(download(3), kSuccess);
  EXPECT_EQ(asked(), (std::vector<int>{0, 1, 2, 0, 1, 2}));
  EXPECT_EQ(world().diagnostics(), "111###");
}

TEST_F(Downloads, AConfigurationsRetriesAreMarkedAlike) {
  rules.request = do_request_config_fragment;
  rules.retry_mark = "!";
  serve(fake::pattern(10));
  answers = [](const fake::Datagram&) { return world().sent.size() == 4; };
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().diagnostics(), "!!!#");
  EXPECT_EQ(fake::type_of(world().sent[3].bytes), 12);
}

TEST_F(Downloads, AnOverdueRequestIsRepeatedOnlyAtAScan) {
  serve(fake::pattern(10));
  answers = [](const fake::Datagram&) { return world().sent.size() == 2; };
  world().deliver(1161, tiny(9), 4000);
  world().deliver(1161, tiny(9), 8500);
  world().deliver(1161, tiny(9), 13000);
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().sent[1].at_ms, 18000);
}

TEST_F(Downloads, AnOverdueRequestIsRepeatedAtTheScanBehindAnAcceptedFragmentToo) {
  world().deliver(1161, tiny(9), 4000);
  world().deliver(1161, tiny(9), 8000);
  world().deliver(1161, tiny(0), 12000);
  world().on_send = [](const fake::Datagram& sent) {
    if (sent.at_ms > 0) {
      world().deliver(1161, tiny(fake::u16_at(sent.bytes, 36)));
    }
  };
  EXPECT_EQ(download(2), kSuccess);
  EXPECT_EQ(asked(), (std::vector<int>{0, 1, 1}));
  EXPECT_EQ(world().sent[2].at_ms, 12000);
  EXPECT_EQ(world().diagnostics(), "**#1#");
}

TEST_F(Downloads, AReusedSlotCountsItsRetriesFromZero) {
  serve(fake::pattern(33 * 1024));
  answers = [](const fake::Datagram& sent) {
    return sent.at_ms >= (fake::u16_at(sent.bytes, 36) < 32 ? 100000 : 250000);
  };
  EXPECT_EQ(download(33), kSuccess);
}

TEST_F(Downloads, AReusedSlotMayBeAskedForAgainTwentyTimes) {
  serve(fake::pattern(33 * 1024));
  answers = [](const fake::Datagram& sent) {
    return sent.at_ms >= (fake::u16_at(sent.bytes, 36) < 32 ? 100000 : 300000);
  };
  EXPECT_EQ(download(33), kSuccess);
  const std::vector<int> numbers = asked();
  EXPECT_EQ(std::count(numbers.begin(), numbers.end(), 32), 21);
}

TEST_F(Downloads, AWaitErrorCountsAsSilence) {
  serve(fake::pattern(10));
  int waits = 0;
  world().waitfor_result = [&](int, int seconds) {
    EXPECT_EQ(seconds, 5);
    return ++waits <= 3 ? -1 : INT_MIN;
  };
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(Downloads, AnAcceptedFragmentCostsOneSendOneWaitAndOneReceive) {
  serve(fake::pattern(100 * 1024));
  int waits = 0;
  int receives = 0;
  world().waitfor_result = [&](int, int) {
    waits++;
    return INT_MIN;
  };
  world().net_call_fails = [&](const std::string& call) {
    receives += call == "recv" ? 1 : 0;
    return false;
  };
  EXPECT_EQ(download(100), kSuccess);
  EXPECT_EQ(world().sent.size(), 100U);
  EXPECT_EQ(waits, 100);
  EXPECT_EQ(receives, 100);
}

TEST_F(Downloads, AFailedReceiveIsSkipped) {
  serve(fake::pattern(10));
  int receives = 0;
  world().net_call_fails = [&](const std::string& call) {
    return call == "recv" && receives++ == 0;
  };
  EXPECT_EQ(download(1), kSuccess);
  EXPECT_EQ(world().sent.size(), 2U);
}

TEST_F(Downloads, NothingIsSaidWithoutDebug) {
  debug = 0;
  serve(fake::pattern(3000));
  answers = [](const fake::Datagram& sent) { return sent.at_ms > 0; };
  EXPECT_EQ(download(3), kSuccess);
  EXPECT_EQ(world().diagnostics(), "");
}

// The server's answers pass a link that loses, doubles, delays and damages, beside strangers.
class HostileLink : public Downloads, public ::testing::WithParamInterface<unsigned> {};

TEST_P(HostileLink, TheFileIsByteForByteRight) {
  std::mt19937 engine(GetParam());
  const auto random = [&] { return static_cast<unsigned>(engine()); };
  const auto chance = [&](unsigned percent) { return random() % 100 < percent; };
  serve(fake::pattern(150 * 1024 + 17));
  answers = [&](const fake::Datagram& sent) {
    const std::uint16_t number = fake::u16_at(sent.bytes, 36);
    const unsigned copies = chance(20) ? 0 : chance(20) ? 2 : 1;
    for (unsigned i = 0; i < copies; i++) {
      Bytes packet = fragment(number);
      if (chance(5)) {
        packet[36 + random() % 1000] ^= static_cast<std::uint8_t>(1 + random() % 255);
      }
      if (chance(2)) {
        packet.resize(random() % packet.size());
      }
      world().deliver(1161, packet, 1 + random() % 300);
    }
    if (chance(5)) {
      world().deliver(1161, server_packet(7, 1, random()), 1 + random() % 300);
    }
    return false;
  };
  EXPECT_EQ(download(151), kSuccess);
  EXPECT_TRUE(written() == file);
}

INSTANTIATE_TEST_SUITE_P(Seeds, HostileLink, ::testing::Range(1U, 13U));

} // namespace
