// The backup store: how often the image goes through its file (bit 0 of the first byte), then steps
// of a name and a value, a NUL behind each, ended by an empty name, then the image.

#include "local/backup_nvram.h"

#include "fuzz/device.h"

#include <algorithm>
#include <memory>
#include <vector>

namespace {

struct Change {
  std::string name;
  std::string value;
};

bool same_byte(char a, std::uint8_t b) {
  return static_cast<std::uint8_t>(a) == b;
}

void apply(const std::vector<Change>& changes) {
  for (const Change& change : changes) {
    rcmd::backup_nvram_set(change.name.c_str(), change.value.c_str());
  }
}

// On memory of exactly the image's size, put in the place of a small image that stays mapped.
void in_memory(const std::vector<Change>& changes, const fuzz::Bytes& image) {
  fuzz::write_file("/tmp/nvram.backup", fuzz::Bytes(64, 'x'));
  fuzz::demand(rcmd::backup_nvram_init() == 0, "an image can be mapped");
  char* const mapped = rcmd::nvram_backup_mmap;
  const int mapped_size = rcmd::nvram_backup_size;
  const auto copy = std::make_unique<char[]>(image.size());
  std::copy(image.begin(), image.end(), copy.get());
  rcmd::nvram_backup_mmap = copy.get();
  rcmd::nvram_backup_size = static_cast<int>(image.size());
  apply(changes);
  const std::size_t header_bytes = std::min<std::size_t>(20, image.size());
  fuzz::demand(std::equal(copy.get(), copy.get() + header_bytes, image.begin(), same_byte),
               "the image's header is never changed");
  rcmd::nvram_backup_mmap = mapped;
  rcmd::nvram_backup_size = mapped_size;
  rcmd::backup_nvram_fini();
}

void in_file(const std::vector<Change>& changes, const fuzz::Bytes& image) {
  fuzz::write_file("/tmp/nvram.backup", image);
  const int result = rcmd::backup_nvram_init();
  fuzz::demand((result == 0) == !image.empty(), "every image but an empty one can be mapped");
  apply(changes);
  rcmd::backup_nvram_fini();
  rcmd::backup_nvram_commit();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::make_world();
  fuzz::Input input(data, size);
  const bool through_file = (input.byte() & 1) != 0;
  std::vector<Change> changes;
  for (std::string name = input.text(); !name.empty(); name = input.text()) {
    changes.push_back({name, input.text()});
  }
  const fuzz::Bytes image = input.rest();
  if (through_file) {
    in_file(changes, image);
  } else {
    in_memory(changes, image);
  }
  fuzz::end_world();
  return 0;
}
