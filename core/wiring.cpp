// The two tables that point upward: the six timers with their callbacks, and the server's requests
// with their handlers.

#include "core/timers.h"
#include "rcm/generic.h"
#include "rcm/keepalive.h"
#include "rcm/packet.h"
#include "rcm/requests.h"
#include "reporters/gps.h"
#include "reporters/log_sender.h"
#include "reporters/traffic.h"
#include "transfer/config_file.h"
#include "transfer/firmware.h"
#include "variables/remote_config.h"

namespace rcmd {

namespace {

constexpr RcmTimer wired(void (*callback)(void*)) {
  return {{0, 0}, 0, 0, nullptr, callback};
}

} // namespace

RcmTimer rcm_keepalive = wired(rcm_keepalive_func);
RcmTimer rcm_retransmit = wired(rcm_retransmit_func);
RcmTimer rcm_logsender = wired(rcm_logsender_func);
RcmTimer rcm_gpssender = wired(rcm_gpssender_func);
RcmTimer rcm_trafficget = wired(rcm_trafficget_func);
RcmTimer rcm_trafficsender = wired(rcm_trafficsender_func);

const RequestRoute request_routes[] = {
    {kUpgradeCmd, "get upgradecmd ... \n", rcm_upgradecmd_func},
    {kConfig, "get config .... \n", rcm_config_func},
    {kConfigFile, "get config file.... \n", rcm_config_upgrade_func},
    {0, nullptr, rcm_generic_func}, // every other type
};

} // namespace rcmd
