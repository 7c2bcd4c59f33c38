// The virtual router as a process, with a stand-in for the daemon that notes its start and sleeps.
#include "tools/virtual-router/child.h"
#include "tools/virtual-router/device_folder.h"
#include "tools/virtual-router/flash.h"
#include "tools/virtual-router/ring.h"
#include "tools/virtual-router/text_file.h"

#include "platform/api/checksum.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace virtual_router;
namespace fs = std::filesystem;
using ::testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

constexpr const char* kStub = "#!/bin/sh\n"
                              "echo \"$$\" >> \"$VIRTUAL_ROUTER_DIR/starts\"\n"
                              "echo \"stub runs with $*\"\n"
                              "exec sleep 100\n";

std::string program(const std::string& name) {
  return std::string(PROGRAM_DIR) + "/" + name;
}

/// Glances at a condition until it holds, ten seconds at most.
bool comes_true(const std::function<bool()>& condition) {
  const auto deadline = std::chrono::steady_clock::now() + 10s;
  while (std::chrono::steady_clock::now() < deadline) {
    if (condition())
      return true;
    usleep(2000);
  }
  return false;
}

bool process_lives(pid_t pid) {
  const auto state = read_file("/proc/" + std::to_string(pid) + "/stat");
  return state && state->find(") Z ") == std::string::npos;
}

/// A running virtual router.
class Router {
public:
  /// @param folder  empty: the router's own temporary one
  Router(const std::string& folder, const std::string& daemon,
         const std::vector<std::string>& more = {}) {
    std::vector<std::string> command = {program("virtual-router"), "--daemon", daemon};
    if (!folder.empty())
      command.insert(command.end(), {"--dir", folder});
    command.insert(command.end(), more.begin(), more.end());
    child_.start(command);
  }

  /// Reads its output until the text has come once more. @return false after ten seconds
  bool says(const std::string& text) {
    const bool came = comes_true([&] {
      output_ += child_.read_output();
      return output_.find(text, read_to_) != std::string::npos;
    });
    if (came)
      read_to_ = output_.find(text, read_to_) + text.size();
    return came;
  }
  /// @return the folder, once the device is up
  std::string folder() {
    static const std::string mark = "the device lives in ";
    EXPECT_TRUE(says("the device is up")) << output_;
    const auto at = output_.find(mark) + mark.size();
    return output_.substr(at, output_.find('\n', at) - at);
  }
  [[nodiscard]] pid_t pid() const { return child_.pid(); }
  [[nodiscard]] const std::string& output() const { return output_; }

  /// Sends the signal and waits for the end. @return the exit status, or -1
  int end_by(int signal_number) {
    kill(child_.pid(), signal_number);
    return wait_for_end();
  }
  int wait_for_end() {
    std::optional<int> status;
    comes_true([&] {
      output_ += child_.read_output();
      status = child_.collect();
      return status.has_value();
    });
    output_ += child_.read_output();
    return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
  }

private:
  Child child_{"router"};
  std::string output_;
  std::size_t read_to_ = 0;
};

Finished on_device(const std::string& folder, const std::vector<std::string>& command) {
  setenv("VIRTUAL_ROUTER_DIR", folder.c_str(), 1);
  return run_to_end(command);
}

class VirtualRouter : public ::testing::Test {
protected:
  VirtualRouter() {
    replace_file(stub, kStub);
    chmod(stub.c_str(), 0755);
  }
  static std::string nvram(const std::string& folder, const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {program("nvram-virtual")};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const Finished run = on_device(folder, command);
    return run.status == 0 ? run.output : "failed: " + run.output;
  }
  static std::string get(const std::string& folder, const std::string& name) {
    return nvram(folder, {"get", name});
  }
  static void ask_init(const std::string& folder, const std::string& line) {
    const int fd = open((folder + "/run/init").c_str(), O_WRONLY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, (line + "\n").c_str(), line.size() + 1),
              static_cast<ssize_t>(line.size() + 1));
    close(fd);
  }
  /// The process ids that the stand-in has had so far.
  static std::vector<pid_t> starts(const std::string& folder) {
    std::istringstream lines(read_file(folder + "/starts").value_or(""));
    std::vector<pid_t> pids;
    for (pid_t pid = 0; lines >> pid;)
      pids.push_back(pid);
    return pids;
  }

  const DeviceFolder scratch{""};
  const std::string stub = scratch.root() + "/stub";
  const std::string home = scratch.root() + "/device";
};

TEST_F(VirtualRouter, ADeviceStartsWithTheFactorysSettingsAndItsOwn) {
  Router router(home, stub, {"--serial", "A7", "--set", "lan_ipaddr=10.0.0.1", "-d"});
  router.folder();
  EXPECT_EQ(get(home, "SN"), "A7\n");
  EXPECT_EQ(get(home, "lan_ipaddr"), "10.0.0.1\n");
  EXPECT_EQ(get(home, "lan_ifname"), "br0\n");
  EXPECT_TRUE(router.says("rcmd| stub runs with -m lab -s 127.0.0.1 -d\n")) << router.output();
}

TEST_F(VirtualRouter, ARestartDropsWhatWasNotCommitted) {
  Router router(home, stub);
  router.folder();
  nvram(home, {"set", "hostname=kept"});
  nvram(home, {"commit"});
  nvram(home, {"set", "hostname=dropped"});
  ask_init(home, "signal 15");
  ASSERT_TRUE(router.says("the device restarts: process 1 was sent signal 15"));
  router.folder();
  EXPECT_EQ(get(home, "hostname"), "kept\n");
  ASSERT_TRUE(comes_true([&] { return starts(home).size() == 2; }));
  EXPECT_FALSE(process_lives(starts(home)[0]));
  EXPECT_TRUE(process_lives(starts(home)[1]));
}

TEST_F(VirtualRouter, ASignalThatDoesNotEndProcess1ChangesNothing) {
  Router router(home, stub);
  router.folder();
  ask_init(home, "signal 1");
  ask_init(home, "restart 01234567");
  ASSERT_TRUE(router.says("the device restarts: "));
  EXPECT_TRUE(router.says("a restart with code 01234567")) << router.output();
}

TEST_F(VirtualRouter, ARestoreOfDefaultsKeepsIdentityAndWhatTheBackupHolds) {
  Router router(home, stub, {"--serial", "A7"});
  router.folder();
  std::string backup = *read_file(home + "/dev/mtd/1");
  const auto at = backup.find("jqa_reconnect_interval=60");
  ASSERT_NE(at, std::string::npos);
  backup.replace(at, 25, "jqa_reconnect_interval=75");
  replace_file(home + "/dev/mtd/1", backup);
  nvram(home, {"set", "hostname=mine"});
  nvram(home, {"set", "added=1"});
  nvram(home, {"set", "SN=B8"});
  nvram(home, {"set", "restore_defaults=1"});
  nvram(home, {"commit"});
  ask_init(home, "signal 15");
  ASSERT_TRUE(router.says("the factory's settings are restored")) << router.output();
  router.folder();
  EXPECT_EQ(get(home, "hostname"), "virtual-router\n");
  EXPECT_EQ(get(home, "added"), "failed: ");
  EXPECT_EQ(get(home, "restore_defaults"), "failed: ");
  EXPECT_EQ(get(home, "SN"), "B8\n");
  EXPECT_EQ(get(home, "jqa_reconnect_interval"), "75\n");
}

TEST_F(VirtualRouter, AnUpgradedDeviceBootsTheVersionThatItsImageCarries) {
  Router router(home, stub);
  router.folder();
  const std::string covered = std::string(16, '\0') + "version=9.1\n";
  const std::uint32_t crc = crc32(covered.data(), covered.size(), 0xFFFFFFFF);
  std::string image = "HDR0";
  for (const std::uint32_t word : {static_cast<std::uint32_t>(covered.size() + 12), crc})
    for (int shift = 0; shift < 32; shift += 8)
      image += static_cast<char>(word >> shift & 0xFF);
  image += covered;
  image.resize(kLinuxBytes, '\xFF');
  replace_file(home + "/dev/mtd/0", image);
  ask_init(home, "restart 01234567");
  ASSERT_TRUE(router.says("the firmware image carries version 9.1")) << router.output();
  router.folder();
  EXPECT_EQ(get(home, "version_firmware"), "9.1\n");
  ask_init(home, "signal 15");
  ASSERT_TRUE(router.says("the device restarts"));
  router.folder();
  EXPECT_EQ(get(home, "version_firmware"), "9.1\n") << "it was committed";
}

TEST_F(VirtualRouter, TheConsoleIsShownAndHoldsNoWriterUp) {
  Router router(home, stub);
  router.folder();
  for (int i = 0; i < 3; ++i) {
    const int fd = open((home + "/dev/console").c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "Stop ipsec...\n", 14), 14);
    close(fd);
  }
  EXPECT_TRUE(
      router.says("console| Stop ipsec...\nconsole| Stop ipsec...\nconsole| Stop ipsec...\n"))
      << router.output();
}

class EndOfRouter : public VirtualRouter, public ::testing::WithParamInterface<int> {};

TEST_P(EndOfRouter, LeavesNothingBehind) {
  Router router("", stub);
  const std::string folder = router.folder();
  ASSERT_TRUE(comes_true([&] { return starts(folder).size() == 1; }));
  const pid_t daemon = starts(folder)[0];
  EXPECT_EQ(router.end_by(GetParam()), 0) << router.output();
  EXPECT_THAT(router.output(), HasSubstr("the device is off\n"));
  EXPECT_FALSE(process_lives(daemon));
  EXPECT_FALSE(fs::exists(folder));
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const auto environment = read_file(entry.path() / "environ");
    EXPECT_FALSE(environment &&
                 environment->find("VIRTUAL_ROUTER_DIR=" + folder) != std::string::npos)
        << entry.path();
  }
  EXPECT_EQ(shmget(ring_key(folder), 0, 0), -1);
  EXPECT_EQ(semget(ring_key(folder), 0, 0), -1);
}

INSTANTIATE_TEST_SUITE_P(Signals, EndOfRouter, ::testing::Values(SIGINT, SIGTERM, SIGHUP));

TEST_F(VirtualRouter, AKilledSupervisorTakesItsProgramsWithIt) {
  Router router(home, stub);
  router.folder();
  ASSERT_TRUE(comes_true([&] { return starts(home).size() == 1; }));
  kill(router.pid(), SIGKILL);
  EXPECT_TRUE(comes_true([&] { return !process_lives(starts(home)[0]); }));
}

TEST_F(VirtualRouter, ANamedFolderIsADeviceThatWasSwitchedOff) {
  {
    Router router(home, stub, {"--serial", "A7"});
    router.folder();
    nvram(home, {"set", "hostname=kept"});
    nvram(home, {"commit"});
    nvram(home, {"set", "hostname=dropped"});
    EXPECT_EQ(router.end_by(SIGINT), 0);
  }
  Router router(home, stub);
  router.folder();
  EXPECT_EQ(get(home, "hostname"), "kept\n");
  EXPECT_EQ(get(home, "SN"), "A7\n");
}

TEST_F(VirtualRouter, TwoLiveSideBySide) {
  Router first(home + "1", stub, {"--serial", "A1", "--address", "127.0.0.2"});
  Router second(home + "2", stub, {"--serial", "A2", "--address", "127.0.0.3"});
  first.folder();
  second.folder();
  EXPECT_EQ(get(home + "1", "SN"), "A1\n");
  EXPECT_EQ(get(home + "2", "SN"), "A2\n");
  EXPECT_EQ(first.end_by(SIGINT), 0);
  ask_init(home + "2", "signal 15");
  EXPECT_TRUE(second.says("the device restarts"));
  second.folder();
  EXPECT_EQ(get(home + "2", "SN"), "A2\n");
}

TEST_F(VirtualRouter, ASecondOneInTheSameFolderIsRefused) {
  Router first(home, stub);
  first.folder();
  Router second(home, stub);
  EXPECT_EQ(second.wait_for_end(), 1);
  EXPECT_THAT(second.output(), HasSubstr("another virtual router lives in "));
  EXPECT_EQ(get(home, "lan_ifname"), "br0\n") << "the first one lives on";
}

TEST_F(VirtualRouter, ADaemonThatEndsIsStartedAgain) {
  Router router(home, stub);
  router.folder();
  ASSERT_TRUE(comes_true([&] { return starts(home).size() == 1; }));
  kill(starts(home)[0], SIGKILL);
  EXPECT_TRUE(router.says("init| rcmd was ended by signal 9")) << router.output();
  EXPECT_TRUE(comes_true([&] { return starts(home).size() == 2; }));
}

TEST_F(VirtualRouter, ADaemonThatKeepsEndingAtOnceEndsTheRouter) {
  Router router("", "/bin/false");
  const std::string folder = router.folder();
  EXPECT_EQ(router.wait_for_end(), 1);
  EXPECT_THAT(router.output(), HasSubstr("init| rcmd ended with status 1\n"));
  EXPECT_THAT(router.output(), HasSubstr("keeps ending at once; giving up\n"));
  EXPECT_FALSE(fs::exists(folder));
}

TEST_F(VirtualRouter, ADaemonThatIsNotThereIsAnError) {
  Router router("", "/nowhere/rcmd");
  EXPECT_EQ(router.wait_for_end(), 1);
  EXPECT_THAT(router.output(), HasSubstr("/nowhere/rcmd"));
}

TEST_F(VirtualRouter, TheOtherSoftwareServesTheWanLink) {
  Router router(home, stub);
  router.folder();
  ASSERT_TRUE(comes_true([&] { return get(home, "wan0_status") == "up\n"; }));
  nvram(home, {"set", "wan0_action=stop"});
  EXPECT_TRUE(comes_true([&] { return get(home, "wan0_status") == "down\n"; }));
  EXPECT_TRUE(router.says("software| the WWAN link goes down")) << router.output();
  EXPECT_EQ(get(home, "wan0_action"), "failed: ");
}

TEST_F(VirtualRouter, TheDevicesToolsActOnTheDevice) {
  Router router(home, stub);
  router.folder();
  EXPECT_EQ(on_device(home, {home + "/bin/killall", "-16", "udhcpd"}).status, 0);
  EXPECT_EQ(fs::file_size(home + "/tmp/udhcpd.leases"), 4U * 88);
  EXPECT_EQ(on_device(home, {home + "/bin/eroute", "--clear"}).output, "eroute: cleared\n");
  EXPECT_EQ(on_device(home, {home + "/bin/rm", "-rf", "/tmp/udhcpd.leases"}).status, 0);
  EXPECT_FALSE(fs::exists(home + "/tmp/udhcpd.leases"));
  EXPECT_EQ(on_device(home, {home + "/bin/killall", "pppd"}).status, 0);
  EXPECT_TRUE(comes_true([&] { return get(home, "wan0_status") == "down\n"; }));
  ask_init(home, "signal 15");
  ASSERT_TRUE(router.says("the device restarts"));
  router.folder();
  EXPECT_TRUE(comes_true([&] { return get(home, "wan0_status") == "up\n"; }))
      << "a boot starts what was stopped";
}

TEST_F(VirtualRouter, AFolderWithALongNameLacksTheSyslogDaemonOnly) {
  Router router(home + std::string(100, 'x'), stub);
  EXPECT_TRUE(router.says("there is no syslog daemon: ")) << router.output();
  EXPECT_TRUE(router.says("the device is up")) << router.output();
}

TEST_F(VirtualRouter, WrongOptionsAreRefused) {
  EXPECT_EQ(run_to_end({program("virtual-router"), "--set", "nothing"}).status, 2);
  EXPECT_EQ(run_to_end({program("virtual-router"), "--time-scale", "0"}).status, 2);
  EXPECT_EQ(run_to_end({program("virtual-router"), "--no-such"}).status, 2);
  EXPECT_EQ(run_to_end({program("virtual-router"), "--help"}).status, 0);
}

} // namespace
