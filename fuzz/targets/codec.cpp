// The parameter block, against a plain model of it.

#include "variables/codec.h"

#include "fuzz/input.h"

#include <cstring>
#include <map>
#include <memory>

namespace {

// Texts between NULs; the first '=' splits; the last of a name counts.
std::map<std::string, std::string> model_of(const std::uint8_t* data, std::size_t size) {
  std::map<std::string, std::string> model;
  const std::string block(reinterpret_cast<const char*>(data), size);
  for (std::size_t at = 0; at < size;) {
    const std::size_t end = std::min(block.find('\0', at), size);
    const std::string record = block.substr(at, end - at);
    const std::size_t equals = record.find('=');
    if (equals != std::string::npos) {
      model[record.substr(0, equals)] = record.substr(equals + 1);
    }
    at = end + 1;
  }
  return model;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto model = model_of(data, size);
  // The caller's promise: a NUL behind the block.
  const auto block = std::make_unique<char[]>(size + 1);
  if (size > 0) {
    std::memcpy(block.get(), data, size);
  }
  rcmd::init_cgi(block.get(), static_cast<std::uint32_t>(size));
  if (model.size() <= rcmd::kMaxCgiNames) {
    fuzz::demand(rcmd::count_cgi() == static_cast<std::int32_t>(model.size()),
                 "as many names are loaded as there are");
    for (const auto& [name, value] : model) {
      const char* found = rcmd::get_cgi(name.c_str());
      fuzz::demand(found != nullptr && value == found, "every name has its last value");
    }
  }
  rcmd::init_cgi(nullptr, 0);
  fuzz::demand(rcmd::count_cgi() == 0 && rcmd::get_cgi("hostname") == nullptr,
               "nothing is left of a block that was dropped");
  return 0;
}
