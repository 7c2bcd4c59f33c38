// The results that functions of the daemon hand to each other.
#pragma once

namespace rcmd {

constexpr int kSuccess = 0;
constexpr int kFailure = -1;
constexpr int kPeerDead = -2; ///< transfers only: the caller registers again

} // namespace rcmd
