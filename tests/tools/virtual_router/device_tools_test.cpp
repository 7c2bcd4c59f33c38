#include "tools/virtual-router/device-tools/device_tools.h"

#include "tests/fake_platform/fixture.h"

#include <csignal>
#include <filesystem>

using namespace virtual_router;
namespace fs = std::filesystem;

namespace {

class DeviceTools : public fake::Fixture {
protected:
  DeviceTools() {
    fs::create_directories(device.root + "/run");
    fs::create_directories(device.root + "/tmp");
  }
  Device device{fake::world().root(), 5};
};

TEST_F(DeviceTools, Signal16HasTheDhcpServerWriteItsLeases) {
  EXPECT_EQ(tool_killall(device, {"-16", "udhcpd"}), 0);
  EXPECT_EQ(fake::world().read_file("/tmp/udhcpd.leases").size(), 4U * 88);
  EXPECT_EQ(fake::world().read_file("/run/signals"), "udhcpd 16\n");
}

TEST_F(DeviceTools, AStoppedDhcpServerWritesNoLeases) {
  EXPECT_EQ(tool_killall(device, {"udhcpd"}), 0);
  EXPECT_EQ(tool_killall(device, {"-16", "udhcpd"}), 1);
  EXPECT_FALSE(fake::world().exists("/tmp/udhcpd.leases"));
}

TEST_F(DeviceTools, KillallWithoutASignalStopsAProgram) {
  EXPECT_EQ(tool_killall(device, {"wanmonitor"}), 0);
  EXPECT_EQ(fake::world().read_file("/run/signals"), "wanmonitor 15\n");
  EXPECT_EQ(tool_killall(device, {"wanmonitor"}), 1);
}

TEST_F(DeviceTools, KillallKnowsNoProgramOfTheMachine) {
  const pid_t child = fork();
  if (child == 0) {
    execlp("sleep", "sleep", "20", nullptr);
    _exit(127);
  }
  EXPECT_EQ(tool_killall(device, {"-9", "sleep"}), 1);
  EXPECT_EQ(kill(child, 0), 0) << "the machine's own program lives on";
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
}

TEST_F(DeviceTools, KillallWithoutNamesOrWithAnOddSignalIsRefused) {
  EXPECT_EQ(tool_killall(device, {}), 2);
  EXPECT_EQ(tool_killall(device, {"-16"}), 2);
  EXPECT_EQ(tool_killall(device, {"-HUP", "pppd"}), 2);
  EXPECT_EQ(tool_killall(device, {"-99", "pppd"}), 2);
}

TEST_F(DeviceTools, ClearingTakesOneArgument) {
  EXPECT_EQ(tool_clear("spi", {"--clear"}), 0);
  EXPECT_EQ(tool_clear("eroute", {}), 2);
}

TEST_F(DeviceTools, RmRemovesBelowTheDevicesFolder) {
  fake::world().write_file("/tmp/firmware.download", "x");
  EXPECT_EQ(tool_rm(device, {"-rf", "/tmp/firmware.download"}), 0);
  EXPECT_FALSE(fake::world().exists("/tmp/firmware.download"));
  fs::create_directories(device.root + "/tmp/a/b");
  EXPECT_EQ(tool_rm(device, {"/tmp/a"}), 1) << "a folder needs -r";
  EXPECT_EQ(tool_rm(device, {"-r", "/tmp/a"}), 0);
  EXPECT_FALSE(fake::world().exists("/tmp/a"));
}

TEST_F(DeviceTools, RmToleratesAnAbsentFileOnlyWhenForced) {
  EXPECT_EQ(tool_rm(device, {"/tmp/absent"}), 1);
  EXPECT_EQ(tool_rm(device, {"-f", "/tmp/absent"}), 0);
  EXPECT_EQ(tool_rm(device, {"-rf", "/absent/absent"}), 0);
}

class RmRefuses : public DeviceTools, public ::testing::WithParamInterface<const char*> {};

TEST_P(RmRefuses, WhatLiesOutside) {
  const std::string outside = device.root + ".outside";
  fs::create_directories(outside);
  const std::string witness = outside + "/witness";
  std::FILE* file = std::fopen(witness.c_str(), "w");
  ASSERT_NE(file, nullptr);
  std::fclose(file);
  fs::create_directory_symlink(outside, device.root + "/tmp/way-out");
  std::string path = GetParam();
  if (const auto at = path.find("ROOT"); at != std::string::npos)
    path.replace(at, 4, fs::path(device.root).filename().string());
  EXPECT_EQ(tool_rm(device, {"-rf", path}), 1);
  EXPECT_TRUE(fs::exists(witness));
  EXPECT_TRUE(fs::exists(device.root + "/tmp"));
  fs::remove_all(outside);
}

INSTANTIATE_TEST_SUITE_P(Paths, RmRefuses,
                         ::testing::Values("/../ROOT.outside/witness", "/tmp/way-out/witness", "/",
                                           "/.", "/..", "/tmp/..", "/tmp/../..", "tmp",
                                           "/tmp/../../ROOT.outside"));

} // namespace
