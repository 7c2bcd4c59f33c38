// What the server tells at registration: its time, and how the link is kept alive.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

/// Asks for the server's time: sets server_time and, beside it, the uptime at which it came. The
/// system clock is not set. @return 0, or -1 when it was not answered
int do_request_servertime(RcmContext* context);

/// Asks for keepalive_interval and keepalive_maxretries. @return 0, or -1 when not answered
int do_request_keeplive(RcmContext* context);

/// Seconds since the epoch of a local time written as 14 digits, YYYYMMDDhhmmss. A text that ends
/// early lacks the digits behind its end.
std::int32_t string2time(const char* text);

/// Reads "keepalive_interval=N" and "keepalive_maxretries=N" wherever they stand in the text; a key
/// that is missing, or has no "=" behind it, leaves its number unchanged.
void string2keepalive(const char* text, std::int32_t* interval, std::int32_t* maxretries);

/// The reverse of string2time, in UTC: writes the text to the console and its first 14 characters,
/// without a terminator, to `destination`. Nothing calls it. @return 0
int format_time_string(std::int32_t seconds, char* destination);

} // namespace rcmd
