// Files of the device.
#pragma once

#include <stddef.h>
#include <stdio.h>

extern "C" {

/// Where the device path `path` ("/tmp/firmware.download", "/proc/net/dev", ...) really lies. On a
/// device that is the path itself; a virtual router keeps all of them below its own folder. A path
/// that does not begin with '/' is taken as it stands.
/// @return a text valid until the next call
const char* device_path(const char* path);

/// Removes the file at a device path. @return 0, or -1 when it was not there
int remove_device_file(const char* path);

/// fread that goes on after an interrupted call. @return the number of whole items read
size_t safe_fread(void* data, size_t size, size_t count, FILE* stream);
}
