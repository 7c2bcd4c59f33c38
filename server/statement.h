// A prepared statement of SQLite: bound from a list of values, read column by column.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

namespace server {

class Statement {
public:
  Statement(sqlite3* database, const char* sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Starts it afresh with these values for its question marks.
  template <typename... Values> Statement& bind(const Values&... values) {
    reset();
    (bind_next(values), ...);
    return *this;
  }
  bool step(); ///< @return whether there is a row
  void run() {
    while (step()) {
    }
  }
  bool found(); ///< whether there is a row; none is read
  void reset();

  // The next column of the row, from the first on.
  std::string text();
  std::int64_t number();
  template <typename Number> Number as() { return static_cast<Number>(number()); }

private:
  void bind_next(const std::string& value);
  void bind_next(std::int64_t value);
  void check(int result);

  sqlite3* database_;
  sqlite3_stmt* statement_ = nullptr;
  int bound_ = 0;
  int column_ = 0;
};

} // namespace server
