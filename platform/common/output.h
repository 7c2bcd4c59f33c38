// Writing whole texts to descriptors.
#pragma once

#include <cstddef>

namespace rcmd {

/// write() until everything is out. @return false when that is impossible
bool write_all(int fd, const void* data, size_t length);

} // namespace rcmd
