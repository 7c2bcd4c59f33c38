// Ownership of the few things that must be given back.
#pragma once

#include <cstdlib>
#include <unistd.h>

namespace rcmd {

/// A text from the C allocator that frees itself.
class OwnedText {
public:
  explicit OwnedText(char* text) : text_(text) {}
  OwnedText(const OwnedText&) = delete;
  OwnedText& operator=(const OwnedText&) = delete;
  ~OwnedText() { std::free(text_); }

  [[nodiscard]] const char* get() const { return text_; }
  /// Gives the text up: it is the caller's, or nobody's, from now on.
  char* release() {
    char* text = text_;
    text_ = nullptr;
    return text;
  }

private:
  char* text_;
};

/// A file descriptor that closes itself.
class UniqueFd {
public:
  UniqueFd() = default;
  explicit UniqueFd(int fd) : fd_(fd) {}
  UniqueFd(const UniqueFd&) = delete;
  UniqueFd& operator=(const UniqueFd&) = delete;
  ~UniqueFd() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Closes what is open and owns `fd` from now on.
  void reset(int fd = -1) {
    if (fd_ >= 0) {
      ::close(fd_);
    }
    fd_ = fd;
  }

private:
  int fd_ = -1;
};

/// For a result that is dropped on purpose; the reason stands beside the call.
template <typename T> inline void ignore(T&&) {}

} // namespace rcmd
