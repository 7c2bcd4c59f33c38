#include "tools/virtual-router/printer.h"

#include <algorithm>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace virtual_router {

namespace {

constexpr std::size_t kMostWaiting = std::size_t{1} << 20;
constexpr std::size_t kPieceBytes = 4096; // a ready pipe takes that much without waiting

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte < 0x20 || byte == 0x7f;
}

} // namespace

void Printer::character(std::string_view speaker, char c) {
  if (open_speaker_.empty()) {
    waiting_.append(speaker).append("| ");
    open_speaker_ = speaker;
  }
  if (c == '\n') {
    open_speaker_.clear();
    waiting_ += '\n';
  } else if (is_control(c)) {
    char shown[8];
    std::snprintf(shown, sizeof shown, "\\x%02x", static_cast<unsigned char>(c));
    waiting_ += shown;
  } else {
    waiting_ += c;
  }
}

void Printer::text(std::string_view speaker, std::string_view piece) {
  if (!open_speaker_.empty() && open_speaker_ != speaker && !piece.empty()) {
    open_speaker_.clear();
    waiting_ += '\n';
  }
  for (const char c : piece)
    character(speaker, c);
  if (waiting_.size() > kMostWaiting)
    waiting_.erase(0, waiting_.size() - kMostWaiting);
  pump();
}

void Printer::line(std::string_view speaker, std::string_view text_of_line) {
  if (!open_speaker_.empty())
    text(open_speaker_, "\n");
  text(speaker, std::string(text_of_line) + "\n");
}

void Printer::pump() {
  while (!waiting_.empty()) {
    pollfd out{fd_, POLLOUT, 0};
    if (poll(&out, 1, 0) <= 0 || (out.revents & POLLOUT) == 0) {
      if ((out.revents & (POLLERR | POLLNVAL)) != 0)
        waiting_.clear(); // nobody reads any more
      return;
    }
    const ssize_t written = write(fd_, waiting_.data(), std::min(waiting_.size(), kPieceBytes));
    if (written <= 0)
      return;
    waiting_.erase(0, static_cast<std::size_t>(written));
  }
}

} // namespace virtual_router
