// What the person at the virtual router sees: texts of several speakers, one line per speaker at a
// time, each line behind its speaker's name.
//
// Nothing that prints is ever held up by a slow reader of standard output: what cannot be written
// now waits here, and beyond 1 MiB the oldest part of it is dropped.
#pragma once

#include <string>
#include <string_view>

namespace virtual_router {

class Printer {
public:
  explicit Printer(int fd) : fd_(fd) {}

  /// Adds a piece of a speaker's text. A piece need not end a line; the next one of the same
  /// speaker goes on there. Control characters other than the line end are shown as "\x1b".
  void text(std::string_view speaker, std::string_view piece);

  /// A whole line.
  void line(std::string_view speaker, std::string_view text);

  /// Writes what can be written without waiting.
  void pump();
  [[nodiscard]] bool waits() const { return !waiting_.empty(); }

private:
  void character(std::string_view speaker, char c);

  int fd_;
  std::string waiting_;
  std::string open_speaker_; ///< whose line is not ended yet
};

} // namespace virtual_router
