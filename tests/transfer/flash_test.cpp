#include "transfer/flash.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "tests/transfer/server.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
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

int closes_of_closed; // descriptors that were not open

} // namespace

// The C library's, with an eye on descriptors that are closed twice.
extern "C" int close(int fd) {
  const auto result = static_cast<int>(syscall(SYS_close, fd));
  closes_of_closed += result != 0 && errno == EBADF ? 1 : 0;
  return result;
}

namespace {

using Story = std::vector<std::string>;

constexpr char kFile[] = "/tmp/firmware.download";
constexpr char kLinux[] = "/dev/mtd/1";
constexpr std::uint32_t kBatchBytes = 640 * 1024;
const char kClean[] = "tool rm -rf /tmp/firmware.download >/dev/console";
const char kPartitions[] = "dev:    size   erasesize  name\n"
                           "mtd0: 00040000 00010000 \"boot\"\n"
                           "mtd1: 00800000 00010000 \"linux\"\n"
                           "mtd2: 00010000 00010000 \"backup\"\n";

class Flash : public fake::TransferFixture {
protected:
  Flash() {
    closes_of_closed = 0;
    world().write_file("/proc/mtd", kPartitions);
    world().write_file(kLinux, std::string(world().mtd.size, 'o'));
    command(256, 3, 3000, "fw.trx");
  }
  int upgrade(const Bytes& image, int fragments = -1) {
    serve(image);
    const std::size_t count =
        fragments >= 0 ? static_cast<std::size_t>(fragments) : (image.size() + 1023) / 1024;
    return do_rcm_download_and_upgrade_firmware(&context, static_cast<std::uint32_t>(image.size()),
                                                static_cast<std::uint16_t>(count));
  }
  // What the partition holds, up to there.
  [[nodiscard]] static Bytes flashed(std::size_t bytes) {
    Bytes content = fake::bytes_of(world().read_file(kLinux));
    content.resize(bytes);
    return content;
  }
  [[nodiscard]] static int count(const std::string& event) {
    return static_cast<int>(world().events_of({event}).size());
  }
  void expect_clean() const {
    EXPECT_EQ(world().events.back(), kClean);
    EXPECT_EQ(world().mtd.writes_without_erase, 0);
  }
};

TEST_F(Flash, AnImageOfOneBatchIsErasedAndWrittenBlockByBlock) {
  const Bytes image = trx_image(150000);
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_TRUE(flashed(150000) == image);
  EXPECT_THAT(
      story(),
      ElementsAre("diag Begin to download firmware form RCM server totlen = 150000 , fragment = "
                  "147 ... \n",
                  "diag start fragment=0, end fragment=147, fragment number=147.\n",
                  "diag TRX header is ok.\n", "check_memory 65536", "diag erase length=65536.\n",
                  "diag trx length=150000.\n", "diag erase start=0, erase end=150000.\n",
                  "mtd_unlock 0 65536", "mtd_erase 0 65536", "console -", "mtd_write 65536",
                  "console +", "mtd_unlock 65536 65536", "mtd_erase 65536 65536", "console -",
                  "mtd_write 65536", "console +", "mtd_unlock 131072 65536",
                  "mtd_erase 131072 65536", "console -", "mtd_write 18928", "console +",
                  "diag OK!\n", "mtd_read 2", kClean));
  expect_clean();
}

TEST_F(Flash, ABlockIsErasedWholeAndNothingBehindTheLastOneTouched) {
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
  const Bytes content = flashed(2 * 65536);
  EXPECT_EQ(content[1000], 0xFF);
  EXPECT_EQ(content[65535], 0xFF);
  EXPECT_EQ(content[65536], 'o');
}

TEST_F(Flash, FragmentsBehindTheImagesLengthAreNotWritten) {
  Bytes image = trx_image(70000);
  const Bytes wanted = image;
  image.resize(200000, 'z');
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_TRUE(flashed(70000) == wanted);
  EXPECT_EQ(flashed(70001).back(), 0xFF);
}

TEST_F(Flash, NoFragmentsAtAllAreASuccessThatWritesNothing) {
  EXPECT_EQ(upgrade({}), kSuccess);
  EXPECT_THAT(story(),
              ElementsAre("diag Begin to download firmware form RCM server totlen = 0 , fragment = "
                          "0 ... \n",
                          "diag OK!\n", kClean));
}

TEST_F(Flash, SixHundredAndFortyFragmentsAreOneBatch) {
  const Bytes image = trx_image(kBatchBytes);
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_EQ(count("diag start fragment"), 1);
  EXPECT_TRUE(flashed(kBatchBytes) == image);
}

TEST_F(Flash, TheSixHundredAndFortyFirstIsABatchOfItsOwnWithItsAbsoluteNumber) {
  const Bytes image = trx_image(kBatchBytes + 5);
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_THAT(world().events_of({"diag start fragment", "diag erase start"}),
              ElementsAre("diag start fragment=0, end fragment=640, fragment number=640.\n",
                          "diag erase start=0, erase end=655360.\n",
                          "diag start fragment=640, end fragment=641, fragment number=1.\n",
                          "diag erase start=655360, erase end=655365.\n"));
  EXPECT_EQ(asked().back(), 640);
  EXPECT_TRUE(flashed(kBatchBytes + 5) == image);
  EXPECT_EQ(count("check_memory"), 1);
  expect_clean();
}

TEST_F(Flash, ManyBatchesMakeTheWholeImageWithBlocksOf128KiBToo) {
  world().mtd.erase_size = 131072;
  const Bytes image = trx_image(3 * kBatchBytes + 12345);
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_TRUE(flashed(image.size()) == image);
  EXPECT_EQ(world().mtd.misaligned_erases, 0);
  expect_clean();
}

TEST_F(Flash, BlocksThatDoNotDivideABatchFailInTheSecondOne) {
  world().mtd.erase_size = 262144;
  EXPECT_EQ(upgrade(trx_image(2 * kBatchBytes)), kFailure);
  EXPECT_EQ(world().mtd.misaligned_erases, 1);
  EXPECT_EQ(world().events_of({"mtd_erase"}).back(), "mtd_erase 655360 262144");
  expect_clean();
}

TEST_F(Flash, WithTheFlagTheHeaderIsLeftOutOfTheFlash) {
  const Bytes image = trx_image(100000, 1);
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_TRUE(flashed(100000 - 28) == Bytes(image.begin() + 28, image.end()));
  EXPECT_EQ(count("diag trx length=99972.\n"), 1);
}

TEST_F(Flash, WithTheFlagAnImageLongerThanABatchComesUpShortInItsFirst) {
  EXPECT_EQ(upgrade(trx_image(kBatchBytes + 2000, 1)), kFailure);
  EXPECT_EQ(world().mtd.writes, 9); // nine whole blocks; the tenth could not be filled
  EXPECT_EQ(count("diag start fragment"), 1);
  expect_clean();
}

TEST_F(Flash, WithTheFlagAHeaderAloneWritesNothing) {
  EXPECT_EQ(upgrade(trx_image(28, 1)), kSuccess);
  EXPECT_EQ(world().mtd.erases, 0);
}

// Failures. Each of them ends in the clean-up, but one.

TEST_F(Flash, ATemporaryFileThatCannotBeCreatedReturnsAtOnceWithoutTheCleanUp) {
  ASSERT_EQ(mkdir(world().path(kFile).c_str(), 0700), 0);
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  EXPECT_THAT(world().tools, IsEmpty());
  EXPECT_THAT(asked(), IsEmpty());
}

TEST_F(Flash, ATemporaryFileLostBetweenBatchesReturnsAtOnceToo) {
  serve(trx_image(2 * kBatchBytes));
  std::function<void(const fake::Datagram&)> answer = world().on_send;
  world().on_send = [&](const fake::Datagram& sent) {
    if (fake::u16_at(sent.bytes, 36) == 639) {
      unlink(world().path(kFile).c_str());
      mkdir(world().path(kFile).c_str(), 0700);
    }
    answer(sent);
  };
  EXPECT_EQ(do_rcm_download_and_upgrade_firmware(&context, 2 * kBatchBytes, 1280), kFailure);
  EXPECT_EQ(world().mtd.writes, 10);
  EXPECT_EQ(world().mtd.reads, 0);
  EXPECT_THAT(world().tools, IsEmpty());
}

TEST_F(Flash, AFragmentRequestThatCannotBeSentFailsWithTheCleanUp) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  expect_clean();
}

TEST_F(Flash, ADeadServerIsToldAfterTheCleanUp) {
  answers = [](const fake::Datagram&) { return false; };
  EXPECT_EQ(upgrade(trx_image(1000)), kPeerDead);
  EXPECT_THAT(world().diagnostics(),
              HasSubstr("Peer dead when upgrading firmware, Register again"));
  EXPECT_EQ(world().mtd.erases, 0);
  expect_clean();
}

TEST_F(Flash, AFileShorterThanAHeaderFailsWithoutAWord) {
  EXPECT_EQ(upgrade(Bytes(27, 'x')), kFailure);
  EXPECT_EQ(count("diag TRX"), 0);
  expect_clean();
}

TEST_F(Flash, ABadHeaderFailsWithoutAWordAndBeforeTheFlashIsOpened) {
  Bytes image = trx_image(1000);
  fake::put32(image, 4, 0x780001);
  EXPECT_EQ(upgrade(image), kFailure);
  EXPECT_THAT(world().diagnostics(), ::testing::EndsWith("fragment number=1.\n#"));
  EXPECT_EQ(count("check_memory"), 0);
  expect_clean();
}

TEST_F(Flash, APartitionThatIsNotThereIsSaidWhateverDebugSays) {
  unlink(world().path(kLinux).c_str());
  debug = 0;
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  EXPECT_EQ(world().diagnostics(),
            "do_rcm_download_and_upgrade_firmware: No such file or directory\n");
  expect_clean();
}

TEST_F(Flash, AGeometryThatIsNotToBeHadIsSaid) {
  world().mtd.info_fails = true;
  debug = 0;
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  EXPECT_EQ(world().diagnostics(),
            "do_rcm_download_and_upgrade_firmware: Inappropriate ioctl for device\n");
  expect_clean();
}

TEST_F(Flash, ABlockSmallerThanAHeaderIsSaid) {
  world().mtd.erase_size = 27;
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  EXPECT_THAT(world().diagnostics(), HasSubstr("do_rcm_download_and_upgrade_firmware: "));
  EXPECT_EQ(count("check_memory"), 0);
  expect_clean();
}

TEST_F(Flash, ABlockOf28BytesIsNotTooSmall) {
  world().mtd.erase_size = 28;
  const Bytes image = trx_image(1000);
  EXPECT_EQ(upgrade(image), kSuccess);
  EXPECT_TRUE(flashed(1000) == image);
}

TEST_F(Flash, TooLittleMemoryForABlockFails) {
  world().on_check_memory = [](std::uint32_t) { return 0; };
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  EXPECT_EQ(world().mtd.reads, 0);
  EXPECT_EQ(count("diag erase length"), 0);
  expect_clean();
}

TEST_F(Flash, UnknownMemoryFiguresDoNotRefuseABlock) {
  world().on_check_memory = [](std::uint32_t) { return -1; };
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
}

TEST_F(Flash, ABlockThatIsNotToBeHadFailsWithoutTheDummyRead) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer's own memory has no bounds";
#endif
  world().mtd.erase_size = 0xFFFF0000;
  rlimit before{};
  getrlimit(RLIMIT_AS, &before);
  const rlimit tight = {std::min<rlim_t>(before.rlim_max, 2U << 30), before.rlim_max};
  setrlimit(RLIMIT_AS, &tight);
  const int result = upgrade(trx_image(1000));
  setrlimit(RLIMIT_AS, &before);
  EXPECT_EQ(result, kFailure);
  EXPECT_EQ(count("diag erase length=-65536.\n"), 1);
  EXPECT_EQ(count("diag trx length"), 0);
  EXPECT_EQ(world().mtd.reads, 0);
  expect_clean();
}

TEST_F(Flash, AFileShorterThanItsHeaderSaysFailsBeforeItsBlockIsErased) {
  Bytes image = trx_image(2000);
  image.resize(1500);
  EXPECT_EQ(upgrade(image), kFailure);
  EXPECT_EQ(world().mtd.erases, 0);
  EXPECT_EQ(world().mtd.reads, 1);
  expect_clean();
}

TEST_F(Flash, AnEraseThatFailsEndsTheUpgradeAndLeavesWhatIsWritten) {
  world().mtd.erase_fails_at = 1;
  const Bytes image = trx_image(150000);
  EXPECT_EQ(upgrade(image), kFailure);
  EXPECT_TRUE(flashed(65536) == Bytes(image.begin(), image.begin() + 65536));
  EXPECT_EQ(world().console(), "-+");
  expect_clean();
}

TEST_F(Flash, AShortFlashWriteEndsTheUpgrade) {
  world().mtd.write_fails_at = 1;
  EXPECT_EQ(upgrade(trx_image(150000)), kFailure);
  EXPECT_EQ(world().console(), "-+-");
  expect_clean();
}

TEST_F(Flash, TheLastBatchsDescriptorIsClosedASecondTime) {
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
  EXPECT_EQ(closes_of_closed, 1);
}

TEST_F(Flash, AFileWhoseDownloadFailedIsClosedASecondTime) {
  answers = [](const fake::Datagram&) { return false; };
  EXPECT_EQ(upgrade(trx_image(1000)), kPeerDead);
  EXPECT_EQ(closes_of_closed, 1);
}

TEST_F(Flash, AFileThatFailedWhileOpenIsClosedOnce) {
  EXPECT_EQ(upgrade(Bytes(27, 'x')), kFailure);
  EXPECT_EQ(closes_of_closed, 0);
}

TEST_F(Flash, AFileWhoseDownloadFailedIsClosedASecondTimeToo) {
  world().send_fails = [](const fake::Datagram&) { return true; };
  EXPECT_EQ(upgrade(trx_image(1000)), kFailure);
  EXPECT_EQ(closes_of_closed, 1);
}

TEST_F(Flash, TheBlockIsGivenBackBeforeTheFileIsRemoved) {
  world().mtd.erase_size = 4 << 20;
  const auto taken = [] {
    const auto heap = mallinfo2();
    return static_cast<std::int64_t>(heap.uordblks + heap.hblkhd);
  };
  std::int64_t at_removal = 0;
  world().on_tool = [&](const fake::ToolRun&) {
    at_removal = taken();
    return 0;
  };
  const std::int64_t before = taken();
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
  EXPECT_LT(at_removal - before, 3 << 20);
}

TEST_F(Flash, NoDescriptorIsLeftOpenWhateverFails) {
  const int before = dup(0);
  close(before);
  const auto expect_all_closed = [&] {
    const int now = dup(0);
    EXPECT_EQ(now, before);
    close(now);
  };
  upgrade(trx_image(1000));
  expect_all_closed();
  world().mtd.erase_fails_at = world().mtd.erases;
  upgrade(trx_image(1000));
  expect_all_closed();
  answers = [](const fake::Datagram&) { return false; };
  upgrade(trx_image(1000));
  expect_all_closed();
}

// Finding the partition.

class Partitions : public Flash {
protected:
  static bool opens(const std::string& name, const std::string& path) {
    const UniqueFd fd(mtd_open(name.c_str(), O_RDWR));
    struct stat found {};
    struct stat wanted {};
    return fd && fstat(fd.get(), &found) == 0 && stat(path.c_str(), &wanted) == 0 &&
           found.st_ino == wanted.st_ino && (fcntl(fd.get(), F_GETFL) & O_ACCMODE) == O_RDWR;
  }
};

TEST_F(Partitions, AreFoundByTheirName) {
  EXPECT_TRUE(opens("linux", world().path(kLinux)));
  world().write_file("/dev/mtd/2", "b");
  EXPECT_TRUE(opens("backup", world().path("/dev/mtd/2")));
}

TEST_F(Partitions, AnEarlierLineThatMerelyContainsTheNameWins) {
  world().write_file("/proc/mtd", "dev:    size   erasesize  name\n"
                                  "mtd7: 00040000 00010000 \"old-linux-2\"\n"
                                  "mtd1: 00800000 00010000 \"linux\"\n");
  world().write_file("/dev/mtd/7", "7");
  EXPECT_TRUE(opens("linux", world().path("/dev/mtd/7")));
}

TEST_F(Partitions, ALineWithoutANumberIsPassedOver) {
  world().write_file("/proc/mtd", "linux\nmtdX: \"linux\"\nmtd1: \"linux\"");
  EXPECT_TRUE(opens("linux", world().path(kLinux)));
}

TEST_F(Partitions, WithoutALineTheNameItselfIsThePath) {
  world().write_file("/tmp/plain", "p");
  EXPECT_TRUE(opens("/tmp/plain", world().path("/tmp/plain")));
}

TEST_F(Partitions, WithoutTheListTheNameIsARelativePath) {
  unlink(world().path("/proc/mtd").c_str());
  char here[4096];
  ASSERT_NE(getcwd(here, sizeof here), nullptr);
  ASSERT_EQ(chdir(world().root().c_str()), 0);
  EXPECT_LT(mtd_open("linux", O_RDWR), 0);
  world().write_file("/linux", "l");
  EXPECT_TRUE(opens("linux", world().path("/linux")));
  ASSERT_EQ(chdir(here), 0);
}

TEST_F(Partitions, ALineLongerThanTheBufferIsReadInPieces) {
  world().write_file("/proc/mtd",
                     "mtd5: " + std::string(5000, 'x') + " \"linux\"\nmtd1: \"linux\"\n");
  EXPECT_TRUE(opens("linux", world().path(kLinux)));
}

// The handler.

class FlashCommand : public Flash {
protected:
  void run() { EXPECT_THROW(rcm_upgradecmd_flash_func(&context), fake::Restarted); }
  [[nodiscard]] static Story words() {
    return world().events_of({"diag NAME", "diag low", "diag send", "diag prepare", "diag rcm",
                              "diag Socket", "diag do_rcm", "diag REBOOT", "diag Peer", "sleep",
                              "register", "cancel", "restart", "remove", "check_memory 6",
                              "check_memory 1"});
  }
};

TEST_F(FlashCommand, UpgradesAndRestartsAndStopsNoService) {
  serve(trx_image(3000));
  run();
  EXPECT_THAT(words(),
              ElementsAre("diag NAME=fw.trx\n", "check_memory 656384",
                          "diag send firmware upgrade ACK .... \n", "check_memory 1703936",
                          "diag prepare file request .... \n",
                          "diag rcm download and upgrade firmware .... \n", "check_memory 65536",
                          "diag REBOOT .... \n", "sleep 3", "restart 01234567"));
  EXPECT_EQ(world().tools.size(), 1U);
  EXPECT_TRUE(flashed(3000) == file);
}

TEST_F(FlashCommand, NoFragmentsAtAllRestartTheDevice) {
  serve({});
  command(256, 0, 0, "fw.trx");
  run();
  EXPECT_EQ(world().mtd.erases, 0);
}

TEST_F(FlashCommand, TooLittleMemoryForABatchIsNotAnswered) {
  world().on_check_memory = [](std::uint32_t) { return 0; };
  rcm_upgradecmd_flash_func(&context);
  EXPECT_THAT(story(),
              ElementsAre("diag NAME=fw.trx\n", "check_memory 656384", "diag low memory .. \n"));
  EXPECT_THAT(world().sent, IsEmpty());
}

TEST_F(FlashCommand, UnknownMemoryFiguresPassTheFirstCheckAndNotTheSecond) {
  world().on_check_memory = [](std::uint32_t) { return -1; };
  rcm_upgradecmd_flash_func(&context);
  EXPECT_THAT(story(), ElementsAre("diag NAME=fw.trx\n", "check_memory 656384",
                                   "diag send firmware upgrade ACK .... \n", "check_memory 1703936",
                                   "diag low memory .. \n"));
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(FlashCommand, TooLittleMemoryAtTheSecondCheckComesBehindTheAcknowledgement) {
  world().on_check_memory = [](std::uint32_t bytes) { return bytes == 0x1A0000 ? 0 : 1; };
  rcm_upgradecmd_flash_func(&context);
  EXPECT_EQ(world().sent.size(), 1U);
}

TEST_F(FlashCommand, AnAcknowledgementThatCannotBeSentDoesNotEndTheUpgrade) {
  serve(trx_image(3000));
  world().send_fails = [](const fake::Datagram& sent) { return ntohs(sent.peer.sin_port) == 4000; };
  run();
  EXPECT_THAT(words()[3], "diag sendto fail .. \n");
}

TEST_F(FlashCommand, AFileRequestThatCannotBeSentIsFollowedByTheDownload) {
  serve(trx_image(3000));
  world().send_fails = [](const fake::Datagram& sent) { return fake::type_of(sent.bytes) == 8; };
  run();
  const Story all = words();
  EXPECT_THAT(Story(all.begin() + 4, all.begin() + 8),
              ElementsAre("diag prepare file request .... \n", "diag Socket send error ... \n",
                          "remove /tmp/firmware.download",
                          "diag rcm download and upgrade firmware .... \n"));
}

TEST_F(FlashCommand, AFailureIsSaidAndTheDeviceRunsOn) {
  serve(Bytes(3000, 'x'));
  rcm_upgradecmd_flash_func(&context);
  const Story all = words();
  EXPECT_THAT(Story(all.end() - 2, all.end()),
              ElementsAre("diag do_rcm_download_and_upgrade_firmware fail ... \n",
                          "remove /tmp/firmware.download"));
}

TEST_F(FlashCommand, ADeadServerStartsTheWholeImageAgainFromBatch0) {
  const Bytes image = trx_image(kBatchBytes + 3000);
  serve(image);
  command(256, 643, kBatchBytes + 3000, "fw.trx");
  bool registered = false;
  fake::on_register = [&] { registered = true; };
  answers = [&](const fake::Datagram& sent) {
    return registered || fake::type_of(sent.bytes) == 8 || fake::u16_at(sent.bytes, 36) < 640;
  };
  run();
  EXPECT_TRUE(flashed(image.size()) == image);
  EXPECT_EQ(count("diag start fragment=0,"), 2);
  EXPECT_EQ(count("register"), 1);
  EXPECT_EQ(count("diag prepare file request .... \n"), 2);
  EXPECT_EQ(world().mtd.erases, 10 + 11);
}

TEST_F(FlashCommand, ADeadServerAtTheFileRequestIsRegisteredWithAgain) {
  serve(trx_image(3000));
  answers = [&](const fake::Datagram& sent) { return sent.at_ms > 290000; };
  run();
  EXPECT_THAT(words(),
              ::testing::IsSupersetOf({"diag Peer dead while requesting file, register again\n",
                                       "cancel rcm_logsender", "cancel rcm_keepalive",
                                       "cancel rcm_gpssender", "register"}));
}

TEST_F(FlashCommand, ARefusedRestartLetsTheDaemonRunOn) {
  serve(trx_image(3000));
  world().restart_refused = true;
  rcm_upgradecmd_flash_func(&context);
  EXPECT_EQ(world().events.back(), "restart 01234567");
}

} // namespace
