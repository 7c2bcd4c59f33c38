// Messages to the scan tools server, and a fixture that hands them to it one at a time.
#pragma once

#include "local/scantools.h"
#include "tests/fake_platform/fixture.h"

#include <algorithm>
#include <string>

namespace scan {

using fake::Bytes;
using fake::world;

inline void put(Bytes& bytes, std::size_t at, const Bytes& what) {
  std::copy(what.begin(), what.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

/// 696 bytes, zero behind the first four; magic and type, and the field mask, as hexadecimal.
inline Bytes message(const std::string& magic_and_type, const std::string& fields = "0000") {
  Bytes bytes(696, 0);
  put(bytes, 0, fake::hex(magic_and_type + fields));
  return bytes;
}

inline std::string part(const Bytes& bytes, std::size_t at, std::size_t length) {
  return fake::to_hex(bytes.data() + at, length);
}

class Scantools : public fake::Fixture {
protected:
  /// Opens the server; forgets what was seen so far.
  static int server() {
    const int fd = rcmd::scantools_open(1);
    world().events.clear();
    return fd;
  }
  /// One datagram from 192.168.1.50:4711. @return the handler's result
  static int receive(int fd, const Bytes& bytes) {
    world().deliver(2719, bytes, 0, "192.168.1.50", 4711);
    return world().call_handler(fd);
  }
};

} // namespace scan
