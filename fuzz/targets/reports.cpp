// The reports of a device as the server reads them: the first byte chooses the reader.

#include "server/reports.h"

#include "fuzz/input.h"

#include <algorithm>
#include <memory>

namespace {

void read_as(std::uint8_t which, server::View payload) {
  switch (which % 6) {
  case 0: {
    server::Device device;
    if (server::read_registration(payload, device)) {
      fuzz::demand(device.domain.size() <= 64 && device.firmware.size() <= 64 &&
                       device.model.size() <= 64,
                   "an identity has 64 characters at most");
    }
    break;
  }
  case 1:
    if (const auto report = server::read_variables(payload)) {
      for (const auto& [name, value] : report->values) {
        fuzz::demand(!name.empty() && name.find('=') == std::string::npos, "a name is a name");
      }
    }
    break;
  case 2: {
    std::size_t characters = 0;
    for (const server::LogLine& line : server::read_log(payload)) {
      characters += line.message.size();
    }
    fuzz::demand(characters <= payload.size(), "no line is told twice");
    break;
  }
  case 3:
    if (const auto hour = server::read_traffic(payload)) {
      fuzz::demand(hour->samples.size() <= payload.size() / 18,
                   "a sample has 18 characters or more");
    }
    break;
  case 4:
    if (const auto position = server::read_position(payload)) {
      fuzz::demand(position->latitude.size() + position->longitude.size() <= payload.size(),
                   "a position is what was sent");
    }
    break;
  default:
    server::read_digits_time({reinterpret_cast<const char*>(payload.data()), payload.size()});
    server::digest_of(payload);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t which = input.byte();
  const fuzz::Bytes payload = input.rest();
  const auto exact = std::make_unique<std::uint8_t[]>(payload.size());
  std::copy(payload.begin(), payload.end(), exact.get());
  read_as(which, {exact.get(), payload.size()});
  return 0;
}
