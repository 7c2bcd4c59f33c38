// The management server of one device, and a computer on the device's network, in one: answers
// every report and sends the mix, as fast as the device takes it.
//
// The device reads in order. So every batch ends with a question, and its answer says that the
// whole batch has been read. Requests that the device read while it waited for something else stay
// unanswered, by the protocol's rules; the question is then asked again.
#pragma once

#include "tests/soak/mix.h"

#include <map>
#include <netinet/in.h>
#include <string>

namespace soak {

/// Of one kind of datagram.
struct Tally {
  long sent = 0;
  long due = 0;      ///< answers that a device gives which waits for nothing else
  long answered = 0; ///< never more than are due
};

class Load {
public:
  /// @param ip  of the device, host order; the server listens there as well
  Load(std::uint32_t ip, std::uint64_t seed);
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;
  ~Load();

  // These throw std::runtime_error when the device falls silent, or registers again.
  void enrol(); ///< until the device has registered and reported everything
  void batch();
  void ask_for_status();

  [[nodiscard]] long sent() const { return sent_; }
  [[nodiscard]] long answered() const { return answered_; }
  [[nodiscard]] const std::map<std::string, Tally>& tallies() const { return tallies_; }
  [[nodiscard]] long reports(server::Type type) const; ///< received

private:
  void send(const Datagram& datagram, std::uint32_t seq);
  void send_to(int fd, std::uint16_t port, const server::Bytes& bytes);
  void ask();
  void settle();
  bool wait(int limit_ms);
  void take_management();
  void take_packet(const server::Packet& packet);
  void take_reply(std::uint32_t seq);
  void take_report(const server::Packet& packet);
  void learn_from(const server::Packet& packet);
  void take_scantools();

  std::uint32_t ip_;
  int management_;
  int network_;
  Mix mix_;
  server::Session session_{1, 2, 3, 4, 5, 6, 7, 8};
  std::uint32_t seq_ = 0x80000000; ///< never one of the device's own
  std::uint32_t question_ = 0;     ///< the last one's number
  bool question_answered_ = false;
  bool enrolled_ = false;
  long sent_ = 0;
  long answered_ = 0;
  long scantools_due_ = 0;
  std::map<std::uint32_t, const char*> outstanding_; ///< kinds, by number
  std::map<std::string, Tally> tallies_;
  std::map<std::uint16_t, long> reports_;
};

} // namespace soak
