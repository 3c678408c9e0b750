#include "tools/batch/database.h"

#include <fmt/format.h>

namespace rastrel::tool {

Statement::Statement(Database* database, const char* sql) : database_(database) {
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v2(database->handle(), sql, -1, &statement, nullptr);
  statement_.reset(statement);
  if (result != SQLITE_OK) database->Fail();
}

bool Statement::Next() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  sqlite3_reset(statement_.get());
  if (result != SQLITE_DONE) database_->Fail();
  return false;
}

std::string Statement::Text(int column) const {
  const void* bytes = sqlite3_column_blob(statement_.get(), column);
  const auto size = static_cast<size_t>(sqlite3_column_bytes(statement_.get(), column));
  return bytes == nullptr ? "" : std::string(static_cast<const char*>(bytes), size);
}

void Statement::Bind(int place, int64_t value) { sqlite3_bind_int64(statement_.get(), place, value); }
void Statement::Bind(int place, double value) { sqlite3_bind_double(statement_.get(), place, value); }
void Statement::Bind(int place, const std::string& value) {
  sqlite3_bind_text(statement_.get(), place, value.data(), static_cast<int>(value.size()), SQLITE_STATIC);
}
void Statement::Bind(int place, std::nullptr_t) { sqlite3_bind_null(statement_.get(), place); }

Database::Database(const std::string& path, bool mayCreate) : path_(path) {
  sqlite3* handle = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | (mayCreate ? SQLITE_OPEN_CREATE : 0);
  const int result = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) Fail();
  constexpr int kMostWaitMs = 60'000;  // for somebody who reads it meanwhile
  sqlite3_busy_timeout(handle, kMostWaitMs);
}

void Database::Execute(const char* sql) {
  if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail();
}

void Database::Fail() const {
  throw PageError(fmt::format("{}: {}", path_, handle_ ? sqlite3_errmsg(handle_.get()) : "out of memory"));
}

}  // namespace rastrel::tool
