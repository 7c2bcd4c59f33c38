#include "tools/virtual-router/child.h"
#include "tools/virtual-router/defaults.h"
#include "tools/virtual-router/device_folder.h"
#include "tools/virtual-router/fifo.h"
#include "tools/virtual-router/flash.h"
#include "tools/virtual-router/init_requests.h"
#include "tools/virtual-router/printer.h"
#include "tools/virtual-router/text_file.h"

#include "tests/fake_platform/fixture.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

using namespace virtual_router;
namespace fs = std::filesystem;
using ::testing::HasSubstr;

namespace {

TEST(DeviceFolderTest, ATemporaryFolderGoesWithTheRouter) {
  std::string root;
  {
    const DeviceFolder folder("");
    root = folder.root();
    EXPECT_TRUE(fs::is_directory(folder.path("/dev/mtd")));
  }
  EXPECT_FALSE(fs::exists(root));
}

TEST(DeviceFolderTest, ANamedFolderStaysAndIsTakenOverAgain) {
  const DeviceFolder scratch("");
  const std::string root = scratch.root() + "/tmp/device";
  {
    const DeviceFolder folder(root);
    append_line(folder.path("/tmp/firmware.download"), "memory");
    append_line(folder.path("/dev/mtd/0"), "flash");
  }
  const DeviceFolder again(root);
  EXPECT_FALSE(fs::exists(again.path("/tmp/firmware.download")));
  EXPECT_TRUE(fs::exists(again.path("/dev/mtd/0")));
}

TEST(DeviceFolderTest, AFolderWithSomethingElseInItIsLeftAlone) {
  const DeviceFolder scratch("");
  const std::string other = scratch.root() + "/tmp/papers";
  fs::create_directories(other + "/tmp");
  append_line(other + "/tmp/letter", "dear");
  EXPECT_THROW(DeviceFolder{other}, std::runtime_error);
  EXPECT_TRUE(fs::exists(other + "/tmp/letter"));
}

TEST(TextFileTest, WhatCannotBeReadIsNothing) {
  const DeviceFolder folder("");
  EXPECT_EQ(read_file(folder.path("/tmp/absent")), std::nullopt);
  EXPECT_EQ(read_file(folder.path("/tmp")), std::nullopt);
}

TEST(DeviceFolderTest, TwoRoutersNeverShareAFolder) {
  const DeviceFolder first("");
  EXPECT_THROW(DeviceFolder{first.root()}, std::runtime_error);
}

TEST(DeviceFolderTest, AMissingToolIsNamed) {
  const DeviceFolder folder("");
  const auto missing = folder.link_tools("/nowhere");
  EXPECT_EQ(missing.size(), tool_links().size());
  EXPECT_FALSE(fs::exists(folder.path("/bin/nvram")));
}

TEST(Defaults, EveryNameStandsOnceInTheTable) {
  EXPECT_EQ(factory_settings({}).size(), factory_table().size());
  for (const auto& name : identity_names())
    EXPECT_EQ(factory_settings({}).count(name), 1U) << name;
}

TEST(Defaults, AnOverrideWins) {
  const Settings settings = factory_settings({"SN=X1", "note=a=b"});
  EXPECT_EQ(settings.at("SN"), "X1");
  EXPECT_EQ(settings.at("note"), "a=b");
  EXPECT_THROW(factory_settings({"=x"}), std::invalid_argument);
  EXPECT_THROW(factory_settings({"x"}), std::invalid_argument);
}

/// A TRX image of "version=2.0\nrest", its checksum taken by a table of nothing but the polynomial.
std::string trx_image(const std::string& payload, std::uint32_t flags = 0) {
  const auto le32 = [](std::uint32_t value) {
    std::string text;
    for (int i = 0; i < 4; ++i)
      text += static_cast<char>(value >> (8 * i) & 0xFF);
    return text;
  };
  const std::string covered = le32(flags) + std::string(12, '\0') + payload;
  std::uint32_t crc = 0xFFFFFFFF;
  for (const char c : covered) {
    crc ^= static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; ++bit)
      crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
  }
  return "HDR0" + le32(static_cast<std::uint32_t>(28 + payload.size())) + le32(crc) + covered;
}

TEST(Flash, TheImagesVersionIsItsFirstLine) {
  const std::string image = trx_image("version=2.0.7-beta\nrest of the firmware");
  EXPECT_EQ(version_of_image(image), "2.0.7-beta");
  EXPECT_EQ(version_of_image(image + std::string(1000, '\xFF')), "2.0.7-beta");
  EXPECT_EQ(version_of_image(trx_image("version=3\n", 1)), "3");
}

TEST(Flash, AnUnsoundImageCarriesNoVersion) {
  const std::string image = trx_image("version=2.0\nrest");
  for (std::size_t at = 0; at < image.size(); ++at) {
    std::string damaged = image;
    damaged[at] = static_cast<char>(damaged[at] ^ 0x10);
    EXPECT_FALSE(version_of_image(damaged)) << at;
    EXPECT_FALSE(version_of_image(image.substr(0, at))) << at;
  }
  EXPECT_FALSE(version_of_image(trx_image("kernel\n")));
  EXPECT_FALSE(version_of_image(trx_image("version=2.0")));
  EXPECT_FALSE(version_of_image(std::string(4096, '\xFF')));
}

TEST(Flash, PartitionsHaveTheirSizesAndKeepWhatTheyHold) {
  const DeviceFolder folder("");
  make_flash(folder, {{"jqa_reconnect_interval", "60"}});
  EXPECT_EQ(fs::file_size(folder.path("/dev/mtd/0")), 8388608U);
  EXPECT_EQ(fs::file_size(folder.path("/dev/mtd/1")), 65536U);
  EXPECT_THAT(*read_file(folder.path("/proc/mtd")),
              HasSubstr("mtd0: 00800000 00010000 \"linux\"\n"));
  make_flash(folder, {{"jqa_reconnect_interval", "99"}});
  EXPECT_EQ(backup_records(*read_file(folder.path("/dev/mtd/1"))).at("jqa_reconnect_interval"),
            "60");
}

TEST(Flash, ABackupImageIsHeaderRecordsAndNuls) {
  const std::string image = backup_image({{"a", "1"}, {"b", ""}});
  ASSERT_EQ(image.size(), 65536U);
  EXPECT_EQ(fake::to_hex(image.data(), 12), "4e56424b0000000100000007");
  EXPECT_EQ(image.substr(20, 9), std::string("a=1\0b=\0\0\0", 9));
  EXPECT_EQ(backup_records(image), (Settings{{"a", "1"}, {"b", ""}}));
}

TEST(Flash, ADamagedBackupGivesTheRecordsThatCanBeRead) {
  EXPECT_TRUE(backup_records("").empty());
  EXPECT_TRUE(backup_records(std::string(20, 'x')).empty());
  const std::string area("noequals\0=x\0k=v", 15);
  EXPECT_EQ(backup_records(std::string(20, 'x') + area), (Settings{{"k", "v"}}));
}

TEST(InitRequestsTest, ARestartIsTakenFromTheRequests) {
  EXPECT_EQ(restart_reason(""), "");
  EXPECT_EQ(restart_reason("signal 1\n"), "");
  EXPECT_NE(restart_reason("signal 1\nsignal 15\n"), "");
  EXPECT_NE(restart_reason("restart 0x01234567\n"), "");
}

class PrinterTest : public ::testing::Test {
protected:
  PrinterTest() { EXPECT_EQ(0, pipe2(ends, O_NONBLOCK)); }
  ~PrinterTest() override {
    close(ends[0]);
    close(ends[1]);
  }
  std::string shown() {
    std::string all;
    char piece[65536];
    for (ssize_t got; (got = read(ends[0], piece, sizeof piece)) > 0;)
      all.append(piece, static_cast<std::size_t>(got));
    return all;
  }
  int ends[2] = {-1, -1};
};

TEST_F(PrinterTest, PiecesOfOneSpeakerShareALine) {
  Printer printer(ends[1]);
  printer.text("console", "-");
  printer.text("console", "+");
  printer.text("console", "\ndone\n");
  EXPECT_EQ(shown(), "console| -+\nconsole| done\n");
}

TEST_F(PrinterTest, AnotherSpeakerBeginsALineOfItsOwn) {
  Printer printer(ends[1]);
  printer.text("rcmd", "waiting");
  printer.line("init", "restart");
  printer.text("rcmd", "more\n");
  EXPECT_EQ(shown(), "rcmd| waiting\ninit| restart\nrcmd| more\n");
}

TEST_F(PrinterTest, ControlCharactersDoNotReachTheTerminal) {
  Printer printer(ends[1]);
  printer.text("rcmd", "NAME=\x1b[2J\r\n");
  EXPECT_EQ(shown(), "rcmd| NAME=\\x1b[2J\\x0d\n");
}

TEST_F(PrinterTest, ASlowReaderHoldsNothingUpAndLosesTheOldest) {
  Printer printer(ends[1]);
  const std::string line(999, 'x');
  for (int i = 0; i < 3000; ++i)
    printer.line("a", line);
  printer.line("a", "last");
  EXPECT_TRUE(printer.waits());
  std::string all;
  for (int i = 0; i < 100 && printer.waits(); ++i) {
    all += shown();
    printer.pump();
  }
  all += shown();
  EXPECT_EQ(all.substr(all.size() - 8), "a| last\n");
  EXPECT_LT(all.size(), 1300000U);
}

TEST(FifoTest, AWriterNeverWaitsForAReader) {
  const DeviceFolder folder("");
  Fifo fifo(folder.path("/dev/console"));
  EXPECT_EQ(fifo.take(), "");
  for (const char* text : {"one\n", "two\n"}) {
    const int fd = open(folder.path("/dev/console").c_str(), O_WRONLY);
    ASSERT_EQ(write(fd, text, 4), 4);
    close(fd);
  }
  EXPECT_EQ(fifo.take(), "one\ntwo\n");
}

/// What it says first; empty after ten seconds.
std::string first_words(Child& child) {
  std::string words;
  for (int glance = 0; glance < 10'000 && words.empty(); ++glance) {
    words = child.read_output();
    usleep(1000);
  }
  return words;
}

TEST(ChildTest, AProgramsStatusAndOutputComeBack) {
  const Finished run = run_to_end({"/bin/sh", "-c", "echo out; echo err >&2; exit 3"});
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.output, "out\nerr\n");
}

TEST(ChildTest, AProgramThatIsNotThereIsAnError) {
  Child child("x");
  EXPECT_THROW(child.start({"/nowhere/program"}), std::system_error);
  EXPECT_FALSE(child.running());
}

TEST(ChildTest, WhatAProgramHasStartedEndsWithIt) {
  Child child("x");
  child.start({"/bin/sh", "-c", "sleep 20 & echo $!; wait"});
  const std::string number = first_words(child);
  ASSERT_NE(number, "");
  child.end(std::chrono::milliseconds(1000));
  const pid_t grandchild = static_cast<pid_t>(std::stol(number));
  EXPECT_EQ(kill(grandchild, 0), -1) << "gone, and collected";
}

TEST(ChildTest, AProgramThatIgnoresTheRequestIsEndedAllTheSame) {
  Child child("x");
  child.start({"/bin/sh", "-c", "trap '' TERM; echo ready; while :; do sleep 1; done"});
  ASSERT_EQ(first_words(child), "ready\n");
  child.end(std::chrono::milliseconds(20));
  EXPECT_FALSE(child.running());
}

} // namespace
