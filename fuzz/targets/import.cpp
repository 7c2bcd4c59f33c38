// The text that `nvram import` reads. Nothing is set unless the whole text is well-formed.

#include "tools/nvram/import.h"

#include "fuzz/input.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace {

struct Taken {
  std::size_t count = 0;
  std::size_t refuse_at = 0; ///< counted from 1; 0: none
};

int take(void* arg, const char* name, const char* value) {
  auto& taken = *static_cast<Taken*>(arg);
  taken.count++;
  fuzz::demand(*name != '\0' && std::strpbrk(name, "=\n") == nullptr &&
                   std::strchr(value, '\n') == nullptr,
               "a name is a name, and a value ends with its line");
  return taken.count == taken.refuse_at ? -1 : 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  Taken taken;
  taken.refuse_at = input.byte();
  const fuzz::Bytes content = input.rest();
  const auto text = std::make_unique<char[]>(content.size() + 1);
  std::copy(content.begin(), content.end(), text.get());
  const rcmd::ImportFault fault = rcmd::import_settings(text.get(), content.size(), take, &taken);
  const bool refused = taken.refuse_at != 0 && taken.count == taken.refuse_at;
  fuzz::demand(fault.reason == nullptr || taken.count == 0 || refused,
               "a malformed text sets nothing");
  if (fault.reason == nullptr) {
    fuzz::demand(static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n')) + 1 >=
                     taken.count,
                 "a line sets one value at most");
  }
  return 0;
}
