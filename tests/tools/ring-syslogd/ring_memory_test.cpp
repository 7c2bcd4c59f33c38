#include "tools/ring-syslogd/ring_memory.h"

#include "reporters/syslog_ring.h"
#include "tests/reporters/ring.h"

#include <deque>
#include <gtest/gtest.h>
#include <random>

using namespace rcmd;
using fake::Ring;

namespace {

std::size_t append(const Ring& ring, const std::string& line) {
  return append_line(ring.segment(), ring.segment_bytes(), line.data(), line.size());
}

// What stands from head to tail, records joined, by the offsets alone.
std::string contents(const Ring& ring) {
  std::string text;
  int at = ring.get(4);
  for (int steps = 0; at != ring.get(8) && steps < 10'000; steps++) {
    const std::string record = ring.data() + at;
    text += record;
    at += static_cast<int>(record.size()) + 1;
    at = at >= ring.get(0) ? 0 : at;
  }
  return text;
}

TEST(RingMemory, AFreshSegmentBecomesAnEmptyRingOfItsWholeSize) {
  const Ring ring(4084, 0, '\x77');
  prepare_ring(ring.segment(), ring.segment_bytes());
  EXPECT_EQ(ring.get(0), 4084);
  EXPECT_EQ(ring.get(4), 0);
  EXPECT_EQ(ring.get(8), 0);
}

TEST(RingMemory, ASoundRingIsTakenOver) {
  const Ring ring(4084, 100);
  append(ring, "0 line\n");
  prepare_ring(ring.segment(), ring.segment_bytes());
  EXPECT_EQ(ring.get(4), 100);
  EXPECT_EQ(contents(ring), "0 line\n");
}

TEST(RingMemory, ARingOfAnotherSizeBeginsAnew) {
  const Ring ring(4084);
  append(ring, "0 line\n");
  ring.set(0, 4000);
  prepare_ring(ring.segment(), ring.segment_bytes());
  EXPECT_EQ(ring.get(0), 4084);
  EXPECT_EQ(ring.get(8), 0);
}

TEST(RingMemory, ALineAndItsNulStandAtTheTail) {
  const Ring ring(4084, 0, 'x');
  EXPECT_EQ(append(ring, "0 a\n"), 0U);
  EXPECT_EQ(append(ring, "0 b\n"), 0U);
  EXPECT_EQ(std::string(ring.data(), 12), std::string("0 a\n\0"
                                                      "0 b\n\0"
                                                      "xx",
                                                      12));
  EXPECT_EQ(ring.get(4), 0);
  EXPECT_EQ(ring.get(8), 10);
}

TEST(RingMemory, ALineIsSplitWhereTheDataEnds) {
  const Ring ring(4084, 4080, 'x');
  append(ring, "0 message\n");
  EXPECT_EQ(std::string(ring.data() + 4080, 4), std::string("0 m\0", 4));
  EXPECT_EQ(std::string(ring.data(), 9), std::string("essage\n\0x", 9));
  EXPECT_EQ(ring.get(8), 8);
}

TEST(RingMemory, ALineThatEndsWithTheDataLeavesTheTailAtZero) {
  const Ring ring(4084, 4079);
  append(ring, "0 m\n");
  EXPECT_EQ(ring.get(8), 0);
  EXPECT_EQ(contents(ring), "0 m\n");
}

TEST(RingMemory, NoSingleByteIsLeftAtTheEndOfTheData) {
  const Ring ring(4084, 4078, 'x');
  append(ring, "0 m\n");
  EXPECT_EQ(std::string(ring.data() + 4078, 6), std::string("0 m\0\n\0", 6));
  EXPECT_EQ(ring.get(8), 0);
}

TEST(RingMemory, ATailOnTheLastByteIsLeftWithAnEmptyRecord) {
  const Ring ring(4084, 4083, 'x');
  append(ring, "0 m\n");
  EXPECT_EQ(ring.data()[4083], '\0');
  EXPECT_EQ(std::string(ring.data(), 5), std::string("0 m\n\0", 5));
}

TEST(RingMemory, TheOldestLinesMakeRoomAndUnreportedOnesAreCounted) {
  const Ring ring(4084);
  for (const char letter : {'a', 'b', 'c'}) {
    append(ring, "0 " + std::string(1017, letter) + "\n"); // 1021 bytes with its NUL
  }
  ring.data()[0] = '1';
  EXPECT_EQ(append(ring, "0 " + std::string(1017, 'd') + "\n"), 0U) << "it was reported";
  EXPECT_EQ(ring.get(4), 1021);
  EXPECT_TRUE(contents(ring).starts_with("0 bbb"));
  EXPECT_EQ(append(ring, "0 " + std::string(1017, 'e') + "\n"), 1U);
  EXPECT_TRUE(contents(ring).starts_with("0 ccc"));
}

TEST(RingMemory, ABrokenRingBeginsAnew) {
  const Ring ring(4084, 0, 'x');
  ring.set(8, 4000); // no record ends there
  EXPECT_EQ(append(ring, "0 m\n"), 0U);
  EXPECT_EQ(contents(ring), "0 m\n");
}

TEST(RingMemory, WhatStandsInTheRingIsAlwaysTheNewestLinesWhole) {
  std::mt19937 random(7);
  for (const std::size_t size : {4084U, 4088U, 5000U}) {
    const Ring ring(size, random() % size);
    std::deque<std::string> lines;
    std::size_t gone = 0;
    std::size_t lost = 0;
    for (int n = 0; n < 20'000; n++) {
      std::string line = "0 " + std::to_string(n);
      line += std::string(random() % 10 == 0 ? random() % 1000 : random() % 40, 'm') + "\n";
      lines.push_back(line);
      lost += append(ring, line);
      const std::string present = contents(ring);
      ASSERT_TRUE(ring_is_sound(walk_ring(ring.segment(), ring.segment_bytes()))) << n;
      ASSERT_TRUE(present.ends_with(line)) << n;
      std::string expected;
      for (const std::string& text : lines) {
        expected += text;
      }
      while (expected.size() > present.size() && !lines.empty()) {
        expected.erase(0, lines.front().size());
        lines.pop_front();
        gone++;
      }
      ASSERT_EQ(present, expected) << n;
      ASSERT_EQ(gone, lost) << n;
      ASSERT_GT(present.size(), n < 500 ? 0 : size - 2 * 1024) << "room is used";
    }
    EXPECT_TRUE(ring.guard_stands());
  }
}

} // namespace
