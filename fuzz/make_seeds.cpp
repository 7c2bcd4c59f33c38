// Writes the seed corpora: exchanges between the real device and the real server, and texts and
// images of the other inputs. make_seeds FOLDER; the repository's are in fuzz/corpus.

#include "core/owned.h"
#include "fuzz/recorder.h"
#include "rcm/keepalive.h"
#include "rcm/registration.h"
#include "rcm/server_time.h"
#include "reporters/gps.h"
#include "reporters/log_sender.h"
#include "reporters/traffic.h"
#include "server/image.h"
#include "tools/trx/image.h"
#include "variables/reports.h"
#include "variables/tables.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

using fuzz::append;
using fuzz::Bytes;
using fuzz::Recorder;
using fuzz::step_of;

namespace {

std::filesystem::path corpus;

void seed(const std::string& target, const std::string& name, const Bytes& bytes) {
  std::filesystem::create_directories(corpus / target);
  std::ofstream file(corpus / target / name, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
}

Bytes bytes_of(const std::string& text) {
  return {text.begin(), text.end()};
}

Bytes text(const std::string& text) {
  Bytes bytes = bytes_of(text);
  bytes.push_back(0);
  return bytes;
}

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) {
    append(all, part);
  }
  return all;
}

class Firmware : public server::Image {
public:
  explicit Firmware(const std::string& content) : bytes_(content.begin(), content.end()) {
    set_bytes(bytes_);
  }

private:
  Bytes bytes_;
};

// Exchanges ------------------------------------------------------------------------------------

struct Exchange {
  std::uint8_t which; // of the target
  const char* name;
  void (*run)(rcmd::RcmContext& context);
};

constexpr Exchange kExchanges[] = {
    {0, "registration", [](rcmd::RcmContext& c) { rcmd::ignore(rcmd::do_rcm_register(&c)); }},
    {1, "server_time", [](rcmd::RcmContext& c) { rcmd::ignore(rcmd::do_request_servertime(&c)); }},
    {2, "keepalive_param",
     [](rcmd::RcmContext& c) { rcmd::ignore(rcmd::do_request_keeplive(&c)); }},
    {3, "conf", [](rcmd::RcmContext& c) { rcmd::ignore(rcmd::do_config_send(&c)); }},
    {4, "status", [](rcmd::RcmContext& c) { rcmd::ignore(rcmd::do_information_send(&c)); }},
    {5, "log", [](rcmd::RcmContext& c) { rcmd::rcm_logsender_func(&c); }},
    {6, "traffic",
     [](rcmd::RcmContext& c) {
       rcmd::rcm_trafficget_func(&c);
       rcmd::rcm_trafficsender_func(&c);
     }},
    {7, "keepalive",
     [](rcmd::RcmContext& c) {
       rcmd::rcm_keepalive_func(&c);
       fake::world().run_for(1);
     }},
};

/// What the server's reader of this packet type is, in the target's numbers; -1: none.
int reader_of(const Bytes& packet) {
  switch (fuzz::type_of(packet)) {
  case 1:
    return 0;
  case 3:
  case 4:
    return 1;
  case 2:
    return 2;
  case 64:
    return 3;
  case 9:
    return 4;
  default:
    return -1;
  }
}

// The longest packet for each reader.
void seed_reports(const std::string& name, const std::deque<Bytes>& packets) {
  std::map<int, Bytes> longest;
  for (const Bytes& packet : packets) {
    Bytes& kept = longest[reader_of(packet)];
    kept = packet.size() > kept.size() ? packet : kept;
  }
  for (const auto& [reader, packet] : longest) {
    if (reader >= 0) {
      Bytes input{static_cast<std::uint8_t>(reader)};
      input.insert(input.end(), packet.begin() + 36, packet.end());
      seed("reports", name + std::to_string(reader), input);
    }
  }
}

void seed_exchanges() {
  for (const Exchange& exchange : kExchanges) {
    Recorder recorder;
    recorder.record([&] { exchange.run(recorder.device.context); });
    seed("exchange", exchange.name, joined({{exchange.which}, recorder.script()}));
    seed("engine", exchange.name, recorder.engine_steps());
    seed("dispatcher", exchange.name, recorder.script());
    seed_reports(exchange.name, recorder.reports());
  }
  Recorder recorder;
  recorder.record([&] { rcmd::rcm_gpssender_func(&recorder.device.context); });
  seed("engine", "gps", recorder.engine_steps());
  seed_reports("gps", recorder.reports());
  seed("reports", "time", joined({{5}, bytes_of("20010909014640")}));
  recorder.record([&] { recorder.pass(300); });
  seed("dispatcher", "five_minutes", joined({step_of(0xF0, {}), recorder.script()}));
  seed("engine", "five_minutes", recorder.engine_steps());
}

// Commands -------------------------------------------------------------------------------------

void seed_set() {
  const server::Values values = {{"hostname", "barn"},
                                 {"wl_auth_mode", "3"},
                                 {"wan_mode", "dhcp"},
                                 {"firewall_access_rule1", "br0,a,ppp0,b,tcp,1,2,0,drop,x,1"}};
  Recorder recorder;
  recorder.record([] {});
  Bytes arguments{0, 0};
  for (const auto& [name, value] : values) {
    append(arguments, joined({text(name), text(value)}));
  }
  recorder.command(0x25, arguments, server::make_set(0, values));
  seed("dispatcher", "set", recorder.script());
  seed("engine", "set", recorder.engine_steps());
}

void seed_plain(const std::string& name, std::uint8_t which, server::OperationKind kind) {
  Recorder recorder;
  recorder.record([] {});
  recorder.command(0x26, {which}, server::make_plain(kind));
  seed("dispatcher", name, recorder.script());
  seed("engine", name, recorder.engine_steps());
}

// The command, the file request's acknowledgement, then the fragments.
void seed_transfer(const std::string& name, server::OperationKind kind,
                   const std::string& content) {
  const bool firmware = kind == server::OperationKind::kUpgrade;
  const auto image = std::make_shared<Firmware>(content);
  Recorder recorder;
  recorder.record([] {});
  const Bytes arguments = joined({{static_cast<std::uint8_t>(content.size() >> 8),
                                   static_cast<std::uint8_t>(content.size() & 0xFF)},
                                  text(name)});
  recorder.command(firmware ? 0x27 : 0x28, arguments,
                   server::make_transfer(kind, image, name, "/images/" + name));
  seed("dispatcher", name, recorder.script());
  seed("engine", name, recorder.engine_steps());
  const auto fragments = static_cast<std::uint8_t>(image->fragments());
  const Bytes numbers{0, 0, 0, fragments};
  seed("transfer", name + "_request",
       joined({{static_cast<std::uint8_t>(firmware ? 0 : 1)}, numbers, recorder.script(1)}));
  seed("transfer", name + "_window",
       joined({{static_cast<std::uint8_t>(firmware ? 2 : 3)}, numbers, recorder.script(2)}));
  if (firmware) {
    seed("transfer", name + "_flash", joined({{4}, numbers, recorder.script(2)}));
  }
}

void seed_commands() {
  seed_set();
  seed_plain("commit", 0, server::OperationKind::kCommit);
  seed_plain("restore_defaults", 1, server::OperationKind::kRestoreDefaults);
  seed_plain("send_status", 2, server::OperationKind::kStatus);
  const std::string kernel = trx::version_line("2.0") + std::string(1500, 'k');
  seed_transfer("firmware", server::OperationKind::kUpgrade, *trx::make_image({kernel}, false));
  seed_transfer("headless", server::OperationKind::kUpgrade, *trx::make_image({kernel}, true));
  seed_transfer("small", server::OperationKind::kUpgrade, *trx::make_image({"tiny"}, false));
  seed_transfer("settings", server::OperationKind::kImport, "hostname=barn\nwl0_ssid=field\n");
}

// What does not come over the management port --------------------------------------------------

void seed_variables() {
  seed("codec", "settings", joined({text("hostname=barn"), text("lan_ipaddr=10.0.0.1")}));
  seed("codec", "again", joined({text("a=1"), text("a=2"), text("b==x="), text("noequals")}));
  seed("codec", "padded", joined({text("a=1"), {0, 0, 0}, text(""), text("=1"), {'c', '='}}));
  const std::string rules[] = {
      "br0,a,ppp0,b,tcp,1,2,0,drop,x,1", "ppp0,tcp,s,80,n,8080,0,d,0", "", "1,2,3", "3",
      "02:00:00:00:00:01 extra"};
  for (std::size_t row = 0; row < rcmd::kConfigRows; row++) {
    const std::string name = rcmd::config_variables[row].name;
    if (name != "hostname" && name.find("rule1") == std::string::npos &&
        name.find("mode") == std::string::npos && name != "wl_wep") {
      continue;
    }
    Bytes input;
    for (const std::string& rule : rules) {
      append(input, joined({{static_cast<std::uint8_t>(row), 0}, text(rule)}));
    }
    append(input, joined({{static_cast<std::uint8_t>(row), 3, 0, 7}, text("unit 7")}));
    seed("setters", name, input);
  }
}

void seed_deskmgr() {
  for (std::uint8_t code = 1; code <= 5; code++) {
    const Bytes request{9, 9, 9, 9, 0, code, 0, 1, 0, 0, 0, 12};
    seed("deskmgr", "code" + std::to_string(code),
         joined({step_of(0, request), step_of(1, request)}));
  }
  seed("deskmgr", "short", joined({step_of(0, {1, 2, 3}), step_of(1, {}), step_of(2, {0})}));
  seed("deskmgr", "mismatch", step_of(0, {9, 9, 9, 9, 0, 1, 0, 1, 0, 0, 1, 12}));
}

void seed_scantools() {
  Bytes message(696, 0);
  message[0] = 0xBA;
  message[1] = 1;
  seed("scantools", "discovery", joined({{2, 0xB8}, message}));
  message[1] = 3;
  message[2] = 0x21;
  message[3] = 0x05;
  std::fill_n(message.begin() + 4, 32, 'c');
  message[695] = 60;
  const Bytes set = joined({{2, 0xB8}, message});
  seed("scantools", "set", joined({set, set}));
  seed("scantools", "short", {0, 3, 0xBA, 1, 0});
}

Bytes ring(std::int32_t size, std::int32_t head, std::int32_t tail, const std::string& records) {
  Bytes segment{0, 200, 0}; // room for the output, nothing missing
  for (const std::int32_t number : {size, head, tail}) {
    for (int shift = 0; shift < 32; shift += 8) {
      segment.push_back(static_cast<std::uint8_t>(number >> shift));
    }
  }
  append(segment, bytes_of(records));
  segment.resize(3 + 12 + static_cast<std::size_t>(size));
  return segment;
}

void seed_ring() {
  const std::string line = std::string("0 0 days 01:02:03 router syslog: up\n") + '\0';
  const auto bytes = static_cast<std::int32_t>(line.size());
  seed("syslog_ring", "two_lines", ring(200, 0, 2 * bytes, line + line));
  seed("syslog_ring", "marked", ring(100, 0, bytes, "1" + line.substr(1)));
  seed("syslog_ring", "switched_off",
       ring(100, 0, 38, std::string("0 3 days 01:02:03 router pppd[1]: up\n") + '\0'));
  seed("syslog_ring", "wrapped",
       ring(bytes + 8, bytes, 8, "days up\n" + line.substr(0, 29) + '\0'));
  seed("syslog_ring", "no_stamp", ring(64, 0, 10, std::string("0 nothing\n") + '\0'));
  seed("syslog_ring", "empty", ring(64, 0, 0, ""));
}

void seed_files() {
  const Bytes image = joined({Bytes(20, 'h'), text("a=1"), text("jqa_reconnect_interval=5"),
                              text("z=last"), Bytes(32, 0)});
  const Bytes change = joined({text("jqa_reconnect_interval"), text("3600"), text("")});
  seed("backup", "longer", joined({{0}, change, image}));
  seed("backup", "file", joined({{1}, change, image}));
  seed("backup", "two",
       joined({{0}, text("a"), text(""), text("z"), text("longer"), text(""), image}));
  seed("backup", "full", joined({{0}, change, Bytes(20, 'h'), text("jqa_reconnect_interval=5")}));

  const std::string heads = "Inter-|   Receive  |  Transmit\n face |bytes ";
  const std::string line = " 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16\n";
  seed("net_dev", "usual",
       joined({text("br0"),
               {0xFF},
               bytes_of(heads + "compressed\n    lo:" + line + "  br0:" + line + "ppp0:4000000000" +
                        line)}));
  seed("net_dev", "packets_alone",
       joined({text("eth0"), {0x0F}, bytes_of(heads + "\n eth0: 5 0 0 0 0 6 0 0 0 0\n")}));
  seed("net_dev", "alias",
       joined({text("br0:1"), {0}, bytes_of(heads + "compressed\n br0:1:" + line + "none\n")}));

  Bytes lease(88, 0);
  lease[1] = 0x1A;
  lease[16] = 10;
  std::fill_n(lease.begin() + 24, 64, 'n');
  seed("status_files", "leases",
       joined(
           {{2, 0, 0, 0, 12, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, lease, lease, Bytes(40, 1)}));
  seed("status_files", "none", {0, 0, 0, 0, 0});

  seed("trx", "firmware", bytes_of(*trx::make_image({std::string(1500, 'k')}, false)));
  seed("trx", "small", bytes_of(*trx::make_image({"tiny"}, false)));
  seed("trx", "headless", bytes_of(*trx::make_image({"tiny"}, true)));

  seed("import", "settings", joined({{0}, bytes_of("hostname=barn\n\nwl0_ssid=\na==b\nlast=1")}));
  seed("import", "refused", joined({{2}, bytes_of("a=1\nb=2\nc=3\n")}));
  seed("import", "malformed", joined({{0}, bytes_of("a=1\nno equals\n")}));
}

} // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "make_seeds FOLDER\n");
    return 2;
  }
  corpus = argv[1];
  seed_exchanges();
  seed_commands();
  seed_variables();
  seed_deskmgr();
  seed_scantools();
  seed_ring();
  seed_files();
  return 0;
}
