#include "tests/soak/load.h"

#include <array>
#include <cerrno>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace soak {

namespace {

constexpr std::uint16_t kServerPort = 1162;
constexpr int kBatch = 32;
constexpr int kPatience_ms = 100; ///< for one answer, before the question is asked again
constexpr int kSilences = 200;    ///< so often, before the device is given up
constexpr std::size_t kReceiveBytes = 65536;
constexpr char kScantools[] = "scan tools: discovery";
const std::string kText = "20270101000000;keepalive_interval=60;keepalive_maxretries=10";

sockaddr_in address_of(std::uint32_t ip, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(ip);
  address.sin_port = htons(port);
  return address;
}

int open_socket(std::uint32_t ip, std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const sockaddr_in address = address_of(ip, port);
  if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::system_error(errno, std::generic_category(), "the server's socket");
  }
  return fd;
}

} // namespace

Load::Load(std::uint32_t ip, std::uint64_t seed)
    : ip_(ip), management_(open_socket(ip, kServerPort)), network_(open_socket(ip, 0)), mix_(seed) {
}

Load::~Load() {
  close(management_);
  close(network_);
}

long Load::reports(server::Type type) const {
  const auto found = reports_.find(type);
  return found == reports_.end() ? 0 : found->second;
}

// Sending ---------------------------------------------------------------------------------------

void Load::send_to(int fd, std::uint16_t port, const server::Bytes& bytes) {
  const sockaddr_in to = address_of(ip_, port);
  const ssize_t result =
      sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
  if (result != static_cast<ssize_t>(bytes.size())) {
    throw std::system_error(errno, std::generic_category(), "sending");
  }
  sent_++;
}

void Load::send(const Datagram& datagram, std::uint32_t seq) {
  const bool management = datagram.port == Port::kManagement;
  Tally& tally = tallies_[datagram.kind];
  tally.sent++;
  if (datagram.answered) {
    tally.due++;
    if (management) {
      outstanding_[seq] = datagram.kind;
    } else {
      scantools_due_++;
    }
  }
  send_to(management ? management_ : network_, static_cast<std::uint16_t>(datagram.port),
          datagram.bytes);
}

void Load::ask() {
  question_ = seq_++;
  question_answered_ = false;
  send(mix_.question(question_), question_);
}

void Load::batch() {
  for (int i = 0; i < kBatch; i++) {
    const std::uint32_t seq = seq_++;
    send(mix_.next(seq), seq);
  }
  settle();
}

void Load::ask_for_status() {
  const std::uint32_t seq = seq_++;
  send(mix_.status_request(seq), seq);
  settle();
}

/// Until the device has read everything and waits for nothing.
void Load::settle() {
  ask();
  for (int silences = 0; !question_answered_ || scantools_due_ > 0;) {
    if (wait(kPatience_ms)) {
      continue;
    }
    if (++silences == kSilences) {
      throw std::runtime_error("the device has fallen silent");
    }
    ask();
  }
  outstanding_.clear(); // what the device read while it waited for something else
}

// Receiving -------------------------------------------------------------------------------------

/// @return false when nothing came
bool Load::wait(int limit_ms) {
  std::array<pollfd, 2> ready{{{management_, POLLIN, 0}, {network_, POLLIN, 0}}};
  const int count = poll(ready.data(), ready.size(), limit_ms);
  if (count < 0) {
    throw std::system_error(errno, std::generic_category(), "interrupted");
  }
  if (ready[0].revents != 0) {
    take_management();
  }
  if (ready[1].revents != 0) {
    take_scantools();
  }
  return count > 0;
}

void Load::take_management() {
  static std::array<std::uint8_t, kReceiveBytes> buffer;
  for (;;) {
    const ssize_t length = recv(management_, buffer.data(), buffer.size(), 0);
    if (length < 0) {
      return; // nothing more; or the report of a datagram that found nobody yet
    }
    const auto packet =
        server::parse_packet({ip_, static_cast<std::uint16_t>(Port::kManagement)},
                             server::View(buffer.data(), static_cast<std::size_t>(length)));
    if (!packet) {
      throw std::runtime_error("the device has sent something that is no packet");
    }
    take_packet(*packet);
  }
}

void Load::take_packet(const server::Packet& packet) {
  if (packet.flags == server::kReply) {
    take_reply(packet.seq);
  } else {
    take_report(packet);
  }
}

void Load::take_reply(std::uint32_t seq) {
  const auto found = outstanding_.find(seq);
  if (found == outstanding_.end()) {
    return; // of a question that was asked again
  }
  tallies_[found->second].answered++;
  answered_++;
  outstanding_.erase(found);
  question_answered_ = question_answered_ || seq == question_;
}

void Load::take_report(const server::Packet& packet) {
  reports_[packet.type]++;
  if (packet.type == server::kRegister) {
    if (enrolled_) {
      throw std::runtime_error("the device has registered again");
    }
    mix_.adopt(session_, packet.serial);
  }
  learn_from(packet);
  const bool question = packet.type == server::kRegister || packet.type == server::kServerTime ||
                        packet.type == server::kKeepaliveParam;
  const server::View payload = question ? server::view_of(kText) : server::View();
  const server::Header header = server::answer_header(packet, session_, server::crc16(payload),
                                                      static_cast<std::uint16_t>(payload.size()));
  server::Bytes answer(header.begin(), header.end());
  answer.insert(answer.end(), payload.begin(), payload.end());
  tallies_["answers to reports"].sent++;
  send_to(management_, static_cast<std::uint16_t>(Port::kManagement), answer);
  if (enrolled_ && packet.flags == server::kReport && packet.type != server::kKeepalive) {
    ask(); // the device has read the last one, if any, while it waited for this answer
  }
}

/// The settings that the device reports, once; the number of wireless stations is what it reports
/// last when it registers.
void Load::learn_from(const server::Packet& packet) {
  if (enrolled_ || (packet.type != server::kConf && packet.type != server::kStatus)) {
    return;
  }
  for (server::View rest = packet.payload.subspan(4); !rest.empty();) {
    const std::string record = server::text_of(rest);
    const auto equals = record.find('=');
    const std::string name = record.substr(0, equals);
    if (packet.type == server::kConf && equals != std::string::npos) {
      mix_.learn({name, record.substr(equals + 1)});
    }
    enrolled_ = enrolled_ || name == "wl0_sta_maxunit";
    rest = rest.subspan(std::min(record.size() + 1, rest.size()));
  }
}

void Load::take_scantools() {
  std::array<std::uint8_t, 1024> buffer;
  for (;;) {
    const ssize_t length = recv(network_, buffer.data(), buffer.size(), 0);
    if (length < 0) {
      return;
    }
    if (length != 696 || buffer[1] != 2) {
      throw std::runtime_error("a discovery was answered with something else");
    }
    tallies_[kScantools].answered++;
    answered_++;
    scantools_due_--;
  }
}

void Load::enrol() {
  for (int silences = 0; !enrolled_;) {
    if (!wait(kPatience_ms) && ++silences == kSilences) {
      throw std::runtime_error("the device does not register");
    }
  }
  if (mix_.settings() == 0) {
    throw std::runtime_error("the device has reported no settings");
  }
  settle();
}

} // namespace soak
