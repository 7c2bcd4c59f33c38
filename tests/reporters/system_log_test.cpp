#include "reporters/system_log.h"

#include "core/say.h"
#include "reporters/syslog_ring.h"
#include "tests/reporters/log_fixture.h"

#include <sys/sem.h>

using namespace rcmd;
using fake::world;
using Texts = std::vector<std::string>;

namespace {

class SystemLog : public fake::LogFixture {
protected:
  // A line that carries its number and, at 1000000000 - 100 + N, its time.
  void put_numbered(int from, int to) {
    for (int n = from; n <= to; n++) {
      char text[64];
      std::snprintf(text, sizeof text, "0 0 d 00:00:%02d h s n=%d\n", n % 60, n);
      ring->put(text);
    }
  }
  [[nodiscard]] Texts exits_with(const std::string& message) {
    Texts log = world().events_of({"diag", "shmdt"});
    EXPECT_FALSE(log.empty());
    EXPECT_EQ(log.empty() ? "" : log[0], "diag " + message);
    return log;
  }
};

TEST_F(SystemLog, ALineCarriesItsTimeSinceBootAsADateInUtc) {
  ring->put("0 1 days 02:03:04 router daemon.info hello  world\n");
  EXPECT_EQ(read_log(), 34);
  EXPECT_EQ(output, "2001-09-10 03:48:04s hello  world\n");
}

TEST_F(SystemLog, TheRingIsReadFromItsBytes) {
  use_ring(48, 0, '\x2E');
  const fake::Bytes front = fake::hex("30000000 24000000 0b000000 3a30312068207320780a00");
  const fake::Bytes back = fake::hex("3020302064203030 3a303000");
  std::copy(front.begin(), front.end(), ring->segment());
  std::copy(back.begin(), back.end(), ring->data() + 36);
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:01s x\n");
  EXPECT_EQ(ring->data()[36], '1');
}

TEST_F(SystemLog, TheFirstCallAttachesAndEveryCallTakesAndGivesBackTheSemaphore) {
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(world().events,
            (Texts{"shmget 414e4547 0 0", "shmat 7 0", "semget 414e4547 0 0",
                   "semop (1,0,0) (0,1,4096)", "semop (0,-1,6144)", "semget 414e4547 0 0",
                   "semop (1,0,0) (0,1,4096)", "semop (0,-1,6144)"}));
  EXPECT_EQ(world().readers, 0);
  EXPECT_EQ(SEM_UNDO, 4096);
  EXPECT_EQ(SEM_UNDO | IPC_NOWAIT, 6144);
}

TEST_F(SystemLog, ARingOf25LinesGives20Then5Then0) {
  put_numbered(1, 25);
  ASSERT_GT(read_log(), 0);
  EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 20);
  EXPECT_TRUE(output.starts_with("2001-09-09 01:45:01s n=1\n")) << output;
  EXPECT_TRUE(output.ends_with("2001-09-09 01:45:20s n=20\n")) << output;
  EXPECT_EQ(read_log(), 5 * 26);
  EXPECT_EQ(output, "2001-09-09 01:45:21s n=21\n"
                    "2001-09-09 01:45:22s n=22\n"
                    "2001-09-09 01:45:23s n=23\n"
                    "2001-09-09 01:45:24s n=24\n"
                    "2001-09-09 01:45:25s n=25\n");
  EXPECT_EQ(read_log(), 0);
}

TEST_F(SystemLog, TheTwentiethLineEndsTheCallBeforeAnUnreadableOne) {
  put_numbered(1, 20);
  ring->put("0 0 d noon h s m\n");
  EXPECT_EQ(read_log(), 9 * 25 + 11 * 26);
  EXPECT_EQ(world().readers, 0);
  EXPECT_EQ(read_log(), -1);
}

TEST_F(SystemLog, OnlyTheMarksOfTheReportedLinesChangeInTheRing) {
  const std::size_t first = ring->put("0 0 d 00:00:01 h s a\n");
  ring->put("1 0 d 00:00:02 h s b\n");
  const std::size_t third = ring->put("0 0 d 00:00:03 h s c\n");
  std::string expected = ring->bytes();
  expected[12 + first] = '1';
  expected[12 + third] = '1';
  EXPECT_GT(read_log(), 0);
  EXPECT_EQ(output, "2001-09-09 01:45:01s a\n2001-09-09 01:45:03s c\n");
  EXPECT_EQ(ring->bytes(), expected);
}

TEST_F(SystemLog, ALineSplitAcrossTheWrapIsReportedOnceAndMarkedInItsFirstRecord) {
  use_ring(100, 80);
  ASSERT_EQ(ring->put("0 0 d 00:00:01 h s "), 80U);
  ASSERT_EQ(ring->put("split message\n"), 0U);
  EXPECT_EQ(read_log(), 35);
  EXPECT_EQ(output, "2001-09-09 01:45:01s split message\n");
  EXPECT_EQ(ring->data()[80], '1');
  EXPECT_EQ(ring->data()[0], 's');
  EXPECT_EQ(read_log(), 0);
}

TEST_F(SystemLog, ALineMayEndWithTheLastByteOfTheData) {
  use_ring(44, 22);
  ring->put("0 0 d 00:00:01 h s a\n");
  ASSERT_EQ(ring->get(8), 0);
  EXPECT_EQ(read_log(), 23);
  EXPECT_EQ(output, "2001-09-09 01:45:01s a\n");
  EXPECT_EQ(ring->data()[22], '1');
}

TEST_F(SystemLog, ARingThatLacksOneByteOfBeingFullIsReadWhole) {
  use_ring(45, 23);
  ring->put("0 0 d 00:00:01 h s a\n");
  ring->put("0 0 d 00:00:02 h s b\n");
  ASSERT_EQ(ring->get(8), 22);
  EXPECT_EQ(read_log(), 2 * 23);
}

TEST_F(SystemLog, ALineMayStandInMoreThanTwoRecords) {
  ring->put("0");
  ring->put(" 0 d 00:00:0");
  ring->put("7 h s mes");
  ring->put("sage\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:07s message\n");
  EXPECT_EQ(ring->data()[0], '1');
}

TEST_F(SystemLog, AllRecordsOfAMarkedLineArePassedOver) {
  ring->put("1 0 d 00:00:01 h s ");
  ring->put("0 0 d 00:00:02 h s part of the first\n");
  ring->put("0 0 d 00:00:03 h s other\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:03s other\n");
}

TEST_F(SystemLog, AnIncompleteLineIsReadAgainFromItsFirstRecord) {
  ring->put("0 0 d 00:00:01 h s begun, ");
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(ring->data()[0], '0');
  ring->put("ended\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:01s begun, ended\n");
  EXPECT_EQ(ring->data()[0], '1');
}

TEST_F(SystemLog, AnEmptyRecordBeginsNoLine) {
  ring->put("");
  const std::size_t line = ring->put("0 0 d 00:00:01 h s m\n");
  EXPECT_GT(read_log(), 0);
  EXPECT_EQ(ring->data()[0], '\0');
  EXPECT_EQ(ring->data()[line], '1');
}

TEST_F(SystemLog, AnEmptyRecordWithinALineAddsNothingToIt) {
  ring->put("0 0 d 00:00:01 h s be");
  ring->put("");
  ring->put("gun\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:01s begun\n");
  EXPECT_EQ(ring->data()[0], '1');
}

TEST_F(SystemLog, ANewlineInsideARecordEndsNoLine) {
  ring->put("0 0 d 00:00:01 h s one\ntwo");
  ring->put(" three\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:01s one\ntwo three\n");
}

TEST_F(SystemLog, TheHeadAndTheTailAreNeverWritten) {
  use_ring(200, 40);
  put_numbered(1, 3);
  const std::int32_t tail = ring->get(8);
  EXPECT_GT(read_log(), 0);
  EXPECT_EQ(ring->get(4), 40);
  EXPECT_EQ(ring->get(8), tail);
  EXPECT_EQ(ring->get(0), 200);
}

// DELIBERATE: the mark is written under the reader's hold, between its two operations.
TEST_F(SystemLog, TheMarkIsWrittenWhileTheReaderIsCountedIn) {
  ring->put("0 0 d 00:00:01 h s m\n");
  world().semop_fails_at = 0;
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(ring->data()[0], '0');
  world().semop_fails_at = 2; // the end of the next reading
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(ring->data()[0], '1');
  EXPECT_EQ(world().events_of({"semop"}),
            (Texts{"semop (1,0,0) (0,1,4096)", "semop (1,0,0) (0,1,4096)", "semop (0,-1,6144)"}));
}

TEST_F(SystemLog, ALineOfAnotherMarkIsDropped) {
  ring->put("x 0 d 00:00:01 h s a\n");
  ring->put("\n");
  ring->put("1\n");
  ring->put("2 0 d nonsense\n");
  EXPECT_EQ(read_log(), 0);
}

TEST_F(SystemLog, TheCharacterBehindTheMarkIsSkippedUnread) {
  ring->put("0x1 d 00:00:01 h s a\n");
  ring->put("051 d 00:00:02 h s b\n");
  read_log();
  EXPECT_EQ(output, "2001-09-10 01:45:01s a\n2001-09-10 01:45:02s b\n");
}

TEST_F(SystemLog, FurtherWhiteSpaceBeforeATokenAndBeforeTheMessageIsSkipped) {
  ring->put("0   2 \t d   00:01:00   h \t s  \t message  kept \n");
  read_log();
  EXPECT_EQ(output, "2001-09-11 01:46:00s message  kept \n");
}

TEST_F(SystemLog, OnlyABlankEndsAToken) {
  ring->put("0 0 d 00:00:01 h\tx s\ty message\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:01s message\n");
}

TEST_F(SystemLog, NothingBehindTokenFiveIsAnEmptyMessage) {
  ring->put("0 0 d 00:00:01 h s\n");
  ring->put("0 0 d 00:00:02 h s \n");
  ring->put("0 0 d 00:00:03\n");
  EXPECT_EQ(read_log(), 3 * 22);
  EXPECT_EQ(output, "2001-09-09 01:45:01s \n2001-09-09 01:45:02s \n2001-09-09 01:45:03s \n");
}

TEST_F(SystemLog, ATimeBefore1970AndOneBehind2038StayThirtyTwoBitsWide) {
  context.server_time = -1'000;
  context.server_time_uptime = 0;
  ring->put("0 0 d 00:00:00 h s early\n");
  read_log();
  EXPECT_EQ(output, "1969-12-31 23:43:20s early\n");
  context.server_time = 2'147'483'647;
  ring->put("0 0 d 00:00:01 h s late\n");
  read_log();
  EXPECT_EQ(output, "1901-12-13 20:45:52s late\n");
}

TEST_F(SystemLog, ADayCountThatFitsNothingIsNoAccident) {
  context.server_time = 0;
  context.server_time_uptime = 0;
  ring->put("0 99999999999999999999 d 00:00:00 h s m\n");
  read_log();
  EXPECT_EQ(output, "1969-12-31 00:00:00s m\n"); // 2147483647 days, wrapped: minus one day
}

// Stamps -----------------------------------------------------------------------------------------

// DELIBERATE: the reader stays counted.
TEST_F(SystemLog, AnUnreadableStampGivesMinusOneAndLeavesTheReaderCounted) {
  ring->put("0 0 d noon h s m\n");
  EXPECT_EQ(read_log(), -1);
  EXPECT_EQ(world().readers, 1);
  EXPECT_EQ(world().events.back(), "semop (1,0,0) (0,1,4096)");
  EXPECT_EQ(ring->data()[0], '0');
  EXPECT_EQ(read_log(), -1);
  EXPECT_EQ(world().readers, 2);
}

TEST_F(SystemLog, GoodLinesBeforeAnUnreadableStampAreMarkedAndLost) {
  ring->put("0 0 d 00:00:01 h s good\n");
  const std::size_t bad = ring->put("0 0 d 12:30 h s bad\n");
  const std::size_t next = ring->put("0 0 d 00:00:02 h s next\n");
  EXPECT_EQ(read_log(), -1);
  EXPECT_EQ(ring->data()[0], '1');
  EXPECT_EQ(ring->data()[bad], '0');
  EXPECT_EQ(ring->data()[next], '0');
}

TEST_F(SystemLog, FewerThanThreeTokensAreAnUnreadableStamp) {
  for (const char* text : {"0\n", "0 \n", "0  \n", "0 1\n", "0 1 d\n", "0 1 d \n"}) {
    use_ring(64);
    ring->put(text);
    EXPECT_EQ(read_log(), -1) << text;
  }
}

TEST_F(SystemLog, TheTimeOfDayIsReadFromItsOwnTokenAlone) {
  ring->put("0 0 d 12: 30:15 s m\n");
  EXPECT_EQ(read_log(), -1);
}

TEST_F(SystemLog, ANumberOfTheTimeOfDayHasTwoDigitsAtTheMost) {
  ring->put("0 0 d 0:1:019 h s m\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:46:01s m\n");
  ring->put("0 0 d 001:00:00 h s m\n");
  EXPECT_EQ(read_log(), -1);
}

TEST_F(SystemLog, AnUnreadableLineWhoseSourceIsOffIsDropped) {
  world().nvram["rcm_log_modem"] = "0";
  ring->put("0 modem[\n");
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(world().readers, 0);
}

// The filter -------------------------------------------------------------------------------------

TEST_F(SystemLog, ASourceSwitchedOffIsNotMarkedAndReportedOnceSwitchedOnAgain) {
  world().nvram["rcm_log_dnsmasq"] = "0";
  ring->put("0 0 d 00:00:01 h s dnsmasq[7]: query\n");
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(ring->data()[0], '0');
  world().nvram["rcm_log_dnsmasq"] = "1";
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:01s dnsmasq[7]: query\n");
}

TEST_F(SystemLog, ALineIsNotTakenForTheLongerOneBeforeIt) {
  world().nvram["rcm_log_pppd"] = "0";
  ring->put("0 0 d 00:00:01 h s a long way to pppd[1]: up\n");
  ring->put("0 0 d 00:00:02 h s crond\n");
  read_log();
  EXPECT_EQ(output, "2001-09-09 01:45:02s crond\n");
}

TEST_F(SystemLog, EachSwitchStopsItsOwnSourceAndNoOther) {
  const std::vector<std::pair<std::string, std::string>> sources = {
      {"rcm_log_pppd", "pppd["},         {"rcm_log_modem", "modem["},
      {"rcm_log_pluto", "pluto["},       {"rcm_log_udhcpd", "udhcpd:"},
      {"rcm_log_syslogd", "-- MARK --"}, {"rcm_log_dnsmasq", "dnsmasq["}};
  for (const auto& [key, unused] : sources) {
    world().nvram = {{key, "0"}};
    for (const auto& [other, marker] : sources) {
      const std::string line = "0 0 d 00:00:01 h s " + marker + " text\n";
      EXPECT_EQ(rcm_log_filter(line.c_str()), key == other ? 0 : 1) << key << " " << marker;
    }
    EXPECT_EQ(rcm_log_filter("0 0 d 00:00:01 h s crond: text\n"), 1);
  }
}

TEST_F(SystemLog, OnlyTheValueZeroSwitchesASourceOff) {
  for (const char* value : {"1", "yes", "", "00", "0 ", " 0", "off"}) {
    world().nvram["rcm_log_pppd"] = value;
    EXPECT_EQ(rcm_log_filter("0 0 d 00:00:01 h s pppd[1]: up\n"), 1) << value;
  }
  world().nvram.clear();
  EXPECT_EQ(rcm_log_filter("0 0 d 00:00:01 h s pppd[1]: up\n"), 1);
}

TEST_F(SystemLog, TheSwitchesAreLookedUpAfreshAndInOrderForEveryUnmarkedLine) {
  Texts keys;
  world().on_nvram_get = [&](const std::string& key) { keys.push_back(key); };
  world().nvram["rcm_log_modem"] = "0";
  ring->put("0 0 d 00:00:01 h s crond: a\n");
  ring->put("1 0 d 00:00:02 h s crond: b\n");
  ring->put("0 0 d 00:00:03 h s modem[1]: c\n");
  EXPECT_GT(read_log(), 0);
  EXPECT_EQ(keys, (Texts{"rcm_log_pppd", "rcm_log_modem", "rcm_log_pluto", "rcm_log_udhcpd",
                         "rcm_log_syslogd", "rcm_log_dnsmasq", "rcm_log_pppd", "rcm_log_modem"}));
}

TEST_F(SystemLog, AMarkerCountsAnywhereInTheLine) {
  world().nvram["rcm_log_modem"] = "0";
  EXPECT_EQ(rcm_log_filter("0 0 d 00:00:01 modem[ s x\n"), 0);
  EXPECT_EQ(rcm_log_filter("0 0 d 00:00:01 h s my-modem[2]\n"), 0);
}

TEST_F(SystemLog, AMarkerCountsAsAWholeAlone) {
  for (const char* key : {"rcm_log_pppd", "rcm_log_modem", "rcm_log_pluto", "rcm_log_udhcpd",
                          "rcm_log_syslogd", "rcm_log_dnsmasq"}) {
    world().nvram[key] = "0";
  }
  for (const char* text : {"pppd 2", "ppp[2]", "modem: x", "pluto: x", "udhcpd[3]", "MARK --",
                           "-- MARK", "-- mark --", "dnsmasq: x", "PPPD[2]"}) {
    EXPECT_EQ(rcm_log_filter(text), 1) << text;
  }
}

// Room -------------------------------------------------------------------------------------------

TEST_F(SystemLog, ALineThatNoLongerFitsWaitsUnmarked) {
  const std::size_t first = ring->put("0 0 d 00:00:01 h s 123456\n");
  const std::size_t second = ring->put("0 0 d 00:00:02 h s 123456\n");
  const std::size_t third = ring->put("0 0 d 00:00:03 h s 1\n");
  EXPECT_EQ(read_log(28 + 27), 28);
  EXPECT_EQ(ring->data()[first], '1');
  EXPECT_EQ(ring->data()[second], '0');
  EXPECT_EQ(ring->data()[third], '0') << "no line overtakes another";
  EXPECT_EQ(world().readers, 0);
  EXPECT_EQ(read_log(28 + 23), 51) << "an exact fit fits";
  EXPECT_EQ(output, "2001-09-09 01:45:02s 123456\n2001-09-09 01:45:03s 1\n");
}

TEST_F(SystemLog, TwentyOfTheLongestLinesAreSpreadOverSeveralPackets) {
  for (int i = 0; i < 20; i++) {
    ring->put("0 0 d 00:00:01 h s " + std::string(1003, static_cast<char>('a' + i)) + "\n");
  }
  // 21 characters of date and 1004 of message: seven such lines fit 8156 bytes.
  EXPECT_EQ(read_log(), 7 * 1025);
  EXPECT_EQ(read_log(), 7 * 1025);
  EXPECT_EQ(read_log(), 6 * 1025);
  EXPECT_TRUE(output.ends_with("ttt\n"));
  EXPECT_EQ(read_log(), 0);
}

TEST_F(SystemLog, ALineOf1023CharactersIsWholeAndALongerOneIsCut) {
  const std::string start = "0 0 d 00:00:01 h s "; // 19 characters
  ring->put(start + std::string(1003, 'x') + "\n");
  EXPECT_EQ(read_log(), 21 + 1003 + 1);
  ring->put(start + std::string(1003, 'y') + "z\n");
  const std::size_t after = ring->put("0 0 d 00:00:02 h s after\n");
  EXPECT_EQ(read_log(), 21 + 1003 + 1 + 27);
  EXPECT_EQ(output,
            "2001-09-09 01:45:01s " + std::string(1003, 'y') + "\n2001-09-09 01:45:02s after\n");
  EXPECT_EQ(ring->data()[after], '1');
}

TEST_F(SystemLog, AVeryLongLineOverSeveralRecordsIsCutOnce) {
  ring->put("0 0 d 00:00:01 h s " + std::string(900, 'x'));
  ring->put(std::string(900, 'y'));
  ring->put(std::string(5000, 'z'));
  ring->put("end\n");
  EXPECT_EQ(read_log(), 21 + 1003 + 1);
  EXPECT_EQ(output, "2001-09-09 01:45:01s " + std::string(900, 'x') + std::string(103, 'y') + "\n");
  EXPECT_EQ(read_log(), 0);
}

TEST_F(SystemLog, ALineWhose1023rdCharacterIsANewlineIsCompleteThere) {
  ring->put("0 0 d 00:00:01 h s " + std::string(1003, 'x') + "\nbehind the cut");
  ring->put("0 0 d 00:00:02 h s next\n");
  EXPECT_EQ(read_log(), 21 + 1003 + 1 + 26);
  EXPECT_EQ(output,
            "2001-09-09 01:45:01s " + std::string(1003, 'x') + "\n2001-09-09 01:45:02s next\n");
}

// Failures ---------------------------------------------------------------------------------------

TEST_F(SystemLog, AMissingRingEndsTheProcess) {
  world().ring_missing = true;
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(exits_with("Can't find circular buffer"),
            Texts{"diag Can't find circular buffer"}); // nothing to detach
}

TEST_F(SystemLog, ANullAddressEndsTheProcess) {
  world().ring = nullptr;
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(exits_with("Can't get access to circular buffer from syslogd").back(), "shmdt");
}

// DELIBERATE: the words are those for a null address.
TEST_F(SystemLog, AFailedAttachmentEndsTheProcessWithTheWordsForANullAddress) {
  world().ring = reinterpret_cast<void*>(UINTPTR_MAX);
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(exits_with("Can't get access to circular buffer from syslogd").back(), "shmdt");
}

TEST_F(SystemLog, MissingSemaphoresEndTheProcess) {
  world().semaphores_missing = true;
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(exits_with("Can't get access to semaphone(s) for circular buffer from syslogd").back(),
            "shmdt");
}

TEST_F(SystemLog, AFailedReaderDownEndsTheProcess) {
  world().semop_fails_at = 0;
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(exits_with("semop[SMrdn]").back(), "shmdt");
}

TEST_F(SystemLog, AFailedReaderUpEndsTheProcess) {
  world().semop_fails_at = 1;
  EXPECT_THROW(read_log(), fake::Exited);
  EXPECT_EQ(exits_with("semop[SMrup]").back(), "shmdt");
}

TEST_F(SystemLog, ThePlainEndIsSilentWithoutDebugAndItsStatusIsOne) {
  debug = 0;
  world().ring_missing = true;
  try {
    read_log();
    ADD_FAILURE() << "the process went on";
  } catch (const fake::Exited& exited) {
    EXPECT_EQ(exited.status, 1);
  }
  EXPECT_EQ(world().diagnostics(), "");
}

// Corrupt rings ----------------------------------------------------------------------------------

TEST_F(SystemLog, HeadersThatCannotBeYieldNoLines) {
  struct Case {
    std::int32_t size, head, tail;
  };
  constexpr std::int32_t kMax = 2'147'483'647;
  for (const Case& c :
       {Case{0, 0, 22}, Case{-1, 0, 22}, Case{INT32_MIN, 0, 22}, Case{101, 0, 22},
        Case{kMax, 0, 22}, Case{100, -1, 22}, Case{100, 100, 22}, Case{100, kMax, 22},
        Case{100, 0, 100}, Case{100, 0, -22}, Case{100, 0, INT32_MIN}, Case{100, 0, kMax},
        Case{10, 0, 22}, Case{100, 0, -1}, Case{100, 100, 100}, Case{0, 0, 0}}) {
    use_ring(100);
    ring->put("0 0 d 00:00:01 h s ab\n");
    ring->set(0, c.size);
    ring->set(4, c.head);
    ring->set(8, c.tail);
    EXPECT_EQ(read_log(), 0) << c.size << " " << c.head << " " << c.tail;
    EXPECT_EQ(ring->data()[0], '0');
    const RingWalk walk = walk_ring(ring->segment(), ring->segment_bytes());
    EXPECT_EQ(walk.data, nullptr);
    EXPECT_FALSE(ring_is_sound(walk));
  }
  EXPECT_EQ(world().readers, 0);
}

TEST_F(SystemLog, ARingOfOneByteIsSoundAndEmpty) {
  use_ring(1);
  EXPECT_TRUE(ring_is_sound(walk_ring(ring->segment(), ring->segment_bytes())));
  EXPECT_EQ(read_log(), 0);
}

TEST_F(SystemLog, ASegmentTooSmallForItsHeaderYieldsNoLines) {
  ring->put("0 0 d 00:00:01 h s ab\n");
  for (const std::size_t bytes : {0U, 1U, 11U, 12U}) {
    detach();
    world().ring_bytes = bytes;
    EXPECT_EQ(read_log(), 0) << bytes;
  }
}

TEST_F(SystemLog, ATailInsideARecordYieldsNoLines) {
  ring->put("0 0 d 00:00:01 h s ab\n");
  ring->put("0 0 d 00:00:02 h s ab\n");
  ring->set(8, 30);
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(ring->data()[0], '0');
}

TEST_F(SystemLog, ARecordWithoutItsNulYieldsNoLines) {
  use_ring(44, 22, 'x');
  ring->put("0 0 d 00:00:01 h s a\n"); // up to the last byte, then offset 0
  ring->data()[43] = 'x';
  ring->set(8, 0);
  EXPECT_EQ(read_log(), 0);
  EXPECT_EQ(ring->data()[22], '0');
}

TEST_F(SystemLog, ARingFullOfTextEndsTheWalk) {
  use_ring(1000, 0, '0');
  ring->set(8, 999);
  EXPECT_EQ(read_log(), 0);
}

} // namespace
