#include "tests/simulation/router.h"

#include "core/context.h"
#include "core/startup.h"
#include "core/timers.h"
#include "reporters/netif.h"
#include "server/wire.h"
#include "tests/simulation/daemon_state.h"
#include "tests/simulation/libc_calls.h"
#include "variables/tables.h"

#include <arpa/inet.h>
#include <cstdio>
#include <getopt.h>

using fake::world;

namespace sim {

namespace {

constexpr char kServerName[] = "rcm.example";
constexpr char kServerAddress[] = "10.0.0.1";
constexpr std::uint16_t kServerPort = 1162;
constexpr std::size_t kMostQueued = 200;  ///< datagrams in a socket's receive buffer
constexpr int kMostCallsAtOnce = 100'000; ///< while no time passes
constexpr std::size_t kContextBlocks = 3;
constexpr std::size_t kDaemonSockets = 3;
constexpr const char* kTemporary[] = {"/tmp/firmware.download", "/tmp/config.download",
                                      "/tmp/nvram.backup", "/tmp/udhcpd.leases"};

std::set<std::string> plain_keys() {
  std::set<std::string> keys;
  for (const rcmd::VariableEntry* row = rcmd::config_variables; row->name != nullptr; row++) {
    const std::string name = row->name;
    const std::size_t rule = name.find("_rule");
    if (row->scope != rcmd::kPlain) {
      continue;
    }
    if (name.starts_with("lan_dhcp_rule")) {
      keys.insert("lan_dhcp" + name.substr(13) + "_rule");
    } else if (rule != std::string::npos) {
      keys.insert(name.substr(0, rule) + name.substr(rule + 5) + "_status");
    } else {
      keys.insert(name);
    }
  }
  return keys;
}

const char* resolve(const std::string& text, in_addr* address, bool fails) {
  if (inet_pton(AF_INET, text.c_str(), address) == 1) {
    return nullptr;
  }
  if (fails || text != kServerName) {
    return "name lookup failed";
  }
  inet_pton(AF_INET, kServerAddress, address);
  return nullptr;
}

} // namespace

Router::Router(std::uint64_t seed, const Faults& faults, Chronicle& chronicle)
    : random_(seed, 4), faults_(faults), chronicle_(chronicle), ledger_(faults, chronicle),
      scenery_(seed, faults, ledger_, chronicle), reports_(scenery_, ledger_, chronicle),
      flash_(chronicle), debug_(random_.percent(10)), plain_keys_(plain_keys()) {
  ledger_.deliver_router(scenery_.factory_settings());
  backup_ = "NVBK" + std::string(16, '\7') + "SN=" + value_of(ledger_.live(), "SN");
  backup_ += std::string(1, '\0') + "jqa_reconnect_interval=60";
  backup_.resize(4096, '\0');
  wire();
}

void Router::wire() {
  fake::World& w = world();
  w.recording = false;
  w.on_call = [this](const std::string& event) { call(event); };
  w.on_send = [this](const fake::Datagram& datagram) {
    if (attempted(datagram)) {
      on_send(datagram.bytes);
    }
  };
  w.on_receive = [this](const fake::Datagram& datagram) {
    if (world().sockets[datagram.fd].port == 1161) {
      last_request_ = datagram.bytes;
      ledger_.read(datagram.bytes);
    } else {
      lan_message_ = datagram.bytes;
    }
  };
  w.send_fails = [this](const fake::Datagram& datagram) {
    const bool fails = random_.percent(faults_.send_fails);
    if (fails) {
      chronicle_.count("sends that failed");
      attempted(datagram);
      request_failed_ = request_failed_ || server::u16_at(datagram.bytes, 30) == 2;
    }
    return fails;
  };
  w.waitfor_result = [this](int, int) {
    return random_.percent(faults_.wait_fails) ? -1 : INT32_MIN;
  };
  w.on_tool = [this](const fake::ToolRun& run) { return start_tool(run); };
  w.on_wait = [this](const fake::ToolRun& run) { return await_tool(run); };
  w.on_nvram_get = [this](const std::string& key) {
    reports_.nvram_read(key);
    count_texts(key);
  };
  w.on_check_memory = [this](std::uint32_t) { return faults_.memory_low ? 0 : 1; };
  w.on_resolve = [this](const std::string& text, in_addr* address) {
    return resolve(text, address, faults_.name_lookup_fails);
  };
  w.on_do_fd = [this] { return loop(); };
}

void Router::live() {
  try {
    boot();
    run();
    chronicle_.violated("the daemon's loop ended");
  } catch (const PowerCut&) {
    chronicle_.tell("the power goes");
    chronicle_.count("power cuts");
  } catch (const fake::Restarted&) {
    chronicle_.tell("the device restarts");
    chronicle_.count("restarts asked for");
    ledger_.restarted();
  } catch (const fake::Exited& exited) {
    chronicle_.violated("the daemon ended with status %d", exited.status);
  }
  end_life();
}

void Router::boot() {
  fake::World& w = world();
  w.sockets.clear();
  w.watches.clear();
  w.due.clear();
  w.started.clear();
  w.firing = nullptr;
  for (const char* path : kTemporary) {
    std::remove(w.path(path).c_str());
  }
  wan_is_up_ = false;
  is_held_ = false;
  request_failed_ = false;
  file_asked_ = {};
  calls_left_ = -1;
  const std::string version = flash_.boot();
  w.advance_to(w.now_ms + random_.between(15'000, 60'000));
  w.uptime_base = static_cast<std::int32_t>(-(w.now_ms / 1000) + 15);
  ledger_.boot();
  scenery_.boot(version);
  reports_.boot();
  wan_is_up_ = true;
  started_ms_ = w.now_ms;
  chronicle_.count("boots");
  chronicle_.tell("the device is up with firmware %s", version.c_str());
}

void Router::run() {
  restore_daemon_state();
  texts_ = 0;
  lan_reads_ = 0;
  reports_began_ = false;
  std::vector<std::string> arguments = {"rcmd", "-m", "simulation", "-s", kServerName};
  if (debug_) {
    arguments.emplace_back("-d");
  }
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  optind = 0; // the C library's own memory of a command line
  begin_holdings();
  is_running_ = true;
  rcmd::run_daemon(static_cast<int>(arguments.size()), argv.data());
}

void Router::end_life() {
  is_running_ = false;
  if (!block_guards_stand()) {
    chronicle_.violated("bytes behind a block were written");
  }
  end_holdings();
}

int Router::loop() {
  fake::World& w = world();
  for (;;) {
    w.serve_ready();
    check_idle();
    w.advance_to(w.next_event_ms(w.now_ms + 3'600'000));
  }
}

void Router::cut_power(int calls) {
  if (calls == 0 || !is_running_) {
    throw PowerCut{};
  }
  calls_left_ = calls;
}

bool Router::download_failed() const {
  return request_failed_ || holdings().short_writes > 0;
}

void Router::call(const std::string& event) {
  if (is_running_ && calls_left_ >= 0 && calls_left_-- == 0) {
    throw PowerCut{};
  }
  calls_at_once_ = world().now_ms == last_call_ms_ ? calls_at_once_ + 1 : 0;
  last_call_ms_ = world().now_ms;
  if (calls_at_once_ > kMostCallsAtOnce) {
    chronicle_.violated("the daemon spins: %s", event.c_str());
  }
  if (event == "nvram_commit") {
    ledger_.committing();
  } else if (event == "restart 01234567") {
    ledger_.restart_follows();
  }
}

void Router::receive(std::uint16_t port, const fake::Bytes& datagram, bool altered,
                     const std::string& from, std::uint16_t from_port) {
  for (auto& [fd, socket] : world().sockets) {
    if (socket.port == port && socket.inbox.size() < kMostQueued) {
      if (altered && server::parse_packet({}, datagram)) {
        chronicle_.count("explained: altered datagrams that the checksum let pass");
        reports_.distrust_times();
      }
      socket.inbox.push_back({fd, datagram, fake::address(from, from_port), world().now_ms, 0});
      return;
    }
  }
}

// A send that fails tells as much of what the daemon did as one that succeeds.
bool Router::attempted(const fake::Datagram& datagram) {
  if (ntohs(datagram.peer.sin_port) != kServerPort) {
    // To the LAN's tool: the reply to a set follows its carrying out.
    if (datagram.bytes.size() == 696 && datagram.bytes[1] == 4) {
      ledger_.answered_lan_tool(lan_message_);
    }
    return false;
  }
  const std::uint16_t type = server::u16_at(datagram.bytes, 28);
  const std::uint16_t flags = server::u16_at(datagram.bytes, 30);
  if (flags == 1) {
    answered(datagram);
  }
  reports_.sent(datagram.bytes, scenery_);
  if (flags == 2 && (type == 8 || type == 13)) {
    file_asked_ = {type, std::string(datagram.bytes.begin() + 44, datagram.bytes.end()),
                   world().now_ms};
  } else if (flags == 2) {
    file_asked_.last_ms = world().now_ms;
  }
  return true;
}

void Router::answered(const fake::Datagram& datagram) {
  const std::uint16_t type = server::u16_at(datagram.bytes, 28);
  const std::uint32_t seq = server::u32_at(datagram.bytes, 24);
  if (type != server::u16_at(last_request_, 28) || seq != server::u32_at(last_request_, 24)) {
    chronicle_.violated("the device answers a request of type %u that it did not read", type);
  }
  chronicle_.tell("the device answers a request of type %u, seq %08x", type, seq);
  chronicle_.count("requests answered");
  if ((type == 256 || type == 261) && server::u16_at(last_request_, 38) == 0) {
    chronicle_.count("explained: a file of no fragments, which never ends");
    is_held_ = true;
  }
  ledger_.answered(type);
  on_answer(seq, type);
}

int Router::start_tool(const fake::ToolRun& run) {
  const std::string line = run.line();
  if (!line.starts_with("killall -")) {
    chronicle_.tell("tool %s", line.c_str());
  }
  if (run.arguments[0] == "mtd") {
    return faults_.flash_tool_missing ? 127 : 0;
  }
  if (run.arguments[0] == "nvram") {
    return faults_.nvram_tool_missing ? 127 : 0;
  }
  if (random_.percent(faults_.tool_fails)) {
    chronicle_.count("tools that failed");
    return 1;
  }
  if (line == "killall pppd") {
    wan_is_up_ = false; // until the next boot
  } else if (line == "killall -16 udhcpd") {
    scenery_.write_leases();
  } else if (run.arguments[0] == "nvram_mtd_read") {
    world().write_file("/tmp/nvram.backup", backup_);
  } else if (run.arguments[0] == "nvram_mtd_write") {
    const std::string written = world().read_file("/tmp/nvram.backup");
    if (written.size() != backup_.size() || written.substr(0, 20) != backup_.substr(0, 20)) {
      chronicle_.violated("the backup image lost its size or its header");
    }
    backup_ = written;
  }
  return 0;
}

int Router::await_tool(const fake::ToolRun& run) {
  if (run.arguments[0] == "mtd") {
    return flash_.upgrade(world().read_file("/tmp/firmware.download"));
  }
  world().advance_to(world().now_ms + 300);
  const std::string text = world().read_file("/tmp/config.download");
  on_import(text);
  Settings settings = world().nvram;
  const bool stored = !faults_.nvram_full && apply_import(settings, text);
  if (stored) {
    world().nvram = settings;
  }
  ledger_.imported(text);
  chronicle_.count("imports");
  return stored ? 0 : 1;
}

void Router::count_texts(const std::string& key) {
  reports_began_ = reports_began_ || key == "console"; // start-up reads one of the keys as well
  if (reports_began_ && plain_keys_.contains(key)) {
    texts_++;
  }
  if (key == "lan_ifname") { // read for three of the five plain rows of a STATUS report
    const bool shared = lan_reads_ == 0 && !scenery_.has_interface(value_of(ledger_.live(), key));
    lan_reads_ = (lan_reads_ + 1) % 3;
    texts_ += shared ? 0 : lan_reads_ == 0 ? 3 : 1;
  }
}

void Router::check_idle() {
  const Holdings held = holdings();
  std::size_t expected = kContextBlocks + texts_;
  for (const rcmd::NetIf* at = rcmd::interface_list; at != nullptr; at = at->next) {
    expected += 3;
  }
  if (held.blocks != expected) {
    chronicle_.violated("the daemon holds %zu blocks of memory where %zu are explained",
                        held.blocks, expected);
  }
  if (held.descriptors + held.streams + held.mappings != 0 ||
      world().sockets.size() > kDaemonSockets || world().readers != 0) {
    chronicle_.violated("the daemon holds %zu files, %zu streams, %zu mappings, %zu sockets",
                        held.descriptors, held.streams, held.mappings, world().sockets.size());
  }
  const auto* context = static_cast<const rcmd::RcmContext*>(rcmd::rcm_keepalive.arg);
  for (std::size_t i = 0; i < rcmd::kRxGuardBytes; i++) {
    if (context->rx_buf[rcmd::kBufferBytes + i] != 0) {
      chronicle_.violated("bytes behind the receive buffer were written");
    }
  }
}

} // namespace sim
