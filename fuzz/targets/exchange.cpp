// Every exchange in which the device asks or reports and waits: the first byte chooses it, the rest
// is the script of what arrives.

#include "core/owned.h"
#include "fuzz/device.h"
#include "rcm/keepalive.h"
#include "rcm/packet.h"
#include "rcm/registration.h"
#include "rcm/server_time.h"
#include "reporters/log_sender.h"
#include "reporters/traffic.h"
#include "variables/reports.h"

namespace {

void exchange(std::uint8_t which, rcmd::RcmContext& context) {
  switch (which % 8) {
  case 0:
    rcmd::ignore(rcmd::do_rcm_register(&context));
    break;
  case 1:
    rcmd::ignore(rcmd::do_request_servertime(&context));
    break;
  case 2:
    rcmd::ignore(rcmd::do_request_keeplive(&context));
    fuzz::demand(context.keepalive_interval >= 0 && context.keepalive_maxretries >= 0,
                 "no keepalive parameter is negative");
    break;
  case 3:
    rcmd::ignore(rcmd::do_config_send(&context));
    break;
  case 4:
    rcmd::ignore(rcmd::do_information_send(&context));
    break;
  case 5:
    rcmd::rcm_logsender_func(&context);
    break;
  case 6:
    rcmd::rcm_trafficget_func(&context);
    rcmd::rcm_trafficsender_func(&context);
    break;
  default:
    context.miss_count = context.keepalive_maxretries;
    rcmd::rcm_keepalive_func(&context);
    rcmd::rcm_keepalive_func(&context);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::uint8_t which = input.byte();
  fuzz::Device device(input);
  device.run([&] { exchange(which, device.context); });
  return 0;
}
