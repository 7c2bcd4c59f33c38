#include "server/json.h"

namespace server {

namespace {

std::string hex_text(const Session& session) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::uint8_t byte : session) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

template <typename Record> Json list_of(const std::vector<Record>& records) {
  Json list = Json::array();
  for (const Record& record : records) {
    list.push_back(to_json(record));
  }
  return list;
}

struct EventFields { // fills in what belongs to each kind of event
  Json& json;

  void operator()(const Registered& what) const {
    json["event"] = "registered";
    json["restarted"] = what.restarted;
    json["device"] = to_json(what.device, true);
  }
  void operator()(const Asked& what) const {
    json["event"] = what.type == kServerTime ? "server-time" : "keepalive-parameters";
  }
  void operator()(const Alive& /*what*/) const { json["event"] = "keepalive"; }
  void operator()(const VariablesReported& what) const {
    json["event"] = what.kind == VariableKind::kConf ? "configuration" : "status";
    json["scope"] = what.report.scope;
    json["unit"] = what.report.unit;
    Json& values = json["values"] = Json::array();
    for (const auto& [name, value] : what.report.values) {
      values.push_back({{"name", name}, {"value", value}});
    }
  }
  void operator()(const LogReported& what) const {
    json["event"] = "log";
    json["lines"] = list_of(what.lines);
  }
  void operator()(const TrafficReported& what) const {
    json["event"] = "traffic";
    json["hour"] = to_json(what.hour);
    json["samples"] = list_of(what.hour.samples);
  }
  void operator()(const PositionReported& what) const {
    json["event"] = "position";
    json["position"] = to_json(what.position);
  }
  void operator()(const OperationChanged& what) const {
    json["event"] = "operation";
    json["operation"] = to_json(what.operation);
  }
};

} // namespace

Json to_json(const Device& device, bool online) {
  return {{"serial", device.serial},
          {"online", online},
          {"address", to_text(device.address)},
          {"session", hex_text(device.session)},
          {"first_seen", device.first_seen},
          {"last_seen", device.last_seen},
          {"registered", device.registered},
          {"registrations", device.registrations},
          {"uptime", device.uptime},
          {"wan_address", ip_text(device.wan_address)},
          {"domain", device.domain},
          {"firmware_version", device.firmware},
          {"product_model", device.model}};
}

Json to_json(const Variable& variable) {
  return {{"kind", variable.kind == VariableKind::kConf ? "configuration" : "status"},
          {"name", variable.name},
          {"unit", variable.unit},
          {"scope", variable.scope},
          {"value", variable.value},
          {"time", variable.time}};
}

Json to_json(const LogLine& line) {
  return {{"id", line.id}, {"time", line.time}, {"message", line.message}};
}

Json to_json(const TrafficSample& sample) {
  return {{"time", sample.time}, {"tx", sample.tx}, {"rx", sample.rx}};
}

Json to_json(const TrafficHour& hour) {
  return {{"received", hour.received}, {"tx", hour.tx}, {"rx", hour.rx}};
}

Json to_json(const Position& position) {
  return {{"received", position.received},
          {"latitude", position.latitude},
          {"longitude", position.longitude}};
}

Json to_json(const Operation& operation) {
  Json json{{"id", operation.id},
            {"serial", operation.serial},
            {"kind", to_text(operation.kind)},
            {"state", to_text(operation.state)},
            {"final", is_final(operation.state)},
            {"detail", operation.detail},
            {"created", operation.created},
            {"updated", operation.updated},
            {"sends", operation.sends},
            {"firmware_before", operation.firmware_before},
            {"firmware_after", operation.firmware_after}};
  if (is_transfer(operation.kind)) {
    json["name"] = operation.name;
    json["path"] = operation.path;
    json["length"] = operation.length;
    json["fragments"] = operation.fragments;
    json["asked"] = operation.asked;
  }
  return json;
}

Json to_json(const Event& event) {
  Json json{{"serial", event.serial}, {"time", event.time}};
  std::visit(EventFields{json}, event.what);
  return json;
}

std::string dump_json(const Json& json) {
  return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

} // namespace server
