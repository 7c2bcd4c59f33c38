#include "server/api.h"

#include "server/version.h"

#include <charconv>
#include <optional>

namespace server {

namespace {

constexpr std::int64_t kMostHours = 1000000; // a century and more

struct ApiError {
  int status;
  std::string text;
};

std::int64_t number_of(const std::string& name, const std::string& text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < 0) {
    throw ApiError{400, name + " must be a whole number, not \"" + text + "\""};
  }
  return number;
}

std::int64_t number_in(const Query& query, const std::string& name, std::int64_t otherwise) {
  const auto found = query.find(name);
  return found == query.end() ? otherwise : number_of(name, found->second);
}

template <typename Record> Json list_of(const std::vector<Record>& records) {
  Json list = Json::array();
  for (const Record& record : records) {
    list.push_back(to_json(record));
  }
  return list;
}

bool fits(const Variable& variable, const Query& query) {
  const auto name = query.find("name");
  return (name == query.end() || name->second == variable.name) &&
         number_in(query, "unit", variable.unit) == variable.unit;
}

std::string text_in(const Json& body, const char* name) {
  const auto found = body.find(name);
  if (found == body.end()) {
    return "";
  }
  if (!found->is_string()) {
    throw ApiError{400, std::string("\"") + name + "\" must be a text"};
  }
  return found->get<std::string>();
}

Command set_command(const Json& body) {
  const Json unit = body.value("unit", Json(0));
  if (!unit.is_number_integer() || unit.get<std::int64_t>() < 0 ||
      unit.get<std::int64_t>() > 65535) {
    throw ApiError{400, "\"unit\" must be a number from 0 to 65535"};
  }
  const auto values = body.find("values");
  if (values == body.end() || !values->is_object()) {
    throw ApiError{400, "\"values\" must be an object of names and texts"};
  }
  Values records;
  for (const auto& [name, value] : values->items()) {
    if (!value.is_string()) {
      throw ApiError{400, "the value of \"" + name + "\" must be a text"};
    }
    records.emplace_back(name, value.get<std::string>());
  }
  return make_set(unit.get<std::uint16_t>(), records);
}

Json body_of(const std::string& text) {
  Json body = text.empty() ? Json::object() : Json::parse(text, nullptr, false);
  if (!body.is_object()) {
    throw ApiError{400, "the body is no JSON object"};
  }
  return body;
}

} // namespace

ApiReply Api::handle(const ApiRequest& request) {
  try {
    const Target target = split_target(request.target);
    if (request.method == "GET") {
      return get(target.path, target.query);
    }
    if (request.method != "POST") {
      throw ApiError{405, "only GET and POST are served"};
    }
    // A page in a browser cannot send this type to another site without asking first.
    if (!request.content_type.starts_with("application/json")) {
      throw ApiError{415, "the body's type must be application/json"};
    }
    return post(target.path, request.body);
  } catch (const ApiError& error) {
    return {error.status, {{"error", error.text}}};
  } catch (const std::invalid_argument& error) {
    return {400, {{"error", error.what()}}};
  } catch (const ImageError& error) {
    return {400, {{"error", error.what()}}};
  }
}

ApiReply Api::get(const std::vector<std::string>& path, const Query& query) {
  if (path.empty()) {
    return {200, summary()};
  }
  if (path[0] == "devices" && path.size() == 1) {
    return {200, device_list()};
  }
  if (path[0] == "devices" && path.size() <= 3) {
    const Device* device = engine_.device(path[1]);
    if (device == nullptr) {
      throw ApiError{404, "no device \"" + path[1] + "\" has registered"};
    }
    return {200, path.size() == 2 ? to_json(*device, engine_.is_online(*device, clock_()))
                                  : device_part(*device, path[2], query)};
  }
  if (path[0] == "operations" && path.size() == 1) {
    const auto serial = query.find("serial");
    return {200, list_of(store_.operations(serial == query.end() ? "" : serial->second,
                                           number_in(query, "limit", 100)))};
  }
  if (path[0] == "operations" && path.size() == 2) {
    if (const auto operation = store_.operation(number_of("the operation", path[1]))) {
      return {200, to_json(*operation)};
    }
    throw ApiError{404, "no operation " + path[1]};
  }
  throw ApiError{404, "no such resource"};
}

Json Api::summary() {
  const Counters& counters = engine_.counters();
  return {{"program", "rcm-server"},
          {"version", kVersion},
          {"devices", engine_.devices().size()},
          {"time", clock_().unix_s},
          {"datagrams",
           {{"received", counters.received},
            {"malformed", counters.malformed},
            {"unknown_device", counters.unknown},
            {"copies", counters.copies},
            {"ignored", counters.ignored}}}};
}

Json Api::device_list() {
  Json list = Json::array();
  for (const Device& device : engine_.devices()) {
    list.push_back(to_json(device, engine_.is_online(device, clock_())));
  }
  return list;
}

Json Api::device_part(const Device& device, const std::string& part, const Query& query) {
  const std::string& serial = device.serial;
  const std::int64_t hours = std::min(number_in(query, "hours", 0), kMostHours);
  const std::int64_t since =
      hours > 0 ? clock_().unix_s - hours * 3600 : number_in(query, "since", 0);
  const std::int64_t limit = number_in(query, "limit", 1000);
  if (part == "variables") {
    Json list = Json::array();
    for (const Variable& variable : store_.variables(serial)) {
      if (fits(variable, query)) {
        list.push_back(to_json(variable));
      }
    }
    return list;
  }
  if (part == "logs") {
    return list_of(store_.logs(serial, number_in(query, "after", 0), since, limit));
  }
  if (part == "traffic") {
    return {{"hours", list_of(store_.hours(serial, since))},
            {"samples", list_of(store_.samples(serial, since))}};
  }
  if (part == "positions") {
    return list_of(store_.positions(serial, since, limit));
  }
  throw ApiError{404, "no such resource"};
}

ApiReply Api::post(const std::vector<std::string>& path, const std::string& body) {
  if (path.size() != 3 || path[0] != "devices") {
    throw ApiError{404, "no such resource"};
  }
  if (engine_.device(path[1]) == nullptr) {
    throw ApiError{404, "no device \"" + path[1] + "\" has registered"};
  }
  Command order = command(path[2], body_of(body));
  return {202, to_json(engine_.submit(path[1], std::move(order), clock_()))};
}

Command Api::command(const std::string& verb, const Json& body) {
  if (verb == "set") {
    return set_command(body);
  }
  if (verb == "commit") {
    return make_plain(OperationKind::kCommit);
  }
  if (verb == "restore-defaults") {
    return make_plain(OperationKind::kRestoreDefaults);
  }
  if (verb == "status") {
    return make_plain(OperationKind::kStatus);
  }
  if (verb != "upgrade" && verb != "import") {
    throw ApiError{404, "no such resource"};
  }
  const std::string path = text_in(body, "path");
  if (!path.starts_with('/')) {
    throw ApiError{400, "\"path\" must be the absolute path of a file on the server"};
  }
  std::string name = text_in(body, "name");
  if (name.empty()) {
    name = path.substr(path.rfind('/') + 1);
  }
  return make_transfer(verb == "upgrade" ? OperationKind::kUpgrade : OperationKind::kImport,
                       images_.load(path), name, path);
}

} // namespace server
