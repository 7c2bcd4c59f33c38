#include "server/store.h"

#include "server/statement.h"

#include <sqlite3.h>

#include <algorithm>
#include <charconv>

namespace server {

namespace {

/// An equal report that comes within this time is the same one: a device sends it four times in 20
/// seconds, or in some more when commands disturb it. One that comes later is another: an hour may
/// be as empty as the last (of a fast clock's, a minute ago), and a program may say more within one
/// second than a report holds.
constexpr std::int64_t kResentLog_s = 90;
constexpr std::int64_t kResentTraffic_s = 45;

const char kTables[] = R"(
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
CREATE TABLE IF NOT EXISTS devices(
  serial TEXT PRIMARY KEY, session TEXT, ip INTEGER, port INTEGER, first_seen INTEGER,
  last_seen INTEGER, registered INTEGER, registrations INTEGER, uptime INTEGER,
  wan_address INTEGER, domain TEXT, firmware TEXT, model TEXT) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS variables(
  serial TEXT, kind INTEGER, name TEXT, unit INTEGER, scope INTEGER, value TEXT, time INTEGER,
  PRIMARY KEY(serial, kind, name, unit)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS logs(
  id INTEGER PRIMARY KEY AUTOINCREMENT, serial TEXT, time INTEGER, message TEXT, received INTEGER,
  report INTEGER);
CREATE INDEX IF NOT EXISTS logs_by_device ON logs(serial, id);
CREATE INDEX IF NOT EXISTS logs_by_report ON logs(serial, report);
CREATE TABLE IF NOT EXISTS samples(
  serial TEXT, time INTEGER, tx INTEGER, rx INTEGER, PRIMARY KEY(serial, time, tx, rx))
  WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS hours(
  serial TEXT, received INTEGER, tx INTEGER, rx INTEGER, report INTEGER);
CREATE INDEX IF NOT EXISTS hours_by_device ON hours(serial, received);
CREATE TABLE IF NOT EXISTS positions(
  serial TEXT, received INTEGER, latitude TEXT, longitude TEXT);
CREATE INDEX IF NOT EXISTS positions_by_device ON positions(serial, received);
CREATE TABLE IF NOT EXISTS operations(
  id INTEGER PRIMARY KEY, serial TEXT, kind INTEGER, state INTEGER, detail TEXT, created INTEGER,
  updated INTEGER, sends INTEGER, name TEXT, path TEXT, digest INTEGER, length INTEGER,
  fragments INTEGER, asked INTEGER, firmware_before TEXT, firmware_after TEXT);
CREATE INDEX IF NOT EXISTS operations_by_device ON operations(serial, id);
)";

} // namespace

Store::Store(const std::string& path) {
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  if (sqlite3_open_v2(path.c_str(), &database_, flags, nullptr) != SQLITE_OK) {
    const std::string error = sqlite3_errmsg(database_);
    sqlite3_close(database_);
    throw StoreError("cannot open the database " + path + ": " + error);
  }
  try {
    execute(kTables);
  } catch (const StoreError& error) {
    sqlite3_close(database_);
    throw StoreError("cannot use the database " + path + ": " + error.what());
  }
}

Store::~Store() {
  try {
    flush();
  } catch (const StoreError&) { // nothing is left to be done about it
  }
  statements_.clear();
  sqlite3_close(database_);
}

void Store::execute(const char* sql) {
  char* message = nullptr;
  if (sqlite3_exec(database_, sql, nullptr, nullptr, &message) != SQLITE_OK) {
    const std::string error = message != nullptr ? message : "unknown error";
    sqlite3_free(message);
    throw StoreError(error);
  }
}

Statement& Store::query(const char* sql) {
  auto& statement = statements_[sql];
  if (statement == nullptr) {
    statement = std::make_unique<Statement>(database_, sql);
  }
  return *statement;
}

Statement& Store::change(const char* sql) {
  if (!in_transaction_) {
    execute("BEGIN");
    in_transaction_ = true;
  }
  return query(sql);
}

void Store::flush() {
  if (in_transaction_) {
    in_transaction_ = false;
    execute("COMMIT");
  }
}

bool Store::apply(Event& event) {
  const std::string& serial = event.serial;
  if (const auto* registered = std::get_if<Registered>(&event.what)) {
    save(registered->device);
  } else if (const auto* variables = std::get_if<VariablesReported>(&event.what)) {
    add_variables(serial, event.time, *variables);
  } else if (auto* log = std::get_if<LogReported>(&event.what)) {
    return add_log(serial, event.time, *log);
  } else if (const auto* traffic = std::get_if<TrafficReported>(&event.what)) {
    return add_traffic(serial, *traffic);
  } else if (const auto* position = std::get_if<PositionReported>(&event.what)) {
    add_position(serial, position->position);
  } else if (const auto* changed = std::get_if<OperationChanged>(&event.what)) {
    save(changed->operation);
  }
  return true;
}

void Store::save(const Device& device) {
  change("INSERT OR REPLACE INTO devices VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?)")
      .bind(device.serial, std::string(device.session.begin(), device.session.end()),
            std::int64_t{device.address.ip}, std::int64_t{device.address.port}, device.first_seen,
            device.last_seen, device.registered, device.registrations, std::int64_t{device.uptime},
            std::int64_t{device.wan_address}, device.domain, device.firmware, device.model)
      .run();
}

std::vector<Device> Store::devices() {
  Statement& rows = query("SELECT serial, session, ip, port, first_seen, last_seen, registered, "
                          "registrations, uptime, wan_address, domain, firmware, model "
                          "FROM devices ORDER BY serial");
  std::vector<Device> devices;
  for (rows.bind(); rows.step();) {
    Device device;
    device.serial = rows.text();
    const std::string session = rows.text();
    std::copy_n(session.begin(), std::min(session.size(), device.session.size()),
                device.session.begin());
    device.address.ip = rows.as<std::uint32_t>();
    device.address.port = rows.as<std::uint16_t>();
    device.first_seen = rows.number();
    device.last_seen = rows.number();
    device.registered = rows.number();
    device.registrations = rows.number();
    device.uptime = rows.as<std::uint32_t>();
    device.wan_address = rows.as<std::uint32_t>();
    device.domain = rows.text();
    device.firmware = rows.text();
    device.model = rows.text();
    devices.push_back(std::move(device));
  }
  return devices;
}

void Store::add_variables(const std::string& serial, std::int64_t time,
                          const VariablesReported& what) {
  const std::int64_t kind = what.kind == VariableKind::kConf ? 0 : 1;
  for (const auto& [name, value] : what.report.values) {
    change("INSERT OR REPLACE INTO variables VALUES(?,?,?,?,?,?,?)")
        .bind(serial, kind, name, std::int64_t{what.report.unit}, std::int64_t{what.report.scope},
              value, time)
        .run();
    // A list ends with the number of its entries: what an earlier, longer list left goes.
    constexpr std::string_view kEnd = "_maxunit";
    if (!name.ends_with(kEnd)) {
      continue;
    }
    std::int64_t count = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), count);
    if (error == std::errc{} && end == value.data() + value.size() && count >= 0) {
      forget_beyond(serial, name.substr(0, name.size() - kEnd.size()), count);
    }
  }
}

/// Deletes the list entries `prefix` + number whose number is `count` or more.
void Store::forget_beyond(const std::string& serial, const std::string& prefix,
                          std::int64_t count) {
  change("DELETE FROM variables WHERE serial=?1 AND kind=1 AND substr(name,1,length(?2))=?2 AND "
         "length(name)>length(?2) AND substr(name,length(?2)+1) NOT GLOB '*[^0-9]*' AND "
         "CAST(substr(name,length(?2)+1) AS INTEGER)>=?3")
      .bind(serial, prefix, count)
      .run();
}

std::vector<Variable> Store::variables(const std::string& serial) {
  Statement& rows = query("SELECT kind, name, unit, scope, value, time FROM variables "
                          "WHERE serial=? ORDER BY kind, name, unit");
  std::vector<Variable> variables;
  for (rows.bind(serial); rows.step();) {
    Variable variable;
    variable.kind = rows.number() == 0 ? VariableKind::kConf : VariableKind::kStatus;
    variable.name = rows.text();
    variable.unit = rows.as<std::uint16_t>();
    variable.scope = rows.as<std::uint16_t>();
    variable.value = rows.text();
    variable.time = rows.number();
    variables.push_back(std::move(variable));
  }
  return variables;
}

bool Store::add_log(const std::string& serial, std::int64_t time, LogReported& what) {
  const auto report = static_cast<std::int64_t>(what.digest);
  if (query("SELECT 1 FROM logs WHERE serial=? AND report=? AND received>? LIMIT 1")
          .bind(serial, report, time - kResentLog_s)
          .found()) {
    return false;
  }
  for (LogLine& line : what.lines) {
    change("INSERT INTO logs(serial, time, message, received, report) VALUES(?,?,?,?,?)")
        .bind(serial, line.time, line.message, time, report)
        .run();
    line.id = sqlite3_last_insert_rowid(database_);
  }
  return !what.lines.empty();
}

std::vector<LogLine> Store::logs(const std::string& serial, std::int64_t after, std::int64_t since,
                                 std::int64_t limit) {
  Statement& rows =
      after > 0 ? query("SELECT id, time, message FROM logs WHERE serial=? AND id>? AND time>=? "
                        "ORDER BY id LIMIT ?")
                : query("SELECT * FROM (SELECT id, time, message FROM logs WHERE serial=? AND id>? "
                        "AND time>=? ORDER BY id DESC LIMIT ?) ORDER BY id");
  std::vector<LogLine> lines;
  for (rows.bind(serial, after, since, limit); rows.step();) {
    LogLine line;
    line.id = rows.number();
    line.time = rows.number();
    line.message = rows.text();
    lines.push_back(std::move(line));
  }
  return lines;
}

bool Store::add_traffic(const std::string& serial, const TrafficReported& what) {
  const auto report = static_cast<std::int64_t>(what.digest);
  if (query("SELECT 1 FROM hours WHERE serial=? AND report=? AND received>?")
          .bind(serial, report, what.hour.received - kResentTraffic_s)
          .found()) {
    return false;
  }
  change("INSERT INTO hours VALUES(?,?,?,?,?)")
      .bind(serial, what.hour.received, std::int64_t{what.hour.tx}, std::int64_t{what.hour.rx},
            report)
      .run();
  for (const TrafficSample& sample : what.hour.samples) {
    change("INSERT OR IGNORE INTO samples VALUES(?,?,?,?)")
        .bind(serial, sample.time, sample.tx, sample.rx)
        .run();
  }
  return true;
}

std::vector<TrafficSample> Store::samples(const std::string& serial, std::int64_t since) {
  Statement& rows =
      query("SELECT time, tx, rx FROM samples WHERE serial=? AND time>=? ORDER BY time");
  std::vector<TrafficSample> samples;
  for (rows.bind(serial, since); rows.step();) {
    TrafficSample sample;
    sample.time = rows.number();
    sample.tx = rows.number();
    sample.rx = rows.number();
    samples.push_back(sample);
  }
  return samples;
}

std::vector<TrafficHour> Store::hours(const std::string& serial, std::int64_t since) {
  Statement& rows = query(
      "SELECT received, tx, rx FROM hours WHERE serial=? AND received>=? ORDER BY received, rowid");
  std::vector<TrafficHour> hours;
  for (rows.bind(serial, since); rows.step();) {
    TrafficHour hour;
    hour.received = rows.number();
    hour.tx = rows.as<std::uint32_t>();
    hour.rx = rows.as<std::uint32_t>();
    hours.push_back(std::move(hour));
  }
  return hours;
}

void Store::add_position(const std::string& serial, const Position& position) {
  change("INSERT INTO positions VALUES(?,?,?,?)")
      .bind(serial, position.received, position.latitude, position.longitude)
      .run();
}

std::vector<Position> Store::positions(const std::string& serial, std::int64_t since,
                                       std::int64_t limit) {
  Statement& rows =
      query("SELECT received, latitude, longitude FROM (SELECT rowid AS id, * FROM positions WHERE "
            "serial=? AND received>=? ORDER BY received DESC, id DESC LIMIT ?) "
            "ORDER BY received, id");
  std::vector<Position> positions;
  for (rows.bind(serial, since, limit); rows.step();) {
    Position position;
    position.received = rows.number();
    position.latitude = rows.text();
    position.longitude = rows.text();
    positions.push_back(std::move(position));
  }
  return positions;
}

} // namespace server
