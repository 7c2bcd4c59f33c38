#include "platform/linux/mtd_requests.h"

#include <unistd.h>

extern "C" {

int mtd_get_info(int fd, struct MtdInfo* info) {
  return ioctl(fd, rcmd::kMemGetInfo, info) == 0 ? 0 : -1;
}

int mtd_unlock(int fd, const struct MtdErase* erase) {
  return ioctl(fd, rcmd::kMemUnlock, erase) == 0 ? 0 : -1;
}

int mtd_erase(int fd, const struct MtdErase* erase) {
  return ioctl(fd, rcmd::kMemErase, erase) == 0 ? 0 : -1;
}

ssize_t mtd_read(int fd, void* data, size_t length) {
  return read(fd, data, length);
}

ssize_t mtd_write(int fd, const void* data, size_t length) {
  return write(fd, data, length);
}

} // extern "C"
