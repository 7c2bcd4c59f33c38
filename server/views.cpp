#include "server/rcmctl.h"
#include "server/text.h"

#include <algorithm>
#include <cstdio>

namespace server {

namespace {

std::string text_at(const Json& json, const char* name) {
  return printable(json.at(name).get<std::string>());
}

std::int64_t number_at(const Json& json, const char* name) {
  return json.at(name).get<std::int64_t>();
}

/// The groups in which a person looks for a variable.
constexpr const char* kGroups[] = {"LAN",      "Wireless",       "WAN",
                                   "Firewall", "Administration", "Status"};

std::string group_of(const Json& variable) {
  if (variable.at("kind") == "status") {
    return "Status";
  }
  const auto& name = variable.at("name").get_ref<const std::string&>();
  if (name.starts_with("lan_") || name.starts_with("et0")) {
    return "LAN";
  }
  if (name.starts_with("wl_")) {
    return "Wireless";
  }
  if (name.starts_with("wan_") || name.starts_with("network_ddns")) {
    return "WAN";
  }
  return name.starts_with("firewall_") ? "Firewall" : "Administration";
}

/// Text and number apart, so that rule10 comes after rule9.
std::pair<std::string, long> natural_order(const std::string& name) {
  const std::size_t last = name.find_last_not_of("0123456789");
  const std::size_t digits = last == std::string::npos ? 0 : last + 1;
  const std::string number = name.substr(digits).substr(0, 9);
  return {name.substr(0, digits), number.empty() ? -1 : std::stol(number)};
}

void print_group(const Json& variables, const std::string& group) {
  std::vector<Json> members;
  std::copy_if(variables.begin(), variables.end(), std::back_inserter(members),
               [&](const Json& variable) { return group_of(variable) == group; });
  if (members.empty()) {
    return;
  }
  std::sort(members.begin(), members.end(), [](const Json& a, const Json& b) {
    return std::pair(a.at("unit").get<int>(), natural_order(a.at("name"))) <
           std::pair(b.at("unit").get<int>(), natural_order(b.at("name")));
  });
  std::vector<Row> rows{{"NAME", "UNIT", "VALUE", "REPORTED (UTC)"}};
  for (const Json& variable : members) {
    const bool scoped = number_at(variable, "scope") != 0;
    rows.push_back({text_at(variable, "name"),
                    scoped ? std::to_string(number_at(variable, "unit")) : "",
                    text_at(variable, "value"), utc_text(number_at(variable, "time"))});
  }
  print("\n" + group + "\n" + table(rows));
}

std::string registered_text(const Json& event) {
  const Json& device = event.at("device");
  return std::string("registered: ") + text_at(device, "product_model") + ", firmware " +
         text_at(device, "firmware_version") + ", WAN " + text_at(device, "wan_address") + ", up " +
         span_text(number_at(device, "uptime")) + ", from " + text_at(device, "address");
}

std::string values_text(const Json& event) {
  const Json& values = event.at("values");
  std::string text = text_at(event, "event") + ": " + std::to_string(values.size()) + " values";
  const char* separator = ", ";
  for (std::size_t i = 0; i < values.size() && i < 3; i++) {
    text += separator + text_at(values[i], "name") + "=" + text_at(values[i], "value");
  }
  return text + (values.size() > 3 ? ", ..." : "");
}

std::string operation_text(const Json& operation) {
  std::string text = text_at(operation, "kind") + " " + std::to_string(number_at(operation, "id")) +
                     ": " + text_at(operation, "state");
  if (operation.contains("fragments") && number_at(operation, "asked") > 0) {
    text += " " + std::to_string(number_at(operation, "asked")) + "/" +
            std::to_string(number_at(operation, "fragments"));
  }
  const std::string detail = text_at(operation, "detail");
  return detail.empty() ? text : text + " (" + detail + ")";
}

std::string event_text(const Json& event) {
  const std::string name = text_at(event, "event");
  if (name == "registered") {
    return registered_text(event);
  }
  if (name == "server-time" || name == "keepalive-parameters") {
    return "asked for its " +
           std::string(name == "server-time" ? "server time" : "keepalive parameters");
  }
  if (name == "configuration" || name == "status") {
    return values_text(event);
  }
  if (name == "log") {
    std::string text = "log: " + std::to_string(event.at("lines").size()) + " lines";
    for (const Json& line : event.at("lines")) {
      text += "\n    " + utc_text(number_at(line, "time")) + " " + text_at(line, "message");
    }
    return text;
  }
  if (name == "traffic") {
    const Json& hour = event.at("hour");
    return "traffic: " + bytes_text(number_at(hour, "tx")) + " sent, " +
           bytes_text(number_at(hour, "rx")) + " received in " +
           std::to_string(event.at("samples").size()) + " minutes";
  }
  if (name == "position") {
    const Json& position = event.at("position");
    return "position: " + text_at(position, "latitude") + " " + text_at(position, "longitude");
  }
  return name == "operation" ? operation_text(event.at("operation")) : name;
}

} // namespace

int list_devices(const Client& client) {
  const Json devices = client.get("/devices");
  if (client.json) {
    print_json(devices);
    return kDone;
  }
  const std::int64_t now = number_at(client.get("/"), "time");
  std::vector<Row> rows{{"SERIAL", "STATE", "LAST SEEN", "ADDRESS", "MODEL", "FIRMWARE",
                         "WAN ADDRESS", "REGISTERED (UTC)"}};
  for (const Json& device : devices) {
    rows.push_back({text_at(device, "serial"), device.at("online") ? "online" : "offline",
                    span_text(now - number_at(device, "last_seen")) + " ago",
                    text_at(device, "address"), text_at(device, "product_model"),
                    text_at(device, "firmware_version"), text_at(device, "wan_address"),
                    utc_text(number_at(device, "registered"))});
  }
  print(rows.size() == 1 ? "No device has registered.\n" : table(rows));
  return kDone;
}

int show_device(const Client& client, const std::string& serial) {
  Json device = client.get(device_path(serial));
  const Json variables = client.get(device_path(serial, "variables"));
  if (client.json) {
    device["variables"] = variables;
    print_json(device);
    return kDone;
  }
  print(text_at(device, "serial") + " (" + (device.at("online") ? "online" : "offline") + ")\n" +
        "  model       " + text_at(device, "product_model") + "\n" + "  firmware    " +
        text_at(device, "firmware_version") + "\n" + "  domain      " + text_at(device, "domain") +
        "\n" + "  WAN address " + text_at(device, "wan_address") + "\n" + "  address     " +
        text_at(device, "address") + "\n" + "  session     " + text_at(device, "session") + "\n" +
        "  registered  " + utc_text(number_at(device, "registered")) + " UTC, " +
        std::to_string(number_at(device, "registrations")) + " times since " +
        utc_text(number_at(device, "first_seen")) + "\n" + "  last seen   " +
        utc_text(number_at(device, "last_seen")) + " UTC\n");
  for (const char* group : kGroups) {
    print_group(variables, group);
  }
  return kDone;
}

int get_variable(const Client& client, const std::string& serial, const std::string& name,
                 std::optional<int> unit) {
  std::string query = "?name=" + percent_encoded(name);
  if (unit) {
    query += "&unit=" + std::to_string(*unit);
  }
  const Json found = client.get(device_path(serial, "variables") + query);
  if (found.empty()) {
    throw ServerError(serial + " has reported no " + name +
                      (unit ? " for unit " + std::to_string(*unit) : ""));
  }
  if (client.json) {
    print_json(found.size() == 1 ? found[0] : found);
    return kDone;
  }
  for (const Json& variable : found) {
    const std::string unit_text = "unit " + std::to_string(number_at(variable, "unit")) + ": ";
    print((found.size() > 1 ? unit_text : "") + text_at(variable, "value") + "\n");
  }
  return kDone;
}

int list_operations(const Client& client, const std::string& serial) {
  const Json operations =
      client.get("/operations" + (serial.empty() ? "" : "?serial=" + percent_encoded(serial)));
  if (client.json) {
    print_json(operations);
    return kDone;
  }
  std::vector<Row> rows{{"ID", "SERIAL", "OPERATION", "STATE", "STARTED (UTC)", "DETAIL"}};
  for (const Json& operation : operations) {
    rows.push_back({std::to_string(number_at(operation, "id")), text_at(operation, "serial"),
                    text_at(operation, "kind"), text_at(operation, "state"),
                    utc_text(number_at(operation, "created")), text_at(operation, "detail")});
  }
  print(rows.size() == 1 ? "No operations yet.\n" : table(rows));
  return kDone;
}

int watch(const Client& client, const WatchOptions& options) {
  if (!options.serial.empty()) {
    static_cast<void>(client.get(device_path(options.serial))); // an unknown one is an error
  }
  EventStream events(client.url, options.serial.empty()
                                     ? "/events"
                                     : "/events?serial=" + percent_encoded(options.serial));
  const Deadline deadline = deadline_in(options.timeout_s);
  for (int seen = 0; options.count == 0 || seen < options.count;) {
    const auto event = events.next(deadline);
    if (!event) {
      return options.count == 0 ? kDone : kTimedOut;
    }
    if (!options.event.empty() && options.event != event->name) {
      continue;
    }
    seen++;
    const Json json = Json::parse(event->data);
    if (client.json) {
      print_json(json);
    } else {
      print(utc_text(number_at(json, "time")) + " " + text_at(json, "serial") + " " +
            event_text(json) + "\n");
    }
  }
  return kDone;
}

} // namespace server
