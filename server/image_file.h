// Images read from files. The bytes are copied into memory of the server's own and mapped from
// there, so that a file which is overwritten or cut while devices fetch it harms neither them nor
// the server; devices that fetch the same file share one mapping.
#pragma once

#include "server/image.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <tuple>

namespace server {

struct ImageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class ImageFiles {
public:
  /// @throw ImageError, whose text names the file, when it cannot be read or served
  std::shared_ptr<const Image> load(const std::string& path);

private:
  using Key = std::tuple<std::uint64_t, std::uint64_t, std::int64_t, std::int64_t, std::int64_t>;
  std::map<Key, std::weak_ptr<const Image>> loaded_; ///< by device, inode, size and time of change
};

} // namespace server
