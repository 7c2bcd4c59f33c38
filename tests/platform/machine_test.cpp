// What is asked of the machine itself: its clock, its memory, and the wait for the restart.

#include "platform/api/memory.h"
#include "platform/api/system.h"
#include "platform/common/memory.h"
#include "platform/common/monotonic.h"
#include "tests/platform/device_fixture.h"

#include <cstdarg>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/wait.h>

namespace {

std::string stand_in; // what is opened in the place of the kernel's memory file

} // namespace

extern "C" {
int __real_open(const char* path, int flags, ...);
int __wrap_open(const char* path, int flags, ...) {
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
  const bool memory = !stand_in.empty() && std::strcmp(path, "/proc/meminfo") == 0;
  return __real_open(memory ? stand_in.c_str() : path, flags, mode);
}
}

namespace {

// The clock --------------------------------------------------------------------------------------

// The device's clock runs sixty times as fast; that is asked for once in a process.
const int quickened = setenv("VIRTUAL_ROUTER_TIME_SCALE", "60", 1);

class Machine : public device_test::Device {
protected:
  static std::int64_t now_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
  }
};

TEST_F(Machine, TheClockIsTheMachinesToTheMillisecond) {
  for (int i = 0; i < 100'000; i++) {
    const std::int64_t before = now_ms();
    const std::int64_t now = rcmd::monotonic_ms();
    const std::int64_t behind = now_ms();
    ASSERT_GE(now, before);
    ASSERT_LE(now, behind);
  }
}

TEST_F(Machine, TheUptimeCountsFromTheDevicesBootOnItsOwnClock) {
  write("run/booted_ms", std::to_string(now_ms() - 50'500));
  EXPECT_GE(system_uptime(), 3030);
  EXPECT_LE(system_uptime(), 3090);
}

TEST_F(Machine, TheDeviceMayHaveBootedAtTheClocksBeginning) {
  write("run/booted_ms", "0");
  EXPECT_GE(system_uptime(), now_ms() / 1000 * 60 - 60);
}

TEST_F(Machine, TimersFollowTheDevicesClock) {
  const std::int64_t before = now_ms() * 60;
  const std::int64_t timer = rcmd::timer_ms();
  EXPECT_GE(timer, before);
  EXPECT_LE(timer, now_ms() * 60);
}

TEST_F(Machine, ASpanOfTheDevicesClockIsRoundedUpToTheMachines) {
  EXPECT_EQ(rcmd::machine_ms(0), 0);
  EXPECT_EQ(rcmd::machine_ms(1), 1);
  EXPECT_EQ(rcmd::machine_ms(120), 2);
  EXPECT_EQ(rcmd::machine_ms(121), 3);
}

TEST_F(Machine, TheWallClockIsTheMachines) {
  const std::int64_t before = std::time(nullptr);
  const std::int64_t wall = wall_clock();
  EXPECT_GE(wall, before);
  EXPECT_LE(wall, std::time(nullptr));
}

TEST_F(Machine, TheWaitForTheRestartSleeps) {
  const pid_t child = start_child();
  if (child == 0) {
    await_restart();
  }
  char state = 'R';
  for (int i = 0; i < 1000 && state != 'S'; i++) { // a millisecond each
    std::ifstream file("/proc/" + std::to_string(child) + "/stat");
    std::string number;
    std::string name;
    file >> number >> name >> state;
    const timespec pause = {0, 1'000'000};
    nanosleep(&pause, nullptr);
  }
  EXPECT_EQ(state, 'S');
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

// Memory -----------------------------------------------------------------------------------------

class MachineMemory : public device_test::Device {
protected:
  MachineMemory() { stand_in = folder() / "meminfo"; }
  ~MachineMemory() override { stand_in.clear(); }

  /// The kernel's file has this content.
  static void is(const std::string& content) { write("meminfo", content); }
  static MemoryInfo info() {
    MemoryInfo found{};
    EXPECT_EQ(memory_info(&found), 0);
    return found;
  }
  static std::uint32_t available() {
    std::uint32_t kilobytes = 0;
    EXPECT_TRUE(rcmd::available_memory_kb(&kilobytes));
    return kilobytes;
  }
};

TEST_F(MachineMemory, EveryFigureHasItsLine) {
  is("MemTotal:  1000 kB\nMemFree:  300 kB\nBuffers:  20 kB\nCached:  400 kB\nShmem:  50 kB\n");
  const MemoryInfo found = info();
  EXPECT_EQ(found.total, 1000U);
  EXPECT_EQ(found.free, 300U);
  EXPECT_EQ(found.used, 700U);
  EXPECT_EQ(found.buffers, 20U);
  EXPECT_EQ(found.cached, 400U);
  EXPECT_EQ(found.shared, 50U);
}

TEST_F(MachineMemory, AnOldKernelHasAnotherNameForTheSharedOne) {
  is("MemTotal:  1000 kB\nMemFree:  300 kB\nMemShared:  60 kB\n");
  EXPECT_EQ(info().shared, 60U);
  is("MemTotal:  1000 kB\nMemFree:  300 kB\nMemShared:  60 kB\nShmem:  50 kB\n");
  EXPECT_EQ(info().shared, 50U);
}

TEST_F(MachineMemory, WithoutTheTotalOrTheFreeOnesThereIsNoAnswer) {
  MemoryInfo found{};
  is("MemFree:  300 kB\n");
  EXPECT_EQ(memory_info(&found), -1);
  is("MemTotal:  1000 kB\n");
  EXPECT_EQ(memory_info(&found), -1);
  is("");
  EXPECT_EQ(memory_info(&found), -1);
  std::filesystem::remove(stand_in);
  EXPECT_EQ(memory_info(&found), -1);
  std::uint32_t kilobytes = 0;
  EXPECT_FALSE(rcmd::available_memory_kb(&kilobytes));
}

// Nothing but the two readings may touch the stack in between: an older one must not shine through.
TEST_F(MachineMemory, NothingOfALongerFileIsLeftBehindAShorterOneOrNone) {
  const std::string longer = folder() / "longer";
  const std::string shorter = folder() / "shorter";
  const std::string none = folder() / "none";
  write("longer", "MemTotal:  1000 kB\nMemFree:  300 kB\nBuffers:  20 kB\nShmem:  50 kB\n");
  write("shorter", "MemTotal:  1000 kB\nMemFree:  300 kB");
  MemoryInfo first{};
  MemoryInfo second{};
  MemoryInfo third{};
  stand_in = longer;
  const int first_result = memory_info(&first);
  stand_in = shorter;
  const int second_result = memory_info(&second);
  stand_in = none;
  const int third_result = memory_info(&third);
  EXPECT_EQ(first_result, 0);
  EXPECT_EQ(first.shared, 50U);
  EXPECT_EQ(second_result, 0);
  EXPECT_EQ(second.shared, 0U);
  EXPECT_EQ(second.free, 300U);
  EXPECT_EQ(third_result, -1);
}

TEST_F(MachineMemory, TheFirst2047BytesAreRead) {
  const std::string begin = "MemTotal:  1000 kB\nMemFree:  300 kB\n";
  const std::string line = "Shmem:  ";
  is(begin + std::string(2047 - begin.size() - line.size() - 3, '\n') + line + "12345 kB\n");
  EXPECT_EQ(info().shared, 123U);
}

TEST_F(MachineMemory, AvailableIsWhatIsFreeAndTheCacheThatIsNotShared) {
  is("MemTotal:  1000 kB\nMemFree:  300 kB\nBuffers:  20 kB\nCached:  400 kB\nShmem:  50 kB\n");
  EXPECT_EQ(available(), 670U);
  is("MemTotal:  1000 kB\nMemFree:  300 kB\nBuffers:  20 kB\nCached:  40 kB\nShmem:  50 kB\n");
  EXPECT_EQ(available(), 320U);
}

TEST_F(MachineMemory, SufficesToItsLastByte) {
  EXPECT_EQ(rcmd::memory_suffices(2048, 2), 1);
  EXPECT_EQ(rcmd::memory_suffices(2049, 2), 0);
}

} // namespace
