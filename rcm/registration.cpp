#include "rcm/registration.h"

#include "core/say.h"
#include "core/text.h"
#include "core/timers.h"
#include "platform/api/system.h"
#include "rcm/exchange.h"
#include "rcm/packet.h"
#include "rcm/server_time.h"
#include "variables/reports.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>

namespace rcmd {

namespace {

constexpr std::uint8_t kProtocolVersion[4] = {0, 1, 0, 2};
constexpr unsigned kPause_s = 5;
constexpr std::int32_t kTrafficPeriod_s = 3600;
constexpr char kTimeout[] = "timeout .... \n";

void build_register(RcmContext& context) {
  begin_packet(context, kRegister, kReportFlags);
  RcmPacketHeader& header = tx_header(context);
  std::memset(header.session_id, 0, sizeof header.session_id);
  std::memcpy(header.version, kProtocolVersion, sizeof header.version);
  auto& payload = *reinterpret_cast<RegisterPayload*>(tx_payload(context));
  payload.uptime = static_cast<std::uint32_t>(system_uptime());
  char key[40];
  std::snprintf(key, sizeof key, "wan%d_%s", 0, "ipaddr");
  const in_addr_t address = inet_addr(nvram_text(key));
  std::memcpy(payload.wan_address, &address, sizeof payload.wan_address);
  std::memcpy(payload.domain, context.domain, sizeof payload.domain);
  std::memcpy(payload.firmware_version, context.firmware_version, sizeof payload.firmware_version);
  std::memcpy(payload.product_model, context.product_model, sizeof payload.product_model);
  context.tx_length = static_cast<std::uint32_t>(finish_packet(context, sizeof payload));
}

void say_connecting(const RcmContext&) {
  diag("\nBegin to connect to RCM server ... ");
}

bool connect_to_server(RcmContext& context) {
  build_register(context);
  const Answer answer =
      exchange(context, context.tx_length, kRegisterExchange, {say_connecting, kTimeout});
  if (answer == Answer::kWaitError) {
    diag("%s", kTimeout);
  }
  if (answer == Answer::kMatched) {
    diag("OK");
  }
  return answer == Answer::kMatched;
}

// What follows the server's first answer, each with the words before it and, on success, behind.
bool take_server_time(RcmContext& context) {
  diag("\nrequest server time ..");
  if (do_request_servertime(&context) < 0) {
    return false;
  }
  if (debug > 0) {
    const std::time_t time = context.server_time;
    char calendar[32];
    diag("%s", ctime_r(&time, calendar));
  }
  diag("\nrequest keepalive ..");
  return true;
}

bool take_parameters(RcmContext& context) {
  if (do_request_keeplive(&context) < 0) {
    return false;
  }
  diag("interval = %d, maxretries = %d", context.keepalive_interval, context.keepalive_maxretries);
  diag("\nBegin to send config to RCM server ... ");
  return true;
}

bool report_configuration(RcmContext& context) {
  if (do_config_send(&context) < 0) {
    return false;
  }
  diag("OK");
  diag("\nBegin to send status to RCM server ... ");
  return true;
}

bool report_status(RcmContext& context) {
  return do_information_send(&context) >= 0;
}

bool run_chain(RcmContext& context) {
  if (!connect_to_server(context)) {
    return false;
  }
  for (auto* step : {take_server_time, take_parameters, report_configuration, report_status}) {
    if (!step(context)) {
      diag("%s", kTimeout);
      return false;
    }
  }
  return true;
}

int arm_reporters(const RcmContext& context) {
  rearm(rcm_keepalive, context.keepalive_interval);
  rearm(rcm_logsender, decimal(nvram_text("rcm_log_interval")));
  rearm(rcm_gpssender, gps_send_interval);
  // DELIBERATE: the first traffic sample comes after the seconds that the server's clock shows, not
  // at its next whole minute.
  rearm(rcm_trafficget, context.server_time % 60);
  return rearm(rcm_trafficsender, kTrafficPeriod_s);
}

} // namespace

int do_rcm_register(RcmContext* context) {
  while (!run_chain(*context)) {
    sleep_seconds(kPause_s);
  }
  diag("OK\n");
  return arm_reporters(*context);
}

} // namespace rcmd
