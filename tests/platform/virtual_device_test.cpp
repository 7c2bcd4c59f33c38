// The virtual router's device: folder, tools, supervisor, flash, memory, wireless, System V keys.

#include "platform/virtual/device.h"

#include "platform/api/console.h"
#include "platform/api/files.h"
#include "platform/api/ipc.h"
#include "platform/api/memory.h"
#include "platform/api/mtd.h"
#include "platform/api/process.h"
#include "platform/api/system.h"
#include "platform/api/wait.h"
#include "platform/api/wireless.h"
#include "tests/platform/device_fixture.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <vector>

namespace {

class VirtualDevice : public device_test::Device {
protected:
  static int eval(std::vector<std::string> words, const char* output = nullptr, int timeout_s = 0,
                  int* pid = nullptr) {
    std::vector<char*> arguments;
    for (std::string& word : words) {
      arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    return _eval(arguments.data(), output, timeout_s, pid);
  }
};

// Paths -----------------------------------------------------------------------------------------

TEST_F(VirtualDevice, EveryAbsolutePathLiesBelowTheFolder) {
  const std::string base = folder().string();
  EXPECT_EQ(device_path("/proc/net/dev"), base + "/proc/net/dev");
  EXPECT_EQ(device_path("/dev/mtd/3"), base + "/dev/mtd/3");
  EXPECT_EQ(device_path("linux"), std::string("linux"));
}

TEST_F(VirtualDevice, APathThatLeadsUpwardLeadsNowhere) {
  for (const char* path : {"/..", "/../etc/passwd", "/tmp/../../x", "/tmp/.."}) {
    EXPECT_EQ(device_path(path), folder().string() + "/refused/path") << path;
  }
  EXPECT_EQ(device_path("/tmp/..x/y.."), folder().string() + "/tmp/..x/y..");
}

TEST_F(VirtualDevice, RemovingAFileTouchesTheFolderAlone) {
  write("tmp/firmware.download", "x");
  EXPECT_EQ(remove_device_file("/tmp/firmware.download"), 0);
  EXPECT_FALSE(std::filesystem::exists(folder() / "tmp/firmware.download"));
  EXPECT_EQ(remove_device_file("/tmp/firmware.download"), -1);
}

/// Runs with the folder's variable set to `value` (null: unset) in a program of its own.
int status_with_folder(const char* value) {
  const pid_t child = fork();
  if (child == 0) {
    if (value == nullptr) {
      unsetenv("VIRTUAL_ROUTER_DIR");
    } else {
      setenv("VIRTUAL_ROUTER_DIR", value, 1);
    }
    const int silent = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(silent, STDERR_FILENO);
    execl(PROGRAM_DIR "/nvram-virtual", "nvram-virtual", "get", "x", nullptr);
    _exit(99);
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(VirtualDevice, WithoutAFolderTheFirstUseEndsTheProcess) {
  EXPECT_EQ(status_with_folder(nullptr), 1);
  EXPECT_EQ(status_with_folder("/no/such/folder"), 1);
  EXPECT_EQ(status_with_folder("/"), 1);
  EXPECT_EQ(status_with_folder("/etc/.."), 1);
}

TEST_F(VirtualDevice, TheConsoleIsTheFoldersOwn) {
  EXPECT_EQ(console_write("one\n", 4), 0);
  EXPECT_EQ(console_write("two\n", 4), 0);
  EXPECT_EQ(read("dev/console"), "one\ntwo\n");
}

TEST_F(VirtualDevice, AConsoleThatNobodyReadsCannotBeOpenedAndDoesNotBlock) {
  ASSERT_EQ(mkfifo((folder() / "dev/console").c_str(), 0600), 0);
  EXPECT_EQ(console_write("x", 1), -1);
}

TEST_F(VirtualDevice, DiagnosticsGoToStandardErrorAndNowhereElse) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  diagnostic_write("timeout .... \n", 14);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "timeout .... \n");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_FALSE(std::filesystem::exists(folder() / "dev/console"));
}

// Clock and end ---------------------------------------------------------------------------------

TEST_F(VirtualDevice, WithoutABootTimeItBootedWithTheMachine) {
  double before = 0;
  double after = 0;
  std::ifstream("/proc/uptime") >> before;
  const std::int32_t uptime = system_uptime();
  std::ifstream("/proc/uptime") >> after;
  EXPECT_GE(uptime, static_cast<std::int32_t>(before));
  EXPECT_LE(uptime, static_cast<std::int32_t>(after) + 1); // the query may round up
}

TEST_F(VirtualDevice, TheProcessEndsWithTheStatusThatIsAskedFor) {
  const pid_t child = start_child();
  if (child == 0) {
    exit_process(1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 1);
}

// Tools -----------------------------------------------------------------------------------------

TEST_F(VirtualDevice, AToolThatIsWaitedForGivesItsExitStatus) {
  make_tool("answer", "exit $1");
  EXPECT_EQ(eval({"answer", "0"}), 0);
  EXPECT_EQ(eval({"answer", "7"}), 7);
}

TEST_F(VirtualDevice, ToolsOfTheMachineAreNotFound) {
  EXPECT_NE(eval({"true"}), 0);
  int pid = -5;
  EXPECT_NE(eval({"true"}, nullptr, 0, &pid), 0) << "not found counts as not started";
  EXPECT_EQ(pid, -5);
}

TEST_F(VirtualDevice, AToolNamedByAPathIsRefused) {
  make_tool("answer", "exit 0");
  EXPECT_NE(eval({"/bin/true"}), 0);
  EXPECT_NE(eval({"../bin/answer"}), 0);
  EXPECT_NE(eval({".."}), 0);
  EXPECT_NE(eval({""}), 0);
}

TEST_F(VirtualDevice, AFileThatCannotBeRunIsNotStarted) {
  write("bin/broken", "no program");
  EXPECT_NE(eval({"broken"}), 0);
  std::filesystem::permissions(folder() / "bin/broken", std::filesystem::perms::owner_all);
  EXPECT_NE(eval({"broken"}), 0);
}

TEST_F(VirtualDevice, OutputToTheConsoleIsAppended) {
  make_tool("talk", "echo out; echo err >&2");
  console_write("before\n", 7);
  EXPECT_EQ(eval({"talk"}, ">/dev/console"), 0);
  EXPECT_EQ(read("dev/console"), "before\nout\nerr\n");
}

TEST_F(VirtualDevice, OutputToAFileReplacesItsContent) {
  make_tool("talk", "echo out");
  write("tmp/log", "something longer than before\n");
  EXPECT_EQ(eval({"talk"}, ">/tmp/log"), 0);
  EXPECT_EQ(read("tmp/log"), "out\n");
}

TEST_F(VirtualDevice, AConsoleThatCannotBeOpenedDoesNotStopTheTool) {
  ASSERT_EQ(mkfifo((folder() / "dev/console").c_str(), 0600), 0);
  make_tool("talk", "echo out; exit 3");
  EXPECT_EQ(eval({"talk"}, ">/dev/console"), 3);
}

TEST_F(VirtualDevice, AToolThatOverstaysItsTimeIsKilled) {
  make_tool("sleepy", "exec sleep 30");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(eval({"sleepy"}, nullptr, 1), 128 + SIGKILL);
  const auto taken = std::chrono::steady_clock::now() - start;
  EXPECT_GE(taken, std::chrono::milliseconds(990));
  EXPECT_LT(taken, std::chrono::seconds(10));
}

TEST_F(VirtualDevice, AnInterruptionOfLongAgoDoesNotPutOffTheEndOfATool) {
  make_tool("slow", "exec /bin/sleep 5");
  errno = EINTR;
  EXPECT_EQ(eval({"slow"}, nullptr, 1), 128 + SIGKILL);
}

TEST_F(VirtualDevice, AnOutputFileIsMadeWithItsRights) {
  make_tool("say", "echo said");
  const mode_t before = umask(0);
  EXPECT_EQ(eval({"say"}, ">/tmp/said"), 0);
  umask(before);
  struct stat facts {};
  EXPECT_EQ(stat((folder() / "tmp/said").c_str(), &facts), 0);
  EXPECT_EQ(facts.st_mode & 07777, 0644U);
}

TEST_F(VirtualDevice, AnOutputFileMayHaveTheDescriptorZero) {
  make_tool("say", "echo said");
  const int saved = fcntl(0, F_DUPFD_CLOEXEC, 100);
  close(0);
  const int status = eval({"say"}, ">/tmp/said");
  dup2(saved, 0);
  close(saved);
  EXPECT_EQ(status, 0);
  EXPECT_EQ(read("tmp/said"), "said\n");
}

TEST_F(VirtualDevice, WithoutItsConsoleAToolMayWriteAllTheSame) {
  std::filesystem::create_directory(folder() / "dev/console"); // which cannot be written
  make_tool("say", "echo said || exit 7");
  EXPECT_EQ(eval({"say"}, ">/dev/console"), 0);
}

TEST_F(VirtualDevice, AToolThatEndsInTimeIsNotKilled) {
  make_tool("quick", "exit 4");
  EXPECT_EQ(eval({"quick"}, nullptr, 60), 4);
}

TEST_F(VirtualDevice, AToolThatIsNotWaitedForIsCollectedLater) {
  make_tool("answer", "exit 5");
  int pid = -1;
  EXPECT_EQ(eval({"answer"}, nullptr, 0, &pid), 0);
  EXPECT_GT(pid, 1);
  EXPECT_EQ(wait_process(pid), 5);
  EXPECT_EQ(wait_process(pid), -1) << "collected already";
}

TEST_F(VirtualDevice, NobodysChildIsNotWaitedFor) {
  EXPECT_EQ(wait_process(-1), -1);
  EXPECT_EQ(wait_process(0), -1);
  EXPECT_EQ(wait_process(1), -1);
}

// Supervisor ------------------------------------------------------------------------------------

TEST_F(VirtualDevice, RestartAndSignalGoToTheSupervisorsEar) {
  const std::string ear = (folder() / "run/init").string();
  ASSERT_EQ(mkfifo(ear.c_str(), 0600), 0);
  const int supervisor = open(ear.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  EXPECT_EQ(signal_init(15), 0);
  char text[64] = "";
  EXPECT_EQ(::read(supervisor, text, sizeof text - 1), 10);
  EXPECT_STREQ(text, "signal 15\n");

  const pid_t daemon = start_child();
  if (daemon == 0) {
    restart_device(0x01234567);
    _exit(1);
  }
  EXPECT_GT(waitfor(supervisor, 10), 0);
  EXPECT_EQ(::read(supervisor, text, sizeof text - 1), 17);
  EXPECT_STREQ(text, "restart 01234567\n");
  EXPECT_EQ(waitpid(daemon, nullptr, WNOHANG), 0) << "it waits for its end";
  kill(daemon, SIGKILL);
  waitpid(daemon, nullptr, 0);
  close(supervisor);
}

TEST_F(VirtualDevice, WithoutASupervisorTheRequestFails) {
  EXPECT_EQ(restart_device(0x01234567), -1);
  ASSERT_EQ(mkfifo((folder() / "run/init").c_str(), 0600), 0);
  EXPECT_EQ(signal_init(15), -1) << "a FIFO without a reader";
}

TEST_F(VirtualDevice, APlainFileCollectsTheRequests) {
  write("run/init", "");
  EXPECT_EQ(signal_init(15), 0);
  EXPECT_EQ(signal_init(1), 0);
  EXPECT_EQ(read("run/init"), "signal 15\nsignal 1\n");
}

// Flash -----------------------------------------------------------------------------------------

class VirtualFlash : public VirtualDevice {
protected:
  VirtualFlash() {
    write("dev/mtd/0", std::string(3 * 65536, '\0'));
    fd_ = open(device_path("/dev/mtd/0"), O_RDWR | O_CLOEXEC);
  }
  ~VirtualFlash() override { close(fd_); }

  [[nodiscard]] int erase(std::uint32_t start, std::uint32_t length) const {
    const MtdErase block = {start, length};
    return mtd_erase(fd_, &block);
  }

  int fd_;
};

TEST_F(VirtualFlash, ThePartitionIsAsLargeAsItsFile) {
  MtdInfo info = {};
  EXPECT_EQ(mtd_get_info(fd_, &info), 0);
  EXPECT_EQ(info.size, 3U * 65536);
  EXPECT_EQ(info.erase_size, 65536U);
}

TEST_F(VirtualFlash, AnEraseSetsOneBlocksBits) {
  EXPECT_EQ(erase(65536, 65536), 0);
  const std::string content = read("dev/mtd/0");
  EXPECT_EQ(content.substr(0, 65536), std::string(65536, '\0'));
  EXPECT_EQ(content.substr(65536, 65536), std::string(65536, '\xFF'));
  EXPECT_EQ(content.substr(2 * 65536), std::string(65536, '\0'));
}

TEST_F(VirtualFlash, AMisalignedEraseIsRefused) {
  EXPECT_EQ(erase(1, 65536), -1);
  EXPECT_EQ(erase(0, 65535), -1);
  EXPECT_EQ(erase(3 * 65536, 65536), -1) << "past the end";
  EXPECT_EQ(erase(0xFFFF0000U, 0x20000U), -1);
  EXPECT_EQ(read("dev/mtd/0"), std::string(3 * 65536, '\0'));
}

TEST_F(VirtualFlash, AWriteClearsBitsAndSetsNone) {
  EXPECT_EQ(erase(0, 65536), 0);
  EXPECT_EQ(mtd_write(fd_, "\x0F", 1), 1);
  EXPECT_EQ(lseek(fd_, 0, SEEK_CUR), 1);
  lseek(fd_, 0, SEEK_SET);
  EXPECT_EQ(mtd_write(fd_, "\xFC\xAB", 2), 2);
  EXPECT_EQ(read("dev/mtd/0").substr(0, 3), "\x0C\xAB\xFF");
}

TEST_F(VirtualFlash, AWriteStopsAtThePartitionsEnd) {
  lseek(fd_, 3 * 65536 - 2, SEEK_SET);
  EXPECT_EQ(mtd_write(fd_, "abcd", 4), 2);
  EXPECT_EQ(mtd_write(fd_, "abcd", 4), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(read("dev/mtd/0").size(), 3U * 65536);
}

TEST_F(VirtualFlash, AnythingButAPlainFileIsNoPartition) {
  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  MtdInfo info = {};
  const MtdErase block = {0, 65536};
  EXPECT_EQ(mtd_get_info(null, &info), -1);
  EXPECT_EQ(mtd_erase(null, &block), -1);
  EXPECT_EQ(mtd_write(null, "x", 1), -1);
  close(null);
}

// Memory ----------------------------------------------------------------------------------------

TEST_F(VirtualDevice, TheMachinesMemoryIsReported) {
  MemoryInfo info = {};
  ASSERT_EQ(memory_info(&info), 0);
  EXPECT_GT(info.total, 1024U);
  EXPECT_GT(info.free, 0U);
  EXPECT_LE(info.free + info.cached, info.total);
  EXPECT_EQ(info.used, info.total - info.free);
  EXPECT_EQ(check_memory_avalid(1024), 1);
}

// The figure of a line of the kernel's memory file.
std::uint32_t kernel_figure(const std::string& label) {
  std::ifstream file("/proc/meminfo");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(label)) {
      return static_cast<std::uint32_t>(std::stoul(line.substr(label.size())));
    }
  }
  return 0;
}

// Buffers and cache move all the time: what counts is a reading during which they stood still.
TEST_F(VirtualDevice, BuffersCacheAndSharedMemoryAreTheKernels) {
  for (int attempt = 0; attempt < 1000; attempt++) {
    const std::uint32_t before[] = {kernel_figure("Buffers:"), kernel_figure("Cached:"),
                                    kernel_figure("Shmem:")};
    MemoryInfo info = {};
    ASSERT_EQ(memory_info(&info), 0);
    const std::uint32_t behind[] = {kernel_figure("Buffers:"), kernel_figure("Cached:"),
                                    kernel_figure("Shmem:")};
    if (std::ranges::equal(before, behind)) {
      EXPECT_EQ(info.total, kernel_figure("MemTotal:"));
      EXPECT_EQ(info.buffers, before[0]);
      EXPECT_EQ(info.cached, before[1]);
      EXPECT_EQ(info.shared, before[2]);
      return;
    }
  }
  FAIL() << "the machine's memory never stood still";
}

TEST_F(VirtualDevice, AMemoryLimitTakesTheMachinesPlace) {
  write("run/memory_limit_kb", "64\n");
  EXPECT_EQ(check_memory_avalid(65536), 1);
  EXPECT_EQ(check_memory_avalid(65537), 0);
  write("run/memory_limit_kb", "0");
  EXPECT_EQ(check_memory_avalid(1), 0);
}

// Wireless --------------------------------------------------------------------------------------

std::vector<std::uint8_t> station_list() {
  std::vector<std::uint8_t> buffer(1540);
  std::memcpy(buffer.data(), "authe_sta_list", 15);
  EXPECT_EQ(wl_ioctl("eth1", 262, buffer.data(), 1540), 0);
  return buffer;
}

TEST_F(VirtualDevice, WithoutAStationsFileNobodyIsAssociated) {
  const auto buffer = station_list();
  EXPECT_EQ(std::vector<std::uint8_t>(buffer.begin(), buffer.begin() + 4),
            std::vector<std::uint8_t>(4, 0));
}

TEST_F(VirtualDevice, StationsAreListedWithTheirSignal) {
  write("run/stations", "00:11:22:33:44:55 -40\nnonsense\naa:BB:cc:DD:ee:01 -71\n");
  const auto buffer = station_list();
  std::uint32_t count = 0;
  std::memcpy(&count, buffer.data(), 4);
  EXPECT_EQ(count, 2U);
  const std::uint8_t second[6] = {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01};
  EXPECT_EQ(std::memcmp(&buffer[10], second, 6), 0);

  std::uint8_t query[12] = {0, 0, 0, 0, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01, 0, 0};
  EXPECT_EQ(wl_ioctl("eth1", 127, query, 12), 0);
  std::int32_t signal = 0;
  std::memcpy(&signal, query, 4);
  EXPECT_EQ(signal, -71);
  query[9] = 0x02;
  EXPECT_LT(wl_ioctl("eth1", 127, query, 12), 0) << "a station that has gone";
}

TEST_F(VirtualDevice, ABadWirelessRequestFails) {
  std::uint8_t buffer[1540] = {};
  EXPECT_LT(wl_ioctl("eth1", 262, buffer, 1540), 0) << "the request's text is missing";
  EXPECT_LT(wl_ioctl("eth1", 262, buffer, 3), 0);
  EXPECT_LT(wl_ioctl("eth1", 127, buffer, 11), 0);
  EXPECT_LT(wl_ioctl("eth1", 1, buffer, 1540), 0);
  EXPECT_LT(wl_ioctl("", 262, buffer, 1540), 0);
}

TEST_F(VirtualDevice, MoreStationsThanTheAnswerHoldsAreCutToFit) {
  std::string lines;
  for (int i = 0; i < 300; i++) {
    char line[40];
    std::snprintf(line, sizeof line, "00:00:00:00:%02x:%02x -50\n", i / 256, i % 256);
    lines += line;
  }
  write("run/stations", lines);
  std::uint8_t buffer[64] = "authe_sta_list";
  EXPECT_EQ(wl_ioctl("eth1", 262, buffer, 64), 0);
  std::uint32_t count = 0;
  std::memcpy(&count, buffer, 4);
  EXPECT_EQ(count, 10U);
}

// System V objects ------------------------------------------------------------------------------

TEST_F(VirtualDevice, EachFolderHasItsOwnKeys) {
  const std::int32_t key = 0x414E4547;
  EXPECT_NE(rcmd::device_ipc_key("/tmp/a", key), rcmd::device_ipc_key("/tmp/b", key));
  EXPECT_NE(rcmd::device_ipc_key("/tmp/a", key), rcmd::device_ipc_key("/tmp/a", key + 1));
  EXPECT_NE(rcmd::device_ipc_key("/tmp/a", key), key);
}

TEST_F(VirtualDevice, SharedObjectsAreFoundUnderTheDerivedKey) {
  const std::int32_t key = rcmd::device_ipc_key(folder().c_str(), 0x414E4547);
  EXPECT_EQ(ipc_shmget(0x414E4547, 0, 0), -1);
  const int segment = shmget(key, 4096, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_GE(segment, 0);
  EXPECT_EQ(ipc_shmget(0x414E4547, 0, 0), segment);
  EXPECT_EQ(ipc_shm_bytes(segment), 4096U);
  void* attached = ipc_shmat(segment, nullptr, 0);
  EXPECT_NE(attached, reinterpret_cast<void*>(-1));
  EXPECT_EQ(ipc_shmdt(attached), 0);
  shmctl(segment, IPC_RMID, nullptr);

  const int set = semget(key, 2, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_GE(set, 0);
  EXPECT_EQ(ipc_semget(0x414E4547, 0, 0), set);
  sembuf up = {0, 1, 0};
  EXPECT_EQ(ipc_semop(set, &up, 1), 0);
  EXPECT_EQ(semctl(set, 0, GETVAL), 1);
  semctl(set, 0, IPC_RMID);
}

// Waiting ---------------------------------------------------------------------------------------

TEST_F(VirtualDevice, WaitingEndsWhenSomethingComes) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(waitfor(ends[0], 0), 0);
  EXPECT_EQ(::write(ends[1], "x", 1), 1);
  EXPECT_GT(waitfor(ends[0], 5), 0);
  close(ends[0]);
  close(ends[1]);
  EXPECT_LT(waitfor(ends[0], 5), 0) << "a closed descriptor is an error, not a wait";
}

TEST_F(VirtualDevice, WaitingLastsTheFullTimeWhateverSignalsArrive) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  struct sigaction action = {};
  action.sa_handler = [](int) {};
  struct sigaction before = {};
  sigaction(SIGALRM, &action, &before);
  itimerval often = {{0, 50'000}, {0, 50'000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(waitfor(ends[0], 1), 0);
  const auto taken = std::chrono::steady_clock::now() - start;
  often = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_GE(taken, std::chrono::milliseconds(999));
  EXPECT_LT(taken, std::chrono::milliseconds(1900));
  close(ends[0]);
  close(ends[1]);
}

} // namespace
