// A pretend server that gives out one file, for the tests of the transfers; and a registration that
// only notes "register" among the world's events.
#pragma once

#include "tests/fake_platform/context.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace fake {

class TransferFixture : public ContextFixture {
protected:
  TransferFixture();
  ~TransferFixture() override;

  /// From now on the server acknowledges file requests and answers fragment requests from
  /// `content`.
  void serve(const Bytes& content);
  /// The answer to one fragment request; the device looks at nothing but its number.
  [[nodiscard]] Bytes fragment(std::uint16_t number) const;
  /// Puts an UPGRADECMD or CONFIGFILE into rx_buf.
  void command(std::uint16_t type, std::uint16_t fragments, std::uint32_t total,
               const std::string& name);

  /// The fragment numbers asked for, in order.
  [[nodiscard]] std::vector<int> asked() const;
  /// The world's events without the packets sent and the progress marks.
  [[nodiscard]] std::vector<std::string> story() const;

  Bytes file;
  /// false: this packet of the device gets no answer. Called for every packet to the server.
  std::function<bool(const Datagram&)> answers;
  std::int64_t delay_ms = 20;
};

/// What runs inside the registration, besides the note.
extern std::function<void()> on_register;

/// `count` bytes that differ from fragment to fragment.
Bytes pattern(std::size_t count);

/// A firmware image of `len` bytes in all, with the right checksum computed bit by bit.
Bytes trx_image(std::uint32_t len, std::uint32_t flag_version = 0x00010000);
/// Overwrites four bytes, least significant first.
void put32(Bytes& bytes, std::size_t at, std::uint32_t value);

} // namespace fake
