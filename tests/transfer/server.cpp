#include "tests/transfer/server.h"

#include "rcm/registration.h"

#include <algorithm>

namespace fake {

std::function<void()> on_register;

TransferFixture::TransferFixture() {
  on_register = nullptr;
}

TransferFixture::~TransferFixture() {
  on_register = nullptr;
}

void TransferFixture::serve(const Bytes& content) {
  file = content;
  world().on_send = [this](const Datagram& sent) {
    if (ntohs(sent.peer.sin_port) != 1162 || (answers && !answers(sent))) {
      return;
    }
    const std::uint16_t type = type_of(sent.bytes);
    if (type == 8 || type == 13) {
      world().deliver(1161, server_packet(type, 1, seq_of(sent.bytes)), delay_ms);
    } else if (type == 6 || type == 12) {
      world().deliver(1161, fragment(u16_at(sent.bytes, 36)), delay_ms);
    }
  };
}

Bytes TransferFixture::fragment(std::uint16_t number) const {
  Bytes payload = {static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number), 0, 0};
  const std::size_t from = std::min<std::size_t>(number * 1024U, file.size());
  const std::size_t to = std::min(from + 1024, file.size());
  payload.insert(payload.end(), file.begin() + static_cast<std::ptrdiff_t>(from),
                 file.begin() + static_cast<std::ptrdiff_t>(to));
  return server_packet(6, 1, 0, payload);
}

void TransferFixture::command(std::uint16_t type, std::uint16_t fragments, std::uint32_t total,
                              const std::string& name) {
  Bytes payload = {0xAA, 0xBB};
  for (const int shift : {8, 0}) {
    payload.push_back(static_cast<std::uint8_t>(fragments >> shift));
  }
  for (const int shift : {24, 16, 8, 0}) {
    payload.push_back(static_cast<std::uint8_t>(total >> shift));
  }
  payload.insert(payload.end(), name.begin(), name.end());
  payload.push_back(0);
  receive(server_packet(type, 0, 0x00000777, payload));
}

std::vector<int> TransferFixture::asked() const {
  std::vector<int> numbers;
  for (const Datagram& sent : world().sent) {
    const std::uint16_t type = type_of(sent.bytes);
    if (type == 6 || type == 12) {
      numbers.push_back(u16_at(sent.bytes, 36));
    }
  }
  return numbers;
}

std::vector<std::string> TransferFixture::story() const {
  std::vector<std::string> kept;
  for (const std::string& event : world().events) {
    if (!event.starts_with("send ") && event != "diag #") {
      kept.push_back(event);
    }
  }
  return kept;
}

Bytes pattern(std::size_t count) {
  Bytes bytes(count);
  for (std::size_t i = 0; i < count; i++) {
    bytes[i] = static_cast<std::uint8_t>(i * 31 + i / 1024 * 7 + i / 65536);
  }
  return bytes;
}

void put32(Bytes& bytes, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; i++) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

Bytes trx_image(std::uint32_t len, std::uint32_t flag_version) {
  Bytes image = pattern(len);
  put32(image, 0, 0x30524448);
  put32(image, 4, len);
  put32(image, 12, flag_version);
  std::uint32_t crc = 0xFFFFFFFF;
  for (std::size_t i = 12; i < image.size(); i++) {
    crc ^= image[i];
    for (int bit = 0; bit < 8; bit++) {
      crc = (crc & 1) != 0 ? (crc >> 1) ^ 0xEDB88320U : crc >> 1;
    }
  }
  put32(image, 8, crc);
  return image;
}

} // namespace fake

namespace rcmd {

int do_rcm_register(RcmContext*) {
  fake::world().note("register");
  if (fake::on_register) {
    fake::on_register();
  }
  return 0;
}

} // namespace rcmd
