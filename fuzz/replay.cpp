// Plays the corpus of one fuzz target, and a fixed number of mutations of it, without a fuzzer. The
// mutations are the same in every run and on every machine.

#include "fuzz/input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

namespace {

using fuzz::Bytes;

constexpr int kMutations = 2000;

class Mutator {
public:
  explicit Mutator(std::vector<Bytes> corpus) : corpus_(std::move(corpus)) {}

  Bytes next() {
    Bytes input = some_file();
    for (std::size_t left = 1 + below(6); left > 0; left--) {
      mutate(input);
    }
    input.resize(std::min<std::size_t>(input.size(), FUZZ_MAX_LEN));
    return input;
  }

private:
  std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }
  const Bytes& some_file() { return corpus_[below(corpus_.size())]; }
  static auto at(Bytes& bytes, std::size_t offset) {
    return bytes.begin() + static_cast<std::ptrdiff_t>(offset);
  }

  void mutate(Bytes& input) {
    constexpr std::uint8_t kTelling[] = {0, 1, 2, 4, 8, '0', '=', ',', '\n', 0x7F, 0x80, 0xFF};
    const std::size_t offset = below(input.size() + 1);
    const std::size_t span = std::min(1 + below(16), input.size() - offset);
    switch (below(8)) {
    case 0:
      return flip(input, offset, static_cast<std::uint8_t>(1U << below(8)));
    case 1:
      return flip(input, offset, static_cast<std::uint8_t>(random_()));
    case 2:
      return std::fill_n(at(input, offset), span, kTelling[below(std::size(kTelling))]), void();
    case 3:
      input.erase(at(input, offset), at(input, offset + span));
      return;
    case 4:
      input.insert(at(input, offset), 1 + below(64), kTelling[below(std::size(kTelling))]);
      return;
    case 5: // again
      return insert(input, offset, Bytes(at(input, offset), at(input, offset + span)));
    case 6: // the end of another file
      return splice(input, offset, some_file());
    default:
      input.resize(offset);
    }
  }

  static void flip(Bytes& input, std::size_t offset, std::uint8_t bits) {
    if (offset < input.size()) {
      input[offset] ^= bits;
    }
  }
  static void insert(Bytes& input, std::size_t offset, const Bytes& more) {
    input.insert(at(input, offset), more.begin(), more.end());
  }
  void splice(Bytes& input, std::size_t offset, Bytes other) {
    input.resize(offset);
    const std::size_t from = below(other.size() + 1);
    input.insert(input.end(), at(other, from), other.end());
  }

  std::vector<Bytes> corpus_;
  std::mt19937_64 random_{20010909};
};

std::vector<Bytes> corpus() {
  std::vector<std::filesystem::path> paths;
  for (const auto& entry :
       std::filesystem::directory_iterator(SOURCE_DIR "/fuzz/corpus/" FUZZ_TARGET)) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Bytes> files;
  for (const auto& path : paths) {
    std::ifstream file(path, std::ios::binary);
    files.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  }
  return files;
}

void play(const Bytes& input) {
  LLVMFuzzerTestOneInput(input.data(), input.size());
}

} // namespace

TEST(Fuzz, FUZZ_TEST) {
  const std::vector<Bytes> files = corpus();
  ASSERT_FALSE(files.empty());
  for (const Bytes& file : files) {
    play(file);
  }
  Mutator mutator(files);
  for (int i = 0; i < kMutations; i++) {
    play(mutator.next());
  }
}
