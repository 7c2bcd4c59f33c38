#include "rcm/exchange.h"

#include "core/say.h"
#include "platform/api/net.h"
#include "platform/api/wait.h"
#include "rcm/packet.h"

#include <cstring>

namespace rcmd {

namespace {

bool seq_matches(const RcmContext& context, void*) {
  return rx_header(context).seq == context.seq;
}

void take_answer(RcmContext& context, const ExchangeRules& rules) {
  if (rules.copies_session_id) {
    std::memcpy(context.session_id, rx_header(context).session_id, sizeof context.session_id);
  }
  context.online = 1;
  context.retransmit_count = 0;
  if (rules.answer_clears_misses) {
    context.miss_count = 0;
  }
}

void take_failure(RcmContext& context, const ExchangeRules& rules) {
  if (rules.after_failure != Online::kUntouched) {
    context.online = rules.after_failure == Online::kSet ? 1 : 0;
  }
}

// Sends and waits once.
Answer attempt(RcmContext& context, std::size_t bytes, ExchangeWords words) {
  if (words.before_send != nullptr) {
    words.before_send(context);
  }
  if (!send_to_server(context, bytes)) {
    return Answer::kSendFailed;
  }
  const Answer answer = await_packet(context, seq_matches, nullptr);
  if (answer == Answer::kTimeout && words.at_timeout != nullptr) {
    diag("%s", words.at_timeout);
  }
  return answer;
}

} // namespace

Answer await_packet(RcmContext& context, PacketMatch matches, void* argument) {
  for (;;) {
    const int ready = waitfor(context.sock, kAnswerWait_s);
    if (ready <= 0) {
      return ready == 0 ? Answer::kTimeout : Answer::kWaitError;
    }
    const ssize_t received =
        net_recvfrom(context.sock, context.rx_buf, kBufferBytes, 0, nullptr, nullptr);
    if (received <= 0) {
      continue; // a failed read counts like a short datagram
    }
    if (check_packet(context.rx_buf, static_cast<std::size_t>(received)) == PacketCheck::kGood &&
        matches(context, argument)) {
      return Answer::kMatched;
    }
  }
}

Answer exchange(RcmContext& context, std::size_t bytes, const ExchangeRules& rules,
                ExchangeWords words) {
  Answer answer = attempt(context, bytes, words);
  int resends = 0;
  while (answer == Answer::kTimeout && (rules.resends == kEndless || resends < rules.resends)) {
    resends++;
    answer = attempt(context, bytes, words);
  }
  if (answer == Answer::kMatched) {
    take_answer(context, rules);
  } else {
    take_failure(context, rules);
  }
  return answer;
}

} // namespace rcmd
