// Flash partitions as plain files that behave like NOR flash: a write clears bits and never sets
// them, and an erase works on whole blocks.

#include "platform/api/mtd.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t kEraseBytes = 65536;
constexpr uint8_t kNorFlash = 3;

/// @return the partition's size, or -1 for anything but a plain file
off_t partition_bytes(int fd) {
  struct stat facts = {};
  if (fstat(fd, &facts) != 0 || !S_ISREG(facts.st_mode)) {
    errno = ENOTTY;
    return -1;
  }
  return facts.st_size;
}

} // namespace

extern "C" {

int mtd_get_info(int fd, struct MtdInfo* info) {
  const off_t bytes = partition_bytes(fd);
  if (bytes < 0) {
    return -1;
  }
  *info = MtdInfo{};
  info->type = kNorFlash;
  info->size = static_cast<uint32_t>(bytes);
  info->erase_size = kEraseBytes;
  info->write_size = 1;
  return 0;
}

int mtd_unlock(int fd, const struct MtdErase*) {
  return partition_bytes(fd) < 0 ? -1 : 0;
}

int mtd_erase(int fd, const struct MtdErase* erase) {
  const off_t bytes = partition_bytes(fd);
  if (bytes < 0) {
    return -1;
  }
  const uint64_t end = uint64_t{erase->start} + erase->length;
  if (erase->start % kEraseBytes != 0 || erase->length % kEraseBytes != 0 ||
      end > static_cast<uint64_t>(bytes)) {
    errno = EINVAL;
    return -1;
  }
  uint8_t blank[4096];
  memset(blank, 0xFF, sizeof blank);
  for (uint64_t at = erase->start; at < end; at += sizeof blank) {
    if (pwrite(fd, blank, sizeof blank, static_cast<off_t>(at)) != sizeof blank) {
      return -1;
    }
  }
  return 0;
}

ssize_t mtd_read(int fd, void* data, size_t length) {
  return read(fd, data, length);
}

ssize_t mtd_write(int fd, const void* data, size_t length) {
  const off_t bytes = partition_bytes(fd);
  const off_t start = lseek(fd, 0, SEEK_CUR);
  if (bytes < 0 || start < 0) {
    return -1;
  }
  if (start >= bytes && length > 0) {
    errno = ENOSPC;
    return -1;
  }
  const auto room = static_cast<size_t>(bytes - start);
  const size_t wanted = length < room ? length : room;
  size_t done = 0;
  while (done < wanted) {
    uint8_t piece[4096];
    const size_t size = wanted - done < sizeof piece ? wanted - done : sizeof piece;
    if (pread(fd, piece, size, start + static_cast<off_t>(done)) != static_cast<ssize_t>(size)) {
      return -1;
    }
    for (size_t i = 0; i < size; i++) {
      piece[i] = static_cast<uint8_t>(piece[i] & static_cast<const uint8_t*>(data)[done + i]);
    }
    const ssize_t written = write(fd, piece, size);
    if (written < 0) {
      return -1;
    }
    done += static_cast<size_t>(written);
  }
  return static_cast<ssize_t>(done);
}

} // extern "C"
