#include "local/backup_nvram.h"

#include "tests/fake_platform/fixture.h"

#include <cstdio>

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <unistd.h>

using fake::world;
using ::testing::ElementsAre;

using namespace std::string_literals;

namespace {

const std::string kHead = "HEADER--HEADER--HEAD";

// As the program starts, before any test has run.
const int kFirstFd = rcmd::nvram_backup_fd;
const char* const kFirstMmap = rcmd::nvram_backup_mmap;
const int kFirstSize = rcmd::nvram_backup_size;

class BackupNvram : public fake::Fixture {
protected:
  ~BackupNvram() override { rcmd::backup_nvram_fini(); }

  /// One set on an image of these bytes. @return the image afterwards
  static std::string after_set(const std::string& image, const char* name, const char* value) {
    world().write_file("/tmp/nvram.backup", image);
    EXPECT_EQ(rcmd::backup_nvram_init(), 0);
    rcmd::backup_nvram_set(name, value);
    rcmd::backup_nvram_fini();
    return world().read_file("/tmp/nvram.backup");
  }
  static std::size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }
};

using BackupNvramInit = BackupNvram;

TEST_F(BackupNvramInit, ThePathIsWhereTheToolsPutTheImage) {
  EXPECT_STREQ(rcmd::nvram_backup_path, "/tmp/nvram.backup");
}

TEST_F(BackupNvramInit, BeforeTheFirstThereIsNoImage) {
  EXPECT_EQ(kFirstFd, -1);
  EXPECT_EQ(kFirstMmap, nullptr);
  EXPECT_EQ(kFirstSize, 0);
}

TEST_F(BackupNvramInit, TheToolReadsThePartitionAndTheFileIsMapped) {
  world().on_tool = [](const fake::ToolRun&) {
    world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
    return 0;
  };
  EXPECT_EQ(rcmd::backup_nvram_init(), 0);
  ASSERT_EQ(world().tools.size(), 1U);
  EXPECT_THAT(world().tools[0].arguments,
              ElementsAre("nvram_mtd_read", "/tmp/nvram.backup", "backup"));
  EXPECT_EQ(world().tools[0].output, ">/dev/console");
  EXPECT_TRUE(world().tools[0].waited);
  EXPECT_EQ(rcmd::nvram_backup_size, 24);
  EXPECT_GT(rcmd::nvram_backup_fd, 0);
  EXPECT_EQ(std::string(rcmd::nvram_backup_mmap, 24), kHead + "a=1\0"s);
}

TEST_F(BackupNvramInit, AFailedToolIsNotNoticed) {
  world().write_file("/tmp/nvram.backup", kHead);
  world().on_tool = [](const fake::ToolRun&) { return 1; };
  EXPECT_EQ(rcmd::backup_nvram_init(), 0);
}

TEST_F(BackupNvramInit, AMissingFileFails) {
  EXPECT_EQ(rcmd::backup_nvram_init(), -1);
  EXPECT_EQ(rcmd::nvram_backup_fd, -1);
}

TEST_F(BackupNvramInit, AFileThatCannotBeMappedFailsAndIsClosed) {
  world().write_file("/tmp/nvram.backup", "");
  const std::size_t before = open_descriptors();
  EXPECT_EQ(rcmd::backup_nvram_init(), -1);
  EXPECT_EQ(rcmd::nvram_backup_size, 0);
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(BackupNvramInit, AFileWhoseSizeIsNoIntFails) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  const std::size_t before = open_descriptors();
  std::filesystem::resize_file(world().path("/tmp/nvram.backup"), (1ULL << 32) + 24); // sparse
  EXPECT_EQ(rcmd::backup_nvram_init(), -1);
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(BackupNvramInit, AFileWhoseSizeIsTheLargestIntIsMapped) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  std::filesystem::resize_file(world().path("/tmp/nvram.backup"), 2147483647); // sparse
  EXPECT_EQ(rcmd::backup_nvram_init(), 0);
  EXPECT_EQ(rcmd::nvram_backup_size, 2147483647);
}

TEST_F(BackupNvramInit, ToolsThatRunMeanwhileDoNotInheritTheImage) {
  world().write_file("/tmp/nvram.backup", kHead);
  ASSERT_EQ(rcmd::backup_nvram_init(), 0);
  EXPECT_EQ(fcntl(rcmd::nvram_backup_fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(BackupNvramInit, AFolderInTheFilesPlaceFails) {
  std::filesystem::create_directory(world().path("/tmp/nvram.backup"));
  EXPECT_EQ(rcmd::backup_nvram_init(), -1);
}

using BackupNvramFini = BackupNvram;

TEST_F(BackupNvramFini, GivesEverythingBackAndKeepsTheValues) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  const std::size_t before = open_descriptors();
  ASSERT_EQ(rcmd::backup_nvram_init(), 0);
  const int fd = rcmd::nvram_backup_fd;
  char* const image = rcmd::nvram_backup_mmap;
  rcmd::backup_nvram_fini();
  EXPECT_EQ(open_descriptors(), before);
  unsigned char resident = 0;
  EXPECT_EQ(mincore(image, 24, &resident), -1) << "still mapped";
  EXPECT_EQ(rcmd::nvram_backup_fd, fd);
  EXPECT_EQ(rcmd::nvram_backup_mmap, image);
  EXPECT_EQ(rcmd::nvram_backup_size, 24);
}

TEST_F(BackupNvramFini, ASecondOneTouchesNothingOfOthers) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  ASSERT_EQ(rcmd::backup_nvram_init(), 0);
  rcmd::backup_nvram_fini();
  void* const others = mmap(rcmd::nvram_backup_mmap, 4096, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  ASSERT_EQ(others, rcmd::nvram_backup_mmap);
  const std::string image = kHead + "a=1\0"s;
  std::memcpy(others, image.data(), image.size());
  const int others_fd = open("/dev/null", O_RDONLY);
  ASSERT_EQ(others_fd, rcmd::nvram_backup_fd);
  rcmd::backup_nvram_fini();
  rcmd::backup_nvram_set("a", "2");
  unsigned char resident = 0;
  EXPECT_EQ(mincore(others, 4096, &resident), 0);
  EXPECT_EQ(std::string(static_cast<char*>(others), image.size()), image);
  EXPECT_EQ(fcntl(others_fd, F_GETFD) & ~FD_CLOEXEC, 0);
  close(others_fd);
  munmap(others, 4096);
}

TEST_F(BackupNvramFini, AFailedInitAfterAGoodOneUnmapsNothing) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  ASSERT_EQ(rcmd::backup_nvram_init(), 0);
  rcmd::backup_nvram_fini();
  void* const others = mmap(rcmd::nvram_backup_mmap, 4096, PROT_READ | PROT_WRITE,
                            MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
  ASSERT_EQ(others, rcmd::nvram_backup_mmap);
  std::filesystem::remove(world().path("/tmp/nvram.backup"));
  EXPECT_EQ(rcmd::backup_nvram_init(), -1);
  EXPECT_EQ(rcmd::nvram_backup_fd, -1) << "that of the good one is no longer told";
  unsigned char resident = 0;
  EXPECT_EQ(mincore(others, 4096, &resident), 0);
  munmap(others, 4096);
}

TEST_F(BackupNvramFini, ADescriptorOf0IsLeftOpen) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  const int saved = dup(0);
  close(0);
  EXPECT_EQ(rcmd::backup_nvram_init(), 0);
  EXPECT_EQ(rcmd::nvram_backup_fd, 0);
  rcmd::backup_nvram_fini();
  EXPECT_GE(fcntl(0, F_GETFD), 0);
  close(0);
  if (saved >= 0) {
    dup2(saved, 0);
    close(saved);
  }
}

TEST_F(BackupNvramFini, ADescriptorOf1IsClosedLikeAnyOther) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  std::fflush(stdout);
  const int saved = fcntl(1, F_DUPFD_CLOEXEC, 100);
  close(1);
  const int result = rcmd::backup_nvram_init();
  const int fd = rcmd::nvram_backup_fd;
  rcmd::backup_nvram_fini();
  const bool closed = fcntl(1, F_GETFD) < 0;
  dup2(saved, 1);
  close(saved);
  EXPECT_EQ(result, 0);
  EXPECT_EQ(fd, 1);
  EXPECT_TRUE(closed);
}

TEST_F(BackupNvramFini, BeforeTheFirstInitDoesNothing) {
  rcmd::backup_nvram_fini();
  rcmd::backup_nvram_fini();
}

TEST_F(BackupNvram, CommitWritesThePartitionAndGivesTheToolsResult) {
  world().on_tool = [](const fake::ToolRun&) { return 7; };
  EXPECT_EQ(rcmd::backup_nvram_commit(), 7);
  EXPECT_THAT(world().events,
              ElementsAre("tool nvram_mtd_write /tmp/nvram.backup backup >/dev/console"));
  EXPECT_TRUE(world().tools[0].waited);
}

using BackupNvramSet = BackupNvram;

TEST_F(BackupNvramSet, BeginsWithALineEndOnTheConsole) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0"s);
  ASSERT_EQ(rcmd::backup_nvram_init(), 0);
  world().events.clear();
  rcmd::backup_nvram_set("nobody", "2");
  EXPECT_THAT(world().events, ElementsAre("console \n"));
}

TEST_F(BackupNvramSet, AnImageOf20BytesOrLessIsLeftAlone) {
  EXPECT_EQ(after_set("a=1\0a=1\0a=1\0a=1\0a=1\0"s, "a", "2"), "a=1\0a=1\0a=1\0a=1\0a=1\0"s);
  EXPECT_EQ(after_set("a=1\0"s, "a", "2"), "a=1\0"s);
  EXPECT_EQ(world().console(), "\n\n");
}

TEST_F(BackupNvramSet, AValueOfTheSameLengthChangesItsOwnBytesAlone) {
  EXPECT_EQ(after_set(kHead + "x=7\0abc=123\0y=8\0\0\0"s, "abc", "456"),
            kHead + "x=7\0abc=456\0y=8\0\0\0"s);
}

TEST_F(BackupNvramSet, AShorterValuePullsTheRestDownAndTheLastBytesStay) {
  EXPECT_EQ(after_set(kHead + "abc=12345\0y=8\0END"s, "abc", "67"), kHead + "abc=67\0y=8\0ENDEND"s);
}

TEST_F(BackupNvramSet, ALongerValuePushesTheRestUp) {
  EXPECT_EQ(after_set(kHead + "abc=12\0y=8\0\0\0\0\0"s, "abc", "34567"),
            kHead + "abc=34567\0y=8\0\0"s);
}

TEST_F(BackupNvramSet, InAFullImageALongerValueLosesTheLastBytes) {
  EXPECT_EQ(after_set(kHead + "abc=12\0y=8\0z=9\0"s, "abc", "34567"), kHead + "abc=34567\0y=8\0z"s);
}

TEST_F(BackupNvramSet, AValueThatWouldRunPastTheEndIsCutThere) {
  EXPECT_EQ(after_set(kHead + "y=8\0abc=12\0"s, "abc", "3456"), kHead + "y=8\0abc=345"s);
  EXPECT_EQ(after_set(kHead + "abc=12\0y=8\0"s, "abc", "345678"), kHead + "abc=345678\0"s);
  EXPECT_EQ(after_set(kHead + "abc=12\0y=8\0"s, "abc", "3456789"), kHead + "abc=3456789"s);
  EXPECT_EQ(after_set(kHead + "abc=12\0y=8\0"s, "abc", std::string(5000, 'v').c_str()),
            kHead + "abc=vvvvvvv"s);
}

TEST_F(BackupNvramSet, AnEmptyValueIsAValue) {
  EXPECT_EQ(after_set(kHead + "abc=\0y=8\0\0\0"s, "abc", "1"), kHead + "abc=1\0y=8\0\0"s);
  EXPECT_EQ(after_set(kHead + "abc=1\0y=8\0\0"s, "abc", ""), kHead + "abc=\0y=8\0\0\0"s);
}

TEST_F(BackupNvramSet, ANameThatIsNotThereIsNotAdded) {
  const std::string image = kHead + "abc=12\0noequals\0\0\0\0\0\0\0"s;
  for (const char* name : {"ab", "abcd", "bc", "noequals", "", "ABC", "abc=12"}) {
    EXPECT_EQ(after_set(image, name, "9"), image) << name;
  }
}

TEST_F(BackupNvramSet, TheNameEndsAtTheFirstEqualsSign) {
  EXPECT_EQ(after_set(kHead + "a=b=c\0\0\0"s, "a", "d"), kHead + "a=d\0\0\0\0\0"s);
  EXPECT_EQ(after_set(kHead + "a=b=c\0\0\0"s, "a=b", "d"), kHead + "a=b=c\0\0\0"s);
}

TEST_F(BackupNvramSet, ARecordWithoutANameIsTheEmptyNames) {
  EXPECT_EQ(after_set(kHead + "=1\0"s, "", "2"), kHead + "=2\0"s);
}

TEST_F(BackupNvramSet, OfANameThatOccursTwiceTheFirstIsChanged) {
  EXPECT_EQ(after_set(kHead + "a=1\0a=2\0"s, "a", "3"), kHead + "a=3\0a=2\0"s);
}

TEST_F(BackupNvramSet, EmptyRecordsAreSteppedOver) {
  EXPECT_EQ(after_set(kHead + "\0\0a=1\0\0\0b=2\0"s, "b", "3"), kHead + "\0\0a=1\0\0\0b=3\0"s);
}

TEST_F(BackupNvramSet, TheHeaderIsNotSearched) {
  const std::string image = "01234567890123456\0a=1\0b=2\0"s;
  EXPECT_EQ(after_set(image, "a", "9"), image);
}

TEST_F(BackupNvramSet, ALastRecordWithoutItsNulIsNoRecord) {
  EXPECT_EQ(after_set(kHead + "a=1\0b=2"s, "b", "3"), kHead + "a=1\0b=2"s);
}

TEST_F(BackupNvramSet, BytesThatAreNotAsciiShiftTheReplacement) {
  EXPECT_EQ(after_set(kHead + "a=1\xC3\xA4"
                              "2\0b=3\0"s,
                      "a", "XY"),
            kHead + "a=1\xC3"
                    "XY\0b=3\0"s);
}

TEST_F(BackupNvramSet, AnAllForeignValueCountsAsEmpty) {
  EXPECT_EQ(after_set(kHead + "a=\x80\xFF\0b=3\0\0"s, "a", "X"), kHead + "a=\x80\xFFX\0b=3\0"s);
}

TEST_F(BackupNvramSet, BytesThatAreNotAsciiInANameAreOverlooked) {
  EXPECT_EQ(after_set(kHead + "a\x90z=1\0"s, "az", "2"), kHead + "a\x90z=2\0"s);
}

TEST_F(BackupNvramSet, ARecordOf1023CharactersMatchesAndOneMoreNever) {
  const std::string fits = "a=" + std::string(1021, 'v');
  EXPECT_EQ(after_set(kHead + fits + "\0b=1\0"s, "a", "9").substr(20, 8), "a=9\0b=1\0"s);
  const std::string image = kHead + fits + "v\0a=1\0"s;
  EXPECT_EQ(after_set(image, "a", "9"), kHead + fits + "v\0a=9\0"s);
}

TEST_F(BackupNvramSet, ForeignBytesTakeNoRoomInTheBuffer) {
  const std::string image = kHead + "a=" + std::string(3000, '\xEE') + "1\0b=1\0"s;
  EXPECT_EQ(after_set(image, "a", "2"), kHead + "a=" + std::string(3000, '\xEE') + "2\0b=1\0"s);
}

TEST_F(BackupNvramSet, SeveralInARowSeeEachOthersWork) {
  world().write_file("/tmp/nvram.backup", kHead + "a=1\0b=2\0\0\0\0\0\0\0"s);
  ASSERT_EQ(rcmd::backup_nvram_init(), 0);
  rcmd::backup_nvram_set("a", "long");
  rcmd::backup_nvram_set("b", "");
  rcmd::backup_nvram_set("a", "0");
  rcmd::backup_nvram_fini();
  EXPECT_EQ(world().read_file("/tmp/nvram.backup"), kHead + "a=0\0b=\0\0\0\0\0\0\0\0"s);
}

} // namespace
