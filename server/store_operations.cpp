#include "server/statement.h"
#include "server/store.h"

namespace server {

namespace {

Operation read_operation(Statement& row) {
  Operation operation;
  operation.id = row.number();
  operation.serial = row.text();
  operation.kind = static_cast<OperationKind>(row.number());
  operation.state = static_cast<OperationState>(row.number());
  operation.detail = row.text();
  operation.created = row.number();
  operation.updated = row.number();
  operation.sends = row.number();
  operation.name = row.text();
  operation.path = row.text();
  operation.digest = row.as<std::uint64_t>();
  operation.length = row.as<std::uint32_t>();
  operation.fragments = row.as<std::uint32_t>();
  operation.asked = row.as<std::uint32_t>();
  operation.firmware_before = row.text();
  operation.firmware_after = row.text();
  return operation;
}

std::vector<Operation> read_operations(Statement& rows) {
  std::vector<Operation> operations;
  while (rows.step()) {
    operations.push_back(read_operation(rows));
  }
  return operations;
}

} // namespace

void Store::save(const Operation& operation) {
  change("INSERT OR REPLACE INTO operations VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)")
      .bind(operation.id, operation.serial, static_cast<std::int64_t>(operation.kind),
            static_cast<std::int64_t>(operation.state), operation.detail, operation.created,
            operation.updated, operation.sends, operation.name, operation.path,
            static_cast<std::int64_t>(operation.digest), std::int64_t{operation.length},
            std::int64_t{operation.fragments}, std::int64_t{operation.asked},
            operation.firmware_before, operation.firmware_after)
      .run();
}

std::optional<Operation> Store::operation(std::int64_t id) {
  auto found = read_operations(query("SELECT * FROM operations WHERE id=?").bind(id));
  return found.empty() ? std::nullopt : std::optional(std::move(found.front()));
}

std::vector<Operation> Store::operations(const std::string& serial, std::int64_t limit) {
  return read_operations(query("SELECT * FROM (SELECT * FROM operations WHERE ?1='' OR serial=?1 "
                               "ORDER BY id DESC LIMIT ?2) ORDER BY id")
                             .bind(serial, limit));
}

std::vector<Operation> Store::unfinished_operations() {
  return read_operations(query("SELECT * FROM operations WHERE state<? ORDER BY id")
                             .bind(static_cast<std::int64_t>(OperationState::kDone)));
}

std::int64_t Store::last_operation_id() {
  Statement& row = query("SELECT coalesce(max(id), 0) FROM operations").bind();
  const std::int64_t id = row.step() ? row.number() : 0;
  row.reset();
  return id;
}

void Store::prune(std::int64_t time) {
  change("DELETE FROM logs WHERE received<?").bind(time).run();
  change("DELETE FROM samples WHERE time<?").bind(time).run();
  change("DELETE FROM hours WHERE received<?").bind(time).run();
  change("DELETE FROM positions WHERE received<?").bind(time).run();
  change("DELETE FROM operations WHERE state>=?2 AND updated<?1 AND "
         "id<(SELECT max(id) FROM operations)") // the ids go on from the last
      .bind(time, static_cast<std::int64_t>(OperationState::kDone))
      .run();
}

} // namespace server
