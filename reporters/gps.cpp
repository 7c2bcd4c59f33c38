#include "reporters/gps.h"

#include "core/context.h"
#include "core/owned.h"
#include "core/say.h"
#include "core/text.h"
#include "core/timers.h"
#include "rcm/packet.h"

namespace rcmd {

namespace {

// Two values of 4000 characters fit the packet; what is longer is no position, and is cut.
static_assert(kMaxPayloadBytes > sizeof "lat=;long=" + 8000);

// @return the payload's length, its NUL included
std::size_t write_position(RcmContext& context) {
  TextWriter text{reinterpret_cast<char*>(tx_payload(context)), kMaxPayloadBytes, 0};
  ignore(text.append("lat=%.4000s", nvram_text("gps_lat")));
  ignore(text.append(";long=%.4000s", nvram_text("gps_long")));
  // DELIBERATE: the NUL is part of the payload, unlike in the log and traffic reports.
  return text.used + 1;
}

} // namespace

void rcm_gpssender_func(void* arg) {
  RcmContext& context = *static_cast<RcmContext*>(arg);
  // DELIBERATE: `online` is not asked, and is 0 afterwards: the next batch of log lines is held
  // back until any acknowledgement arrives.
  diag("Send gps packet(seq=%d) to server...\n", static_cast<int>(context.seq));
  begin_packet(context, kGps, kGpsFlags);
  const std::size_t bytes = finish_packet(context, write_position(context));
  context.tx_length = static_cast<std::uint32_t>(bytes);
  ignore(send_to_server(context, bytes)); // the next report supersedes a lost one
  context.online = 0;
  rearm(rcm_gpssender, gps_send_interval);
}

} // namespace rcmd
