// ring-syslogd: the syslog daemon of a device that has none which writes the ring.

#include "tools/ring-syslogd/log_socket.h"
#include "tools/ring-syslogd/options.h"
#include "tools/ring-syslogd/ring_line.h"
#include "tools/ring-syslogd/ring_segment.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rcmd {

namespace {

constexpr int kEndings[] = {SIGTERM, SIGINT};
constexpr int kPatience_ms = 1000;
constexpr std::size_t kMaxMessageBytes = 8192;

volatile std::sig_atomic_t ended = 0;

void end(int) {
  ended = 1;
}

std::int64_t now_s() {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return now.tv_sec;
}

class Syslogd {
public:
  Syslogd(const RingSyslogdOptions& options, RingSegment& ring) : options_(options), ring_(ring) {
    if (gethostname(host_, sizeof host_ - 1) == -1 || host_[0] == '\0') {
      std::strcpy(host_, "-");
    }
    last_mark_s_ = now_s();
  }

  // Until a signal ends it. @param waiting  the signals that arrive while nothing is done
  void run(int fd, const sigset_t& waiting) {
    while (ended == 0) {
      pollfd ready{fd, POLLIN, 0};
      timespec rest{};
      rest.tv_sec = seconds_to_mark();
      const int result = ppoll(&ready, 1, options_.mark_s > 0 ? &rest : nullptr, &waiting);
      if (result > 0) {
        take_message(fd);
      }
      if (options_.mark_s > 0 && seconds_to_mark() == 0) {
        last_mark_s_ = now_s();
        write("<46>-- MARK --");
      }
    }
  }

private:
  [[nodiscard]] std::int64_t seconds_to_mark() const {
    const std::int64_t left = last_mark_s_ + options_.mark_s - now_s();
    return left > 0 ? left : 0;
  }

  void take_message(int fd) {
    char message[kMaxMessageBytes];
    const ssize_t length = recv(fd, message, sizeof message, MSG_DONTWAIT);
    if (length > 0) {
      write(message, static_cast<std::size_t>(length));
    }
  }

  void write(const char* text) { write(text, std::strlen(text)); }

  void write(const char* message, std::size_t length) {
    if (!append(message, length)) {
      dropped_++;
      return;
    }
    if (dropped_ > 0) {
      char words[96];
      std::snprintf(words, sizeof words,
                    "<44>ring-syslogd: %lu lines were dropped while a reader held the ring",
                    dropped_);
      dropped_ = append(words, std::strlen(words)) ? 0 : dropped_;
    }
  }

  // Once a reader has been waited for in vain, nobody is kept waiting for it again.
  bool append(const char* message, std::size_t length) {
    char line[kMaxLineChars + 1];
    const RingStamp stamp{(now_s() - options_.boot_s) * options_.scale, host_};
    const std::size_t line_length = make_ring_line(line, stamp, message, length);
    std::size_t overwritten = 0; // the oldest lines go: that is what a ring is for
    return line_length == 0 ||
           ring_.append(line, line_length, dropped_ == 0 ? kPatience_ms : 0, overwritten);
  }

  const RingSyslogdOptions& options_;
  RingSegment& ring_;
  char host_[65] = "";
  std::int64_t last_mark_s_ = 0;
  unsigned long dropped_ = 0;
};

// Holds the ending signals back, but for the waits. @return the mask for these
sigset_t prepare_signals() {
  struct sigaction action {};
  action.sa_handler = end;
  sigset_t held;
  sigset_t waiting;
  sigemptyset(&held);
  for (const int signal_number : kEndings) {
    sigaction(signal_number, &action, nullptr);
    sigaddset(&held, signal_number);
  }
  sigprocmask(SIG_BLOCK, &held, &waiting);
  for (const int signal_number : kEndings) {
    sigdelset(&waiting, signal_number);
  }
  return waiting;
}

int fail(const char* what) {
  std::fprintf(stderr, "ring-syslogd: %s: %s\n", what, std::strerror(errno));
  return 1;
}

int serve(const RingSyslogdOptions& options) {
  const sigset_t waiting = prepare_signals();
  if (log_socket_is_served(options.socket)) {
    errno = EADDRINUSE; // and the ring may be in use as well
    return fail(options.socket);
  }
  RingSegment ring;
  const char* failed_call = ring.open(options.key, options.bytes);
  if (failed_call != nullptr) {
    return fail(failed_call);
  }
  const int fd = open_log_socket(options.socket); // last: where it stands, the ring is ready
  if (fd == -1) {
    const int status = fail(options.socket);
    ring.remove();
    return status;
  }
  Syslogd(options, ring).run(fd, waiting);
  close(fd);
  unlink(options.socket);
  ring.remove();
  return 0;
}

} // namespace

} // namespace rcmd

int main(int argc, char** argv) {
  rcmd::RingSyslogdOptions options;
  switch (rcmd::read_options(argc, argv, options)) {
  case rcmd::OptionsResult::kHelp:
    return 0;
  case rcmd::OptionsResult::kWrong:
    return 2;
  case rcmd::OptionsResult::kRun:
    break;
  }
  return rcmd::serve(options);
}
