// Flash partitions as MTD character devices. A device is opened with open() on device_path().
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

extern "C" {

/// The kernel's mtd_info_user record.
struct MtdInfo {
  uint8_t type;
  uint32_t flags;
  uint32_t size;
  uint32_t erase_size;
  uint32_t write_size;
  uint32_t oob_size;
  uint64_t padding;
};

/// The kernel's erase_info_user record: bytes from the partition's start, and how many.
struct MtdErase {
  uint32_t start;
  uint32_t length;
};

int mtd_get_info(int fd, struct MtdInfo* info);       ///< MEMGETINFO. @return 0 or -1
int mtd_unlock(int fd, const struct MtdErase* erase); ///< MEMUNLOCK. @return 0 or -1
int mtd_erase(int fd, const struct MtdErase* erase);  ///< MEMERASE. @return 0 or -1

/// Reads and writes at the device's current position. @return bytes, or -1
ssize_t mtd_read(int fd, void* data, size_t length);
ssize_t mtd_write(int fd, const void* data, size_t length);
}
