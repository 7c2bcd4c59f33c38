// The settings store: one process, then several, then what lasts.

#include "platform/common/nvram_store.h"

#include "platform/api/nvram.h"
#include "platform/common/nvram_image.h"
#include "tests/platform/nvram_fixture.h"

#include <map>
#include <random>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

using device_test::Store;
using rcmd::NvramStore;

namespace {

TEST_F(Store, AnAbsentKeyIsNullAndAnEmptyValueIsNot) {
  NvramStore store;
  EXPECT_EQ(store.get("x"), nullptr);
  EXPECT_EQ(store.set("x", ""), 0);
  EXPECT_STREQ(store.get("x"), "");
  EXPECT_EQ(store.set("x", nullptr), 0);
  EXPECT_EQ(store.get("x"), nullptr);
  EXPECT_EQ(store.set("x", "back"), 0);
  EXPECT_STREQ(store.get("x"), "back");
}

TEST_F(Store, NamesThatBeginAlikeAreDifferent) {
  NvramStore store;
  store.set("wan", "1");
  store.set("wan0", "2");
  store.set("wan0_mode", "3");
  EXPECT_EQ(get(store, "wan"), "1");
  EXPECT_EQ(get(store, "wan0"), "2");
  EXPECT_EQ(get(store, "wan0_"), "(absent)");
}

TEST_F(Store, ANameThatIsNoneIsRefused) {
  NvramStore store;
  EXPECT_EQ(store.set("", "1"), -1);
  EXPECT_EQ(store.set("a=b", "1"), -1);
  EXPECT_EQ(store.set("a=b", nullptr), -1);
  EXPECT_TRUE(all(store).empty());
}

TEST_F(Store, AValueHoldsAnyByteButNul) {
  NvramStore store;
  std::string value;
  for (int byte = 1; byte < 256; byte++) {
    value.push_back(static_cast<char>(byte));
  }
  store.set("bytes", value.c_str());
  EXPECT_EQ(get(store, "bytes"), value);
  EXPECT_EQ(store.commit(), 0);
  restart();
  NvramStore later;
  EXPECT_EQ(get(later, "bytes"), value);
}

TEST_F(Store, SettingAnEqualValueWritesNothing) {
  NvramStore store;
  store.set("x", "1");
  const std::string before = read("run/nvram");
  EXPECT_EQ(store.set("x", "1"), 0);
  EXPECT_EQ(store.set("y", nullptr), 0);
  EXPECT_EQ(read("run/nvram"), before);
}

TEST_F(Store, ATextThatWasGivenOutMayBeHandedBack) {
  NvramStore store;
  const std::string large(3000, 'v');
  store.set("from", large.c_str());
  NvramStore other;
  for (int i = 0; i < 200; i++) { // files fill up and are renewed, here and by another process
    other.set("noise", std::string(2000, static_cast<char>('a' + i % 26)).c_str());
    const char* text = store.get("from");
    ASSERT_EQ(store.set(("to" + std::to_string(i % 7)).c_str(), text), 0);
    store.set(("to" + std::to_string(i % 7)).c_str(), "short");
    ASSERT_EQ(store.set("from", store.get("from")), 0);
  }
  EXPECT_EQ(get(store, "from"), large);
}

TEST_F(Store, AGivenOutTextDoesNotChangeWhileOthersWrite) {
  NvramStore store;
  NvramStore other;
  store.set("x", "as it was");
  const char* text = store.get("x");
  for (int i = 0; i < 1000; i++) {
    other.set("x", std::string(500, static_cast<char>('a' + i % 26)).c_str());
  }
  EXPECT_STREQ(text, "as it was");
  EXPECT_EQ(get(store, "x").size(), 500U);
}

TEST_F(Store, ManyKeysAgreeWithAPlainMap) {
  NvramStore store;
  NvramStore reader;
  std::map<std::string, std::string> model;
  std::mt19937 random(7);
  for (int i = 0; i < 40'000; i++) {
    const std::string name = "key_" + std::to_string(random() % 3000);
    if (random() % 8 == 0) {
      ASSERT_EQ(store.set(name.c_str(), nullptr), 0);
      model.erase(name);
    } else {
      const std::string value(random() % 90, static_cast<char>('a' + random() % 26));
      ASSERT_EQ(store.set(name.c_str(), value.c_str()), 0);
      model[name] = value;
    }
    const std::string asked = "key_" + std::to_string(random() % 3000);
    const auto expected = model.find(asked);
    ASSERT_EQ(get(reader, asked), expected == model.end() ? "(absent)" : expected->second);
  }
  EXPECT_EQ(all(store), model);
  EXPECT_EQ(all(reader), model);
  ASSERT_EQ(store.commit(), 0);
  restart();
  NvramStore later;
  EXPECT_EQ(all(later), model);
}

TEST_F(Store, TheFileDoesNotGrowWithTheNumberOfChanges) {
  NvramStore store;
  for (int i = 0; i < 100; i++) {
    store.set(("key" + std::to_string(i)).c_str(), "value");
  }
  for (int i = 0; i < 100'000; i++) {
    ASSERT_EQ(store.set("counter", std::to_string(i).c_str()), 0);
  }
  EXPECT_LT(std::filesystem::file_size(folder() / "run/nvram"), 128U * 1024);
  EXPECT_EQ(all(store).size(), 101U);
}

TEST_F(Store, RemovedKeysGiveTheirRoomBack) {
  NvramStore store;
  for (int i = 0; i < 30'000; i++) {
    const std::string name = "passing" + std::to_string(i);
    ASSERT_EQ(store.set(name.c_str(), "x"), 0);
    ASSERT_EQ(store.set(name.c_str(), nullptr), 0);
  }
  EXPECT_TRUE(all(store).empty());
  EXPECT_LT(std::filesystem::file_size(folder() / "run/nvram"), 128U * 1024);
}

TEST_F(Store, AValueLargerThanTheWholeFileIsStored) {
  NvramStore store;
  const std::string large(1'000'000, 'L');
  EXPECT_EQ(store.set("large", large.c_str()), 0);
  EXPECT_EQ(get(store, "large"), large);
  EXPECT_EQ(store.commit(), 0);
  restart();
  NvramStore later;
  EXPECT_EQ(get(later, "large"), large);
}

TEST_F(Store, FilesThatWereLeftBehindAreUnmapped) {
  const int before = mappings(); // the store of the interface may have one
  NvramStore writer;
  NvramStore reader;
  for (int i = 0; i < 50; i++) { // a new file every other time
    ASSERT_EQ(writer.set("a", std::string(30'000 + static_cast<std::size_t>(i), 'x').c_str()), 0);
    ASSERT_EQ(get(reader, "a").size(), 30'000U + static_cast<std::size_t>(i));
    EXPECT_EQ(mappings(), before + 2);
  }
}

TEST_F(Store, AValueForWhichNoFileIsLargeEnoughIsRefused) {
  NvramStore store;
  ASSERT_EQ(store.set("a", "old"), 0);
  EXPECT_EQ(store.set("a", std::string(20 << 20, 'x').c_str()), -1);
  EXPECT_EQ(get(store, "a"), "old");
  EXPECT_FALSE(std::filesystem::exists(folder() / "run/nvram.new"));
}

TEST_F(Store, ADamagedWorkingCopyIsUnmapped) {
  write("run/nvram", std::string(70'000, 'z'));
  const int before = mappings();
  NvramStore store;
  EXPECT_EQ(store.get("a"), nullptr);
  EXPECT_EQ(mappings(), before + 1);
}

TEST_F(Store, AChangeThroughAFileThatAnotherMadeKeepsIt) {
  const auto file = [] {
    struct stat facts {};
    EXPECT_EQ(stat((folder() / "run/nvram").c_str(), &facts), 0);
    return facts.st_ino;
  };
  NvramStore maker;
  ASSERT_EQ(maker.set("a", "1"), 0);
  const ino_t made = file();
  NvramStore other;
  EXPECT_EQ(other.set("a", "2"), 0);
  EXPECT_EQ(other.set("a", "3"), 0);
  EXPECT_EQ(file(), made);
}

TEST_F(Store, AFileThatTookThePlaceOfARemovedOneIsWrittenByAll) {
  NvramStore before;
  ASSERT_EQ(before.set("a", "1"), 0);
  restart();
  NvramStore behind;
  ASSERT_EQ(behind.set("b", "2"), 0);
  EXPECT_EQ(before.set("a", "3"), 0);
  EXPECT_EQ(get(behind, "a"), "3");
  EXPECT_EQ(get(before, "b"), "2");
}

TEST_F(Store, AWalkAndACommitUnmapWhatTheyLeaveBehind) {
  const int before = mappings();
  NvramStore writer;
  NvramStore walker;
  NvramStore committer;
  writer.set("a", "1");
  all(walker);
  ASSERT_EQ(committer.set("b", "1"), 0);
  writer.set("a", std::string(200'000, 'x').c_str()); // a new file
  EXPECT_EQ(all(walker).size(), 2U);
  EXPECT_EQ(committer.commit(), 0);
  EXPECT_EQ(mappings(), before + 3);
}

TEST_F(Store, AnInterruptionOfLongAgoDoesNotHoldAWriterUp) {
  NvramStore store;
  ASSERT_EQ(store.set("a", "1"), 0);
  errno = EINTR;
  EXPECT_EQ(store.set("a", "2"), 0);
}

TEST_F(Store, AChangeIsSeenByAnotherProcessAtOnce) {
  NvramStore store;
  store.set("x", "1");
  EXPECT_EQ(in_child([] {
              NvramStore child;
              return std::string(child.get("x")) == "1" && child.set("x", "2") == 0 &&
                             child.set("y", "3") == 0
                         ? 0
                         : 1;
            }),
            0);
  EXPECT_EQ(get(store, "x"), "2");
  EXPECT_EQ(get(store, "y"), "3");
}

TEST_F(Store, AForkedChildDoesNotShareItsParentsLock) {
  NvramStore store;
  store.set("x", "1");
  std::vector<pid_t> children;
  for (int child = 0; child < 4; child++) {
    children.push_back(start_child());
    if (children.back() == 0) {
      for (int i = 0; i < 300; i++) {
        store.set(("child" + std::to_string(child) + "_" + std::to_string(i)).c_str(), "y");
      }
      _exit(0);
    }
  }
  for (const pid_t child : children) {
    waitpid(child, nullptr, 0);
  }
  EXPECT_EQ(all(store).size(), 1201U);
}

// Lasting ---------------------------------------------------------------------------------------

TEST_F(Store, WhatWasNotCommittedIsGoneAfterARestart) {
  NvramStore store;
  store.set("a", "1");
  store.set("gone", "1");
  ASSERT_EQ(store.commit(), 0);
  store.set("a", "2");
  store.set("b", "2");
  store.set("gone", nullptr);
  restart();
  NvramStore later;
  EXPECT_EQ(all(later), (std::map<std::string, std::string>{{"a", "1"}, {"gone", "1"}}));
}

TEST_F(Store, TheLastingImageHasTheDocumentedBytes) {
  NvramStore store;
  store.set("a", "1");
  store.set("bc", "");
  ASSERT_EQ(store.commit(), 0);
  const std::string image = read("flash/nvram");
  const std::string records("a=1\0bc=\0", 8);
  EXPECT_EQ(image.substr(0, 12), std::string("NVRM\x01\0\0\0\x08\0\0\0", 12));
  // The CRC-32 of 01 00 00 00 and the records, as zlib counts it.
  EXPECT_EQ(image.substr(12, 4), std::string("\xF0\x38\xF5\x4B", 4));
  EXPECT_EQ(image.substr(16, 4), std::string("\x01\0\0\0", 4));
  EXPECT_EQ(image.substr(20), records);
}

TEST_F(Store, EveryCommitCountsTheGenerationAndKeepsTheOneBefore) {
  NvramStore store;
  store.set("a", "1");
  ASSERT_EQ(store.commit(), 0);
  const std::string first = read("flash/nvram");
  store.set("a", "2");
  ASSERT_EQ(store.commit(), 0);
  EXPECT_EQ(read("flash/nvram.previous"), first);
  EXPECT_EQ(rcmd::NvramImage((folder() / "flash/nvram").c_str()).generation(), 2U);
  EXPECT_FALSE(std::filesystem::exists(folder() / "flash/nvram.new"));
}

TEST_F(Store, AnEmptyStoreCanBeCommitted) {
  NvramStore store;
  ASSERT_EQ(store.commit(), 0);
  EXPECT_EQ(read("flash/nvram").size(), 20U);
  store.set("a", "1");
  ASSERT_EQ(store.commit(), 0);
  store.set("a", nullptr);
  ASSERT_EQ(store.commit(), 0);
  restart();
  NvramStore later;
  EXPECT_TRUE(all(later).empty());
}

TEST_F(Store, AnImageDamagedAnywhereFallsBackToTheGenerationBefore) {
  NvramStore store;
  store.set("a", "old");
  ASSERT_EQ(store.commit(), 0);
  store.set("a", "new");
  ASSERT_EQ(store.commit(), 0);
  const std::string image = read("flash/nvram");
  for (std::size_t at = 0; at < image.size(); at++) {
    std::string damaged = image;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    write("flash/nvram", damaged);
    restart();
    NvramStore later;
    ASSERT_EQ(get(later, "a"), "old") << "byte " << at;
    write("flash/nvram", image.substr(0, at));
    restart();
    NvramStore shorter;
    ASSERT_EQ(get(shorter, "a"), "old") << "cut to " << at;
  }
}

TEST_F(Store, AMissingImageFallsBackToTheGenerationBefore) {
  NvramStore store;
  store.set("a", "old");
  ASSERT_EQ(store.commit(), 0);
  std::filesystem::rename(folder() / "flash/nvram", folder() / "flash/nvram.previous");
  restart();
  NvramStore later;
  EXPECT_EQ(get(later, "a"), "old");
}

TEST_F(Store, ADamagedImageNeverTakesThePlaceOfTheGenerationBefore) {
  NvramStore store;
  store.set("a", "old");
  ASSERT_EQ(store.commit(), 0);
  store.set("a", "new");
  ASSERT_EQ(store.commit(), 0);
  const std::string previous = read("flash/nvram.previous");
  write("flash/nvram", "damaged");
  store.set("a", "newer");
  ASSERT_EQ(store.commit(), 0);
  EXPECT_EQ(read("flash/nvram.previous"), previous);
  restart();
  NvramStore later;
  EXPECT_EQ(get(later, "a"), "newer");
}

TEST_F(Store, RecordsOfAnotherShapeInASoundImageArePassedOver) {
  std::filesystem::create_directory(folder() / "flash");
  const std::string path = folder() / "flash/nvram";
  rcmd::NvramImageWriter writer(path.c_str());
  for (const char* record : {"a=1", "x", "=y", "", "b=2"}) {
    writer.add(record);
  }
  ASSERT_TRUE(writer.finish());
  NvramStore store;
  EXPECT_EQ(all(store), (std::map<std::string, std::string>{{"a", "1"}, {"b", "2"}}));
}

TEST_F(Store, TheThreeFunctionsOfTheInterfaceShareOneStore) {
  EXPECT_EQ(nvram_set("interface", "x"), 0);
  EXPECT_STREQ(nvram_get("interface"), "x");
  EXPECT_EQ(nvram_commit(), 0);
  EXPECT_EQ(nvram_set("interface", nullptr), 0);
  EXPECT_EQ(nvram_get("interface"), nullptr);
}

} // namespace
