// Seeded random rings against a second reading of the format, made of texts and nothing else.

#include "core/say.h"
#include "reporters/system_log.h"
#include "tests/reporters/log_fixture.h"

#include <climits>
#include <ctime>
#include <optional>
#include <random>

using namespace rcmd;
using fake::Ring;
using fake::world;

namespace {

class RandomRings : public fake::LogFixture {
protected:
  std::mt19937 random{20240607};
  int below(int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); }
};

// The records from head to tail, or nothing when they do not lead there.
std::optional<std::vector<std::string>> records_of(const Ring& ring) {
  const std::int64_t size = ring.get(0);
  std::int64_t at = ring.get(4);
  const std::int64_t tail = ring.get(8);
  if (size < 1 || size > static_cast<std::int64_t>(ring.size()) || at < 0 || at >= size ||
      tail < 0 || tail >= size) {
    return std::nullopt;
  }
  const std::string data(ring.data(), static_cast<std::size_t>(size));
  std::vector<std::string> records;
  while (at != tail) {
    const std::size_t end = data.find('\0', static_cast<std::size_t>(at));
    if (end == std::string::npos || records.size() > data.size()) {
      return std::nullopt;
    }
    records.push_back(
        data.substr(static_cast<std::size_t>(at), end - static_cast<std::size_t>(at)));
    at = static_cast<std::int64_t>(end) + 1;
    at = at >= size ? 0 : at;
  }
  return records;
}

TEST_F(RandomRings, NoBytesAndNoHeaderLeadOutsideTheSegment) {
  debug = 0;
  const std::string likely = std::string("00011 :\n\n\0\0\0", 12) + "d12";
  const std::int32_t extremes[] = {0, 1, -1, INT_MAX, INT_MIN, 11, 12, 13};
  int sound = 0;
  int with_lines = 0;
  for (int round = 0; round < 20'000; round++) {
    const int size = 1 + below(200);
    use_ring(static_cast<std::size_t>(size));
    for (int i = 0; i < size; i++) {
      const bool any = below(10) == 0;
      ring->data()[i] =
          any ? static_cast<char>(below(256))
              : likely[static_cast<std::size_t>(below(static_cast<int>(likely.size())))];
    }
    const std::string good("\0"
                           "0 1 d 02:03:04 h s x\n\0",
                           23);
    for (int n = below(4); n > 0 && size > 23; n--) {
      std::memcpy(ring->data() + below(size - 23), good.data(), good.size());
    }
    for (const std::size_t field : {0U, 4U, 8U}) {
      if (field != 0 || below(4) == 0) {
        ring->set(field, below(8) == 0 ? extremes[below(8)] : below(size + 3));
      }
    }
    const std::string before = ring->bytes();
    const auto records = records_of(*ring);
    const int result = read_log();
    EXPECT_TRUE(ring->guard_stands());
    sound += records.has_value() ? 1 : 0;
    with_lines += result > 0 ? 1 : 0;
    if (!records.has_value()) {
      ASSERT_EQ(result, 0) << "round " << round;
      ASSERT_EQ(ring->bytes(), before) << "round " << round;
    }
    for (std::size_t i = 0; i < before.size(); i++) {
      const char now = ring->bytes()[i];
      ASSERT_TRUE(now == before[i] || (before[i] == '0' && now == '1' && i >= 12)) << round;
    }
    world().events.clear();
  }
  EXPECT_GT(sound, 1000);
  EXPECT_GT(20'000 - sound, 1000);
  EXPECT_GT(with_lines, 30);
}

struct Expected {
  std::string text;
  std::size_t mark;
};

// Writes one line at the tail in pieces of random length, wrapping where the data ends.
// @return the offset of its first record
std::size_t put_in_pieces(const Ring& ring, std::string line, std::mt19937& random) {
  std::optional<std::size_t> first;
  while (!line.empty()) {
    const std::size_t room = ring.size() - static_cast<std::size_t>(ring.get(8));
    const std::size_t wanted = random() % 3 == 0 ? 1 + random() % line.size() : line.size();
    const std::size_t piece = std::min(wanted, room - 1);
    const std::size_t at = ring.put(line.substr(0, piece));
    if (piece > 0 && !first) {
      first = at;
    }
    line.erase(0, piece);
  }
  return *first;
}

std::string date(std::int64_t seconds) {
  const std::time_t time = seconds;
  tm utc{};
  gmtime_r(&time, &utc);
  char text[64];
  const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%Ss ", &utc);
  return {text, length};
}

TEST_F(RandomRings, SoundRingsGiveExactlyTheirUnmarkedLines) {
  debug = 0;
  world().nvram["rcm_log_pluto"] = "0";
  for (int round = 0; round < 500; round++) {
    use_ring(4096, static_cast<std::size_t>(below(4096)));
    std::vector<Expected> expected;
    const int lines = below(30);
    for (int n = 0; n < lines; n++) {
      const int days = below(3000);
      const int seconds = below(86400);
      const bool marked = below(4) == 0;
      const bool off = below(5) == 0;
      char stamp[64];
      std::snprintf(stamp, sizeof stamp, "%c %d days %02d:%02d:%02d h s ", marked ? '1' : '0', days,
                    seconds / 3600, seconds / 60 % 60, seconds % 60);
      const std::string message = std::string(off ? "pluto[1]: " : "crond: ") +
                                  std::string(static_cast<std::size_t>(below(60)), 'm') + "!\n";
      const std::size_t first = put_in_pieces(*ring, stamp + message, random);
      if (!marked && !off) {
        expected.push_back({date(999'999'900LL + days * 86400LL + seconds) + message, first});
      }
    }
    std::size_t next = 0;
    while (next < expected.size()) {
      std::string wanted;
      const std::size_t end = std::min(next + 20, expected.size());
      for (; next < end; next++) {
        wanted += expected[next].text;
      }
      ASSERT_EQ(read_log(), static_cast<int>(wanted.size())) << "round " << round;
      ASSERT_EQ(output, wanted);
      ASSERT_EQ(ring->data()[expected[next - 1].mark], '1');
    }
    ASSERT_EQ(read_log(), 0) << "round " << round;
    world().events.clear();
  }
}

} // namespace
