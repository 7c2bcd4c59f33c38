// The settings store: damage, and places without room.

#include "tests/platform/nvram_fixture.h"

#include <csignal>
#include <random>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>

using device_test::Store;
using rcmd::NvramStore;

namespace {

TEST_F(Store, ADamagedWorkingCopyIsRebuiltFromTheImage) {
  for (const std::string& damage :
       {std::string(), std::string("rubbish"), std::string(70'000, '\xA5')}) {
    restart();
    NvramStore store;
    store.set("a", "lasting");
    ASSERT_EQ(store.commit(), 0);
    write("run/nvram", damage);
    NvramStore later;
    EXPECT_EQ(get(later, "a"), "lasting");
    EXPECT_EQ(later.set("b", "1"), 0);
  }
}

TEST_F(Store, AWorkingCopyCutShortIsRebuiltFromTheImage) {
  NvramStore store;
  store.set("a", "lasting");
  ASSERT_EQ(store.commit(), 0);
  const std::string whole = read("run/nvram");
  for (const std::size_t size : {std::size_t{31}, std::size_t{4096}, whole.size() - 4}) {
    restart();
    write("run/nvram", whole.substr(0, size));
    NvramStore later;
    EXPECT_EQ(get(later, "a"), "lasting") << size;
  }
}

TEST_F(Store, AnyBytesBehindASoundHeaderAreReadWithoutHarm) {
  std::mt19937 random(3);
  NvramStore store;
  for (int i = 0; i < 50; i++) {
    store.set(("key" + std::to_string(i)).c_str(), "value");
  }
  const std::string whole = read("run/nvram");
  for (int round = 0; round < 200; round++) {
    std::string damaged = whole;
    for (int i = 0; i < 400; i++) {
      damaged[32 + random() % (damaged.size() - 36)] = static_cast<char>(random());
    }
    restart();
    write("run/nvram", damaged);
    NvramStore reader;
    for (int i = 0; i < 60; i++) {
      reader.get(("key" + std::to_string(i)).c_str());
    }
    all(reader);
  }
}

TEST_F(Store, WithoutAPlaceForItsFilesThereIsNoStore) {
  std::filesystem::remove_all(folder() / "run");
  write("run", "not a folder");
  NvramStore store;
  EXPECT_EQ(store.get("a"), nullptr);
  EXPECT_EQ(store.set("a", "1"), -1);
  EXPECT_NE(store.commit(), 0);
  EXPECT_EQ(store.each([](void*, const char*) {}, nullptr), -1);
  std::filesystem::remove(folder() / "run");
  EXPECT_EQ(store.set("a", "1"), 0) << "once there is a place";
}

/// No file of the process may grow past `bytes`: a full disk.
void fill_disk(rlim_t bytes) {
  signal(SIGXFSZ, SIG_IGN);
  const rlimit limit = {bytes, bytes};
  setrlimit(RLIMIT_FSIZE, &limit);
}

TEST_F(Store, AFullDiskRefusesACommitAndKeepsTheOldImage) {
  NvramStore store;
  store.set("a", "old");
  ASSERT_EQ(store.commit(), 0);
  const std::string image = read("flash/nvram");
  store.set("a", std::string(30'000, 'n').c_str());
  for (const rlim_t room : {0U, 10U, 20U, 4096U, 29'000U}) {
    EXPECT_EQ(in_child([&] {
                fill_disk(room);
                return store.commit() != 0 ? 0 : 1;
              }),
              0)
        << room;
    EXPECT_EQ(read("flash/nvram"), image);
    EXPECT_FALSE(std::filesystem::exists(folder() / "flash/nvram.new"));
  }
  EXPECT_EQ(store.commit(), 0);
}

TEST_F(Store, AFullDiskRefusesAChangeAndKeepsTheOldValues) {
  NvramStore store;
  store.set("a", "old");
  EXPECT_EQ(in_child([&] {
              fill_disk(1000);
              const std::string value(50'000, 'x');
              int refused = 0;
              for (int i = 0; i < 10; i++) {
                const std::string name = "n" + std::to_string(i % 3);
                refused +=
                    store.set(name.c_str(), (value + std::to_string(i)).c_str()) != 0 ? 1 : 0;
              }
              return refused > 0 && get(store, "a") == "old" && store.set("a", "new") == 0 ? 0 : 1;
            }),
            0);
  EXPECT_EQ(get(store, "a"), "new");
  EXPECT_EQ(store.set("b", std::string(100'000, 'y').c_str()), 0) << "once there is room";
}

TEST_F(Store, AFullDiskAtTheFirstUseMeansNoStore) {
  EXPECT_EQ(in_child([] {
              fill_disk(1000);
              NvramStore store;
              return store.get("a") == nullptr && store.set("a", "1") == -1 ? 0 : 1;
            }),
            0);
  EXPECT_FALSE(std::filesystem::exists(folder() / "run/nvram"));
}

/// A file system in memory with so much room, at `path`, for the present process alone.
/// @return false where that is not allowed
bool mount_small_disk(const std::string& path, int kib) {
  const std::string options = "size=" + std::to_string(kib) + "k";
  return (unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0) &&
         mount("none", "/", "", MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount("tmpfs", path.c_str(), "tmpfs", 0, options.c_str()) == 0;
}

/// What a child ends with when it was not allowed to mount.
constexpr int kNoMount = 77;

/// The flash really is full (ENOSPC), at every place where that can be noticed.
TEST_F(Store, AFlashWithoutRoomRefusesACommitAndKeepsTheOldImage) {
  std::filesystem::create_directory(folder() / "flash");
  for (int kib = 4; kib <= 128; kib += 4) {
    restart();
    const int status = in_child([&] {
      if (!mount_small_disk(folder() / "flash", kib)) {
        return kNoMount;
      }
      NvramStore store;
      if (store.set("a", "old") != 0 || store.commit() != 0) {
        return 1;
      }
      store.set("a", std::string(30'000, 'n').c_str());
      const bool committed = store.commit() == 0;
      restart();
      NvramStore later;
      const std::size_t found = get(later, "a").size();
      const bool leftover = std::filesystem::exists(folder() / "flash/nvram.new");
      return !leftover && found == (committed ? 30'000U : 3U) && committed == (kib >= 36) ? 0 : 2;
    });
    if (status == kNoMount) {
      GTEST_SKIP() << "no file system may be mounted here";
    }
    EXPECT_EQ(status, 0) << kib << " KiB";
  }
}

/// A store into a mapping without a page behind it would end the process by a signal.
TEST_F(Store, AMemoryDiskWithoutRoomRefusesAChangeAndKeepsTheOldValues) {
  for (int kib = 4; kib <= 400; kib += 12) {
    const int status = in_child([&] {
      if (!mount_small_disk(folder() / "run", kib)) {
        return kNoMount;
      }
      NvramStore store;
      if (store.set("a", "old") != 0) {
        return kib < 72 ? 0 : 1; // no room for the smallest file
      }
      const std::string value(1000, 'x');
      int keys = 0;
      while (keys < 1000 && store.set(("key" + std::to_string(keys)).c_str(), value.c_str()) == 0) {
        keys++;
      }
      const bool whole = all(store).size() == static_cast<std::size_t>(keys) + 1;
      const bool renewed = keys > 64; // more than the first file holds
      const bool old = get(store, "a") == "old";
      const bool changed = store.set("a", "new") == 0;
      return whole && keys < 1000 && old && get(store, "a") == (changed ? "new" : "old") &&
                     renewed == (kib >= 340)
                 ? 0
                 : 2;
    });
    if (status == kNoMount) {
      GTEST_SKIP() << "no file system may be mounted here";
    }
    EXPECT_EQ(status, 0) << kib << " KiB";
  }
}

// Compaction interrupted ------------------------------------------------------------------------

TEST_F(Store, AFileThatWasSupersededAndNeverReplacedIsReplacedByTheNextProcess) {
  NvramStore store;
  store.set("a", "1");
  // Word 6 of the header, as a process killed before its rename leaves it.
  std::fstream file(folder() / "run/nvram", std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(24);
  file.write("\x01\0\0\0", 4);
  file.close();
  EXPECT_EQ(get(store, "a"), "1");
  NvramStore other;
  EXPECT_EQ(other.set("a", "2"), 0);
  EXPECT_EQ(get(store, "a"), "2");
}

TEST_F(Store, ALeftoverOfAnUnfinishedFileDoesNoHarm) {
  write("run/nvram.new", std::string(500'000, 'z'));
  write("flash.new", "");
  NvramStore store;
  for (int i = 0; i < 3000; i++) {
    ASSERT_EQ(store.set("a", std::string(100, static_cast<char>('a' + i % 26)).c_str()), 0);
  }
  EXPECT_EQ(store.commit(), 0);
  EXPECT_FALSE(std::filesystem::exists(folder() / "run/nvram.new"));
}

TEST_F(Store, ACommitThatCannotKeepTheImageBeforeItFailsAndLeavesThatImage) {
  NvramStore store;
  store.set("a", "1");
  ASSERT_EQ(store.commit(), 0);
  const std::string image = read("flash/nvram");
  std::filesystem::create_directories(folder() / "flash/nvram.previous/in the way");
  store.set("a", "2");
  EXPECT_EQ(store.commit(), -1);
  EXPECT_EQ(read("flash/nvram"), image);
  EXPECT_FALSE(std::filesystem::exists(folder() / "flash/nvram.new"));
}

TEST_F(Store, ACommitThatCannotTakeTheWorkingCopysLockFails) {
  NvramStore store;
  store.set("a", "1");
  std::filesystem::remove(folder() / "run/nvram.lock");
  std::filesystem::create_directory(folder() / "run/nvram.lock");
  EXPECT_EQ(store.commit(), -1);
  EXPECT_FALSE(std::filesystem::exists(folder() / "flash/nvram"));
}

TEST_F(Store, AWorkingCopyThatCannotTakeItsPlaceIsRefusedWithoutALeftover) {
  std::filesystem::create_directories(folder() / "run/nvram/in the way");
  const int before = mappings();
  NvramStore store;
  EXPECT_EQ(store.set("a", "1"), -1);
  EXPECT_EQ(store.get("a"), nullptr);
  EXPECT_EQ(mappings(), before);
  EXPECT_FALSE(std::filesystem::exists(folder() / "run/nvram.new"));
}

} // namespace
