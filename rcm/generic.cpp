#include "rcm/generic.h"

#include "core/owned.h"
#include "core/say.h"
#include "platform/api/nvram.h"
#include "platform/api/system.h"
#include "rcm/packet.h"
#include "variables/reports.h"

#include <csignal>

namespace rcmd {

namespace {

[[noreturn]] void commit_and_restart() {
  ignore(nvram_commit());       // the server was answered already; the restart follows anyway
  ignore(signal_init(SIGTERM)); // init restarts the device
  // DELIBERATE: nothing of this process runs between the signal and the restart.
  await_restart();
}

} // namespace

void rcm_generic_func(RcmContext* context) {
  const std::uint16_t type = rx_header(*context).type;
  acknowledge_request(*context);
  switch (type) {
  case kCommitReboot:
    commit_and_restart();
  case kRestoreDefaults:
    ignore(nvram_set("restore_defaults", "1")); // as above
    commit_and_restart();
  case kSendStatus:
    diag("\nSend status to server ... \n");
    ignore(do_information_send(context)); // the next registration reports again
    break;
  default:
    diag("unknown request with oid = %04x.... \n", type);
    break;
  }
}

} // namespace rcmd
