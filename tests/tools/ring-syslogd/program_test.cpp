// The program itself: a socket in a temporary folder, a ring under a key of the test's own.

#include "tests/tools/ring-syslogd/real_ring.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>

namespace {

using std::chrono::steady_clock;

class RingSyslogd : public fake::RealRing {
protected:
  RingSyslogd() {
    char name[] = "/tmp/ring-syslogd-XXXXXX";
    folder = mkdtemp(name);
    path = folder + "/log";
  }
  ~RingSyslogd() override {
    if (pid > 0) {
      stop(SIGKILL);
    }
    std::filesystem::remove_all(folder);
  }

  static bool within_seconds(int seconds, const std::function<bool()>& happens) {
    const auto end = steady_clock::now() + std::chrono::seconds(seconds);
    while (steady_clock::now() < end) {
      if (happens()) {
        return true;
      }
      usleep(2000);
    }
    return false;
  }

  [[nodiscard]] int spawn(std::vector<std::string> arguments) const {
    char key_text[16];
    std::snprintf(key_text, sizeof key_text, "0x%08X", static_cast<unsigned>(key));
    arguments.insert(arguments.begin(), {PROGRAM_DIR "/ring-syslogd", "--key", key_text});
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    const int child = fork();
    if (child == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      execv(argv[0], argv.data());
      _exit(127);
    }
    return child;
  }
  static int status_of(int child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  void start(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.end(), {"--socket", path, "--size", "8192"});
    pid = spawn(arguments);
    ASSERT_TRUE(within_seconds(10, [&] { return can_send("<30>"); }));
  }
  int stop(int signal_number) {
    kill(pid, signal_number);
    const int status = status_of(pid);
    pid = -1;
    return status;
  }

  bool can_send(const std::string& message) const {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, path.c_str());
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    const ssize_t sent = sendto(fd, message.data(), message.size(), 0,
                                reinterpret_cast<sockaddr*>(&address), sizeof address);
    close(fd);
    return sent >= 0;
  }
  /// Reads until the text comes up. What was read is in `all`.
  bool comes(const std::string& text) {
    return within_seconds(10, [&] {
      read_log();
      all += output;
      return all.find(text) != std::string::npos;
    });
  }

  std::string folder;
  std::string path;
  std::string all;
  int pid = -1;
};

TEST_F(RingSyslogd, LinesOfTheSocketReachTheLogReader) {
  start();
  EXPECT_TRUE(can_send("<30>Sep 10 03:48:04 pppd[77]: link up\n"));
  EXPECT_TRUE(can_send("<13>Sep 10 03:48:05 crond: second"));
  ASSERT_TRUE(comes("s crond: second\n"));
  EXPECT_NE(all.find("s pppd[77]: link up\n"), std::string::npos) << all;
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0666U);
}

TEST_F(RingSyslogd, EndingSignalsRemoveTheRingAndTheSocket) {
  for (const int signal_number : {SIGTERM, SIGINT}) {
    start();
    EXPECT_TRUE(objects_exist());
    EXPECT_EQ(stop(signal_number), 0);
    EXPECT_FALSE(objects_exist());
    EXPECT_FALSE(std::filesystem::exists(path));
  }
}

TEST_F(RingSyslogd, AKilledOnesRingAndSocketAreTakenOver) {
  start();
  EXPECT_TRUE(can_send("<30>Sep 10 03:48:04 a: before"));
  ASSERT_TRUE(comes("a: before\n"));
  stop(SIGKILL);
  EXPECT_TRUE(objects_exist());
  start();
  EXPECT_TRUE(can_send("<30>Sep 10 03:48:04 a: after"));
  EXPECT_TRUE(comes("a: after\n")) << "the reader has attached the old segment";
  EXPECT_EQ(all.find("a: before"), all.rfind("a: before")) << "and its marks stand";
}

TEST_F(RingSyslogd, ASecondOneForTheSameSocketGoesAway) {
  start();
  EXPECT_EQ(status_of(spawn({"--socket", path})), 1);
  EXPECT_TRUE(can_send("<30>Sep 10 03:48:04 a: still here"));
  EXPECT_TRUE(comes("a: still here\n"));
}

TEST_F(RingSyslogd, ASocketThatCannotBeBoundLeavesNothingBehind) {
  EXPECT_EQ(status_of(spawn({"--socket", folder + "/missing/log"})), 1);
  EXPECT_EQ(status_of(spawn({"--socket", folder + "/" + std::string(200, 'x')})), 1);
  EXPECT_FALSE(objects_exist());
}

TEST_F(RingSyslogd, WrongOptionsEndItWithStatusTwo) {
  EXPECT_EQ(status_of(spawn({"--size", "4095"})), 2);
  EXPECT_EQ(status_of(spawn({"--mark", "x"})), 2);
  EXPECT_EQ(status_of(spawn({"--unknown"})), 2);
  EXPECT_EQ(status_of(spawn({"stray"})), 2);
  EXPECT_EQ(status_of(spawn({"--help"})), 0);
  EXPECT_FALSE(objects_exist());
}

TEST_F(RingSyslogd, MarksComeByThemselves) {
  start({"--mark", "1"});
  EXPECT_TRUE(comes("s -- MARK --\n"));
}

TEST_F(RingSyslogd, AReaderThatHoldsTheRingCostsLinesAndStopsNobody) {
  start();
  ASSERT_TRUE(can_send("<30>a: first"));
  ASSERT_TRUE(comes("a: first\n"));
  const int semaphores = semget(key, 0, 0);
  sembuf down = {0, 1, SEM_UNDO};
  ASSERT_EQ(semop(semaphores, &down, 1), 0);
  ASSERT_TRUE(can_send("<30>a: dropped"));
  ASSERT_TRUE(can_send("<30>a: dropped"));
  usleep(1'300'000); // its patience is a second
  sembuf up = {0, -1, IPC_NOWAIT | SEM_UNDO};
  ASSERT_EQ(semop(semaphores, &up, 1), 0);
  ASSERT_TRUE(can_send("<30>a: after"));
  EXPECT_TRUE(comes("ring-syslogd: 2 lines were dropped while a reader held the ring\n"));
  EXPECT_NE(all.find("a: after\n"), std::string::npos);
  EXPECT_EQ(all.find("a: dropped\n"), std::string::npos);
}

} // namespace
