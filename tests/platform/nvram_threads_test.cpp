// Many threads, each with a store of its own over one and the same mapping: to be run under
// ThreadSanitizer, which then sees every access of readers and writers (scripts/tsan).

#include "platform/common/nvram_store.h"
#include "tests/platform/device_fixture.h"
#include "tests/platform/one_mapping.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

using rcmd::NvramStore;

namespace {

constexpr int kWriters = 3;
constexpr int kReaders = 3;
constexpr int kChanges = 1500;

class Threads : public device_test::Device {
protected:
  Threads() { NvramStore().get("the paths are worked out before there are threads"); }

  template <typename Work> void start(Work work) { threads_.emplace_back(work); }
  void join_all() { threads_.clear(); }

  /// A value that tells its number, of a length that makes files fill up often.
  static std::string value(int number) {
    return std::to_string(number) + ":" +
           std::string(static_cast<std::size_t>(number * 37 % 1500),
                       static_cast<char>('a' + number % 26));
  }

  /// @return -1 when the text is no value at all
  static int number_of(const char* text) {
    if (text == nullptr) {
      return 0;
    }
    const int number = std::atoi(text);
    return value(number) == text ? number : -1;
  }

  static std::string own_key(int writer) { return "writer" + std::to_string(writer); }

  /// Sets its own key and one that all share, and removes one.
  static bool change(NvramStore& store, int writer, int number) {
    return store.set(own_key(writer).c_str(), value(number).c_str()) == 0 &&
           store.set("shared", value(number).c_str()) == 0 &&
           store.set("passing", number % 2 == 0 ? nullptr : value(writer).c_str()) == 0;
  }

  void write(int writer) {
    NvramStore store;
    for (int number = 1; number <= kChanges; number++) {
      wrong_ += change(store, writer, number) ? 0 : 1;
    }
    writers_done_++;
  }

  void read() {
    NvramStore store;
    int last[kWriters] = {};
    while (writers_done_ < kWriters) {
      for (int writer = 0; writer < kWriters; writer++) {
        const int number = number_of(store.get(own_key(writer).c_str()));
        wrong_ += number < last[writer] ? 1 : 0; // time does not run backwards
        last[writer] = number;
      }
      wrong_ += number_of(store.get("shared")) < 0 ? 1 : 0;
    }
    for (int writer = 0; writer < kWriters; writer++) { // all that was written is seen at once
      wrong_ += number_of(store.get(own_key(writer).c_str())) == kChanges ? 0 : 1;
    }
  }

  void walk() {
    NvramStore store;
    while (writers_done_ < kWriters) {
      const auto look = [](void* wrong, const char* record) {
        const char* text = strchr(record, '=') + 1;
        *static_cast<std::atomic<int>*>(wrong) += number_of(text) < 0 ? 1 : 0;
      };
      wrong_ += store.each(look, &wrong_) == 0 ? 0 : 1;
    }
  }

  void commit() {
    NvramStore store;
    while (writers_done_ < kWriters) {
      wrong_ += store.commit() == 0 ? 0 : 1;
    }
  }

  std::atomic<int> writers_done_ = 0;
  std::atomic<int> wrong_ = 0;

private:
  std::vector<std::jthread> threads_; // last, so that they end first
};

TEST_F(Threads, ReadWriteWalkAndCommitAtOnce) {
  for (int writer = 0; writer < kWriters; writer++) {
    start([this, writer] { write(writer); });
  }
  for (int reader = 0; reader < kReaders; reader++) {
    start([this] { read(); });
  }
  start([this] { walk(); });
  start([this] { commit(); });
  start([this] { commit(); });
  join_all();
  EXPECT_EQ(wrong_, 0);
  EXPECT_GT(one_mapping::mapped_files(), 0) << "the stores did not share a mapping";
  NvramStore store;
  for (int writer = 0; writer < kWriters; writer++) {
    EXPECT_EQ(number_of(store.get(own_key(writer).c_str())), kChanges);
  }
}

TEST_F(Threads, OpenAFileThatOthersReplaceAllTheTime) {
  for (int writer = 0; writer < kWriters; writer++) {
    start([this, writer] { write(writer); });
  }
  for (int reader = 0; reader < kReaders; reader++) {
    start([this] {
      while (writers_done_ < kWriters) {
        NvramStore store; // maps, and leaves its mapping to the process' end
        wrong_ += number_of(store.get("shared")) < 0 ? 1 : 0;
      }
    });
  }
  join_all();
  EXPECT_EQ(wrong_, 0);
}

} // namespace
