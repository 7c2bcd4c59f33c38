// What the server keeps: an SQLite database, in a file or, as ":memory:", for the process's life.
//
// Writes gather in one transaction until flush(). Every statement is prepared once. Texts are
// stored as the bytes that the device sent. Errors of the database throw StoreError.
#pragma once

#include "server/events.h"

#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

struct sqlite3;

namespace server {

struct StoreError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

class Statement;

class Store {
public:
  explicit Store(const std::string& path);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  /// Keeps what an event tells. Lines of a log report get their ids.
  /// @return false when it was kept before: a report that the device sent again
  bool apply(Event& event);
  void save(const Device& device);
  void save(const Operation& operation);
  /// Deletes log lines, traffic and positions older than `time`, and operations that ended before.
  void prune(std::int64_t time);
  void flush();

  std::vector<Device> devices();
  std::vector<Variable> variables(const std::string& serial);
  /// Log lines with an id above `after` and a time of at least `since`: the latest `limit` of them,
  /// or the first ones when `after` is given; oldest first.
  std::vector<LogLine> logs(const std::string& serial, std::int64_t after, std::int64_t since,
                            std::int64_t limit);
  std::vector<TrafficSample> samples(const std::string& serial, std::int64_t since);
  std::vector<TrafficHour> hours(const std::string& serial, std::int64_t since); ///< no samples
  /// The latest `limit`, oldest first.
  std::vector<Position> positions(const std::string& serial, std::int64_t since,
                                  std::int64_t limit);
  std::optional<Operation> operation(std::int64_t id);
  /// The latest `limit`, oldest first; of all devices when `serial` is empty.
  std::vector<Operation> operations(const std::string& serial, std::int64_t limit);
  std::vector<Operation> unfinished_operations();
  std::int64_t last_operation_id();

private:
  Statement& query(const char* sql);
  Statement& change(const char* sql);
  void execute(const char* sql);
  void create_tables();
  void add_variables(const std::string& serial, std::int64_t time, const VariablesReported& what);
  void forget_beyond(const std::string& serial, const std::string& prefix, std::int64_t count);
  bool add_log(const std::string& serial, std::int64_t time, LogReported& what);
  bool add_traffic(const std::string& serial, const TrafficReported& what);
  void add_position(const std::string& serial, const Position& position);

  sqlite3* database_ = nullptr;
  bool in_transaction_ = false;
  std::map<const char*, std::unique_ptr<Statement>> statements_; ///< by the literal's address
};

} // namespace server
