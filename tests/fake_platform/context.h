// A context as start-up makes it, with a socket and a server, for tests of single rooms.
#pragma once

#include "core/context.h"
#include "tests/fake_platform/fixture.h"

namespace fake {

/// Serial "SN0123456789", domain "example", server 127.0.0.1:1162, a pretend socket bound to port
/// 1161, session identifier "ABCDEFGH", `debug` on. Both buffers stand between guard bytes;
/// guards_stand() tells whether all of them still stand, and every test ends by asking it.
class ContextFixture : public Fixture {
protected:
  ContextFixture();
  ~ContextFixture() override;

  [[nodiscard]] bool guards_stand() const;
  /// Puts a datagram where the dispatcher leaves a request: rx_buf, rx_length, peer 10.1.2.3:4000.
  void receive(const Bytes& datagram);
  /// Answers every packet sent to the server with an acknowledgement of the same seq and type.
  void answer_everything();
  [[nodiscard]] Bytes tx(std::size_t bytes) const;

  rcmd::RcmContext context{};

private:
  Bytes rx_storage_;
  Bytes tx_storage_;
};

} // namespace fake
