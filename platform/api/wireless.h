// Requests to the wireless driver.
#pragma once

extern "C" {

/// Issues driver command `command` on the interface, with `buffer` as request and answer.
/// @return 0 on success, negative on failure
int wl_ioctl(const char* interface_name, int command, void* buffer, int length_bytes);
}
