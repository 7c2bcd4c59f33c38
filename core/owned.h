// Ownership of the few things that must be given back.
#pragma once

#include <cstdlib>

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

/// For a result that is dropped on purpose; the reason stands beside the call.
template <typename T> inline void ignore(T&&) {}

} // namespace rcmd
