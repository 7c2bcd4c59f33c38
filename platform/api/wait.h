// Waiting for one descriptor.
#pragma once

extern "C" {

/// @return positive when `fd` became readable within `seconds`, 0 when the time was up, negative on
/// an error. Always waits the full time when nothing comes, whatever signals arrive.
int waitfor(int fd, int seconds);
}
