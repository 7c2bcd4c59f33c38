// The two places where the daemon may write: the device's console and standard error.
#pragma once

#include <stddef.h>

extern "C" {

/// Opens "/dev/console" with mode "w", writes the text in one piece and closes it.
/// @return 0, or -1 when the console could not be opened
int console_write(const char* text, size_t length);

/// Writes to standard error, in one piece.
void diagnostic_write(const char* text, size_t length);
}
