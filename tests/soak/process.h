// What the kernel tells of a process, and of a datagram socket.
#pragma once

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace soak {

/// Memory in KiB, to the page.
struct Figures {
  long resident = 0;      ///< Rss: all pages, those shared with others included
  long proportional = 0;  ///< Pss
  long private_dirty = 0; ///< of this process alone, and written to
  long anonymous = 0;     ///< of no file: heap, stack, and the written part of static data
  long heap = 0;          ///< size of the heap's address range
  int mappings = 0;
  int descriptors = 0;
  double processor_s = 0; ///< time used since its start
};

/// @throw std::runtime_error when there is no such process
Figures figures_of(pid_t pid);

/// @return the child of that program name, or -1
pid_t child_of(pid_t parent, const std::string& program);

/// Datagrams that the kernel has dropped at the UDP socket bound to this port and to `ip` (host
/// order) or to every address; -1 when there is no such socket.
long dropped_at(std::uint32_t ip, std::uint16_t port);

} // namespace soak
