#include "fuzz/device.h"

#include "core/say.h"
#include "core/timers.h"
#include "reporters/netif.h"
#include "reporters/system_log.h"
#include "reporters/traffic.h"
#include "variables/codec.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sanitizer/asan_interface.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using fake::world;

namespace fuzz {

namespace {

constexpr std::uint16_t kDevicePort = 1161;
constexpr int kMostTime_s = 1200;
constexpr int kMostIdleWaits = 60;
constexpr int kMostFiles = 32; // open at once, of one run
constexpr std::size_t kHeaderBytes = 36;
constexpr std::uint16_t kConfigType = 257;

constexpr const char* kSettings[][2] = {
    {"rcm_log_interval", "30"},     {"wifi_supported", "1"},   {"wl_unit", "0"},
    {"wl0_ifname", "eth1"},         {"lan_ifname", "br0"},     {"wan0_ifname", "ppp0"},
    {"wan0_ipaddr", "10.20.30.40"}, {"gps_lat", "5230.1234N"}, {"gps_long", "01322.4321E"},
    {"rcm_log_pppd", "0"},          {"wwan_tx_bytes", "1000"}, {"wwan_rx_bytes", "2000"},
    {"hostname", "router"},         {"wl0_ssid", "office"},    {"wl0_macmode", "deny"},
    {"lan0_ifname", "br0"},         {"product_model", "R100"}, {"firewall_access0_status", "2"},
};

constexpr char kInterfaces[] =
    "Inter-|   Receive                                                |  Transmit\n"
    " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs "
    "drop fifo colls carrier compressed\n"
    "    lo:    4000      40    0    0    0     0          0         0     4000      40    0    0 "
    "   0     0       0          0\n"
    "   br0: 1200345    2345    1    0    0     0          0         0   890123    1234    2    0 "
    "   0     3       0          0\n"
    "  ppp0: 5500345    6345    0    0    0     0          0         0   190123    4234    0    0 "
    "   0     0       0          0\n";

constexpr char kPartitions[] = "dev:    size   erasesize  name\n"
                               "mtd0: 00040000 00010000 \"boot\"\n"
                               "mtd1: 00780000 00010000 \"linux\"\n";

/// A disk would take longer over the files of one run than everything else.
std::string temporary_folder() {
  const char* wanted = std::getenv("TMPDIR");
  if (wanted != nullptr) {
    return wanted;
  }
  return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}

/// Where the pretend router's files lie, for the whole process.
class Folder {
public:
  Folder() {
    path_ = temporary_folder() + "/fuzz-router-XXXXXX";
    demand(mkdtemp(path_.data()) != nullptr, "there is a temporary folder");
    for (const char* folder : {"tmp", "proc/net", "dev/mtd"}) {
      std::filesystem::create_directories(path_ + "/" + folder);
    }
    write("/proc/net/dev", kInterfaces, sizeof kInterfaces - 1);
    write("/proc/mtd", kPartitions, sizeof kPartitions - 1);
    write("/dev/mtd/1", "", 0);
    Bytes lease(88, 0);
    std::memcpy(lease.data(), "\x00\x1A\x2B\x3C\x4D\x5E", 6);
    std::memcpy(lease.data() + 16, "\xC0\xA8\x01\x64\x00\x00\x0E\x10laptop", 14);
    write("/tmp/udhcpd.leases", lease.data(), lease.size());
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  void write(const std::string& device_path, const void* content, std::size_t size) {
    std::ofstream file(path_ + device_path, std::ios::binary | std::ios::trunc);
    file.write(static_cast<const char*>(content), static_cast<std::streamsize>(size));
  }
  [[nodiscard]] const std::string& path() const { return path_; }

private:
  std::string path_;
};

Folder& folder() {
  static Folder the_folder;
  return the_folder;
}

/// Two lines of the device's log, one of them of a source that is switched off.
void* log_ring() {
  static char segment[12 + 512];
  std::memset(segment, 0, sizeof segment);
  const std::string lines = std::string("0 0 days 00:01:02 router syslog: link up\n") + '\0' +
                            "0 0 days 00:01:03 router pppd[12]: hello\n" + '\0';
  const std::int32_t header[3] = {512, 0, static_cast<std::int32_t>(lines.size())};
  std::memcpy(segment, header, sizeof header);
  std::memcpy(segment + sizeof header, lines.data(), lines.size());
  return segment;
}

int answer_driver(const std::string&, int command, void* buffer, int length) {
  const std::uint8_t stations[] = {2, 0, 0, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  const std::int32_t strength = -60;
  if (command == 262 && length >= static_cast<int>(sizeof stations)) {
    std::memcpy(buffer, stations, sizeof stations);
  } else if (command == 127) {
    std::memcpy(buffer, &strength, sizeof strength);
  }
  return 0;
}

alignas(8) std::uint8_t rx_buf[rcmd::kBufferBytes + rcmd::kRxGuardBytes];
std::uint8_t tx_buf[rcmd::kBufferBytes];

/// The daemon lives as long as its process and keeps a few things; a run begins without them.
void forget_earlier_runs(rcmd::RcmContext& context) {
  rcmd::init_cgi(nullptr, 0);
  rcmd::netif_fina();
  try {
    rcmd::log_error_exit(""); // gives the ring back
  } catch (const fake::Exited&) {
  }
  if (rcmd::traffic_log().sample_count > 0) {
    world().send_fails = [](const fake::Datagram&) { return true; };
    rcmd::rcm_trafficsender_func(&context);
    world().send_fails = nullptr;
  }
}

} // namespace

void write_file(const std::string& device_path, const Bytes& content) {
  folder().write(device_path, content.data(), content.size());
}

void make_world() {
  fake::reset();
  world().root_ = folder().path();
  for (const auto& [name, value] : kSettings) {
    world().nvram[name] = value;
  }
  world().on_wireless = answer_driver;
  world().ring = log_ring();
  world().ring_bytes = 12 + 512;
}

void end_world() {
  world().root_.clear(); // the folder stays for the next run
  fake::reset();
}

Device::Device(Input input) : input_(input) {
  std::memset(rx_buf, 0, sizeof rx_buf);
  std::memset(tx_buf, 0, sizeof tx_buf);
  make_world();
  rcmd::debug = 1;
  rcmd::gps_send_interval = 60;
  context.in_use = 1;
  context.sock = world().make_socket(kDevicePort);
  context.server_addr = fake::address("127.0.0.1", 1162);
  std::memcpy(context.session_id, "SESSION1", 8);
  std::memcpy(context.serial, "SN0123456789", 12);
  std::memcpy(context.domain, "example", 7);
  std::memcpy(context.firmware_version, "1.0", 3);
  context.online = 1;
  context.keepalive_interval = 120;
  context.keepalive_maxretries = 10;
  context.rx_buf = rx_buf;
  context.tx_buf = tx_buf;
  for (RcmTimer* timer : {&rcmd::rcm_keepalive, &rcmd::rcm_retransmit, &rcmd::rcm_logsender,
                          &rcmd::rcm_gpssender, &rcmd::rcm_trafficget, &rcmd::rcm_trafficsender}) {
    timer->arg = &context;
  }
  forget_earlier_runs(context);
  world().waitfor_result = [this](int, int seconds) { return wait(seconds); };
  world().net_call_fails = [this](const std::string& call) {
    return call == "recv" && receive_fails();
  };
  world().send_fails = [this](const fake::Datagram& sent) {
    const std::uint16_t type = type_of(sent.bytes);
    return over_ && (type == 6 || type == 12);
  };
}

Device::~Device() {
  ASAN_UNPOISON_MEMORY_REGION(rx_buf, sizeof rx_buf);
  rcmd::debug = 0;
  rcmd::netif_fina();
  end_world();
}

void Device::run(const std::function<void()>& action) {
  const int first_free = dup(STDERR_FILENO);
  close(first_free);
  try {
    action();
  } catch (const fake::Restarted&) {
  } catch (const fake::Exited&) {
  } catch (const WaitsForEver&) {
    // The daemon is built without exceptions: what it had open stays so. It opens plain files; the
    // sanitizers' symbolizer, which may be behind them, is reached through pipes.
    for (int fd = first_free; fd < first_free + kMostFiles; fd++) {
      struct stat facts = {};
      if (fstat(fd, &facts) == 0 && S_ISREG(facts.st_mode)) {
        close(fd);
      }
    }
  }
}

void Device::arm_timers() {
  rcmd::rearm(rcmd::rcm_keepalive, context.keepalive_interval);
  rcmd::rearm(rcmd::rcm_logsender, 30);
  rcmd::rearm(rcmd::rcm_gpssender, rcmd::gps_send_interval);
  rcmd::rearm(rcmd::rcm_trafficget, 40);
  rcmd::rearm(rcmd::rcm_trafficsender, 300);
}

void Device::play() {
  while (auto step = next()) {
    if (step->after_s > 0 && world().now_ms < kMostTime_s * 1000) {
      world().run_for(step->after_s);
    }
    if ((step->bits & kSilence) != 0) {
      continue;
    }
    next_receive_fails_ = (step->bits & kFails) != 0;
    step->bits |= kForeignSeq; // nothing is being waited for
    step->after_s = 0;
    arrive(std::move(*step));
    world().serve_ready();
    next_receive_fails_ = false;
  }
}

std::optional<Step> Device::next() {
  if (input_.empty()) {
    over_ = true;
    return std::nullopt;
  }
  const std::uint8_t control = input_.byte();
  const std::uint16_t length = input_.u16();
  return Step{static_cast<std::uint8_t>(control & 0x0F), kDelays_s[control >> 4],
              input_.bytes(length)};
}

void Device::arrive(Step step) {
  if ((step.bits & kForeignSeq) == 0) {
    put_seq(step.datagram, context.seq);
  }
  if ((step.bits & kRaw) == 0) {
    mend(step.datagram);
  }
  world().deliver(kDevicePort, step.datagram, step.after_s * 1000);
}

// Before a datagram is received: closes the buffer behind it.
bool Device::receive_fails() {
  if (std::exchange(next_receive_fails_, false)) {
    return true;
  }
  const auto& inbox = world().sockets[context.sock].inbox;
  ASAN_UNPOISON_MEMORY_REGION(rx_buf, sizeof rx_buf);
  if (!inbox.empty() && type_of(inbox.front().bytes) != kConfigType) {
    const std::size_t taken = std::min(inbox.front().bytes.size(), rcmd::kBufferBytes);
    ASAN_POISON_MEMORY_REGION(rx_buf + taken, sizeof rx_buf - taken);
  }
  return false;
}

// What the platform's wait gives; INT_MIN: what it would give anyway.
int Device::wait(int seconds) {
  if (!world().sockets[context.sock].inbox.empty()) {
    return INT_MIN;
  }
  auto step = next();
  if (!step) {
    return answer();
  }
  if ((step->bits & kFails) != 0) {
    return -1;
  }
  if ((step->bits & kSilence) != 0) {
    world().advance_to(world().now_ms + seconds * 1000);
    return 0;
  }
  arrive(std::move(*step));
  return INT_MIN;
}

// The good server acknowledges the last packet, once.
int Device::answer() {
  if (world().sent.size() == answered_) {
    if (++idle_waits_ > kMostIdleWaits) {
      throw WaitsForEver{};
    }
    return INT_MIN;
  }
  idle_waits_ = 0;
  answered_ = world().sent.size();
  Bytes reply = world().sent.back().bytes;
  if (reply.size() >= kHeaderBytes) {
    reply.resize(kHeaderBytes);
    reply[30] = 0;
    reply[31] = 1;
    mend(reply);
    world().deliver(kDevicePort, reply);
  }
  return INT_MIN;
}

} // namespace fuzz
