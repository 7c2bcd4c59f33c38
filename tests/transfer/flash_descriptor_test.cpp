// What the upgrade straight into flash holds open, and gives back.
#include "transfer/flash.h"

#include "core/owned.h"
#include "core/result.h"
#include "tests/transfer/server.h"

#include <fcntl.h>
#include <filesystem>
#include <malloc.h>
#include <unistd.h>

using namespace rcmd;
using fake::Bytes;
using fake::trx_image;
using fake::world;

namespace {

constexpr char kLinux[] = "/dev/mtd/1";

class FlashDescriptors : public fake::TransferFixture {
protected:
  FlashDescriptors() {
    world().write_file("/proc/mtd", "mtd1: 00800000 00010000 \"linux\"\n");
    world().write_file(kLinux, std::string(world().mtd.size, 'o'));
  }
  int upgrade(const Bytes& image) {
    serve(image);
    return do_rcm_download_and_upgrade_firmware(
        &context, static_cast<std::uint32_t>(image.size()),
        static_cast<std::uint16_t>((image.size() + 1023) / 1024));
  }
  static bool is_open(int fd) { return fcntl(fd, F_GETFD) != -1; }
  static bool holds(const std::string& path) {
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      if (std::filesystem::read_symlink(entry.path(), gone) == path) {
        return true;
      }
    }
    return false;
  }
};

// Descriptor 0 is free while it lives.
class WithoutStandardInput {
public:
  WithoutStandardInput() : kept_(fcntl(0, F_DUPFD_CLOEXEC, 100)) { close(0); }
  WithoutStandardInput(const WithoutStandardInput&) = delete;
  WithoutStandardInput& operator=(const WithoutStandardInput&) = delete;
  ~WithoutStandardInput() {
    dup2(kept_, 0);
    close(kept_);
  }

private:
  int kept_;
};

TEST_F(FlashDescriptors, AnUpgradeOfNoFragmentsClosesNoDescriptor) {
  ASSERT_TRUE(is_open(0));
  EXPECT_EQ(upgrade({}), kSuccess);
  EXPECT_TRUE(is_open(0));
}

TEST_F(FlashDescriptors, TheFileMayHaveTheNumberZero) {
  const WithoutStandardInput closed;
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
}

TEST_F(FlashDescriptors, AFailedUpgradesFileOfTheNumberZeroIsClosed) {
  const WithoutStandardInput closed;
  EXPECT_EQ(upgrade(Bytes(1000, 'x')), kFailure);
  EXPECT_FALSE(is_open(0));
}

TEST_F(FlashDescriptors, TheFlashIsClosedBeforeTheFileIsRemoved) {
  const std::string partition = world().path(kLinux);
  bool held_while_writing = false;
  bool held_while_removing = true;
  world().on_call = [&](const std::string& event) {
    if (event == "mtd_write 1000") {
      held_while_writing = holds(partition);
    }
  };
  world().on_tool = [&](const fake::ToolRun& run) {
    EXPECT_EQ(run.line(), "rm -rf /tmp/firmware.download");
    held_while_removing = holds(partition);
    return 0;
  };
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
  EXPECT_TRUE(held_while_writing);
  EXPECT_FALSE(held_while_removing);
}

TEST_F(FlashDescriptors, TheEraseBlockIsGivenBack) {
  const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  world().mtd.erase_size = 4 << 20;
  const std::size_t before = in_use();
  EXPECT_EQ(upgrade(trx_image(1000)), kSuccess);
  EXPECT_LT(in_use(), before + (2 << 20));
}

TEST_F(FlashDescriptors, TheEraseBlockIsGivenBackWhenALaterBatchHasNoFile) {
  const auto in_use = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
  const std::string download = world().path("/tmp/firmware.download");
  world().mtd.erase_size = 4 << 20;
  world().on_call = [&](const std::string& event) {
    if (event.starts_with("diag start fragment=640")) {
      std::filesystem::remove(download);
      std::filesystem::create_directory(download);
    }
  };
  const Bytes image = trx_image(640 * 1024 + 5);
  const std::size_t before = in_use();
  EXPECT_EQ(upgrade(image), kFailure);
  EXPECT_EQ(world().mtd.erases, 1) << "the first batch is in flash";
  EXPECT_LT(in_use(), before + (3 << 20));
}

TEST_F(FlashDescriptors, AShortWriteOfTheFirstBlockLeavesTheOthersAlone) {
  world().mtd.write_fails_at = 0;
  EXPECT_EQ(upgrade(trx_image(200000)), kFailure);
  EXPECT_EQ(world().mtd.erases, 1);
}

TEST_F(FlashDescriptors, ThePartitionOfTheNumberZeroIsOneLikeTheOthers) {
  world().write_file("/proc/mtd", "mtd0: 00800000 00010000 \"linux\"\n");
  world().write_file("/dev/mtd/0", "0");
  EXPECT_TRUE(UniqueFd(mtd_open("linux", O_RDWR)));
}

// A line's first piece has 4095 characters.
TEST_F(FlashDescriptors, ANameThatEndsTheFirstPieceOfALongLineIsFound) {
  world().write_file("/proc/mtd", "mtd1: " + std::string(4084, 'x') + "linux behind\n");
  EXPECT_TRUE(UniqueFd(mtd_open("linux", O_RDWR)));
}

TEST_F(FlashDescriptors, ANameThatTheFirstPieceCutsIsNotFound) {
  world().write_file("/proc/mtd", "mtd1: " + std::string(4085, 'x') + "linux behind\n");
  EXPECT_FALSE(UniqueFd(mtd_open("linux", O_RDWR)));
}

} // namespace
