// The local datagram socket to which programs send their lines.
#pragma once

namespace rcmd {

/// @return true when a process has bound the socket at `path`
bool log_socket_is_served(const char* path);

/// Binds the socket at `path`, open to every program; one that a dead predecessor left there is
/// replaced. @return the descriptor, or -1 with errno
int open_log_socket(const char* path);

} // namespace rcmd
