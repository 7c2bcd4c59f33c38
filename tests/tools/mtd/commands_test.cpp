#include "tools/mtd/commands.h"

#include "tests/fake_platform/fixture.h"
#include "tools/trx/image.h"

#include <gtest/gtest.h>

using fake::world;

namespace {

constexpr std::size_t kLinuxBytes = 1 << 20;

class FlashTools : public fake::Fixture {
protected:
  FlashTools() {
    world().mtd.size = kLinuxBytes;
    world().write_file("/proc/mtd", "dev:    size   erasesize  name\n"
                                    "mtd0: 00100000 00010000 \"old linux\"\n"
                                    "mtd3: 00100000 00010000 \"linux\"\n");
    world().write_file("/dev/mtd/3", std::string(kLinuxBytes, 'o'));
    image = trx::make_image({std::string(100000, 'i')}, false).value();
    world().write_file("/tmp/firmware.download", image);
  }
  static int upgrade() {
    return mtd_tools::mtd({"upgrade_trx", "/tmp/firmware.download", "linux"});
  }
  static std::string flash() { return world().read_file("/dev/mtd/3"); }
  void expect_untouched() {
    EXPECT_EQ(world().mtd.erases, 0);
    EXPECT_EQ(flash(), std::string(kLinuxBytes, 'o'));
  }

  std::string image;
};

TEST_F(FlashTools, ASoundImageIsWrittenByteForByte) {
  EXPECT_EQ(upgrade(), 0);
  EXPECT_EQ(flash().substr(0, image.size()), image);
  EXPECT_EQ(flash()[image.size()], '\xFF');
  EXPECT_EQ(flash().substr(131072), std::string(kLinuxBytes - 131072, 'o'));
  EXPECT_EQ(world().mtd.writes_without_erase, 0);
}

TEST_F(FlashTools, WhatLiesBehindTheImageIsLeftOut) {
  world().write_file("/tmp/firmware.download", image + "behind");
  EXPECT_EQ(upgrade(), 0);
  EXPECT_EQ(flash()[image.size()], '\xFF');
}

TEST_F(FlashTools, AWrongChecksumIsFoundBeforeAnythingIsErased) {
  image.back() ^= 1;
  world().write_file("/tmp/firmware.download", image);
  EXPECT_EQ(upgrade(), 1);
  expect_untouched();
}

TEST_F(FlashTools, AFileThatIsNotThereIsAFailure) {
  EXPECT_EQ(mtd_tools::mtd({"upgrade_trx", "/tmp/absent", "linux"}), 1);
  expect_untouched();
}

TEST_F(FlashTools, AFolderInTheFilesPlaceIsAFailure) {
  EXPECT_EQ(mtd_tools::mtd({"upgrade_trx", "/tmp", "linux"}), 1);
  EXPECT_EQ(mtd_tools::nvram_mtd_write({"/tmp", "linux"}), 1);
  expect_untouched();
}

TEST_F(FlashTools, APartitionIsFoundByItsExactName) {
  EXPECT_EQ(mtd_tools::mtd({"upgrade_trx", "/tmp/firmware.download", "inux"}), 1);
  expect_untouched();
}

TEST_F(FlashTools, AnImageLongerThanThePartitionIsRefusedBeforeAnythingIsErased) {
  world().mtd.size = 65536;
  EXPECT_EQ(upgrade(), 1);
  EXPECT_EQ(world().mtd.erases, 0);
}

TEST_F(FlashTools, AFlashThatFailsIsAFailure) {
  world().mtd.erase_fails_at = 1;
  EXPECT_EQ(upgrade(), 1);
  world().mtd.erase_fails_at = -1;
  world().mtd.write_fails_at = world().mtd.writes;
  EXPECT_EQ(upgrade(), 1);
}

TEST_F(FlashTools, WrongUseIsTold) {
  EXPECT_EQ(mtd_tools::mtd({}), 2);
  EXPECT_EQ(mtd_tools::mtd({"write", "a", "b"}), 2);
  EXPECT_EQ(mtd_tools::nvram_mtd_read({"a"}), 2);
  EXPECT_EQ(mtd_tools::nvram_mtd_write({}), 2);
}

TEST_F(FlashTools, APartitionIsCopiedToAFileAndBack) {
  EXPECT_EQ(mtd_tools::nvram_mtd_read({"/tmp/copy", "linux"}), 0);
  EXPECT_EQ(world().read_file("/tmp/copy"), std::string(kLinuxBytes, 'o'));
  std::string changed(kLinuxBytes, 'n');
  changed[70000] = '\0';
  world().write_file("/tmp/copy", changed);
  EXPECT_EQ(mtd_tools::nvram_mtd_write({"/tmp/copy", "linux"}), 0);
  EXPECT_EQ(flash(), changed);
}

TEST_F(FlashTools, CopiesFailWithoutTheirFileOrPartition) {
  EXPECT_EQ(mtd_tools::nvram_mtd_write({"/tmp/absent", "linux"}), 1);
  EXPECT_EQ(mtd_tools::nvram_mtd_read({"/tmp/copy", "absent"}), 1);
  EXPECT_EQ(mtd_tools::nvram_mtd_read({"/absent/copy", "linux"}), 1);
  EXPECT_EQ(mtd_tools::nvram_mtd_write({"/tmp/firmware.download", "absent"}), 1);
  expect_untouched();
}

} // namespace
