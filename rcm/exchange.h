// Exchanges: send the packet in tx_buf, wait for its answer, send again. One piece of code for all;
// what differs between them on purpose stands side by side in the table below.
//
// DELIBERATE: the answer is the first good packet whose `seq` is the context's; its type, flags and
// sender are not looked at. Everything else that arrives meanwhile is read and dropped: it never
// counts as a send, and each wait of 5 seconds starts afresh behind it.
#pragma once

#include "core/context.h"

#include <cstddef>

namespace rcmd {

constexpr int kAnswerWait_s = 5;

enum class Answer { kMatched, kTimeout, kWaitError, kSendFailed };

enum class Online { kUntouched, kClear, kSet };

struct ExchangeRules {
  bool copies_session_id; ///< bytes 0-7 of the answer become the context's session_id
  int resends;            ///< after that many more sends a time-out ends it; kEndless: never
  bool answer_clears_misses;
  Online after_failure; ///< what a failed send, a wait error or the last time-out does to `online`
};
constexpr int kEndless = -1;

// Every answer sets `online` to 1 and `retransmit_count` to 0.
// DELIBERATE: none advances `seq`, unlike an acknowledgement that the dispatcher takes: where the
// caller does not, the next packet leaves under the same number.
//                                                   session  resends  misses  after failure
inline constexpr ExchangeRules kRegisterExchange = {true, kEndless, true, Online::kUntouched};
inline constexpr ExchangeRules kServerTimeExchange = {true, 3, false, Online::kClear};
inline constexpr ExchangeRules kParametersExchange = {true, 3, false, Online::kClear};
inline constexpr ExchangeRules kReportExchange = {true, 3, false, Online::kUntouched};
inline constexpr ExchangeRules kLogExchange = {false, 3, false, Online::kSet};
inline constexpr ExchangeRules kTrafficExchange = {false, 3, false, Online::kClear};

/// What a caller of exchange() says before each send and at each time-out; both may be null.
struct ExchangeWords {
  void (*before_send)(const RcmContext& context);
  const char* at_timeout;
};

/// Sends the first `bytes` of tx_buf and waits for the answer, which then stands in rx_buf.
/// tx_length is the caller's business, and `seq` is never advanced.
[[nodiscard]] Answer exchange(RcmContext& context, std::size_t bytes, const ExchangeRules& rules,
                              ExchangeWords words = {nullptr, nullptr});

/// Looks at a good packet in rx_buf. @return true when it is the one that is waited for
using PacketMatch = bool (*)(const RcmContext& context, void* argument);

/// The wait inside every exchange, for those that match their answer otherwise: waits until
/// `matches` accepts a packet. @return kMatched, kTimeout or kWaitError
[[nodiscard]] Answer await_packet(RcmContext& context, PacketMatch matches, void* argument);

} // namespace rcmd
