// The one download loop: pulls a run of fragments into a file, with up to 32 requests outstanding.
// Fragment n lies at byte n x 1024 of the file, counted from the run's first.
//
// Per accepted fragment: one send, one wait, one receive and one write at its place, straight from
// rx_buf. Nothing else of the daemon runs meanwhile; what arrives and is no awaited fragment is
// read and dropped.
#pragma once

#include "core/context.h"

#include <cstdint>

namespace rcmd {

constexpr std::uint32_t kFragmentBytes = 1024;

/// In what downloads differ.
struct Download {
  int (*request)(RcmContext* context, std::uint16_t fragment);
  std::uint32_t first; ///< fragments first to last - 1
  std::uint32_t last;
  const char* retry_mark; ///< printed at each re-sending; null: how often this one was re-sent
  const char* peer_dead;  ///< printed when a fragment went unanswered too often
};

/// Creates the file at a device path afresh, for reading and writing.
/// @return the descriptor, which is the caller's, or -1
[[nodiscard]] int create_download_file(const char* path);

/// Downloads into `fd`, which stays open. An empty run never ends: nothing is asked for, and only
/// an accepted fragment ends a download.
/// @return kSuccess with every fragment written; kFailure on a failed send or a short write;
/// kPeerDead
[[nodiscard]] int download_fragments(RcmContext& context, const Download& download, int fd);

} // namespace rcmd
