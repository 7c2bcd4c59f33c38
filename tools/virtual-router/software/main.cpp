// virtual-software: the other software of a pretend device, in one process. It runs between boot
// and restart, in the device's folder, and is started by the supervisor.
#include "platform/api/system.h"
#include "tools/virtual-router/software/chatter.h"
#include "tools/virtual-router/software/scenery.h"
#include "tools/virtual-router/text_file.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <random>
#include <thread>

using namespace virtual_router;

namespace {

constexpr std::chrono::milliseconds kPace(100);

[[noreturn]] void play(const std::string& root, std::uint32_t lines_per_minute) {
  const Programs programs(root);
  // A carrier gives another address at each boot.
  WanLink link(programs, system_uptime(),
               static_cast<std::uint16_t>(std::random_device()() % kLeases));
  Chatter chatter(root, lines_per_minute, system_uptime());
  bool was_up = link.up();
  std::int32_t shown_s = -1;
  while (true) {
    const std::int32_t uptime_s = system_uptime();
    link.advance(uptime_s);
    if (link.up() != was_up)
      std::printf("the WWAN link goes %s\n", link.up() ? "up" : "down");
    was_up = link.up();
    if (uptime_s != shown_s) {
      shown_s = uptime_s;
      publish_position(uptime_s);
      replace_file(root + "/run/stations", stations_text(uptime_s));
      replace_file(root + "/proc/net/dev", interfaces_text(link, uptime_s));
      chatter.advance(uptime_s);
    }
    std::fflush(stdout);
    std::this_thread::sleep_for(kPace);
  }
}

} // namespace

int main(int argc, char** argv) {
  const char* root = std::getenv("VIRTUAL_ROUTER_DIR");
  if (root == nullptr || argc != 2) {
    std::fprintf(stderr, "usage: VIRTUAL_ROUTER_DIR=DIR virtual-software LOG_LINES_PER_MINUTE\n");
    return 2;
  }
  try {
    play(root, static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10)));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "virtual-software: %s\n", error.what());
    return 1;
  }
}
