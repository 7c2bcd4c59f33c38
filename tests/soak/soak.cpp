// soak [DATAGRAMS [TIME_SCALE]]: so many datagrams (1,000,000) of a realistic mix through the
// daemon in its virtual router. Prints at each tenth what the daemon has taken and what it holds,
// and exits with status 1 when, from the first tenth to the end, memory or descriptors have grown.
//
// What may grow: every status report leaves the texts of its five plain variables unreleased, on
// purpose (docs/oddities.md): a block of 32 bytes each.

#include "tests/soak/load.h"
#include "tests/soak/process.h"
#include "tests/soak/router.h"

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <sys/prctl.h>
#include <thread>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kStatusEvery = 2000; ///< datagrams
constexpr long kLeftByAReport_bytes = 5 * 32;
/// Two pages: the heap's last one may have been all but full, the stack's last one all but used.
constexpr long kSlack_kib = 8;
/// Pages of files, which are the kernel's to give and take: programs, and the settings' working
/// copy.
constexpr long kFilePages_kib = 512;
constexpr int kLongest_s = 3600;

volatile std::sig_atomic_t interrupted = 0;

/// An address of this process alone.
std::uint32_t own_ip() {
  const auto pid = static_cast<std::uint32_t>(getpid());
  return 0x7F000000U | (200 + (pid >> 16) % 50) << 16 | (pid >> 8 & 0xFF) << 8 |
         (1 + (pid & 0xFF) % 254);
}

class Soak {
public:
  Soak(long datagrams, int time_scale)
      : datagrams_(datagrams), ip_(own_ip()), load_(ip_, 1), router_(ip_, time_scale),
        daemon_(router_.daemon()) {}

  /// @return what is wrong; empty: nothing
  std::string run() {
    try {
      load_.enrol();
      send_all();
    } catch (const std::exception& error) {
      return error.what() + std::string("; the router's last words:\n") + router_.last_words();
    }
    tell_account();
    return judge();
  }

private:
  void send_all() {
    std::printf("%10s %10s %8s %8s %8s %8s %8s %8s %5s %5s\n", "datagrams", "answers", "per s",
                "rss KiB", "pss", "dirty", "anon", "heap", "maps", "fds");
    load_.ask_for_status();
    for (int tenth = 0; tenth <= 10; tenth++) {
      while (load_.sent() < datagrams_ / 10 * tenth || (tenth == 1 && !is_warm())) {
        if (interrupted != 0 || Clock::now() - began_ > std::chrono::seconds(kLongest_s)) {
          throw std::runtime_error("stopped");
        }
        load_.batch();
        if (load_.sent() / kStatusEvery > status_requests_) {
          status_requests_++;
          load_.ask_for_status();
        }
      }
      measure();
      if (tenth == 1) {
        warm_ = now_;
        warm_status_requests_ = status_requests_;
      }
    }
  }

  /// Whether the daemon has done once what it does only once, as opening the log.
  [[nodiscard]] bool is_warm() const {
    return load_.reports(server::kLog) > 0 && load_.reports(server::kGps) > 0 &&
           load_.reports(server::kKeepalive) > 0;
  }

  void measure() {
    now_ = soak::figures_of(daemon_);
    const auto time = Clock::now();
    const double passed_s = std::chrono::duration<double>(time - measured_).count();
    std::printf("%10ld %10ld %8.0f %8ld %8ld %8ld %8ld %8ld %5d %5d\n", load_.sent(),
                load_.answered(), static_cast<double>(load_.sent() - measured_sent_) / passed_s,
                now_.resident, now_.proportional, now_.private_dirty, now_.anonymous, now_.heap,
                now_.mappings, now_.descriptors);
    std::fflush(stdout);
    measured_ = time;
    measured_sent_ = load_.sent();
  }

  void tell_account() const {
    std::printf("\n%-24s %9s %9s %9s\n", "kind", "sent", "due", "answered");
    for (const auto& [kind, tally] : load_.tallies()) {
      std::printf("%-24s %9ld %9ld %9ld\n", kind.c_str(), tally.sent, tally.due, tally.answered);
    }
    std::printf("\nreports of the device: %ld log, %ld traffic, %ld positions, %ld keepalives, "
                "%ld status packets\n",
                load_.reports(server::kLog), load_.reports(server::kTraffic),
                load_.reports(server::kGps), load_.reports(server::kKeepalive),
                load_.reports(server::kStatus));
    const double elapsed_s = std::chrono::duration<double>(Clock::now() - began_).count();
    std::printf("%ld datagrams in %.1f s: %.0f per second, %.1f us of processor time each\n",
                load_.sent(), elapsed_s, static_cast<double>(load_.sent()) / elapsed_s,
                now_.processor_s / static_cast<double>(load_.sent()) * 1e6);
    std::printf("dropped by the kernel before the daemon took them: %ld management, %ld scan tools "
                "(%ld at the desktop manager's port, which is never read)\n",
                dropped(soak::Port::kManagement), dropped(soak::Port::kScantools),
                dropped(soak::Port::kDeskmgr));
  }

  [[nodiscard]] long dropped(soak::Port port) const {
    return soak::dropped_at(ip_, static_cast<std::uint16_t>(port));
  }

  [[nodiscard]] std::string judge() const {
    const long reports = status_requests_ - warm_status_requests_;
    const long left_kib = (reports * kLeftByAReport_bytes + 1023) / 1024;
    const long grown_kib = now_.anonymous - warm_.anonymous;
    std::printf("since the first tenth: %ld KiB of memory more, %ld KiB of it left by %ld status "
                "reports; %d descriptors and %d mappings more\n",
                grown_kib, left_kib, reports, now_.descriptors - warm_.descriptors,
                now_.mappings - warm_.mappings);
    std::string wrong;
    const auto expect = [&wrong](bool good, const char* complaint) {
      wrong += good ? "" : std::string(complaint) + "\n";
    };
    expect(grown_kib <= left_kib + kSlack_kib, "memory has grown");
    expect(now_.resident - warm_.resident <= left_kib + kSlack_kib + kFilePages_kib,
           "resident memory has grown");
    expect(now_.mappings <= warm_.mappings, "mappings have been left");
    expect(now_.descriptors <= warm_.descriptors, "descriptors have been left open");
    expect(dropped(soak::Port::kManagement) == 0 && dropped(soak::Port::kScantools) == 0,
           "datagrams were dropped, so that the daemon never saw them");
    return wrong;
  }

  long datagrams_;
  std::uint32_t ip_;
  soak::Load load_;
  soak::Router router_;
  pid_t daemon_;
  Clock::time_point began_ = Clock::now();
  Clock::time_point measured_ = began_;
  long measured_sent_ = 0;
  long status_requests_ = 0;
  long warm_status_requests_ = 0;
  soak::Figures warm_;
  soak::Figures now_;
};

} // namespace

int main(int argc, char** argv) {
  const long datagrams = argc > 1 ? std::atol(argv[1]) : 1'000'000;
  const int time_scale = argc > 2 ? std::atoi(argv[2]) : 600;
  if (argc > 3 || datagrams < 10'000 || time_scale < 1) {
    std::fprintf(stderr, "Usage: soak [DATAGRAMS [TIME_SCALE]], 10,000 datagrams at least\n");
    return 2;
  }
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    std::signal(number, [](int) { interrupted = 1; });
  }
  try {
    const std::string wrong = Soak(datagrams, time_scale).run();
    std::printf("%s\n", wrong.empty() ? "flat" : ("FAILED: " + wrong).c_str());
    return wrong.empty() ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "soak: %s\n", error.what());
    return 1;
  }
}
