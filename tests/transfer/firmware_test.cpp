#include "transfer/firmware.h"

#include "core/result.h"
#include "core/say.h"
#include "core/timers.h"
#include "tests/transfer/server.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

using namespace rcmd;
using fake::Bytes;
using fake::trx_image;
using fake::world;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace {

using Story = std::vector<std::string>;

constexpr char kFile[] = "/tmp/firmware.download";

// 2000 bytes: an image of two fragments, accepted whatever its checksum.
class Firmware : public fake::TransferFixture {
protected:
  Firmware() {
    serve(trx_image(2000));
    command(256, 2, 2000, "fw.trx");
  }
  [[nodiscard]] static Story tools() { return world().events_of({"tool ", "wait ", "restart "}); }
  // From the event on.
  [[nodiscard]] Story story_from(const std::string& event) const {
    const Story all = story();
    return {std::find(all.begin(), all.end(), event), all.end()};
  }
  // Answers nothing of that type before `from_ms`.
  void silent_until(std::uint16_t type, std::int64_t from_ms) {
    answers = [type, from_ms](const fake::Datagram& sent) {
      return fake::type_of(sent.bytes) != type || sent.at_ms >= from_ms;
    };
  }
};

const Story kStopping = {"console Stop ipsec...\n",
                         "unload_ipsec 0",
                         "stop_ike",
                         "sleep 2",
                         "tool spi --clear >/dev/console",
                         "tool eroute --clear >/dev/console",
                         "sleep 2",
                         "diag stop bridge_led\n",
                         "tool killall bridge_led >/dev/console",
                         "diag stop utelnetd\n",
                         "tool killall utelnetd >/dev/console",
                         "diag stop dhcp\n",
                         "tool killall udhcpd >/dev/console",
                         "diag done\n"};
const Story kEnding = {"tool killall wwan_monitor >/dev/console",
                       "tool killall pppd >/dev/console",
                       "tool killall wanmonitor >/dev/console",
                       "sleep 1",
                       "tool mtd upgrade_trx /tmp/firmware.download linux",
                       "wait mtd",
                       "diag done\n",
                       "remove /tmp/firmware.download",
                       "diag upgrade firmware finished ...\n",
                       "sleep 10",
                       "restart 01234567"};
const char kBegin[] =
    "diag Begin to download firmware form RCM server totlen = 2000 , fragment = 2 ... \n";
const char kFail[] = "diag do_rcm_download_firmware fail ... \n";

Story operator+(Story left, const Story& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

TEST_F(Firmware, AnUpgradeStopsTheServicesDownloadsChecksWritesAndRestarts) {
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  std::string crc = fake::to_hex({file[11], file[10], file[9], file[8]});
  EXPECT_THAT(story(), ElementsAreArray(
                           Story{"diag NAME=fw.trx\n", "check_memory 3024", kBegin} + kStopping +
                           Story{"diag OK!\n", "diag CRC OK " + crc + " \n"} + kEnding));
}

TEST_F(Firmware, TheAcknowledgementComesFirstAndGoesToTheCommandsSender) {
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_THAT(world().events_of({"send "}),
              ElementsAre("send 36 to 10.1.2.3:4000", "send 50 to 127.0.0.1:1162",
                          "send 40 to 127.0.0.1:1162", "send 40 to 127.0.0.1:1162"));
  EXPECT_EQ(fake::to_hex(world().sent[0].bytes), "53455353494f4e31"
                                                 "a1a2a3a4"
                                                 "534e30313233343536373839"
                                                 "00000777"
                                                 "0100"
                                                 "0001"
                                                 "ffff"
                                                 "0000");
  EXPECT_EQ(fake::type_of(world().sent[1].bytes), 8);
  EXPECT_EQ(fake::type_of(world().sent[2].bytes), 6);
}

TEST_F(Firmware, TheFlashToolFindsTheWholeImageInPlace) {
  Bytes found;
  world().on_tool = [&](const fake::ToolRun& run) {
    if (run.arguments[0] == "mtd") {
      found = fake::bytes_of(world().read_file(kFile));
      EXPECT_FALSE(run.waited);
      EXPECT_EQ(run.output, "");
      EXPECT_EQ(run.timeout_s, 0);
    } else {
      EXPECT_TRUE(run.waited);
    }
    return 0;
  };
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_TRUE(found == file);
  EXPECT_FALSE(world().exists(kFile));
}

TEST_F(Firmware, AGoodImageIsASuccess) {
  EXPECT_EQ(do_rcm_download_firmware(&context, 2000, 2), 0);
}

TEST_F(Firmware, ADatagramWithoutANameIsDroppedUnanswered) {
  context.rx_length = 43;
  rcm_upgradecmd_func(&context);
  EXPECT_THAT(world().sent, IsEmpty());
  EXPECT_THAT(story(), ElementsAre("diag file command without a name .. \n"));
}

TEST_F(Firmware, ANameTooLongIsDroppedUnanswered) {
  command(256, 2, 2000, std::string(1024, 'n'));
  rcm_upgradecmd_func(&context);
  EXPECT_THAT(world().sent, IsEmpty());
  EXPECT_THAT(story(), ElementsAre("diag file name too long .. \n"));
}

TEST_F(Firmware, LowMemoryAnswersNothingAndStopsNothing) {
  world().on_check_memory = [](std::uint32_t) { return 0; };
  rcm_upgradecmd_func(&context);
  EXPECT_THAT(world().sent, IsEmpty());
  EXPECT_THAT(story(),
              ElementsAre("diag NAME=fw.trx\n", "check_memory 3024", "diag low memory .. \n"));
}

TEST_F(Firmware, UnknownMemoryFiguresDoNotRefuse) {
  world().on_check_memory = [](std::uint32_t) { return -1; };
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
}

TEST_F(Firmware, AnAcknowledgementThatCannotBeSentDoesNotEndTheTransfer) {
  world().send_fails = [](const fake::Datagram& sent) { return ntohs(sent.peer.sin_port) == 4000; };
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_THAT(story(), ElementsAreArray(Story{"diag NAME=fw.trx\n", "check_memory 3024",
                                              "diag sendto fail .. \n"} +
                                        story_from(kBegin)));
}

TEST_F(Firmware, AFileRequestThatCannotBeSentIsFollowedByTheDownloadAllTheSame) {
  world().write_file(kFile, "old");
  world().send_fails = [](const fake::Datagram& sent) { return fake::type_of(sent.bytes) == 8; };
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_THAT(story_from("diag Socket send error ... \n"),
              ElementsAreArray(
                  Story{"diag Socket send error ... \n", "remove /tmp/firmware.download", kBegin} +
                  kStopping + story_from("diag OK!\n")));
}

TEST_F(Firmware, AServerDeadAtTheFileRequestIsRegisteredWithAgain) {
  silent_until(8, 290001);
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  const Story all = story_from("diag Peer dead while requesting file, register again\n");
  EXPECT_THAT(Story(all.begin(), all.begin() + 7),
              ElementsAre("diag Peer dead while requesting file, register again\n", "sleep 3",
                          "cancel rcm_logsender", "cancel rcm_keepalive", "cancel rcm_gpssender",
                          "register", kBegin));
  EXPECT_EQ(world().sent[21].at_ms, 293000);
}

TEST_F(Firmware, AServerDeadInTheDownloadStartsAllOfItAgain) {
  world().due[&rcm_keepalive] = 1'000'000'000;
  silent_until(6, 200000 + 10000);
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  const char dead[] = "diag Peer dead when upgrading firmware, Register again";
  EXPECT_THAT(story_from(dead), ElementsAreArray(Story{dead, "sleep 3", "cancel rcm_logsender",
                                                       "disarm rcm_keepalive",
                                                       "cancel rcm_gpssender", "register", kBegin} +
                                                 kStopping + story_from("diag OK!\n")));
  EXPECT_EQ(std::count_if(world().sent.begin(), world().sent.end(),
                          [](const auto& sent) { return fake::type_of(sent.bytes) == 8; }),
            2);
  EXPECT_EQ(asked().back(), 1);
}

TEST_F(Firmware, AServerMayDieManyTimes) {
  silent_until(6, 1'000'000);
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_GE(world().events_of({"register"}).size(), 4U);
}

TEST_F(Firmware, TheTrafficTimersRunOnWhenTheServerIsDead) {
  world().due[&rcm_trafficget] = world().due[&rcm_trafficsender] = 1'000'000'000;
  silent_until(6, 210000);
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_TRUE(world().armed(&rcm_trafficget));
  EXPECT_TRUE(world().armed(&rcm_trafficsender));
}

// Each failure of the download ends the same way.
class FailedFirmware : public Firmware {
protected:
  void expect_failure_after(const Story& words) {
    EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
    const Story all = story_from("diag done\n");
    EXPECT_THAT(all, ElementsAreArray(Story{"diag done\n"} + words +
                                      Story{kFail, "remove /tmp/firmware.download"} + kEnding));
  }
};

TEST_F(FailedFirmware, AFragmentRequestThatCannotBeSentIsOne) {
  world().send_fails = [](const fake::Datagram& sent) { return fake::type_of(sent.bytes) == 6; };
  expect_failure_after({});
}

TEST_F(FailedFirmware, AShortWriteIsOne) {
  ASSERT_EQ(symlink("/dev/full", world().path(kFile).c_str()), 0);
  expect_failure_after({});
}

TEST_F(FailedFirmware, AFileThatCannotBeCreatedIsOneBeforeAnyFragmentIsAskedFor) {
  ASSERT_EQ(mkdir(world().path(kFile).c_str(), 0700), 0);
  expect_failure_after({});
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(FailedFirmware, AFileShorterThanAHeaderIsOneWithoutAWord) {
  serve(Bytes(27, 'x'));
  command(256, 1, 27, "fw.trx");
  expect_failure_after({"diag OK!\n"});
}

TEST_F(FailedFirmware, ABadHeaderIsOne) {
  serve(Bytes(2000, 'x'));
  expect_failure_after({"diag OK!\n", "diag Bad trx header\n"});
}

TEST_F(FailedFirmware, ATruncatedImageIsOne) {
  serve(trx_image(2000));
  file.resize(1999);
  expect_failure_after({"diag OK!\n", "diag Truncated file (actual 975 expect 976)\n"});
}

TEST_F(FailedFirmware, AnImageOfTheGreatestLengthIsReadAndOneByteMoreIsABadHeader) {
  fake::put32(file, 4, 0x780000);
  expect_failure_after({"diag OK!\n", "diag Truncated file (actual 976 expect 1024)\n"});
  world().events.clear();
  fake::put32(file, 4, 0x780001);
  command(256, 2, 2000, "fw.trx");
  expect_failure_after({"diag OK!\n", "diag Bad trx header\n"});
}

TEST_F(FailedFirmware, ASmallImageWithAWrongChecksumIsOne) {
  serve(trx_image(1024));
  file[8] ^= 1;
  command(256, 1, 1024, "fw.trx");
  expect_failure_after({"diag OK!\n", "diag Bad CRC\n"});
}

TEST_F(Firmware, ALargeImageWithAWrongChecksumGoesToTheFlashTool) {
  file[8] ^= 1;
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_THAT(world().diagnostics(), HasSubstr("CRC OK "));
  EXPECT_THAT(world().diagnostics(), ::testing::Not(HasSubstr("fail")));
}

TEST_F(Firmware, AFlashToolThatIsNotStartedEndsTheCommandWithoutARestart) {
  world().on_tool = [](const fake::ToolRun& run) { return run.arguments[0] == "mtd" ? 127 : 0; };
  rcm_upgradecmd_func(&context);
  EXPECT_THAT(story_from("tool mtd upgrade_trx /tmp/firmware.download linux"),
              ElementsAre("tool mtd upgrade_trx /tmp/firmware.download linux",
                          "remove /tmp/firmware.download"));
}

TEST_F(Firmware, HowTheFlashToolEndedIsNotLookedAt) {
  world().tool_status = 1;
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_THAT(story_from("wait mtd"),
              ElementsAre("wait mtd", "diag done\n", "remove /tmp/firmware.download",
                          "diag upgrade firmware finished ...\n", "sleep 10", "restart 01234567"));
}

TEST_F(Firmware, ServicesThatCannotBeStoppedDoNotEndTheUpgrade) {
  world().console_broken = true;
  world().on_tool = [](const fake::ToolRun& run) { return run.arguments[0] == "mtd" ? 0 : 1; };
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_EQ(world().tools.size(), 9U);
}

TEST_F(Firmware, ARefusedRestartIsWaitedForForEver) {
  world().restart_refused = true;
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_THAT(story_from("sleep 10"), ElementsAre("sleep 10", "restart 01234567", "await_restart"));
}

TEST_F(Firmware, TheConsoleIsToldWithoutDebugAndNobodyElse) {
  debug = 0;
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_EQ(world().diagnostics(), "");
  EXPECT_EQ(world().console(), "Stop ipsec...\n");
}

TEST_F(Firmware, ATransferLeavesOnlineAndTxLengthAlone) {
  context.online = 1;
  context.tx_length = 236;
  EXPECT_THROW(rcm_upgradecmd_func(&context), fake::Restarted);
  EXPECT_EQ(context.online, 1);
  EXPECT_EQ(context.tx_length, 236U);
}

} // namespace
