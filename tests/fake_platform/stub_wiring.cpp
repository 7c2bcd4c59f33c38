// The two tables that point upward, for tests of the rooms below them: the timers call nobody, and
// every request goes to fake::on_request.

#include "tests/fake_platform/stub_wiring.h"

#include "core/timers.h"
#include "rcm/requests.h"

namespace fake {

std::function<void(const std::string&, rcmd::RcmContext&)> on_request;

} // namespace fake

namespace rcmd {

namespace {

void nobody(void*) {}

constexpr RcmTimer unwired() {
  return {{0, 0}, 0, 0, nullptr, nobody};
}

void hand_over(const char* route, RcmContext* context) {
  if (fake::on_request) {
    fake::on_request(route, *context);
  }
}

} // namespace

RcmTimer rcm_keepalive = unwired();
RcmTimer rcm_retransmit = unwired();
RcmTimer rcm_logsender = unwired();
RcmTimer rcm_gpssender = unwired();
RcmTimer rcm_trafficget = unwired();
RcmTimer rcm_trafficsender = unwired();

const RequestRoute request_routes[] = {
    {256, "get upgradecmd ... \n", [](RcmContext* context) { hand_over("upgrade", context); }},
    {257, "get config .... \n", [](RcmContext* context) { hand_over("config", context); }},
    {261, "get config file.... \n", [](RcmContext* context) { hand_over("configfile", context); }},
    {0, nullptr, [](RcmContext* context) { hand_over("generic", context); }},
};

} // namespace rcmd
