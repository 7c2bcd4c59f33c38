// What the status report takes from other programs: the number of stations that the wireless driver
// tells (u32) and their addresses (u8, so many bytes), then the DHCP server's lease file.

#include "core/owned.h"
#include "fuzz/device.h"
#include "rcm/packet.h"
#include "variables/leases.h"
#include "variables/stations.h"

#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint32_t count = input.u32();
  const std::uint8_t address_bytes = input.byte();
  const fuzz::Bytes addresses = input.bytes(address_bytes);
  fuzz::write_file("/tmp/udhcpd.leases", input.rest());
  fuzz::Device device(fuzz::Input(nullptr, 0));
  fake::world().on_wireless = [&](const std::string&, int command, void* buffer, int length) {
    if (command == 262 && length >= 4 + 255) {
      std::memcpy(buffer, &count, sizeof count);
      std::copy(addresses.begin(), addresses.end(), static_cast<std::uint8_t*>(buffer) + 4);
    }
    return 0;
  };
  device.run([&] {
    rcmd::ignore(rcmd::do_send_dhcp_status(&device.context, rcmd::kStatus));
    rcmd::ignore(rcmd::do_send_wl_stalist(&device.context, rcmd::kStatus));
  });
  for (const fake::Datagram& sent : fake::world().sent) {
    fuzz::demand(sent.bytes.size() < 36 + 4 + 513 + 200, "a report's packets stay short");
  }
  return 0;
}
