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

namespace {

// The name as a URI that promises SQLite that nobody changes the file.
std::string ImmutableName(const std::string& path) {
  std::string uri = "file:";
  for (const char c : path) {
    if (c == '%' || c == '?' || c == '#') {
      uri += fmt::format("%{:02X}", static_cast<unsigned char>(c));
    } else {
      uri += c;
    }
  }
  return uri + "?immutable=1";
}

}  // namespace

Database::Database(const std::string& path, Access access) : path_(path) {
  const auto open = [this](const std::string& name, int flags) {
    sqlite3* handle = nullptr;
    const int result = sqlite3_open_v2(name.c_str(), &handle, flags, nullptr);
    handle_.reset(handle);
    if (result != SQLITE_OK) Fail();
    constexpr int kMostWaitMs = 60'000;  // for somebody who reads it meanwhile
    sqlite3_busy_timeout(handle, kMostWaitMs);
  };
  if (access == Access::kWrite) {
    open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
    return;
  }
  // Opened to be written, a file that belongs to this user is left without anything beside it.
  open(path, SQLITE_OPEN_READWRITE);
  Execute("PRAGMA query_only = ON");
  // The log's index is a file beside it, which cannot be made everywhere.
  const int result = sqlite3_exec(handle(), "SELECT 1 FROM sqlite_schema", nullptr, nullptr, nullptr);
  if (result == SQLITE_CANTOPEN || result == SQLITE_READONLY) {
    open(ImmutableName(path), SQLITE_OPEN_READONLY | SQLITE_OPEN_URI);
  }
}

void Database::Execute(const char* sql) {
  if (sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail();
}

void Database::Fail() const {
  throw PageError(fmt::format("{}: {}", path_, handle_ ? sqlite3_errmsg(handle_.get()) : "out of memory"));
}

}  // namespace rastrel::tool
