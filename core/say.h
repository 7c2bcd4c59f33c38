// The daemon's two printers; there is no third. Texts stand as they are: no prefix, no line end
// is added. A text of more than 9215 characters is cut there; a datagram's worth fits.
#pragma once

namespace rcmd {

/// Greater than 0: diagnostics are written. Set to 1 by option -d.
extern int debug;

/// Writes to standard error when `debug` is greater than 0; otherwise does nothing.
void diag(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Opens the device's console, writes the text in one piece and closes it, whatever `debug` says.
/// @return false when the console could not be opened; nobody can be told, so callers drop it
bool console(const char* format, ...) __attribute__((format(printf, 1, 2)));

} // namespace rcmd
