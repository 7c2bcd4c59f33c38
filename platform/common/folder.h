// Files and the folders that they lie in.
#pragma once

#include <cstddef>

namespace rcmd {

/// Writes "<path><suffix>". @return false when that is too long
bool beside(const char* path, const char* suffix, char* text, size_t text_bytes);

/// open() with the rights 0600; a missing last folder is made first. @return a descriptor, or -1
int open_in_folder(const char* path, int flags);

/// Makes the names in the file's folder lasting.
bool sync_folder(const char* path);

} // namespace rcmd
