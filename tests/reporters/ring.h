// A syslog ring in pretend shared memory. It ends right before a page that may not be touched, and
// guard bytes stand before it, so that every access outside the segment shows. The offsets are
// written out here once more: size at 0, head at 4, tail at 8, data from 12 on.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/mman.h>

namespace fake {

class Ring {
public:
  /// `size` bytes of data, filled with `fill`, empty at offset `start`.
  explicit Ring(std::size_t size, std::size_t start = 0, char fill = '\0')
      : segment_bytes_(12 + size), mapped_((segment_bytes_ + kPage - 1) / kPage * kPage) {
    void* pages = mmap(nullptr, mapped_ + 2 * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED || mprotect(static_cast<char*>(pages) + kPage, mapped_, kOpen) != 0) {
      throw std::runtime_error("no memory for a ring");
    }
    pages_ = static_cast<char*>(pages);
    std::memset(pages_ + kPage, kGuard, mapped_ - segment_bytes_);
    std::memset(segment(), fill, segment_bytes_);
    set(0, static_cast<std::int32_t>(size));
    set(4, static_cast<std::int32_t>(start));
    set(8, static_cast<std::int32_t>(start));
  }
  ~Ring() { munmap(pages_, mapped_ + 2 * kPage); }
  Ring(const Ring&) = delete;
  Ring& operator=(const Ring&) = delete;

  [[nodiscard]] char* segment() const { return pages_ + kPage + mapped_ - segment_bytes_; }
  [[nodiscard]] std::size_t segment_bytes() const { return segment_bytes_; }
  [[nodiscard]] char* data() const { return segment() + 12; }
  [[nodiscard]] std::size_t size() const { return segment_bytes_ - 12; }
  [[nodiscard]] std::string bytes() const { return {segment(), segment_bytes_}; }

  void set(std::size_t offset, std::int32_t value) const {
    std::memcpy(segment() + offset, &value, 4);
  }
  [[nodiscard]] std::int32_t get(std::size_t offset) const {
    std::int32_t value = 0;
    std::memcpy(&value, segment() + offset, 4);
    return value;
  }

  /// Writes one record at the tail, which must not reach past the data's end.
  /// @return its offset in the data area
  std::size_t put(const std::string& text) const {
    const auto tail = static_cast<std::size_t>(get(8));
    if (tail + text.size() + 1 > size()) {
      throw std::runtime_error("the record does not fit");
    }
    std::memcpy(data() + tail, text.c_str(), text.size() + 1);
    const std::size_t next = tail + text.size() + 1;
    set(8, static_cast<std::int32_t>(next < size() ? next : 0));
    return tail;
  }

  [[nodiscard]] bool guard_stands() const {
    return std::all_of(pages_ + kPage, segment(), [](char byte) { return byte == kGuard; });
  }

private:
  static constexpr std::size_t kPage = 4096;
  static constexpr int kOpen = PROT_READ | PROT_WRITE;
  static constexpr char kGuard = '\x5A';
  std::size_t segment_bytes_;
  std::size_t mapped_;
  char* pages_;
};

} // namespace fake
