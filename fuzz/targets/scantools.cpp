// The scan tools server: each step is a length (u16) and a datagram. The device restarts at the
// first value that is set in this process, and never again, as the server is made.

#include "local/scantools.h"

#include "fuzz/device.h"

#include <cstring>

using fake::world;

namespace {

int answer_query(int, unsigned long, void* argument) {
  std::memset(static_cast<char*>(argument) + 16, 0x42, 16); // behind the interface's name
  return 0;
}

void play(fuzz::Input input) {
  const int server = rcmd::scantools_open(1);
  while (!input.empty() && world().watched(server)) {
    const std::uint16_t length = input.u16();
    world().deliver(2719, input.bytes(length), 0, "192.168.1.7", 40000);
    if (!world().sockets[server].inbox.empty()) {
      world().call_handler(server);
    }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  fuzz::make_world();
  const std::string image = std::string(20, 'h') + "a=1" + '\0' + "jqa_reconnect_interval=5" + '\0';
  fuzz::write_file("/tmp/nvram.backup", {image.begin(), image.end()});
  world().on_ioctl = answer_query;
  try {
    play(input);
  } catch (const fake::Restarted&) {
  }
  for (const fake::Datagram& sent : world().sent) {
    fuzz::demand(sent.bytes.size() == 696, "every reply is a whole message");
  }
  fuzz::end_world();
  return 0;
}
