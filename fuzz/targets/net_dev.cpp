// The text of "/proc/net/dev": the LAN interface's name with its NUL, how many of the kernel's
// queries it answers (u8, a bit each), then the text.

#include "fuzz/device.h"
#include "reporters/netif.h"
#include "reporters/status.h"
#include "variables/tables.h"

#include <cstdlib>
#include <cstring>

using fake::world;

namespace {

void ask_everything() {
  for (const rcmd::NetIf* at = rcmd::interface_list; at != nullptr; at = at->next) {
    const std::string name = std::string(at->if_name) + at->if_unit;
    for (int column = 0; column < 27; column++) {
      std::uint8_t out[6];
      const int bytes = rcmd::netif_get(name.c_str(), column, out);
      fuzz::demand(bytes == -1 || bytes == 4 || (bytes == 6 && column == rcmd::kIfPhysAddress),
                   "a column has 4 bytes, the hardware address 6");
    }
  }
}

void report_status() {
  for (const rcmd::VariableEntry* row = rcmd::information_variables; row->name != nullptr; row++) {
    char* text = row->get(0, row);
    fuzz::demand(text != nullptr, "a variable always reads as a text");
    if (text != rcmd::shared_empty_text) {
      std::free(text);
    }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::make_world();
  fuzz::Input input(data, size);
  world().nvram["lan_ifname"] = input.text();
  const unsigned answered = input.byte();
  int query = 0;
  world().on_ioctl = [&](int, unsigned long, void* argument) {
    std::memset(static_cast<char*>(argument) + 16, 1, 16);
    return ((answered >> (query++ % 8)) & 1U) != 0 ? 0 : -1;
  };
  fuzz::write_file("/proc/net/dev", input.rest());
  fuzz::demand(rcmd::netif_init() == 0, "any text gives a list");
  ask_everything();
  report_status();
  rcmd::netif_fina();
  fuzz::end_world();
  return 0;
}
