// Random messages at both ports, most of them mended so that they get past the first checks. What
// is asked is that the daemon runs on, and that whatever goes out has its exact size.

#include "local/deskmgr.h"
#include "local/scantools.h"

#include "tests/fake_platform/fixture.h"

#include <random>

using fake::Bytes;
using fake::world;

namespace {

class RandomInput : public fake::Fixture {
protected:
  std::size_t below(std::size_t limit) { return engine_() % limit; }
  bool once_in(std::size_t n) { return below(n) == 0; }
  Bytes random_bytes(std::size_t length) {
    Bytes bytes(length);
    for (std::uint8_t& byte : bytes) {
      byte = static_cast<std::uint8_t>(engine_());
    }
    return bytes;
  }
  void random_setting(const char* name) {
    const Bytes bytes = random_bytes(below(400));
    std::string text(bytes.begin(), bytes.end());
    world().nvram[name] = text.substr(0, text.find('\0'));
  }

private:
  std::mt19937 engine_{20240817};
};

TEST_F(RandomInput, TheDesktopManagerRunsOn) {
  const int server = rcmd::deskmgr_open(2);
  int fd = -1;
  for (int round = 0; round < 20'000; round++) {
    if (fd < 0 || !world().sockets.contains(fd)) {
      fd = world().make_socket();
      world().connections.push_back(fd);
      ASSERT_EQ(world().call_handler(server), 0);
    }
    Bytes bytes = random_bytes(once_in(4) ? below(1500) : 12 + below(8));
    if (bytes.size() >= 12 && !once_in(8)) {
      bytes[4] = 0;
      bytes[5] = static_cast<std::uint8_t>(below(6));
      bytes[7] = 1;
      bytes[8] = bytes[9] = bytes[10] = 0;
      bytes[11] = static_cast<std::uint8_t>(below(16));
    }
    if (once_in(50)) {
      random_setting("wan0_enable");
      random_setting("wan0_wwan_mode");
      random_setting("wan0_status");
    }
    world().sockets[fd].inbox.push_back({fd, bytes, {}, 0});
    ASSERT_EQ(world().call_handler(fd), 0);
    ASSERT_EQ(world().watched(fd), world().sockets.contains(fd));
    world().events.clear();
  }
  EXPECT_GT(world().sent.size(), 1000U);
  for (const fake::Datagram& answer : world().sent) {
    ASSERT_EQ(answer.bytes.size(), 16U);
  }
}

TEST_F(RandomInput, TheScanToolsRunOn) {
  world().on_tool = [this](const fake::ToolRun& run) {
    if (run.arguments[0] == "nvram_mtd_read") {
      const Bytes noise = random_bytes(20 + below(200));
      world().write_file("/tmp/nvram.backup",
                         std::string(noise.begin(), noise.end()) +
                             "jqa_reconnect_interval=" + std::string(below(4), '\0'));
    }
    return 0;
  };
  int fd = -1;
  for (int round = 0; round < 4'000; round++) {
    if (fd < 0 || !world().sockets.contains(fd)) {
      fd = rcmd::scantools_open(1);
      ASSERT_GE(fd, 0);
    }
    Bytes bytes = random_bytes(once_in(4) ? below(1500) : 696);
    if (bytes.size() > 1 && !once_in(8)) {
      bytes[0] = once_in(2) ? 0xBA : 0xAB;
      bytes[1] = static_cast<std::uint8_t>(once_in(8) ? 3 : below(6));
    }
    random_setting("product_model");
    random_setting("lan0_ifname");
    random_setting("jqa_reconnect_interval");
    world().deliver(2719, bytes);
    try {
      world().call_handler(fd);
    } catch (const fake::Restarted&) {
      // once per process; the device's next life goes on with the same sockets
    }
    ASSERT_EQ(world().watched(fd), world().sockets.contains(fd));
    world().events.clear();
  }
  EXPECT_GT(world().sent.size(), 500U);
  EXPECT_LE(world().sockets.size(), 1U) << "a descriptor was left open";
  for (const fake::Datagram& answer : world().sent) {
    ASSERT_EQ(answer.bytes.size(), 696U);
  }
}

} // namespace
