// The check of a firmware image, as the firmware download makes it.

#include "transfer/trx.h"

#include "core/owned.h"
#include "fuzz/device.h"

#include <sys/mman.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::make_world();
  const rcmd::UniqueFd file(memfd_create("image", MFD_CLOEXEC));
  fuzz::demand(write(file.get(), data, size) == static_cast<ssize_t>(size), "an image is written");
  lseek(file.get(), 0, SEEK_SET);
  rcmd::TrxHeader header;
  if (rcmd::read_trx_header(file.get(), header) && rcmd::trx_header_is_good(header) &&
      rcmd::check_trx_image(file.get(), header)) {
    fuzz::demand(size >= header.len, "an accepted image is whole");
  }
  fuzz::end_world();
  return 0;
}
