// Writers and committers killed at random instants, and many processes at once. RCMD_KILLS sets how
// many are killed in each test.

#include "platform/common/nvram_image.h"
#include "platform/common/nvram_store.h"
#include "tests/platform/device_fixture.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <random>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <vector>

using rcmd::NvramStore;

namespace {

int kills() {
  const char* text = std::getenv("RCMD_KILLS");
  return text == nullptr ? 1000 : std::atoi(text);
}

/// What a child tells about its progress; it outlives the child.
struct Progress {
  std::atomic<int> set;
  std::atomic<int> committed;
};

class Killed : public device_test::Device {
protected:
  Killed()
      : progress_(static_cast<Progress*>(mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                                              MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
  ~Killed() override { munmap(progress_, sizeof(Progress)); }

  /// Starts a child, lets it work for a random time, and kills it.
  template <typename Work> void kill_in_the_middle_of(Work work) {
    const pid_t child = start_child();
    if (child == 0) {
      work();
      _exit(0);
    }
    // Not a wait for the child but the random instant itself: up to 1.5 ms.
    std::this_thread::sleep_for(std::chrono::microseconds(random_() % 1500));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  /// A value that tells its number, of a length that makes files fill up often.
  static std::string value(int number) {
    return std::to_string(number) + ":" +
           std::string(static_cast<std::size_t>(number * 37 % 1500),
                       static_cast<char>('a' + number % 26));
  }

  static int number_of(const char* text) {
    if (text == nullptr) {
      return 0;
    }
    const int number = std::atoi(text);
    EXPECT_EQ(value(number), text) << "neither an old value nor a new one";
    return number;
  }

  Progress* progress_;
  std::mt19937 random_{20};
};

TEST_F(Killed, AWriterLeavesTheOldValueOrTheNewOne) {
  NvramStore witness; // keeps its mapping through all of it
  witness.set("keep", "me");
  for (int i = 0; i < kills(); i++) {
    kill_in_the_middle_of([&] {
      NvramStore store;
      for (int number = progress_->set + 1;; number++) {
        store.set("first", value(number).c_str());
        store.set("second", value(number).c_str());
        progress_->set = number;
      }
    });
    NvramStore fresh;
    for (NvramStore* store : {&witness, &fresh}) {
      const int first = number_of(store->get("first"));
      const int second = number_of(store->get("second"));
      ASSERT_GE(second, progress_->set) << "a change that was made is lost";
      ASSERT_GE(first, second);
      ASSERT_LE(first, progress_->set + 1);
      ASSERT_STREQ(store->get("keep"), "me");
    }
    progress_->set = number_of(fresh.get("second"));
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(Killed, ACommitterLeavesTheOldImageOrTheNewOne) {
  NvramStore keeper;
  keeper.set("keep", "me");
  ASSERT_EQ(keeper.commit(), 0);
  for (int i = 0; i < kills(); i++) {
    kill_in_the_middle_of([&] {
      NvramStore store;
      for (int number = progress_->committed + 1;; number++) {
        store.set("first", value(number).c_str());
        store.set("second", value(number).c_str());
        if (store.commit() == 0) {
          progress_->committed = number;
        }
      }
    });
    std::filesystem::remove(folder() / "run/nvram"); // the device restarts
    NvramStore store;
    const int first = number_of(store.get("first"));
    const int second = number_of(store.get("second"));
    ASSERT_GE(second, progress_->committed) << "a committed value is lost";
    ASSERT_EQ(first, second);
    ASSERT_LE(first, progress_->committed + 1);
    ASSERT_STREQ(store.get("keep"), "me");
    progress_->committed = first;
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(Killed, ManyProcessesReadAndWriteAtOnce) {
  constexpr int kWriters = 3;
  constexpr int kReaders = 2;
  constexpr int kChanges = 2000;
  std::vector<pid_t> children;
  for (int writer = 0; writer < kWriters; writer++) {
    children.push_back(start_child());
    if (children.back() == 0) {
      NvramStore store;
      const std::string own = "writer" + std::to_string(writer);
      for (int number = 1; number <= kChanges; number++) {
        if (store.set(own.c_str(), value(number).c_str()) != 0 ||
            store.set("shared", value(number).c_str()) != 0) {
          _exit(1);
        }
        if (number % 500 == 0 && store.commit() != 0) {
          _exit(2);
        }
      }
      progress_->set++;
      _exit(0);
    }
  }
  for (int reader = 0; reader < kReaders; reader++) {
    children.push_back(start_child());
    if (children.back() == 0) {
      NvramStore store;
      int last[kWriters] = {};
      while (progress_->set < kWriters) {
        for (int writer = 0; writer < kWriters; writer++) {
          const int number = number_of(store.get(("writer" + std::to_string(writer)).c_str()));
          if (number < last[writer]) {
            _exit(3); // time does not run backwards
          }
          last[writer] = number;
        }
        number_of(store.get("shared"));
      }
      for (const int number : last) {
        if (number == 0) {
          _exit(4);
        }
      }
      _exit(HasFailure() ? 5 : 0);
    }
  }
  for (const pid_t child : children) {
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
  }
  NvramStore store;
  for (int writer = 0; writer < kWriters; writer++) {
    EXPECT_EQ(number_of(store.get(("writer" + std::to_string(writer)).c_str())), kChanges);
  }
}

} // namespace
