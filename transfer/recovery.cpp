#include "transfer/recovery.h"

#include "core/owned.h"
#include "core/result.h"
#include "core/say.h"
#include "core/timers.h"
#include "platform/api/files.h"
#include "platform/api/system.h"
#include "rcm/registration.h"

namespace rcmd {

namespace {

constexpr unsigned kPeerDeadPause_s = 3;

void say(const char* text) {
  if (text != nullptr) {
    diag("%s", text);
  }
}

// DELIBERATE: three timers only; both traffic timers run on until the registration arms them anew.
void register_again(RcmContext* context) {
  sleep_seconds(kPeerDeadPause_s);
  cancel(rcm_logsender);
  cancel(rcm_keepalive);
  cancel(rcm_gpssender);
  ignore(do_rcm_register(context)); // it returns registered or not at all
}

int attempt(RcmContext* context, const FileCommand& command, const FileTransfer& transfer) {
  say(transfer.before_request);
  const int requested = do_request_file(context, command.name, command.total_length,
                                        command.fragment_count, transfer.request_type);
  if (requested == kPeerDead) {
    return kPeerDead;
  }
  // DELIBERATE: a request that could not be sent does not end the transfer: the fragments are
  // asked for all the same.
  if (requested == kFailure) {
    diag("Socket send error ... \n");
    ignore(remove_device_file(kFirmwareFile)); // it need not be there
  }
  say(transfer.before_download);
  return transfer.download(context, command.total_length, command.fragment_count);
}

} // namespace

int transfer_file(RcmContext* context, const FileCommand& command, const FileTransfer& transfer) {
  int result = attempt(context, command, transfer);
  while (result == kPeerDead) {
    register_again(context);
    result = attempt(context, command, transfer);
  }
  // DELIBERATE: it is the firmware's file that is removed, whichever file was being downloaded.
  if (result == kFailure) {
    say(transfer.failure);
    ignore(remove_device_file(kFirmwareFile)); // it need not be there
  }
  return result;
}

} // namespace rcmd
