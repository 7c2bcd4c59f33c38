#include "variables/codec.h"

#include "tests/variables/kit.h"

#include <algorithm>

using namespace rcmd;
using kit::text;

namespace {

class Codec : public testing::Test {
protected:
  Codec() { init_cgi(nullptr, 0); }
  ~Codec() override { init_cgi(nullptr, 0); }

  // Loads the block as the configuration command does; `behind` stands behind its end.
  void load(const std::string& block, const std::string& behind = "") {
    bytes_.assign(block.begin(), block.end());
    bytes_.insert(bytes_.end(), behind.begin(), behind.end());
    bytes_.insert(bytes_.end(), 8, '\0');
    init_cgi(nullptr, 0);
    init_cgi(bytes_.data(), static_cast<std::uint32_t>(block.size()));
  }
  static std::string get(const std::string& name) {
    const char* value = get_cgi(name.c_str());
    return value == nullptr ? "<absent>" : value;
  }

  std::vector<char> bytes_;
};

TEST_F(Codec, BeforeAnyLoadEveryNameIsAbsent) {
  EXPECT_EQ(get("a"), "<absent>");
  EXPECT_EQ(count_cgi(), 0);
}

TEST_F(Codec, BeforeAnyLoadNothingCanBeEntered) {
  set_cgi("a", "1");
  EXPECT_EQ(get("a"), "<absent>");
  EXPECT_EQ(count_cgi(), 0);
}

TEST_F(Codec, AnEmptyBlockEntersNothing) {
  load("", text("a=1\0"));
  EXPECT_EQ(get("a"), "<absent>");
  EXPECT_EQ(count_cgi(), 0);
}

TEST_F(Codec, RecordsAreFoundByName) {
  load(text("a=1\0b=22\0c=\0"));
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(get("b"), "22");
  EXPECT_EQ(get("c"), "");
  EXPECT_EQ(get("d"), "<absent>");
  EXPECT_EQ(count_cgi(), 3);
}

TEST_F(Codec, NamesAreMatchedExactlyAndCaseCounts) {
  load(text("wl_key=1\0Name=2\0"));
  EXPECT_EQ(get("wl_key1"), "<absent>");
  EXPECT_EQ(get("wl_ke"), "<absent>");
  EXPECT_EQ(get("name"), "<absent>");
  EXPECT_EQ(get("Name"), "2");
}

TEST_F(Codec, TheLastOfDuplicatesCountsAndIsCountedOnce) {
  load(text("a=1\0b=x\0a=2\0"));
  EXPECT_EQ(get("a"), "2");
  EXPECT_EQ(count_cgi(), 2);
}

TEST_F(Codec, OnlyTheFirstEqualsSignSplits) {
  load(text("a==b\0c=d=e,f\0"));
  EXPECT_EQ(get("a"), "=b");
  EXPECT_EQ(get("c"), "d=e,f");
}

TEST_F(Codec, ARecordWithoutEqualsSignIsSkipped) {
  load(text("a\0b=1\0"));
  EXPECT_EQ(get("a"), "<absent>");
  EXPECT_EQ(get("b"), "1");
  EXPECT_EQ(count_cgi(), 1);
}

TEST_F(Codec, ARecordMayHaveTheEmptyName) {
  load(text("=v\0"));
  EXPECT_EQ(get(""), "v");
  EXPECT_EQ(count_cgi(), 1);
}

TEST_F(Codec, RunsOfNulsSeparateOnce) {
  load(text("\0\0a=1\0\0\0b=2\0\0"));
  EXPECT_EQ(get("a"), "1");
  EXPECT_EQ(get("b"), "2");
  EXPECT_EQ(count_cgi(), 2);
}

TEST_F(Codec, ARecordThatBeginsInTheBlockIsTakenToItsNul) {
  load("a=1", "23");
  EXPECT_EQ(get("a"), "123");
}

TEST_F(Codec, ARecordBehindTheBlockIsNotTaken) {
  load(text("a=1\0"), text("b=2\0"));
  EXPECT_EQ(get("b"), "<absent>");
}

TEST_F(Codec, ValuesPointIntoTheBlock) {
  load(text("a=1\0"));
  EXPECT_EQ(get_cgi("a"), bytes_.data() + 2);
  EXPECT_EQ(bytes_[1], '\0');
}

TEST_F(Codec, ANewBlockReplacesTheLastOneEntirely) {
  load(text("a=1\0b=2\0"));
  load(text("b=3\0"));
  EXPECT_EQ(get("a"), "<absent>");
  EXPECT_EQ(get("b"), "3");
  EXPECT_EQ(count_cgi(), 1);
}

TEST_F(Codec, ADroppedBlockLeavesNothing) {
  load(text("a=1\0"));
  init_cgi(nullptr, 0);
  EXPECT_EQ(get("a"), "<absent>");
  EXPECT_EQ(count_cgi(), 0);
}

TEST_F(Codec, PairsCanBeEnteredAndReplaced) {
  load("");
  set_cgi("a", "1");
  EXPECT_EQ(get("a"), "1");
  set_cgi("a", "2");
  EXPECT_EQ(get("a"), "2");
  EXPECT_EQ(count_cgi(), 1);
}

// The shortest distinct records that a datagram can hold.
TEST_F(Codec, ABlockFullOfTheShortestRecordsIsHeldWhole) {
  std::string block = text("=\0");
  std::vector<std::string> names = {""};
  auto add = [&](std::string name) {
    if (block.size() + name.size() + 2 <= 8156) {
      block += name + '=' + '\0';
      names.push_back(std::move(name));
    }
  };
  std::string letters;
  for (int c = 1; c < 256; c++) {
    if (c != '=') {
      letters += static_cast<char>(c);
    }
  }
  for (const char a : letters) {
    add({a});
  }
  for (const char a : letters) {
    for (const char b : letters) {
      add({a, b});
    }
  }
  load(block);
  EXPECT_EQ(count_cgi(), static_cast<int>(names.size()));
  for (const std::string& name : names) {
    EXPECT_EQ(get(name), "");
  }
}

TEST_F(Codec, MoreNamesThanThereIsRoomForAreDropped) {
  load("");
  std::vector<std::string> names;
  for (int i = 0; i < kMaxCgiNames + 100; i++) {
    names.push_back("name" + std::to_string(i));
  }
  for (const std::string& name : names) {
    set_cgi(name.c_str(), "v");
  }
  EXPECT_EQ(count_cgi(), kMaxCgiNames);
  EXPECT_EQ(get(names[0]), "v");
  EXPECT_EQ(get(names.back()), "<absent>");
  set_cgi(names[0].c_str(), "w");
  EXPECT_EQ(get(names[0]), "w");
}

// "osr" and "qjg" both belong into the last slot of the table; the second one goes to the first.
TEST_F(Codec, TheTableGoesOnAtItsBeginning) {
  std::string both = text("osr=1\0qjg=2\0");
  std::string first = text("osr=3\0");
  init_cgi(both.data(), static_cast<std::uint32_t>(both.size()));
  EXPECT_EQ(get("osr"), "1");
  EXPECT_EQ(get("qjg"), "2");
  init_cgi(first.data(), static_cast<std::uint32_t>(first.size()));
  EXPECT_EQ(get("osr"), "3");
  EXPECT_EQ(get("qjg"), "<absent>");
}

// Names with an odd number of odd characters all belong into the slots with even numbers.
TEST_F(Codec, NamesThatCrowdIntoHalfOfTheSlotsAreAllHeld) {
  std::vector<std::string> names;
  for (int i = 0; names.size() < 2500; i++) {
    std::string name = "name" + std::to_string(i);
    if (std::count_if(name.begin(), name.end(), [](char c) { return c % 2 != 0; }) % 2 != 0) {
      names.push_back(std::move(name));
    }
  }
  load("");
  for (const std::string& name : names) {
    set_cgi(name.c_str(), "v");
  }
  EXPECT_EQ(count_cgi(), 2500);
  EXPECT_EQ(get(names.back()), "v");
  EXPECT_EQ(get("absent"), "<absent>");
}

} // namespace
