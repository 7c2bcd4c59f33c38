#include "transfer/download.h"

#include "core/result.h"
#include "core/say.h"
#include "core/wire.h"
#include "platform/api/files.h"
#include "platform/api/system.h"
#include "rcm/exchange.h"
#include "rcm/packet.h"
#include "transfer/window.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace rcmd {

namespace {

struct FragmentHeader { // in front of the data
  be16 fragment;
  std::uint8_t unread[2];
};
static_assert(sizeof(FragmentHeader) == 4);

struct Progress {
  FragmentWindow window;
  std::uint32_t next;     ///< the fragment to be asked for next
  std::uint32_t accepted; ///< how many have arrived
  FragmentSlot* arrived;  ///< the slot whose fragment stands in rx_buf
};

// DELIBERATE: neither type, flags nor session of a fragment packet are looked at; any good packet
// with the number of an outstanding fragment is that fragment.
bool is_awaited_fragment(const RcmContext& context, void* argument) {
  if (rx_header(context).length <= sizeof(FragmentHeader)) {
    return false;
  }
  auto& progress = *static_cast<Progress*>(argument);
  const auto& header = *reinterpret_cast<const FragmentHeader*>(rx_payload(context));
  progress.arrived = progress.window.outstanding(header.fragment);
  if (progress.arrived == nullptr) {
    diag("*");
    return false;
  }
  return true;
}

void mark_retry(const Download& download, std::uint16_t retries) {
  if (download.retry_mark != nullptr) {
    diag("%s", download.retry_mark);
  } else {
    diag("%d", retries);
  }
}

int visit_idle(RcmContext& context, const Download& download, Progress& progress,
               FragmentSlot& slot, std::uint32_t now) {
  if (progress.next >= download.last) {
    return kSuccess;
  }
  const auto fragment = static_cast<std::uint16_t>(progress.next);
  if (download.request(&context, fragment) != 0) {
    return kFailure;
  }
  slot = {0, now + kRetryAfter_s, fragment, slot.retries};
  progress.next++;
  return kSuccess;
}

int visit_busy(RcmContext& context, const Download& download, FragmentSlot& slot,
               std::uint32_t now) {
  // DELIBERATE: asked before the deadline, so that the peer is dead at the first scan behind the
  // last re-send, with no time left for its answer.
  if (slot.retries >= kMaxRetries) {
    diag("%s", download.peer_dead);
    return kPeerDead;
  }
  if (now < slot.deadline) {
    return kSuccess;
  }
  slot.retries++;
  mark_retry(download, slot.retries);
  if (download.request(&context, slot.fragment) != 0) {
    return kFailure;
  }
  slot.deadline = now + kRetryAfter_s;
  return kSuccess;
}

// Fills the free slots with new requests and sends overdue ones again.
int scan(RcmContext& context, const Download& download, Progress& progress) {
  const auto now = static_cast<std::uint32_t>(wall_clock());
  for (FragmentSlot& slot : progress.window.slots) {
    const int result = slot.idle != 0 ? visit_idle(context, download, progress, slot, now)
                                      : visit_busy(context, download, slot, now);
    if (result != kSuccess) {
      return result;
    }
  }
  return kSuccess;
}

// Writes the fragment in rx_buf to its place.
int take_fragment(const RcmContext& context, const Download& download, Progress& progress, int fd) {
  FragmentSlot& slot = *progress.arrived;
  slot.idle = 1;
  slot.retries = 0;
  const off_t place = (static_cast<off_t>(slot.fragment) - download.first) * kFragmentBytes;
  const std::size_t bytes = rx_header(context).length - sizeof(FragmentHeader);
  const ssize_t written = pwrite(fd, rx_payload(context) + sizeof(FragmentHeader), bytes, place);
  progress.accepted++;
  if (written != static_cast<ssize_t>(bytes)) {
    return kFailure;
  }
  diag("#");
  return kSuccess;
}

} // namespace

int create_download_file(const char* path) {
  return open(device_path(path), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
}

int download_fragments(RcmContext& context, const Download& download, int fd) {
  Progress progress{};
  progress.window.clear();
  progress.next = download.first;
  // DELIBERATE: only an accepted fragment ends a download, so that an empty one waits for ever.
  bool done = false;
  while (!done) {
    int result = scan(context, download, progress);
    // A wait error is silence like a time-out: the next scan follows.
    if (result == kSuccess &&
        await_packet(context, is_awaited_fragment, &progress) == Answer::kMatched) {
      result = take_fragment(context, download, progress, fd);
      done = progress.accepted == download.last - download.first;
    }
    if (result != kSuccess) {
      return result;
    }
  }
  return kSuccess;
}

} // namespace rcmd
