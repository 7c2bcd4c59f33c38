#include "tools/rcm-lan/messages.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

namespace rcm_lan {

namespace {

constexpr std::size_t kScanBytes = 696;
constexpr std::uint8_t kMagic = 0xBA;
constexpr std::size_t kRequestBytes = 12;
constexpr std::size_t kResponseBytes = 16;

void put16(Bytes& bytes, std::size_t at, unsigned value) {
  bytes[at] = static_cast<std::uint8_t>(value >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(value & 0xFF);
}

void put32(Bytes& bytes, std::size_t at, std::uint32_t value) {
  put16(bytes, at, value >> 16);
  put16(bytes, at + 2, value & 0xFFFF);
}

std::uint32_t get32(const Bytes& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; i++) {
    value = value << 8 | bytes[at + i];
  }
  return value;
}

template <typename Piece> void put(Bytes& bytes, std::size_t at, const Piece& piece) {
  std::copy(piece.begin(), piece.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
}

template <std::size_t n>
void get(const Bytes& bytes, std::size_t at, std::array<std::uint8_t, n>& piece) {
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), n, piece.begin());
}

/// The text of a field that ends at its first NUL or at the field's end.
std::string get_text(const Bytes& bytes, std::size_t begin, std::size_t end) {
  std::string text;
  for (std::size_t i = begin; i < end && bytes[i] != 0; i++) {
    text += bytes[i] >= 0x20 && bytes[i] != 0x7F ? static_cast<char>(bytes[i]) : '?';
  }
  return text;
}

Bytes scan_message(std::uint8_t type) {
  Bytes bytes(kScanBytes, 0);
  bytes[0] = kMagic;
  bytes[1] = type;
  return bytes;
}

bool is_scan_message(const Bytes& datagram, std::uint8_t type) {
  return datagram.size() == kScanBytes && datagram[0] == kMagic && datagram[1] == type;
}

} // namespace

Bytes discovery_request() {
  return scan_message(1);
}

Bytes set_request(const Changes& changes) {
  Bytes bytes = scan_message(3);
  unsigned fields = 0;
  if (changes.community) {
    fields |= 0x0001;
    put(bytes, 4, changes.community->substr(0, 32));
  }
  if (changes.lan_address) {
    fields |= 0x0004;
    put(bytes, 44, *changes.lan_address);
  }
  if (changes.lan_address2) {
    fields |= 0x0100;
    put(bytes, 600, *changes.lan_address2);
  }
  if (changes.reconnect_interval_s) {
    fields |= 0x2000;
    put32(bytes, 692, *changes.reconnect_interval_s);
  }
  put16(bytes, 2, fields);
  return bytes;
}

std::optional<Router> read_discovery_reply(const Bytes& datagram) {
  if (!is_scan_message(datagram, 2)) {
    return std::nullopt;
  }
  Router router;
  get(datagram, 36, router.mac);
  get(datagram, 44, router.address);
  router.model = get_text(datagram, 48, 340);
  get(datagram, 600, router.netmask);
  router.reconnect_interval_s = get32(datagram, 692);
  return router;
}

bool is_set_reply(const Bytes& datagram) {
  return is_scan_message(datagram, 4);
}

Bytes manager_request(Order order, std::uint32_t tag) {
  Bytes bytes(kRequestBytes, 0);
  put32(bytes, 0, tag);
  put16(bytes, 4, static_cast<unsigned>(order));
  bytes[7] = 1;
  put32(bytes, 8, kRequestBytes);
  return bytes;
}

std::optional<std::uint32_t> read_manager_response(const Bytes& message, Order order,
                                                   std::uint32_t tag) {
  Bytes expected = manager_request(order, tag);
  expected[7] = 2;
  put32(expected, 8, kResponseBytes);
  if (message.size() != kResponseBytes ||
      !std::equal(expected.begin(), expected.end(), message.begin())) {
    return std::nullopt;
  }
  return get32(message, 12);
}

std::string text_of(const Address& address) {
  char text[INET_ADDRSTRLEN] = "";
  inet_ntop(AF_INET, address.data(), text, sizeof text);
  return text;
}

std::optional<Address> address_of(const std::string& text) {
  Address address;
  if (inet_pton(AF_INET, text.c_str(), address.data()) != 1) {
    return std::nullopt;
  }
  return address;
}

} // namespace rcm_lan
