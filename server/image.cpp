#include "server/image.h"

#include "server/reports.h"

#include <algorithm>

namespace server {

std::array<std::uint8_t, 4> fragment_prefix(std::uint16_t number) {
  std::array<std::uint8_t, 4> prefix{};
  put_u16(prefix.data(), number);
  return prefix;
}

void Image::set_bytes(View bytes) {
  bytes_ = bytes;
  digest_ = digest_of(bytes);
  crcs_.resize((bytes.size() + kFragmentBytes - 1) / kFragmentBytes);
  for (std::size_t i = 0; i < crcs_.size(); i++) {
    const auto number = static_cast<std::uint16_t>(i);
    crcs_[i] = crc16(fragment(number), crc16(fragment_prefix(number)));
  }
}

View Image::fragment(std::uint16_t number) const {
  const std::size_t start = number * kFragmentBytes;
  return bytes_.subspan(start, std::min(kFragmentBytes, bytes_.size() - start));
}

} // namespace server
