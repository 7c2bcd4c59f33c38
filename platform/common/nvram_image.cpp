#include "platform/common/nvram_image.h"
#include "core/owned.h"
#include "core/wire.h"
#include "platform/api/checksum.h"
#include "platform/common/folder.h"
#include "platform/common/output.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rcmd {

namespace {

constexpr uint8_t kMagic[4] = {'N', 'V', 'R', 'M'};
constexpr uint32_t kVersion = 1;
constexpr size_t kCrcStart = 16;

struct ImageHeader {
  uint8_t magic[4];
  le32 version;
  le32 length;
  le32 crc;
  le32 generation;
};
static_assert(sizeof(ImageHeader) == 20 && offsetof(ImageHeader, generation) == kCrcStart);

bool is_sound(const uint8_t* base, size_t bytes) {
  ImageHeader header = {};
  if (bytes < sizeof header) {
    return false;
  }
  memcpy(&header, base, sizeof header);
  return memcmp(header.magic, kMagic, sizeof kMagic) == 0 && header.version == kVersion &&
         header.length == bytes - sizeof header &&
         header.crc == ~crc32(base + kCrcStart, bytes - kCrcStart, 0xFFFFFFFFU) &&
         (bytes == sizeof header || base[bytes - 1] == '\0');
}

} // namespace

// Reading ---------------------------------------------------------------------------------------

NvramImage::NvramImage(const char* path) {
  char previous[PATH_MAX];
  if (!open(path) && beside(path, ".previous", previous, sizeof previous)) {
    open(previous);
  }
}

NvramImage::~NvramImage() {
  if (base_ != nullptr) {
    munmap(const_cast<uint8_t*>(base_), bytes_);
  }
}

bool NvramImage::open(const char* path) {
  const UniqueFd file(::open(path, O_RDONLY | O_CLOEXEC));
  struct stat facts = {};
  if (!file || fstat(file.get(), &facts) != 0 || facts.st_size <= 0 || facts.st_size > INT_MAX) {
    return false;
  }
  const auto bytes = static_cast<size_t>(facts.st_size);
  void* mapped = mmap(nullptr, bytes, PROT_READ, MAP_PRIVATE, file.get(), 0);
  if (mapped == MAP_FAILED) {
    return false;
  }
  if (!is_sound(static_cast<const uint8_t*>(mapped), bytes)) {
    munmap(mapped, bytes);
    return false;
  }
  base_ = static_cast<const uint8_t*>(mapped);
  bytes_ = bytes;
  return true;
}

bool NvramImage::sound_at(const char* path) {
  NvramImage image;
  return image.open(path);
}

uint32_t NvramImage::generation() const {
  if (base_ == nullptr) {
    return 0;
  }
  ImageHeader header = {};
  memcpy(&header, base_, sizeof header);
  return header.generation;
}

const char* NvramImage::next(uint32_t* position) const {
  const size_t at = *position == 0 ? sizeof(ImageHeader) : *position;
  if (base_ == nullptr || at >= bytes_) {
    return nullptr;
  }
  const char* record = reinterpret_cast<const char*>(base_) + at;
  *position = static_cast<uint32_t>(at + strlen(record) + 1);
  return record;
}

// Writing ---------------------------------------------------------------------------------------

NvramImageWriter::NvramImageWriter(const char* path)
    : path_(path), generation_(NvramImage(path).generation() + 1) {
  char fresh[PATH_MAX];
  if (!beside(path, ".new", fresh, sizeof fresh)) {
    return;
  }
  fd_ = open_in_folder(fresh, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC);
  const ImageHeader blank = {};
  good_ = fd_ >= 0 && write_all(fd_, &blank, sizeof blank);
  ImageHeader header = {};
  header.generation = generation_;
  crc_ = crc32(header.generation.bytes, sizeof header.generation, 0xFFFFFFFFU);
}

NvramImageWriter::~NvramImageWriter() {
  if (fd_ < 0) {
    return;
  }
  close(fd_);
  char fresh[PATH_MAX];
  if (beside(path_, ".new", fresh, sizeof fresh)) {
    unlink(fresh); // not there any more when it has become the image
  }
}

void NvramImageWriter::add(const char* record) {
  const size_t bytes = strlen(record) + 1;
  if (bytes > sizeof buffer_ - buffered_) {
    flush();
  }
  crc_ = crc32(record, bytes, crc_);
  length_ += bytes;
  if (bytes > sizeof buffer_) {
    good_ = good_ && write_all(fd_, record, bytes);
    return;
  }
  memcpy(buffer_ + buffered_, record, bytes);
  buffered_ += bytes;
}

void NvramImageWriter::flush() {
  good_ = good_ && write_all(fd_, buffer_, buffered_);
  buffered_ = 0;
}

bool NvramImageWriter::write_header() {
  ImageHeader header = {};
  memcpy(header.magic, kMagic, sizeof kMagic);
  header.version = kVersion;
  header.length = static_cast<uint32_t>(length_);
  header.crc = ~crc_;
  header.generation = generation_;
  return pwrite(fd_, &header, sizeof header, 0) == static_cast<ssize_t>(sizeof header);
}

bool NvramImageWriter::finish() {
  flush();
  return good_ && write_header() && fsync(fd_) == 0 && replace();
}

/// A damaged image must not take the place of the generation that made up for it.
bool NvramImageWriter::replace() {
  char fresh[PATH_MAX];
  char previous[PATH_MAX];
  if (!beside(path_, ".new", fresh, sizeof fresh) ||
      !beside(path_, ".previous", previous, sizeof previous)) {
    return false;
  }
  if (NvramImage::sound_at(path_) && rename(path_, previous) != 0) {
    return false;
  }
  return rename(fresh, path_) == 0 && sync_folder(path_);
}

} // namespace rcmd
