#include "rcm/keepalive.h"

#include "core/context.h"
#include "core/owned.h"
#include "core/say.h"
#include "core/timers.h"
#include "rcm/packet.h"
#include "rcm/registration.h"

#include <initializer_list>
#include <iterator>

namespace rcmd {

namespace {

constexpr std::int32_t kMaxRetransmissions = 4;
constexpr std::intptr_t kRetransmitStep_s = 5;

constexpr const char* kRetransmitMessages[] = {
    "retransmit UNKNOWN packet ... \n",    // also for every type behind the last row
    "retransmit REGISTER packet ... \n",   //
    "retransmit LOG packet ... \n",        //
    "retransmit CONF packet ... \n",       //
    "retransmit STATUS packet ... \n",     //
    "retransmit STATUSABLE packet ... \n", //
    "retransmit FWDATA packet ... \n",     //
    "retransmit KEEPALIVE packet ... \n",  //
    "retransmit FWREQ packet ... \n",      //
};
static_assert(std::size(kRetransmitMessages) == kFwReq + 1);

void send_keepalive(RcmContext& context) {
  diag("Send keepalive packet(seq=%d) to server ... \n", static_cast<int>(context.seq));
  begin_packet(context, kKeepalive, kReportFlags);
  context.tx_length = static_cast<std::uint32_t>(finish_packet(context, 0));
  ignore(send_to_server(context, context.tx_length)); // the next keepalive makes up for it
  context.online = 0;
}

} // namespace

void rcm_keepalive_func(void* context_pointer) {
  RcmContext& context = *static_cast<RcmContext*>(context_pointer);
  const std::int32_t misses = context.miss_count++;
  if (misses > context.keepalive_maxretries) {
    diag("peer had been dead.\n");
    for (RcmTimer* timer :
         {&rcm_keepalive, &rcm_logsender, &rcm_gpssender, &rcm_trafficget, &rcm_trafficsender}) {
      cancel(*timer);
    }
    ignore(do_rcm_register(&context)); // it arms all of them again
    return;
  }
  send_keepalive(context);
  rearm(rcm_keepalive, context.keepalive_interval);
}

void rcm_retransmit_func(void* context_pointer) {
  RcmContext& context = *static_cast<RcmContext*>(context_pointer);
  const std::int32_t retransmissions = context.retransmit_count++;
  if (retransmissions < kMaxRetransmissions) {
    const std::uint16_t type = tx_header(context).type;
    diag("%s", kRetransmitMessages[type < std::size(kRetransmitMessages) ? type : 0]);
    ignore(send_to_server(context, context.tx_length)); // the next one makes up for it
    // DELIBERATE: nothing else arms this timer; a sender's packet is not given to it.
    rearm(rcm_retransmit, kRetransmitStep_s * context.retransmit_count);
    return;
  }
  diag("peer had dead.\n");
  // DELIBERATE: the two traffic timers keep running here, unlike on the keepalive's path.
  for (RcmTimer* timer : {&rcm_logsender, &rcm_keepalive, &rcm_gpssender}) {
    cancel(*timer);
  }
  ignore(do_rcm_register(&context)); // it arms all five again
}

} // namespace rcmd
