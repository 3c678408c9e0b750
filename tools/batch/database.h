// SQLite as objects. Failures are PageErrors that name the file.
#ifndef RASTREL_TOOLS_BATCH_DATABASE_H
#define RASTREL_TOOLS_BATCH_DATABASE_H

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "tools/handles.h"

namespace rastrel::tool {

class Database;

// A statement that is used again and again.
class Statement {
 public:
  Statement(Database* database, const char* sql);

  // Binds values to the statement's question marks, from the first on, and runs it up to its first row.
  // Returns whether there is one.
  template <class... Values>
  bool Run(const Values&... values) {
    sqlite3_reset(statement_.get());
    int place = 0;
    (Bind(++place, values), ...);
    return Next();
  }
  // Goes on to the next row.
  bool Next();

  int64_t Integer(int column) const { return sqlite3_column_int64(statement_.get(), column); }
  double Real(int column) const { return sqlite3_column_double(statement_.get(), column); }
  bool IsNull(int column) const { return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL; }
  std::string Text(int column) const;

 private:
  void Bind(int place, int64_t value);
  void Bind(int place, double value);
  void Bind(int place, const std::string& value);  // must stay until the last row
  void Bind(int place, std::nullptr_t);

  Database* database_;
  std::unique_ptr<sqlite3_stmt, Freer<sqlite3_finalize>> statement_;
};

class Database {
 public:
  // To read, nothing is written beside the file either, so that it may lie where nobody can write.
  enum class Access { kRead, kWrite };
  Database(const std::string& path, Access access);

  void Execute(const char* sql);
  sqlite3* handle() const { return handle_.get(); }
  [[noreturn]] void Fail() const;

 private:
  std::string path_;
  std::unique_ptr<sqlite3, Freer<sqlite3_close_v2>> handle_;
};

// What happens in its life is kept as a whole, or not at all where it ends by an exception.
class Transaction {
 public:
  explicit Transaction(Database* database) : database_(database) { database_->Execute("BEGIN IMMEDIATE"); }
  ~Transaction() {
    if (database_ != nullptr) sqlite3_exec(database_->handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit() {
    database_->Execute("COMMIT");
    database_ = nullptr;
  }

 private:
  Database* database_;
};

}  // namespace rastrel::tool

#endif
