#include "tests/simulation/ledger.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>

namespace sim {

namespace {

constexpr std::uint16_t kConfig = 257;
constexpr std::uint16_t kCommitReboot = 258;
constexpr std::uint16_t kRestoreDefaults = 259;
constexpr const char* kIdentity[] = {"SN", "version_firmware", "product_model", "et0macaddr"};

unsigned be16_at(const char* bytes) {
  return static_cast<unsigned>(static_cast<unsigned char>(bytes[0]) << 8 |
                               static_cast<unsigned char>(bytes[1]));
}

std::string dotted(const fake::Bytes& message, std::size_t at) {
  return std::to_string(message[at]) + "." + std::to_string(message[at + 1]) + "." +
         std::to_string(message[at + 2]) + "." + std::to_string(message[at + 3]);
}

} // namespace

void Ledger::deliver_router(const Settings& factory) {
  factory_ = factory;
  committed_ = factory;
  live_ = factory;
  fake::world().nvram = factory;
  fake::world().committed = factory;
}

void Ledger::boot() {
  fake::World& world = fake::world();
  world.nvram = world.committed; // the power took what was not committed
  compare(committed_, world.nvram, "after power-on, nvram", "power-on");
  if (value_of(committed_, "restore_defaults") == "1") {
    Settings settings = factory_;
    for (const char* name : kIdentity) {
      settings[name] = value_of(committed_, name);
    }
    committed_ = world.committed = world.nvram = settings;
    chronicle_.count("factory settings restored");
  }
  live_ = committed_;
  rx_.fill(0);
  commit_explained_ = restart_explained_ = false;
}

void Ledger::software_sets(const std::string& key, const std::string& value) {
  fake::world().nvram[key] = value;
  live_[key] = value;
}

void Ledger::set(const std::string& key, const std::string& value) {
  if (!faults_.nvram_full) {
    live_[key] = value;
  }
}

void Ledger::read(const fake::Bytes& datagram) {
  std::copy_n(datagram.begin(), std::min(datagram.size(), rx_.size() - 8), rx_.begin());
}

void Ledger::answered(std::uint16_t type) {
  switch (type) {
  case kConfig: {
    Settings settings = live_;
    const unsigned length = be16_at(&rx_[34]); // the prefix is counted, and not skipped
    apply_records(settings, be16_at(&rx_[38]), &rx_[40], length < 4 ? 0 : length);
    if (!faults_.nvram_full) {
      live_ = std::move(settings);
    }
    compare("a CONFIG request");
    break;
  }
  case kRestoreDefaults:
    set("restore_defaults", "1");
    [[fallthrough]];
  case kCommitReboot:
    commit_explained_ = restart_explained_ = true;
    break;
  default:
    break;
  }
}

void Ledger::imported(const std::string& text) {
  if (faults_.nvram_full) {
    chronicle_.count("imports that a full nvram refused");
  } else if (!apply_import(live_, text)) {
    chronicle_.count("imports of a malformed file, refused whole");
  }
  commit_explained_ = restart_explained_ = true;
  compare("an import");
}

void Ledger::answered_lan_tool(const fake::Bytes& message) {
  const unsigned fields = static_cast<unsigned>(message[2] << 8 | message[3]);
  if ((fields & 1U) != 0) {
    const auto* text = reinterpret_cast<const char*>(&message[4]);
    const std::string community(text, strnlen(text, 32));
    set("snmp_ro_sec", community);
    set("snmp_rw_sec", community);
  }
  if ((fields & 4U) != 0) {
    set("lan0_ipaddr", dotted(message, 44));
  }
  if ((fields & 0x100U) != 0) {
    set("lan0_ipaddr", dotted(message, 600));
  }
  if ((fields & 0x2000U) != 0) {
    std::uint32_t interval = 0;
    std::memcpy(&interval, &message[692], 4);
    set("jqa_reconnect_interval", std::to_string(static_cast<std::int32_t>(ntohl(interval))));
  }
  commit_explained_ = restart_explained_ = true;
  compare("a message of the LAN's tool");
}

void Ledger::committing() {
  if (!commit_explained_) {
    chronicle_.violated("nvram is committed, and nobody asked for it");
  }
  compare("a commit");
  if (fake::world().commit_result == 0) {
    committed_ = live_;
    chronicle_.count("commits");
  } else {
    chronicle_.count("commits that failed");
  }
}

void Ledger::restarted() {
  if (!restart_explained_) {
    chronicle_.violated("the device is restarted, and nobody asked for it");
  }
}

void Ledger::compare(const char* when) const {
  compare(live_, fake::world().nvram, "nvram", when);
}

void Ledger::compare(const Settings& expected, const Settings& found, const char* what,
                     const char* when) const {
  if (expected == found) {
    return;
  }
  for (const auto& [key, value] : expected) {
    const auto at = found.find(key);
    if (at == found.end() || at->second != value) {
      chronicle_.violated("%s: %s holds %s=\"%s\", not \"%s\"", when, what, key.c_str(),
                          at == found.end() ? "(nothing)" : at->second.c_str(), value.c_str());
    }
  }
  for (const auto& [key, value] : found) {
    if (!expected.contains(key)) {
      chronicle_.violated("%s: %s holds %s=\"%s\", which nobody set", when, what, key.c_str(),
                          value.c_str());
    }
  }
}

} // namespace sim
