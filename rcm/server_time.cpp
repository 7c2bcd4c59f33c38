#include "rcm/server_time.h"

#include "core/result.h"
#include "core/say.h"
#include "core/text.h"
#include "platform/api/system.h"
#include "rcm/exchange.h"
#include "rcm/packet.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace rcmd {

namespace {

constexpr std::int32_t kDefaultInterval_s = 120;
constexpr std::int32_t kDefaultMaxRetries = 10;
constexpr std::size_t kTimeDigits = 14;

struct PayloadText {
  char text[kMaxPayloadBytes + 1];
};

// The answer's payload as a text; it carries no terminator on the wire.
void read_payload(const RcmContext& context, PayloadText& payload) {
  const std::size_t length = rx_header(context).length;
  std::memcpy(payload.text, rx_payload(context), length);
  payload.text[length] = '\0';
}

// Sends an empty packet of this type and waits for its answer.
bool ask(RcmContext& context, PacketType type, const ExchangeRules& rules) {
  begin_packet(context, type, kReportFlags);
  context.tx_length = static_cast<std::uint32_t>(finish_packet(context, 0));
  return exchange(context, context.tx_length, rules) == Answer::kMatched;
}

// Cuts the next `digits` characters out of the text.
int cut_number(const char*& at, std::size_t digits) {
  char field[8] = "";
  const std::size_t length = strnlen(at, digits);
  std::memcpy(field, at, length);
  at += length;
  return decimal(field);
}

void read_key(const char* text, const char* key, std::int32_t* number) {
  const char* found = std::strstr(text, key);
  const char* equals = found == nullptr ? nullptr : std::strchr(found, '=');
  if (equals != nullptr) {
    *number = decimal(equals + 1);
  }
}

} // namespace

int do_request_servertime(RcmContext* context) {
  if (!ask(*context, kServerTime, kServerTimeExchange)) {
    return kFailure;
  }
  PayloadText payload;
  read_payload(*context, payload);
  context->server_time = string2time(payload.text);
  context->server_time_uptime = system_uptime();
  return kSuccess;
}

int do_request_keeplive(RcmContext* context) {
  if (!ask(*context, kKeepaliveParam, kParametersExchange)) {
    return kFailure;
  }
  PayloadText payload;
  read_payload(*context, payload);
  string2keepalive(payload.text, &context->keepalive_interval, &context->keepalive_maxretries);
  // DELIBERATE: only negative numbers give way to the defaults; 0 is taken as it is.
  if (context->keepalive_interval < 0) {
    context->keepalive_interval = kDefaultInterval_s;
  }
  if (context->keepalive_maxretries < 0) {
    context->keepalive_maxretries = kDefaultMaxRetries;
  }
  return kSuccess;
}

std::int32_t string2time(const char* text) {
  const char* at = text;
  std::tm broken_down{};
  broken_down.tm_year = cut_number(at, 4) - 1900;
  broken_down.tm_mon = cut_number(at, 2) - 1;
  broken_down.tm_mday = cut_number(at, 2);
  broken_down.tm_hour = cut_number(at, 2);
  broken_down.tm_min = cut_number(at, 2);
  broken_down.tm_sec = cut_number(at, 2);
  broken_down.tm_isdst = -1;
  return static_cast<std::int32_t>(std::mktime(&broken_down));
}

void string2keepalive(const char* text, std::int32_t* interval, std::int32_t* maxretries) {
  read_key(text, "keepalive_interval", interval);
  read_key(text, "keepalive_maxretries", maxretries);
}

int format_time_string(std::int32_t seconds, char* destination) {
  const std::time_t time = seconds;
  std::tm utc{};
  gmtime_r(&time, &utc);
  char text[80];
  std::snprintf(text, sizeof text, "%4d%02d%02d%02d%02d%02d", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
  console("tmp = %s \n", text);
  std::memcpy(destination, text, kTimeDigits);
  return kSuccess;
}

} // namespace rcmd
