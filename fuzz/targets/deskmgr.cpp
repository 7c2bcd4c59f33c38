// The desktop manager in stream mode: each step is a connection (2 bits of its first byte), a
// length (u16) and what one read brings.

#include "local/deskmgr.h"

#include "fuzz/device.h"

using fake::world;

namespace {

constexpr int kConnections = 4;

void arrive(int connection, const fuzz::Bytes& bytes) {
  if (!world().watched(connection)) {
    return; // closed by an earlier step
  }
  world().sockets[connection].inbox.push_back({connection, bytes, {}, 0});
  const std::size_t sent = world().sent.size();
  world().call_handler(connection);
  fuzz::demand(world().sent.size() <= sent + 1, "a read is answered once at most");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::make_world();
  const int server = rcmd::deskmgr_open(2);
  int connections[kConnections];
  for (int& connection : connections) {
    connection = world().make_socket();
    world().connections.push_back(connection);
    world().call_handler(server);
  }
  fuzz::Input input(data, size);
  while (!input.empty()) {
    const int connection = connections[input.byte() % kConnections];
    const std::uint16_t length = input.u16();
    arrive(connection, input.bytes(length));
  }
  for (const fake::Datagram& sent : world().sent) {
    fuzz::demand(sent.bytes.size() == 16 && sent.bytes[7] == 2, "every answer is a response");
  }
  fuzz::end_world();
  return 0;
}
