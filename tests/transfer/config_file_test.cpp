#include "transfer/config_file.h"

#include "core/result.h"
#include "core/say.h"
#include "tests/transfer/server.h"

#include <algorithm>
#include <climits>
#include <sys/stat.h>
#include <unistd.h>

using namespace rcmd;
using fake::world;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

namespace {

using Story = std::vector<std::string>;

constexpr char kFile[] = "/tmp/config.download";
const char kBegin[] =
    "diag Begin to download config file form RCM server totlen = 1500 , fragment = 2 ... \n";
const Story kEnding = {"tool nvram import /tmp/config.download",
                       "wait nvram",
                       "nvram_commit",
                       "sleep 1",
                       "diag config done\n",
                       "remove /tmp/firmware.download",
                       "signal 15",
                       "await_restart"};

Story operator+(Story left, const Story& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

class ConfigFile : public fake::TransferFixture {
protected:
  ConfigFile() {
    serve(fake::pattern(1500));
    command(261, 2, 1500, "router.cfg");
    world().write_file("/tmp/firmware.download", "old");
  }
  [[nodiscard]] Story story_from(const std::string& event) const {
    const Story all = story();
    return {std::find(all.begin(), all.end(), event), all.end()};
  }
  void run() { EXPECT_THROW(rcm_config_upgrade_func(&context), fake::Restarted); }
};

TEST_F(ConfigFile, IsDownloadedImportedCommittedAndFollowedByASignalToProcess1) {
  run();
  EXPECT_THAT(story(),
              ElementsAreArray(
                  Story{"check_memory 2524", kBegin, "diag Download config file OK!\n"} + kEnding));
}

TEST_F(ConfigFile, IsAskedForWithItsOwnTypes) {
  run();
  std::vector<int> types;
  for (const auto& sent : world().sent) {
    types.push_back(fake::type_of(sent.bytes));
  }
  EXPECT_THAT(types, ElementsAre(261, 13, 12, 12));
  EXPECT_THAT(world().events_of({"send "})[0], "send 36 to 10.1.2.3:4000");
}

TEST_F(ConfigFile, StaysInPlaceAfterTheImportWhileTheFirmwaresGoes) {
  world().on_tool = [&](const fake::ToolRun& run) {
    EXPECT_TRUE(fake::bytes_of(world().read_file(kFile)) == file);
    EXPECT_FALSE(run.waited);
    EXPECT_EQ(run.output, "");
    EXPECT_EQ(run.timeout_s, 0);
    return 0;
  };
  run();
  EXPECT_EQ(world().tools.size(), 1U);
  EXPECT_TRUE(world().exists(kFile));
  EXPECT_FALSE(world().exists("/tmp/firmware.download"));
}

TEST_F(ConfigFile, ADatagramWithoutANameIsDroppedUnanswered) {
  context.rx_length = 40;
  rcm_config_upgrade_func(&context);
  EXPECT_THAT(world().sent, IsEmpty());
  EXPECT_THAT(story(), ElementsAre("diag file command without a name .. \n"));
}

TEST_F(ConfigFile, LowMemoryIsNotAnswered) {
  world().on_check_memory = [](std::uint32_t) { return 0; };
  rcm_config_upgrade_func(&context);
  EXPECT_THAT(world().sent, IsEmpty());
  EXPECT_THAT(story(), ElementsAre("check_memory 2524", "diag low memory .. \n"));
}

TEST_F(ConfigFile, UnknownMemoryFiguresDoNotRefuse) {
  world().on_check_memory = [](std::uint32_t) { return -1; };
  run();
}

TEST_F(ConfigFile, AnAcknowledgementThatCannotBeSentDoesNotEndTheTransfer) {
  world().send_fails = [](const fake::Datagram& sent) { return ntohs(sent.peer.sin_port) == 4000; };
  run();
  EXPECT_THAT(story(), ElementsAreArray(Story{"check_memory 2524", "diag sendto fail .. \n", kBegin,
                                              "diag Download config file OK!\n"} +
                                        kEnding));
}

TEST_F(ConfigFile, AFileRequestThatCannotBeSentRemovesTheFirmwaresFileAndGoesOn) {
  world().send_fails = [](const fake::Datagram& sent) { return fake::type_of(sent.bytes) == 13; };
  run();
  EXPECT_THAT(story(), ElementsAreArray(Story{"check_memory 2524", "diag Socket send error ... \n",
                                              "remove /tmp/firmware.download", kBegin,
                                              "diag Download config file OK!\n"} +
                                        kEnding));
}

TEST_F(ConfigFile, AServerDeadAtTheFileRequestIsRegisteredWithAgain) {
  answers = [](const fake::Datagram& sent) { return sent.at_ms > 290000; };
  run();
  EXPECT_THAT(
      story_from("diag Peer dead while requesting file, register again\n"),
      ElementsAreArray(Story{"diag Peer dead while requesting file, register again\n", "sleep 3",
                             "cancel rcm_logsender", "cancel rcm_keepalive", "cancel rcm_gpssender",
                             "register", kBegin, "diag Download config file OK!\n"} +
                       kEnding));
}

TEST_F(ConfigFile, AServerDeadInTheDownloadStartsAllOfItAgain) {
  answers = [](const fake::Datagram& sent) {
    return fake::type_of(sent.bytes) == 13 || sent.at_ms > 205000;
  };
  run();
  const char dead[] = "diag Peer Dead when upgrading config, Register again";
  EXPECT_THAT(story_from(dead),
              ElementsAreArray(Story{dead, "sleep 3", "cancel rcm_logsender",
                                     "cancel rcm_keepalive", "cancel rcm_gpssender", "register",
                                     kBegin, "diag Download config file OK!\n"} +
                               kEnding));
  EXPECT_THAT(world().diagnostics(), ::testing::HasSubstr("... \n!!!!!!!!"));
}

TEST_F(ConfigFile, AFailedDownloadIsImportedAsFarAsItCame) {
  answers = [](const fake::Datagram& sent) {
    return fake::type_of(sent.bytes) == 13 || fake::u16_at(sent.bytes, 36) == 0;
  };
  world().send_fails = [](const fake::Datagram& sent) { return sent.at_ms > 1000; };
  std::string imported;
  world().on_tool = [&](const fake::ToolRun&) {
    imported = world().read_file(kFile);
    return 0;
  };
  run();
  EXPECT_EQ(imported.size(), 1024U);
  EXPECT_THAT(story_from("diag do_rcm_download_config fail ... \n"),
              ElementsAreArray(Story{"diag do_rcm_download_config fail ... \n",
                                     "remove /tmp/firmware.download"} +
                               kEnding));
}

TEST_F(ConfigFile, AShortWriteFailsTheDownload) {
  ASSERT_EQ(symlink("/dev/full", world().path(kFile).c_str()), 0);
  run();
  EXPECT_THAT(story(), ElementsAreArray(Story{"check_memory 2524", kBegin,
                                              "diag do_rcm_download_config fail ... \n",
                                              "remove /tmp/firmware.download"} +
                                        kEnding));
}

TEST_F(ConfigFile, AFileThatCannotBeCreatedFailsTheDownload) {
  ASSERT_EQ(mkdir(world().path(kFile).c_str(), 0700), 0);
  run();
  EXPECT_THAT(asked(), IsEmpty());
  EXPECT_THAT(world().diagnostics(), ::testing::HasSubstr("do_rcm_download_config fail ... \n"));
}

TEST_F(ConfigFile, AnImportToolThatIsNotStartedEndsTheCommandWithoutARestart) {
  world().on_tool = [](const fake::ToolRun&) { return 127; };
  rcm_config_upgrade_func(&context);
  EXPECT_THAT(
      story_from("tool nvram import /tmp/config.download"),
      ElementsAre("tool nvram import /tmp/config.download", "remove /tmp/firmware.download"));
}

TEST_F(ConfigFile, HowTheImportEndedIsNotLookedAt) {
  world().tool_status = 1;
  run();
  EXPECT_THAT(story_from("tool nvram import /tmp/config.download"), ElementsAreArray(kEnding));
}

TEST_F(ConfigFile, ACommitThatFailsDoesNotStopTheRestart) {
  world().commit_result = -1;
  run();
}

TEST_F(ConfigFile, NoFragmentsAtAllAreWaitedForForEver) {
  struct Enough {};
  command(261, 0, 0, "router.cfg");
  int waits = 0;
  world().waitfor_result = [&](int, int) {
    if (++waits == 500) {
      throw Enough{};
    }
    return INT_MIN;
  };
  EXPECT_THROW(rcm_config_upgrade_func(&context), Enough);
  EXPECT_THAT(asked(), IsEmpty());
}

} // namespace
