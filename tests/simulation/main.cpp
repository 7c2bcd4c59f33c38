// simulation --seed N [--verbose]       one world, told line by line if wished
// simulation --seeds N [--from S]       the worlds S to S + N - 1, with the sums of what happened
//
// Exit status 1 and the seed when a promise was broken.

#include "tests/simulation/simulation.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Wish {
  std::uint64_t from = 1;
  std::uint64_t seeds = 1;
  bool verbose = false;
};

[[noreturn]] void wrong_use() {
  std::fprintf(stderr, "Usage: simulation --seed N [--verbose] | --seeds N [--from S]\n");
  std::exit(2);
}

Wish read_wish(int argc, char** argv) {
  Wish wish;
  for (int i = 1; i < argc; i++) {
    const std::string option = argv[i];
    if (option == "--verbose") {
      wish.verbose = true;
    } else if (i + 1 == argc) {
      wrong_use();
    } else if (option == "--seed" || option == "--from") {
      wish.from = std::strtoull(argv[++i], nullptr, 10);
    } else if (option == "--seeds") {
      wish.seeds = std::strtoull(argv[++i], nullptr, 10);
    } else {
      wrong_use();
    }
  }
  return wish;
}

} // namespace

int main(int argc, char** argv) {
  const Wish wish = read_wish(argc, argv);
  const auto began = std::chrono::steady_clock::now();
  std::map<std::string, std::uint64_t> sums;
  double days = 0;
  int broken = 0;
  for (std::uint64_t seed = wish.from; seed < wish.from + wish.seeds; seed++) {
    const sim::Outcome outcome = sim::simulate(seed, wish.verbose);
    days += outcome.device_days;
    for (const auto& [what, count] : outcome.counts) {
      sums[what] += count;
    }
    if (!outcome.violation.empty()) {
      broken++;
      std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed),
                  outcome.violation.c_str());
      std::fflush(stdout);
    }
  }
  for (const auto& [what, count] : sums) {
    std::printf("%12llu %s\n", static_cast<unsigned long long>(count), what.c_str());
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::printf("%llu seeds, %d of them broken, %.1f device-days in %.1f s\n",
              static_cast<unsigned long long>(wish.seeds), broken, days, took.count());
  return broken == 0 ? 0 : 1;
}
