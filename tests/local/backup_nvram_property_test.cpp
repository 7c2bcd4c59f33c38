// Random images, names and values against a plain model of the store: the image as a text, records
// found by splitting, replacement by cutting and joining. The real image is mapped so that both its
// ends fall on page ends or stand before bytes that must not change.

#include "local/backup_nvram.h"

#include "tests/fake_platform/fixture.h"

#include <random>

using fake::world;

namespace {

std::string model_of_set(const std::string& image, const std::string& name,
                         const std::string& value) {
  for (std::size_t begin = 20; begin < image.size();) {
    const std::size_t end = image.find('\0', begin);
    if (end == std::string::npos) {
      break;
    }
    std::string seen;
    for (const char c : image.substr(begin, end - begin)) {
      if ((c & 0x80) == 0) {
        seen += c;
      }
    }
    begin = end + 1;
    if (seen.size() > 1023 || !seen.starts_with(name + "=") ||
        name.find('=') != std::string::npos) {
      continue;
    }
    const std::size_t old_length = seen.size() - name.size() - 1;
    // A shorter value leaves the image's last bytes as they were; a longer one loses some.
    std::string after = image.substr(0, end - old_length) + value + image.substr(end);
    if (after.size() < image.size()) {
      after += image.substr(after.size());
    }
    after.resize(image.size());
    return after;
  }
  return image;
}

class Dice {
public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  std::size_t below(std::size_t limit) { return engine_() % limit; }
  bool once_in(std::size_t n) { return below(n) == 0; }
  template <std::size_t n> const char* one_of(const char* const (&choices)[n]) {
    return choices[below(n)];
  }

private:
  std::mt19937 engine_;
};

const char* const kNames[] = {"a", "ab", "b", "long_name", "", "a=", "jqa_reconnect_interval"};

std::string random_value(Dice& dice) {
  const std::size_t length = dice.once_in(20) ? dice.below(2000) : dice.below(12);
  std::string value;
  for (std::size_t i = 0; i < length; i++) {
    value += static_cast<char>(dice.once_in(6) ? 1 + dice.below(255) : 'a' + dice.below(26));
  }
  return value;
}

std::string random_image(Dice& dice) {
  std::string image;
  for (std::size_t i = dice.once_in(10) ? dice.below(25) : 20; i > 0; i--) {
    image += static_cast<char>(dice.below(256));
  }
  for (std::size_t records = dice.below(8); records > 0; records--) {
    image += dice.one_of(kNames);
    image += dice.once_in(8) ? "" : "=";
    image += random_value(dice);
    image.append(dice.once_in(5) ? dice.below(4) : 1, '\0');
  }
  image.append(dice.once_in(2) ? 0 : dice.below(40), '\0');
  if (dice.once_in(10) && image.size() < 4096) {
    image.resize(4096, 'z'); // exactly one page
  }
  return image.empty() ? "x" : image;
}

class BackupNvramProperty : public fake::Fixture, public ::testing::WithParamInterface<unsigned> {};

TEST_P(BackupNvramProperty, AnyImageNameAndValueGiveWhatThePlainModelGives) {
  Dice dice(GetParam());
  int changed = 0;
  for (int round = 0; round < 500; round++) {
    const std::string before = random_image(dice);
    const std::string name = dice.one_of(kNames);
    const std::string value = random_value(dice);
    world().write_file("/tmp/nvram.backup", before);
    ASSERT_EQ(rcmd::backup_nvram_init(), 0);
    const auto size = static_cast<std::size_t>(rcmd::nvram_backup_size);
    ASSERT_EQ(size, before.size());
    rcmd::backup_nvram_set(name.c_str(), value.c_str());
    // The rest of the image's last page belongs to the mapping, and must still be zero.
    const std::string rest(rcmd::nvram_backup_mmap + size, (4096 - size % 4096) % 4096);
    ASSERT_EQ(rest, std::string(rest.size(), '\0')) << "round " << round;
    rcmd::backup_nvram_fini();
    const std::string after = world().read_file("/tmp/nvram.backup");
    ASSERT_EQ(after, model_of_set(before, name, value))
        << "round " << round << ", name " << name << ", value " << value;
    changed += after != before ? 1 : 0;
  }
  EXPECT_GT(changed, 100) << "the images and names hardly ever meet";
}

INSTANTIATE_TEST_SUITE_P(Seeds, BackupNvramProperty, ::testing::Values(1U, 2U, 3U, 20240817U));

} // namespace
