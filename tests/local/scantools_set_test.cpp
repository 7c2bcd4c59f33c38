// The scan tools' set, up to the restart of the device.

#include "local/scantools.h"

#include "local/backup_nvram.h"
#include "tests/fake_platform/fixture.h"
#include "tests/local/scantools_kit.h"

#include <fcntl.h>
#include <unistd.h>

using fake::Bytes;
using fake::hex;
using fake::to_hex;
using fake::world;
using scan::message;
using scan::put;
using scan::Scantools;
using ::testing::ElementsAre;

extern "C" __attribute__((weak)) void __gcov_dump();

namespace {

std::string image(const std::string& records) {
  std::string bytes = std::string("HEADER--HEADER--HEAD") + records;
  bytes.resize(4096, '\0');
  return bytes;
}

/// The restart happens once per process, so what reaches it runs in a process of its own.
void in_own_process(const std::function<void()>& body) {
  EXPECT_EXIT(
      {
        fake::reset();
        body();
        fake::reset();
        if (__gcov_dump != nullptr) {
          __gcov_dump(); // such a process ends without counting its lines
        }
        _exit(::testing::Test::HasFailure() ? 1 : 0);
      },
      ::testing::ExitedWithCode(0), "");
}

class ScantoolsSet : public Scantools {
protected:
  static void partition_holds(const std::string& content) {
    world().on_tool = [content](const fake::ToolRun& run) {
      if (run.arguments[0] == "nvram_mtd_read") {
        world().write_file("/tmp/nvram.backup", content);
      }
      return 0;
    };
  }
  /// A set that reaches the restart.
  static void set_and_restart(int fd, const Bytes& bytes) {
    EXPECT_THROW(receive(fd, bytes), fake::Restarted);
  }
};

TEST_F(ScantoolsSet, AMaskOf0StillCommitsTheBackupRepliesAndRestarts) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image("a=1"));
    set_and_restart(fd, message("ba03", "0000"));
    EXPECT_THAT(world().events,
                ElementsAre("tool nvram_mtd_read /tmp/nvram.backup backup >/dev/console",
                            "tool nvram_mtd_write /tmp/nvram.backup backup >/dev/console",
                            "send 696 to 192.168.1.50:4711", "tool killall -1 pppd >/dev/console",
                            "nvram_commit", "console nvram_commit ok\n", "signal 15",
                            "await_restart"));
    for (const fake::ToolRun& run : world().tools) {
      EXPECT_TRUE(run.waited);
      EXPECT_EQ(run.timeout_s, 0);
    }
  });
}

TEST_F(ScantoolsSet, TheReplyIsZeroBehindItsFirstTwoBytes) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question(696, 0x5A);
    put(question, 0, hex("ab 03 0000"));
    set_and_restart(fd, question);
    ASSERT_EQ(world().sent.size(), 1U);
    Bytes expected(696, 0);
    put(expected, 0, hex("ba04"));
    EXPECT_EQ(to_hex(world().sent[0].bytes), to_hex(expected));
    EXPECT_EQ(world().sent[0].fd, fd) << "the server's own socket";
  });
}

TEST_F(ScantoolsSet, EveryFieldTogetherIsAppliedInOrder) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0z=1\0", 30)));
    Bytes question = message("ba03", "ffff");
    put(question, 4, fake::bytes_of("public"));
    put(question, 44, hex("c0a80201"));
    put(question, 600, hex("0a000001"));
    put(question, 692, hex("00000e10"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().events_of({"nvram_set", "console \n", "tool nvram"}),
                ElementsAre("tool nvram_mtd_read /tmp/nvram.backup backup >/dev/console",
                            "nvram_set snmp_ro_sec=public", "nvram_set snmp_rw_sec=public",
                            "nvram_set lan0_ipaddr=192.168.2.1", "nvram_set lan0_ipaddr=10.0.0.1",
                            "console \n", "nvram_set jqa_reconnect_interval=3600",
                            "tool nvram_mtd_write /tmp/nvram.backup backup >/dev/console"));
    EXPECT_EQ(world().committed["lan0_ipaddr"], "10.0.0.1");
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"),
              image(std::string("jqa_reconnect_interval=3600\0z=1\0", 32)));
  });
}

TEST_F(ScantoolsSet, TheSecondAddressWins) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0104");
    put(question, 44, hex("c0a80201"));
    put(question, 600, hex("0a000001"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().nvram, ElementsAre(std::pair("lan0_ipaddr", "10.0.0.1")));
  });
}

TEST_F(ScantoolsSet, TheFirstAddressAloneIsTaken) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0004");
    put(question, 44, hex("fffe0001"));
    put(question, 600, hex("0a000001"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().nvram, ElementsAre(std::pair("lan0_ipaddr", "255.254.0.1")));
  });
}

TEST_F(ScantoolsSet, TheSecondAddressNeedsNoFirst) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0100");
    put(question, 44, hex("c0a80201"));
    put(question, 600, hex("0a000001"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().nvram, ElementsAre(std::pair("lan0_ipaddr", "10.0.0.1")));
  });
}

TEST_F(ScantoolsSet, OtherBitsOfTheMaskChangeNothing) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0", 26)));
    Bytes question(696, 0x41);
    put(question, 0, hex("ba 03 defa"));
    set_and_restart(fd, question);
    EXPECT_TRUE(world().nvram.empty());
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"),
              image(std::string("jqa_reconnect_interval=60\0", 26)));
  });
}

TEST_F(ScantoolsSet, ACommunityOf32BytesNeedsNoNul) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0001");
    put(question, 4, Bytes(32, 'c'));
    put(question, 36, Bytes(6, 'X'));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["snmp_ro_sec"], std::string(32, 'c'));
    EXPECT_EQ(world().nvram["snmp_rw_sec"], std::string(32, 'c'));
  });
}

TEST_F(ScantoolsSet, ACommunityEndsAtItsFirstNul) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    Bytes question = message("ba03", "0001");
    put(question, 4, hex("61 62 00 63 64"));
    set_and_restart(fd, question);
    EXPECT_THAT(world().nvram,
                ElementsAre(std::pair("snmp_ro_sec", "ab"), std::pair("snmp_rw_sec", "ab")));
  });
}

TEST_F(ScantoolsSet, AnEmptyCommunityIsSetToo) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    set_and_restart(fd, message("ba03", "0001"));
    EXPECT_EQ(world().nvram.count("snmp_ro_sec"), 1U);
    EXPECT_EQ(world().nvram["snmp_ro_sec"], "");
  });
}

TEST_F(ScantoolsSet, TheIntervalIsWrittenAsASignedNumber) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0", 26)));
    Bytes question = message("ba03", "2000");
    put(question, 692, hex("80000000"));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["jqa_reconnect_interval"], "-2147483648");
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"),
              image(std::string("jqa_reconnect_interval=-2147483648\0", 35)));
  });
}

TEST_F(ScantoolsSet, AnIntervalThatTheBackupDoesNotHoldIsSetLiveAlone) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(std::string("a=1\0", 4)));
    Bytes question = message("ba03", "2000");
    put(question, 692, hex("00000e10"));
    set_and_restart(fd, question);
    EXPECT_EQ(world().committed["jqa_reconnect_interval"], "3600");
    EXPECT_EQ(world().read_file("/tmp/nvram.backup"), image(std::string("a=1\0", 4)));
  });
}

TEST_F(ScantoolsSet, TheImageIsGivenBackBeforeItIsWrittenToThePartition) {
  in_own_process([] {
    const int fd = server();
    bool held_at_the_write = true;
    world().on_tool = [&](const fake::ToolRun& run) {
      if (run.arguments[0] == "nvram_mtd_read") {
        world().write_file("/tmp/nvram.backup", image(""));
      } else if (run.arguments[0] == "nvram_mtd_write") {
        held_at_the_write = fcntl(rcmd::nvram_backup_fd, F_GETFD) >= 0;
      }
      return 0;
    };
    set_and_restart(fd, message("ba03"));
    EXPECT_FALSE(held_at_the_write);
  });
}

TEST_F(ScantoolsSet, WithoutAnImageNothingChangesAndNothingIsAnswered) {
  const int fd = server();
  EXPECT_EQ(receive(fd, message("ba03", "2105")), -1);
  EXPECT_THAT(world().events,
              ElementsAre("tool nvram_mtd_read /tmp/nvram.backup backup >/dev/console"));
  EXPECT_TRUE(world().watched(fd));
}

TEST_F(ScantoolsSet, AShortReplyMeansNoRestart) {
  const int fd = server();
  partition_holds(image(""));
  world().send_result = [](const auto&) { return 0L; };
  Bytes question = message("ba03", "0004");
  put(question, 44, hex("c0a80201"));
  EXPECT_EQ(receive(fd, question), -1);
  EXPECT_EQ(world().events.back(), "console sendto 696 bytes fail return 0 \n");
  EXPECT_EQ(world().nvram["lan0_ipaddr"], "192.168.2.1") << "set, and not committed";
  EXPECT_TRUE(world().committed.empty());
}

TEST_F(ScantoolsSet, AShortReplyLeavesTheRestartToTheNextSet) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    world().send_result = [](const auto&) { return 695L; };
    EXPECT_EQ(receive(fd, message("ba03")), -1);
    world().send_result = nullptr;
    set_and_restart(fd, message("ba03"));
    EXPECT_EQ(world().events.back(), "await_restart");
  });
}

TEST_F(ScantoolsSet, AFailedCommitOfTheBackupIsIgnored) {
  in_own_process([] {
    const int fd = server();
    world().on_tool = [](const fake::ToolRun& run) {
      if (run.arguments[0] == "nvram_mtd_read") {
        world().write_file("/tmp/nvram.backup", image(""));
      }
      return 1; // the file is there: whether the tool says so is not asked
    };
    set_and_restart(fd, message("ba03"));
    EXPECT_EQ(world().events.back(), "await_restart");
  });
}

TEST_F(ScantoolsSet, AFailedCommitMeansNoRestartAndNoSecondTry) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    world().commit_result = 5;
    EXPECT_EQ(receive(fd, message("ba03")), 0);
    EXPECT_EQ(world().events.back(), "console nvram_commit fail ,ret = 5 \n");
    world().commit_result = 0;
    world().events.clear();
    EXPECT_EQ(receive(fd, message("ba03")), 0);
    EXPECT_EQ(world().sent.size(), 2U);
    EXPECT_EQ(world().events.back(), "send 696 to 192.168.1.50:4711");
    EXPECT_TRUE(world().committed.empty());
  });
}

TEST_F(ScantoolsSet, ANegativeResultIsAFailedCommitToo) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(""));
    world().commit_result = -1;
    EXPECT_EQ(receive(fd, message("ba03")), 0);
    EXPECT_EQ(world().events.back(), "console nvram_commit fail ,ret = -1 \n");
  });
}

TEST_F(ScantoolsSet, ABrokenConsoleLosesTheTextsAlone) {
  in_own_process([] {
    const int fd = server();
    partition_holds(image(std::string("jqa_reconnect_interval=60\0", 26)));
    world().console_broken = true;
    Bytes question = message("ba03", "2000");
    put(question, 692, hex("00000007"));
    set_and_restart(fd, question);
    EXPECT_EQ(world().nvram["jqa_reconnect_interval"], "7");
    EXPECT_EQ(world().events.back(), "await_restart");
  });
}

} // namespace
