#include "tools/batch/manifest.h"

#include <utility>

#include <fmt/format.h>

#include "tools/batch/files.h"
#include "tools/operations.h"
#include "tools/paths.h"

namespace rastrel::tool {
namespace {

namespace fs = std::filesystem;

constexpr int64_t kVersion = 1;                 // of the tables
constexpr int64_t kApplicationId = 0x5273746c;  // "Rstl", by which the file is known as a manifest

constexpr const char* kTables = R"(
CREATE TABLE IF NOT EXISTS run (
  id INTEGER PRIMARY KEY, started TEXT NOT NULL, ended TEXT, version TEXT NOT NULL,
  options TEXT NOT NULL, optionsHash TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS file (
  id INTEGER PRIMARY KEY, input TEXT NOT NULL UNIQUE, output TEXT NOT NULL,
  state TEXT NOT NULL, error TEXT, size INTEGER, modified INTEGER, hash TEXT,
  run INTEGER REFERENCES run, ended TEXT, seconds REAL);
CREATE TABLE IF NOT EXISTS page (
  file INTEGER NOT NULL REFERENCES file, page INTEGER NOT NULL, state TEXT NOT NULL, error TEXT,
  output TEXT, outputSize INTEGER, outputHash TEXT, record TEXT, PRIMARY KEY (file, page));
CREATE TABLE IF NOT EXISTS written (
  path TEXT PRIMARY KEY, file INTEGER NOT NULL REFERENCES file, hash TEXT NOT NULL) WITHOUT ROWID;
CREATE VIEW IF NOT EXISTS pages AS
  SELECT file.input, file.size AS inputSize, file.modified AS inputModified, file.hash AS inputHash,
    coalesce(page.page, 1) AS page, page.output, page.outputSize, page.outputHash,
    CASE WHEN file.state = 'done' OR page.state IS NULL THEN file.state
         WHEN file.state = 'waiting' THEN 'waiting' ELSE page.state END AS state,
    coalesce(page.error, file.error) AS error, run.version, run.options, run.optionsHash,
    file.ended, file.seconds, page.record
  FROM file LEFT JOIN page ON page.file = file.id LEFT JOIN run ON run.id = file.run;
)";

int64_t NumberFrom(Database* database, const char* sql) {
  Statement statement(database, sql);
  statement.Run();
  return statement.Integer(0);
}

enum class KindOfFile { kManifest, kEmpty, kForeign };

KindOfFile KindOf(Database* database) {
  const int isThere =
      sqlite3_exec(database->handle(), "SELECT 1 FROM sqlite_schema", nullptr, nullptr, nullptr);
  if (isThere == SQLITE_NOTADB) return KindOfFile::kForeign;
  if (NumberFrom(database, "SELECT count(*) FROM sqlite_schema") == 0) return KindOfFile::kEmpty;
  const int64_t application = NumberFrom(database, "PRAGMA application_id");
  // The first manifests had no mark.
  const bool hasTables =
      NumberFrom(database, "SELECT count(*) FROM sqlite_schema WHERE name IN ('run', 'file', 'page')") == 3;
  const bool isOurs = application == kApplicationId || application == 0;
  return isOurs && hasTables ? KindOfFile::kManifest : KindOfFile::kForeign;
}

FileProgress ProgressFrom(const std::string& state) {
  return state == "done"     ? FileProgress::kDone
         : state == "failed" ? FileProgress::kFailed
                             : FileProgress::kWaiting;
}

fs::path FolderOf(const std::string& manifest) { return PathOf(WholeName(manifest)).parent_path(); }

}  // namespace

Manifest::Manifest(const std::string& path, Database::Access access, bool isSafe)
    : folder_(FolderOf(path)), here_(fs::current_path()), database_(path, access) {
  const KindOfFile kind = KindOf(&database_);
  if (kind == KindOfFile::kForeign || (kind == KindOfFile::kEmpty && access == Database::Access::kRead)) {
    throw UsageError(fmt::format("{} is no manifest of a batch", path));
  }
  const int64_t version = NumberFrom(&database_, "PRAGMA user_version");
  if (version > kVersion) throw UsageError(fmt::format("{} is of a later version of this command", path));
  if (access == Database::Access::kWrite) MakeTables(isSafe);
}

void Manifest::MakeTables(bool isSafe) {
  database_.Execute("PRAGMA journal_mode = WAL");
  database_.Execute(isSafe ? "PRAGMA synchronous = FULL" : "PRAGMA synchronous = NORMAL");
  Transaction transaction(&database_);
  database_.Execute(kTables);
  database_.Execute(fmt::format("PRAGMA user_version = {}", kVersion).c_str());
  database_.Execute(fmt::format("PRAGMA application_id = {}", kApplicationId).c_str());
  transaction.Commit();
  const auto prepare = [this](std::unique_ptr<Statement>* statement, const char* sql) {
    *statement = std::make_unique<Statement>(&database_, sql);
  };
  prepare(&add_, "INSERT INTO file (input, output, state) VALUES (?, ?, 'waiting')");
  prepare(&setWaiting_, "UPDATE file SET output = ?, state = 'waiting', error = NULL WHERE id = ?");
  prepare(
      &setFailed_,
      "UPDATE file SET state = 'failed', error = ?, run = ?, ended = ?, size = ?, modified = ? WHERE id = ?");
  prepare(&setUnchanged_, "UPDATE file SET state = 'done', modified = ? WHERE id = ?");
  prepare(&setDone_,
          "UPDATE file SET state = ?, error = NULL, size = ?, modified = ?, hash = ?, run = ?, ended = ?, "
          "seconds = ? WHERE id = ?");
  prepare(&dropPages_, "DELETE FROM page WHERE file = ?");
  prepare(&addPage_,
          "INSERT INTO page (file, page, state, error, output, outputSize, outputHash, record) "
          "VALUES (?, ?, ?, nullif(?, ''), nullif(?, ''), ?, nullif(?, ''), nullif(?, ''))");
  prepare(&ownerOf_, "SELECT file FROM written WHERE path = ? AND file <> ?");
  prepare(&setWritten_, "INSERT OR REPLACE INTO written (path, file, hash) VALUES (?, ?, ?)");
  prepare(&setReplaced_,
          "UPDATE page SET state = 'failed', error = 'the output was replaced by that of another input' "
          "WHERE file = ? AND output = ? AND state = 'done' RETURNING page");
}

std::string Manifest::Stored(const std::string& path) const {
  return NameOf((here_ / PathOf(path)).lexically_normal().lexically_proximate(folder_));
}

std::string Manifest::Resolved(const std::string& stored) const {
  return NameOf((folder_ / PathOf(stored)).lexically_normal().lexically_proximate(here_));
}

void Manifest::BeginRun(const std::string& options, const std::string& optionsHash) {
  Statement insert(&database_,
                   "INSERT INTO run (started, version, options, optionsHash) VALUES (?, ?, ?, ?)");
  insert.Run(TimeNow(), std::string(PagesVersion()), options, optionsHash);
  run_ = sqlite3_last_insert_rowid(database_.handle());
}

void Manifest::EndRun() {
  Statement(&database_, "UPDATE run SET ended = ? WHERE id = ?").Run(TimeNow(), run_);
}

std::unordered_map<std::string, FileRow> Manifest::Files() {
  std::unordered_map<std::string, FileRow> rows;
  std::unordered_map<int64_t, FileRow*> byNumber;
  Statement files(&database_,
                  "SELECT input, file.id, output, state, size, modified, hash, optionsHash "
                  "FROM file LEFT JOIN run ON run.id = file.run");
  for (bool isRow = files.Run(); isRow; isRow = files.Next()) {
    FileRow& row = rows[files.Text(0)];
    row.id = files.Integer(1);
    row.output = files.Text(2);
    row.progress = ProgressFrom(files.Text(3));
    row.size = files.Integer(4);
    row.modified = files.Integer(5);
    row.hash = files.Text(6);
    row.optionsHash = files.Text(7);
    byNumber[row.id] = &row;
  }
  Statement pages(&database_,
                  "SELECT file, output, outputHash, page FROM page WHERE output IS NOT NULL AND NOT EXISTS "
                  "(SELECT 1 FROM written WHERE path = output AND written.file <> page.file)");
  for (bool isRow = pages.Run(); isRow; isRow = pages.Next()) {
    const auto row = byNumber.find(pages.Integer(0));
    if (row == byNumber.end()) continue;
    std::string path = Resolved(pages.Text(1));
    // Pages of one file of many stand one after the other.
    std::vector<FileRow::Written>& outputs = row->second->outputs;
    if (outputs.empty() || outputs.back().path != path) {
      outputs.push_back({std::move(path), pages.Text(2), pages.Integer(3)});
    }
  }
  Statement written(&database_, "SELECT file, path, hash FROM written");
  for (bool isRow = written.Run(); isRow; isRow = written.Next()) {
    const auto row = byNumber.find(written.Integer(0));
    if (row != byNumber.end()) row->second->written.push_back({Resolved(written.Text(1)), written.Text(2)});
  }
  return rows;
}

void Manifest::ForEachPage(const std::function<void(PageRow)>& use) {
  Statement pages(
      &database_,
      "SELECT file.id, coalesce(page.page, 1), input, page.output, record, "
      "coalesce(page.error, file.error), "
      "CASE WHEN file.state = 'failed' AND page.state = 'done' THEN 'done' ELSE file.state END, "
      "hash, outputHash FROM file LEFT JOIN page ON page.file = file.id ORDER BY file.id, page.page");
  for (bool isRow = pages.Run(); isRow; isRow = pages.Next()) {
    PageRow row;
    row.file = pages.Integer(0);
    row.page = pages.Integer(1);
    row.input = Resolved(pages.Text(2));
    if (!pages.IsNull(3)) row.output = Resolved(pages.Text(3));
    row.record = pages.Text(4);
    row.error = pages.Text(5);
    row.progress = ProgressFrom(pages.Text(6));
    row.inputHash = pages.Text(7);
    row.outputHash = pages.Text(8);
    use(std::move(row));
  }
}

int64_t Manifest::Add(const std::string& input, const std::string& output) {
  add_->Run(Stored(input), Stored(output));
  return sqlite3_last_insert_rowid(database_.handle());
}

void Manifest::SetWaiting(int64_t file, const std::string& output) { setWaiting_->Run(Stored(output), file); }

void Manifest::SetFailed(int64_t file, const std::string& error, int64_t size, int64_t modified) {
  dropPages_->Run(file);
  setFailed_->Run(error, run_, TimeNow(), size, modified, file);
}

void Manifest::SetUnchanged(int64_t file, int64_t modified) { setUnchanged_->Run(modified, file); }

std::vector<std::string> Manifest::SetResult(int64_t file, const FileResult& result) {
  std::vector<std::string> lost;
  dropPages_->Run(file);
  bool isDone = true;
  for (const PageResult& page : result.pages) {
    isDone = isDone && page.isDone;
    const std::string output = page.output.empty() ? "" : Stored(page.output);
    const std::string state = page.isDone ? "done" : "failed";
    addPage_->Run(file, page.page, state, page.error, output, page.size, page.hash, page.record);
    if (output.empty()) continue;
    if (ownerOf_->Run(output, file)) {
      const int64_t owner = ownerOf_->Integer(0);
      if (setReplaced_->Run(owner, output)) {
        while (setReplaced_->Next()) {
        }
        Statement(&database_, "UPDATE file SET state = 'failed' WHERE id = ?").Run(owner);
        lost.push_back(page.output);
      }
    }
    setWritten_->Run(output, file, page.hash);
  }
  const std::string state = isDone ? "done" : "failed";
  setDone_->Run(state, result.size, result.modified, result.hash, run_, TimeNow(), result.seconds, file);
  return lost;
}

void Manifest::SetVerified(int64_t file, const std::string& output, const std::string& error) {
  const std::string state = error.empty() ? "done" : "failed", stored = Stored(output);
  Statement(&database_, "UPDATE page SET state = ?, error = nullif(?, '') WHERE file = ? AND output = ?")
      .Run(state, error, file, stored);
  Statement(
      &database_,
      "UPDATE file SET state = CASE WHEN EXISTS (SELECT 1 FROM page WHERE file = ?1 AND state = 'failed') "
      "THEN 'failed' ELSE 'done' END WHERE id = ?1 AND error IS NULL")
      .Run(file);
}

}  // namespace rastrel::tool
