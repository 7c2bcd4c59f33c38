// Sockets and interface queries: the C library's calls under names that a desk twin or a test can
// replace. Arguments, results and errno are those of the call that each is named after.
#pragma once

#include <stddef.h>
#include <sys/socket.h>
#include <sys/types.h>

extern "C" {

int net_socket(int domain, int type, int protocol);
int net_setsockopt(int fd, int level, int option, const void* value, socklen_t length);
int net_bind(int fd, const struct sockaddr* address, socklen_t length);
int net_listen(int fd, int backlog);
int net_accept(int fd, struct sockaddr* address, socklen_t* length);
ssize_t net_sendto(int fd, const void* data, size_t length, int flags,
                   const struct sockaddr* address, socklen_t address_length);
ssize_t net_recvfrom(int fd, void* data, size_t length, int flags, struct sockaddr* address,
                     socklen_t* address_length);
ssize_t net_read(int fd, void* data, size_t length);
ssize_t net_send(int fd, const void* data, size_t length, int flags);
int net_ioctl(int fd, unsigned long request, void* argument);
int net_close(int fd);
}
