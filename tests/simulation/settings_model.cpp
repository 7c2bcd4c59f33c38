#include "tests/simulation/settings_model.h"

#include "variables/tables.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace sim {

namespace {

const std::vector<std::string> kAccess = {"indev",     "from_ip", "outdev", "to_ip",  "protocol",
                                          "startport", "endport", "log",    "action", "desc"};
const std::vector<std::string> kForwarding = {"interface", "protocol",  "srcip",  "externalport",
                                              "natip",     "localport", "autofw", "desc"};
const std::vector<std::string> kMacModes = {"disabled", "deny", "allow"};

struct Rule {
  std::string stem; ///< "firewall_access3_"
  const std::vector<std::string>* fields = nullptr;
};

/// @return no fields when the name is not a firewall rule's
Rule rule_of(const std::string& name) {
  for (const char* kind : {"firewall_access", "firewall_portforwarding"}) {
    const std::string prefix = std::string(kind) + "_rule";
    if (name.starts_with(prefix)) {
      const bool access = std::strcmp(kind, "firewall_access") == 0;
      return {kind + name.substr(prefix.size()) + "_", access ? &kAccess : &kForwarding};
    }
  }
  return {};
}

long number_of(const std::string& text) {
  return std::clamp(std::strtol(text.c_str(), nullptr, 10), long{INT_MIN}, long{INT_MAX});
}

std::vector<std::string> fields_of(const std::string& text) {
  std::vector<std::string> fields(1);
  for (const char c : text) {
    if (c == ',') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

void apply_rule(Settings& settings, const Rule& rule, const std::string& value) {
  if (value.empty()) {
    settings[rule.stem + "status"] = "0";
    return;
  }
  const std::vector<std::string> fields = fields_of(value);
  if (fields.size() != rule.fields->size() + 1) {
    return;
  }
  for (std::size_t i = 0; i < rule.fields->size(); i++) {
    settings[rule.stem + (*rule.fields)[i]] = fields[i];
  }
  settings[rule.stem + "status"] = fields.back() == "1" ? "2" : "1";
}

std::string reported_rule(const Settings& settings, const Rule& rule) {
  const long status = number_of(value_of(settings, rule.stem + "status"));
  if (status == 0) {
    return "";
  }
  std::string text;
  for (const std::string& field : *rule.fields) {
    text += value_of(settings, rule.stem + field) + ",";
  }
  return text + (status == 2 ? "1" : "0");
}

void join_mac_rules(Settings& settings, const std::string& stem) {
  std::string list;
  for (int n = 0; n < 8; n++) {
    const std::string rule = value_of(settings, stem + "macrule" + std::to_string(n));
    if (!rule.empty()) {
      list += (list.empty() ? "" : " ") + rule.substr(0, 17);
    }
  }
  settings[stem + "maclist"] = list;
}

void apply_auth_mode(Settings& settings, const std::string& stem, const std::string& value) {
  settings[stem + "net_auth_mode"] = value;
  const long mode = number_of(value);
  if (mode >= 1 && mode <= 3) {
    settings[stem + "auth"] = mode == 2 ? "1" : "0";
    settings[stem + "auth_mode"] = "none";
    settings[stem + "akm"] = mode == 3 ? "psk" : "";
  }
}

void apply_wireless(Settings& settings, unsigned unit, const std::string& name,
                    const std::string& value) {
  const std::string stem = "wl" + std::to_string(unit) + "_";
  const long number = number_of(value);
  if (name == "wl_auth_mode") {
    apply_auth_mode(settings, stem, value);
  } else if (name == "wl_macmode") {
    if (number >= 0 && number <= 2) {
      settings[stem + "macmode"] = kMacModes[static_cast<std::size_t>(number)];
    }
  } else if (name == "wl_wep") {
    if (number == 0 || number == 1) {
      settings[stem + "wep"] = number == 1 ? "enabled" : "disabled";
    }
  } else {
    settings[stem + name.substr(3)] = value;
    if (name.starts_with("wl_macrule")) {
      join_mac_rules(settings, stem);
    }
  }
}

std::string reported_wireless(const Settings& settings, const std::string& name) {
  if (name == "wl_auth_mode") {
    return value_of(settings, "wl0_net_auth_mode");
  }
  if (name == "wl_wep") {
    return value_of(settings, "wl0_wep") == "enabled" ? "1" : "0";
  }
  if (name == "wl_macmode") {
    const auto at =
        std::find(kMacModes.begin(), kMacModes.end(), value_of(settings, "wl0_macmode"));
    return at == kMacModes.end() ? "" : std::to_string(at - kMacModes.begin());
  }
  return value_of(settings, "wl0_" + name.substr(3));
}

constexpr char kDhcpRule[] = "lan_dhcp_rule";

std::string dhcp_key(const std::string& name) {
  return "lan_dhcp" + name.substr(sizeof kDhcpRule - 1) + "_rule";
}

} // namespace

std::string value_of(const Settings& settings, const std::string& key) {
  const auto found = settings.find(key);
  return found == settings.end() ? "" : found->second;
}

void apply_value(Settings& settings, unsigned unit, const std::string& name,
                 const std::string& value) {
  if (const Rule rule = rule_of(name); rule.fields != nullptr) {
    apply_rule(settings, rule, value);
  } else if (name.starts_with("wl_")) {
    apply_wireless(settings, unit, name, value);
  } else if (name.starts_with("wan_")) {
    settings["wan" + std::to_string(unit) + "_" + name.substr(4)] = value;
  } else {
    settings[name.starts_with(kDhcpRule) ? dhcp_key(name) : name] = value;
  }
}

void apply_records(Settings& settings, unsigned unit, char* records, std::size_t length) {
  std::map<std::string, std::string> values; // of records with the same name the last one counts
  for (std::size_t at = 0; at < length;) {
    char* text = records + at;
    at += std::strlen(text);
    while (at < length && records[at] == '\0') {
      at++;
    }
    if (char* equals = std::strchr(text, '='); equals != nullptr) {
      *equals = '\0';
      values[text] = equals + 1;
    }
  }
  for (const rcmd::VariableEntry* row = rcmd::config_variables; row->name != nullptr; row++) {
    const auto found = values.find(row->name);
    if (found != values.end() && row->set != nullptr) {
      apply_value(settings, unit, row->name, found->second);
    }
  }
}

std::string reported_setting(const Settings& settings, const std::string& name) {
  if (const Rule rule = rule_of(name); rule.fields != nullptr) {
    return reported_rule(settings, rule);
  }
  if (name.starts_with("wl_")) {
    return reported_wireless(settings, name);
  }
  if (name.starts_with("wan_")) {
    return value_of(settings, "wan0_" + name.substr(4));
  }
  return value_of(settings, name.starts_with(kDhcpRule) ? dhcp_key(name) : name);
}

bool apply_import(Settings& settings, const std::string& text) {
  Settings changed = settings;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    if (line.empty()) {
      continue;
    }
    const std::size_t equals = line.find('=');
    if (equals == 0 || equals == std::string::npos || line.find('\0') != std::string::npos) {
      return false;
    }
    changed[line.substr(0, equals)] = line.substr(equals + 1);
  }
  settings = std::move(changed);
  return true;
}

} // namespace sim
