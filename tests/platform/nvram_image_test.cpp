// The lasting image by itself: what a reader maps and a writer holds open, and gives back.

#include "platform/common/nvram_image.h"

#include "tests/platform/device_fixture.h"
#include "tests/platform/failing_sync.h"

#include <climits>
#include <fcntl.h>

using rcmd::NvramImage;
using rcmd::NvramImageWriter;

namespace {

class Image : public device_test::Device {
protected:
  Image() : path_(folder() / "flash/nvram") {}

  bool write_image(const std::vector<std::string>& records) const {
    NvramImageWriter writer(path_.c_str());
    for (const std::string& record : records) {
      writer.add(record.c_str());
    }
    return writer.finish();
  }
  [[nodiscard]] std::vector<std::string> records() const {
    const NvramImage image(path_.c_str());
    std::vector<std::string> found;
    std::uint32_t position = 0;
    while (const char* record = image.next(&position)) {
      found.emplace_back(record);
    }
    return found;
  }
  [[nodiscard]] bool mapped() const {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
      if (line.ends_with(path_)) {
        return true;
      }
    }
    return false;
  }
  static bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }

  std::string path_;
};

TEST_F(Image, ItsRecordsAreWalkedFromTheFirstToTheLast) {
  ASSERT_TRUE(write_image({"a=1", "bc="}));
  EXPECT_EQ(records(), (std::vector<std::string>{"a=1", "bc="}));
}

TEST_F(Image, AMappingLivesAsLongAsItsReader) {
  ASSERT_TRUE(write_image({"a=1"}));
  {
    const NvramImage image(path_.c_str());
    EXPECT_TRUE(mapped());
  }
  EXPECT_FALSE(mapped());
}

TEST_F(Image, ADamagedOneStaysUnmapped) {
  ASSERT_TRUE(write_image({"a=1"}));
  write("flash/nvram", read("flash/nvram") + "x");
  const NvramImage image(path_.c_str());
  EXPECT_FALSE(mapped());
}

// The checksums are right: the CRC-32 of 01 00 00 00 and the records, as zlib counts it.
TEST_F(Image, OneWhoseLastRecordHasNoEndIsDamaged) {
  std::filesystem::create_directory(folder() / "flash");
  write("flash/nvram", std::string("NVRM\x01\0\0\0\x03\0\0\0"
                                   "\x59\x3D\x38\x49\x01\0\0\0"
                                   "a=1",
                                   23));
  EXPECT_FALSE(NvramImage::sound_at(path_.c_str()));
  write("flash/nvram", std::string("NVRM\x01\0\0\0\x04\0\0\0"
                                   "\xE0\x3E\xFC\xC0\x01\0\0\0"
                                   "a=1\0",
                                   24));
  EXPECT_TRUE(NvramImage::sound_at(path_.c_str())) << "the same with an end";
}

TEST_F(Image, TwoRecordsThatDoNotFitTheBufferTogetherAreBothWritten) {
  const std::string first = "a=" + std::string(2500, 'x');
  const std::string second = "b=" + std::string(2500, 'y');
  ASSERT_TRUE(write_image({first, second}));
  EXPECT_EQ(records(), (std::vector<std::string>{first, second}));
}

TEST_F(Image, AWriterClosesItsFile) {
  const auto open_descriptors = [] {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
  };
  const auto before = open_descriptors();
  ASSERT_TRUE(write_image({"a=1"}));
  EXPECT_EQ(open_descriptors(), before);
}

TEST_F(Image, AWritersFileMayHaveTheNumberZero) {
  const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
  close(0);
  EXPECT_TRUE(write_image({"a=1"}));
  EXPECT_FALSE(is_open(0));
  dup2(saved, 0);
  close(saved);
}

TEST_F(Image, AWriterWhosePathIsTooLongClosesNothing) {
  ASSERT_TRUE(is_open(0));
  const std::string longest(PATH_MAX - 2, 'x');
  {
    NvramImageWriter writer(longest.c_str());
    writer.add("a=1");
    EXPECT_FALSE(writer.finish());
  }
  EXPECT_TRUE(is_open(0));
}

TEST_F(Image, AFolderThatIsNotMadeLastingIsAFailure) {
  sync_test::syncs_before_failure = 1; // the file's own
  EXPECT_FALSE(write_image({"a=1"}));
  sync_test::syncs_before_failure = -1;
}

} // namespace
