#include "reporters/log_sender.h"

#include "core/context.h"
#include "core/owned.h"
#include "core/say.h"
#include "core/text.h"
#include "core/timers.h"
#include "rcm/exchange.h"
#include "rcm/packet.h"
#include "reporters/system_log.h"

namespace rcmd {

namespace {

void send_new_lines(RcmContext& context) {
  diag("Send log packet(seq=%d) to server...\n", static_cast<int>(context.seq));
  begin_packet(context, kLog, kReportFlags);
  auto* payload = reinterpret_cast<char*>(tx_payload(context));
  const int length = get_system_log(payload, kMaxPayloadBytes, context);
  if (length < 1) {
    diag("nothing!\n");
    return; // `online` stays 1
  }
  const std::size_t bytes = finish_packet(context, static_cast<std::size_t>(length));
  context.tx_length = static_cast<std::uint32_t>(bytes);
  // DELIBERATE: the lines are marked already; a batch that nobody acknowledges is not sent again,
  // and leaves `online` 1.
  ignore(exchange(context, bytes, kLogExchange));
}

} // namespace

void rcm_logsender_func(void* arg) {
  RcmContext& context = *static_cast<RcmContext*>(arg);
  if (context.online == 1) {
    send_new_lines(context);
  }
  // DELIBERATE: there is no default; an absent key gives an interval of 0.
  rearm(rcm_logsender, decimal(nvram_text("rcm_log_interval")));
}

} // namespace rcmd
