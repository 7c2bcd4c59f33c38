#include "tools/ring-syslogd/options.h"

#include "tools/ring-syslogd/ring_memory.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace rcmd {

namespace {

constexpr char kHelp[] =
    "Usage: ring-syslogd [OPTION]...\n"
    "Collects the lines that programs send to the local log socket in the shared-memory ring that\n"
    "rcmd reads. Stays in the foreground; SIGTERM and SIGINT end it and remove ring and socket.\n"
    "\n"
    "  -s, --socket PATH    the socket (/dev/log)\n"
    "  -k, --key KEY        System V key of the ring and its semaphores (0x414E4547)\n"
    "  -S, --size BYTES     of the shared-memory segment, 4096 to 16777216 (65536)\n"
    "  -m, --mark SECONDS   between two lines \"-- MARK --\"; 0 writes none (1200)\n"
    "  -b, --boot SECONDS   the system's uptime at which the device's own began (0)\n"
    "  -x, --scale N        seconds of the device in one second of the system (1)\n"
    "  -h, --help           this text\n";

constexpr option kOptions[] = {
    {"socket", required_argument, nullptr, 's'}, {"key", required_argument, nullptr, 'k'},
    {"size", required_argument, nullptr, 'S'},   {"mark", required_argument, nullptr, 'm'},
    {"boot", required_argument, nullptr, 'b'},   {"scale", required_argument, nullptr, 'x'},
    {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0}};

constexpr long long kMostBytes = 16 << 20;

// Reads optarg: a number in the range, decimal or 0x...
template <typename T> bool number(T& value, long long least, long long most) {
  char* end = nullptr;
  errno = 0;
  const long long read = std::strtoll(optarg, &end, 0);
  if (errno != 0 || end == optarg || *end != '\0' || read < least || read > most) {
    std::fprintf(stderr, "ring-syslogd: %s is not a number from %lld to %lld\n", optarg, least,
                 most);
    return false;
  }
  value = static_cast<T>(read);
  return true;
}

bool take_option(int letter, RingSyslogdOptions& options) {
  switch (letter) {
  case 's':
    options.socket = optarg;
    return true;
  case 'k':
    return number(options.key, INT32_MIN, UINT32_MAX);
  case 'S':
    return number(options.bytes, kSmallestRingBytes, kMostBytes);
  case 'm':
    return number(options.mark_s, 0, 1'000'000);
  case 'b':
    return number(options.boot_s, 0, INT32_MAX);
  case 'x':
    return number(options.scale, 1, 1'000'000);
  default:
    return false; // getopt has told it
  }
}

} // namespace

OptionsResult read_options(int argc, char** argv, RingSyslogdOptions& options) {
  for (;;) {
    const int letter = getopt_long(argc, argv, "s:k:S:m:b:x:h", kOptions, nullptr);
    if (letter == 'h') {
      std::fputs(kHelp, stdout);
      return OptionsResult::kHelp;
    }
    if (letter == -1) {
      break;
    }
    if (!take_option(letter, options)) {
      return OptionsResult::kWrong;
    }
  }
  if (optind < argc) {
    std::fprintf(stderr, "ring-syslogd: %s is no option\n", argv[optind]);
    return OptionsResult::kWrong;
  }
  return OptionsResult::kRun;
}

} // namespace rcmd
