#include "server/statement.h"

#include "server/store.h"

namespace server {

Statement::Statement(sqlite3* database, const char* sql) : database_(database) {
  check(sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement_, nullptr));
}

Statement::~Statement() {
  sqlite3_finalize(statement_);
}

void Statement::check(int result) {
  if (result != SQLITE_OK) {
    throw StoreError(sqlite3_errmsg(database_));
  }
}

bool Statement::step() {
  column_ = 0;
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) {
    return true;
  }
  const bool failed = result != SQLITE_DONE;
  const std::string error = failed ? sqlite3_errmsg(database_) : "";
  sqlite3_reset(statement_);
  if (failed) {
    throw StoreError(error);
  }
  return false;
}

bool Statement::found() {
  const bool row = step();
  reset();
  return row;
}

void Statement::reset() {
  sqlite3_reset(statement_);
  bound_ = 0;
  column_ = 0;
}

void Statement::bind_next(const std::string& value) {
  check(sqlite3_bind_text(statement_, ++bound_, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT));
}

void Statement::bind_next(std::int64_t value) {
  check(sqlite3_bind_int64(statement_, ++bound_, value));
}

std::string Statement::text() {
  const auto* data = static_cast<const char*>(sqlite3_column_blob(statement_, column_));
  const int size = sqlite3_column_bytes(statement_, column_);
  column_++;
  return data == nullptr ? "" : std::string(data, static_cast<std::size_t>(size));
}

std::int64_t Statement::number() {
  return sqlite3_column_int64(statement_, column_++);
}

} // namespace server
