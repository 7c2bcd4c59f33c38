// The lasting image of the settings, as it lies in flash and as a backup image looks too:
//
//   0   magic    "NVRM"
//   4   version  1
//   8   length   bytes behind the header
//   12  crc      CRC-32 of everything from byte 16 on, as zlib and gzip count it
//   16  generation  one more with every commit
//   20  records  "name=value" and NUL, one behind the other
//
// The header's words are little-endian. The generation before the present one stays beside it as
// "<image>.previous" and is taken when the image is damaged or missing.
#pragma once

#include <cstddef>
#include <cstdint>

namespace rcmd {

/// A mapped image; unmaps itself. Records are null-terminated texts within it.
class NvramImage {
public:
  /// Opens the image, or else the generation before it. Neither being there or sound, it is empty.
  explicit NvramImage(const char* path);
  NvramImage(const NvramImage&) = delete;
  NvramImage& operator=(const NvramImage&) = delete;
  ~NvramImage();

  /// Whether an undamaged image lies at `path`.
  static bool sound_at(const char* path);

  [[nodiscard]] uint32_t generation() const;
  /// Walks the records. `position` is 0 at first. @return null behind the last one
  const char* next(uint32_t* position) const;

private:
  NvramImage() = default;
  bool open(const char* path);

  const uint8_t* base_ = nullptr;
  size_t bytes_ = 0;
};

/// Writes a new image beside the present one and puts it in its place at once: power loss at any
/// instant leaves the old or the new. Unfinished, it leaves the present one alone.
class NvramImageWriter {
public:
  /// @param path  must outlive the writer
  explicit NvramImageWriter(const char* path);
  NvramImageWriter(const NvramImageWriter&) = delete;
  NvramImageWriter& operator=(const NvramImageWriter&) = delete;
  ~NvramImageWriter();

  void add(const char* record);
  /// @return false when anything at all went wrong; the present image stands then
  bool finish();

private:
  void flush();
  bool write_header();
  bool replace();

  const char* path_;
  int fd_ = -1;
  bool good_ = false;
  uint32_t generation_;
  uint32_t crc_ = 0;
  size_t length_ = 0;
  size_t buffered_ = 0;
  char buffer_[4096] = {};
};

} // namespace rcmd
