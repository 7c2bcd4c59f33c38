// The settings store where a file cannot take another's place.

#include "platform/common/nvram_store.h"

#include "tests/platform/device_fixture.h"

#include <sys/stat.h>

namespace {

bool renames_fail = false;

} // namespace

extern "C" {
int __real_rename(const char* from, const char* to);
int __wrap_rename(const char* from, const char* to) {
  return renames_fail ? -1 : __real_rename(from, to);
}
}

namespace {

class FailedRename : public device_test::Device {
protected:
  ~FailedRename() override { renames_fail = false; }
  static ino_t working_copy() {
    struct stat facts {};
    EXPECT_EQ(stat((folder() / "run/nvram").c_str(), &facts), 0);
    return facts.st_ino;
  }
};

TEST_F(FailedRename, LeavesTheWorkingCopyAsItWas) {
  rcmd::NvramStore store;
  ASSERT_EQ(store.set("a", "1"), 0);
  const ino_t before = working_copy();
  renames_fail = true;
  EXPECT_EQ(store.set("b", std::string(200'000, 'x').c_str()), -1);
  renames_fail = false;
  EXPECT_FALSE(std::filesystem::exists(folder() / "run/nvram.new"));
  EXPECT_STREQ(store.get("a"), "1");
  EXPECT_EQ(store.set("a", "2"), 0);
  EXPECT_EQ(working_copy(), before) << "which is written on";
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    EXPECT_EQ(line.find("nvram.new"), std::string::npos) << line;
  }
}

TEST_F(FailedRename, MeansNoStoreAtTheFirstUse) {
  renames_fail = true;
  rcmd::NvramStore store;
  EXPECT_EQ(store.get("a"), nullptr);
  EXPECT_EQ(store.set("a", "1"), -1);
  EXPECT_FALSE(std::filesystem::exists(folder() / "run/nvram.new"));
}

TEST_F(FailedRename, RefusesACommit) {
  rcmd::NvramStore store;
  ASSERT_EQ(store.set("a", "1"), 0);
  renames_fail = true;
  EXPECT_EQ(store.commit(), -1) << "the first image";
  renames_fail = false;
  ASSERT_EQ(store.commit(), 0);
  renames_fail = true;
  EXPECT_EQ(store.commit(), -1) << "one that has an image before it";
}

} // namespace
