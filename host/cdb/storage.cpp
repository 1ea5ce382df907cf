// The configuration and its history on disk.
#include "host/cdb/storage.h"

#include <sys/stat.h>

#include <cstdlib>
#include <utility>

#include "host/cdb/schema.h"

namespace host {
namespace {

constexpr int64_t kApplicationId = 0x41434c31;  // says in the file's header that it is ours
constexpr int64_t kFormat = 1;                  // of the tables; in the header as user_version

constexpr char kMakeTables[] =
    "CREATE TABLE unit(place TEXT NOT NULL, list TEXT NOT NULL, keys TEXT NOT NULL,"
    " content TEXT NOT NULL, PRIMARY KEY(place, list, keys)) WITHOUT ROWID;"
    "CREATE TABLE txn(id INTEGER PRIMARY KEY, time_us INTEGER NOT NULL, user TEXT NOT NULL,"
    " session INTEGER NOT NULL, comment TEXT NOT NULL, changes INTEGER NOT NULL,"
    " size INTEGER NOT NULL, diff TEXT NOT NULL);";
constexpr char kMakeCheckpoint[] = "CREATE TABLE IF NOT EXISTS checkpoint(id INTEGER NOT NULL)";

DatastoreErrors Refusal(const std::string& path, const std::string& why) {
  DatastoreError error;
  error.tag = "operation-failed";
  error.message = "cannot use the configuration database " + path + ": " + why;
  return {error};
}

// The first value that a statement gives.
std::string FirstText(sqlite3* database, const char* sql) {
  SqlStatement statement(database, sql);
  return statement.Step() ? statement.Text(0) : "";
}
int64_t FirstNumber(sqlite3* database, const char* sql) {
  SqlStatement statement(database, sql);
  return statement.Step() ? statement.Number(0) : 0;
}

// Makes the tables in an empty database, or finds out that it is not one of ours. Empty on success.
std::string CheckFormat(sqlite3* database) {
  const int64_t tables = FirstNumber(database, "SELECT count(*) FROM sqlite_schema");
  const int64_t application = FirstNumber(database, "PRAGMA application_id");
  const int64_t format = FirstNumber(database, "PRAGMA user_version");
  if (tables == 0 && application == 0 && format == 0) {
    const std::string header = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                               "; PRAGMA user_version = " + std::to_string(kFormat) + ";";
    SqlTransaction transaction(database);
    const bool made = transaction.begun() && Execute(database, kMakeTables) &&
                      Execute(database, header.c_str()) && transaction.Commit();
    return made ? "" : sqlite3_errmsg(database);
  }
  if (application != kApplicationId) return "it is a database of another program";
  if (format != kFormat) {
    return "its format " + std::to_string(format) + " is not the one of this version (" +
           std::to_string(kFormat) + ")";
  }
  const std::string check = FirstText(database, "PRAGMA quick_check(1)");
  if (check != "ok") return "it is damaged (" + check + "); restore it or move it away";
  return "";
}

// What SQLite's last error means for the operator.
std::string Reason(sqlite3* database) {
  switch (sqlite3_errcode(database)) {
    case SQLITE_NOTADB:
      return "it is no database";
    case SQLITE_CORRUPT:
      return "it is damaged; restore it or move it away";
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "another process uses it";
    default:
      return sqlite3_errmsg(database);
  }
}

// The commit of a row with the columns id, time_us, user, session, comment, changes.
CommitInfo InfoOf(const SqlStatement& row) {
  CommitInfo info;
  info.id = static_cast<uint64_t>(row.Number(0));
  info.time_us = row.Number(1);
  info.origin.user = row.Text(2);
  info.origin.session_id = static_cast<uint32_t>(row.Number(3));
  info.origin.comment = row.Text(4);
  info.changes = static_cast<size_t>(row.Number(5));
  return info;
}

// One process at a time: with the exclusive mode the first access takes a lock that stays.
constexpr const char* kSettings[] = {
    "PRAGMA locking_mode = EXCLUSIVE",  "PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL",
    "PRAGMA wal_autocheckpoint = 1000", "BEGIN EXCLUSIVE",           "COMMIT",
};

}  // namespace

std::unique_ptr<Storage> Storage::Open(const std::string& path, const HistoryBound& bound,
                                       DatastoreErrors* errors) {
  sqlite3* raw = nullptr;
  const mode_t mask = umask(077);  // the configuration is for the daemon's user only
  const int opened =
      sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  SqlDatabase database(raw);
  std::string why = opened == SQLITE_OK ? "" : Reason(raw);
  for (const char* setting : kSettings) {
    if (why.empty() && !Execute(raw, setting)) why = Reason(raw);
  }
  if (why.empty()) why = CheckFormat(raw);
  umask(mask);
  std::unique_ptr<Storage> storage;
  if (why.empty()) {
    storage.reset(new Storage(path, bound, std::move(database)));
    if (!storage->Prepare()) why = Reason(raw);
  }
  if (why.empty()) return storage;
  *errors = Refusal(path, why);
  return nullptr;
}

Storage::Storage(std::string path, const HistoryBound& bound, SqlDatabase database)
    : path_(std::move(path)), bound_(bound), database_(std::move(database)) {}

bool Storage::Prepare() {
  sqlite3* database = database_.get();
  if (!Execute(database, kMakeCheckpoint)) return false;
  checkpoint_ = static_cast<uint64_t>(FirstNumber(database, "SELECT id FROM checkpoint"));
  put_unit_ = SqlStatement(database, "INSERT OR REPLACE INTO unit VALUES(?1, ?2, ?3, ?4)");
  delete_unit_ =
      SqlStatement(database, "DELETE FROM unit WHERE place = ?1 AND list = ?2 AND keys = ?3");
  // All places below a path: '0' follows '/' in the order of bytes.
  delete_within_ = SqlStatement(
      database, "DELETE FROM unit WHERE place = ?1 OR (place > ?1 || '/' AND place < ?1 || '0')");
  put_txn_ = SqlStatement(database, "INSERT INTO txn VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
  delete_txn_ = SqlStatement(database, "DELETE FROM txn WHERE id = ?1");
  oldest_ = SqlStatement(database, "SELECT id, size FROM txn ORDER BY id LIMIT 1");
  last_id_ = static_cast<uint64_t>(FirstNumber(database, "SELECT max(id) FROM txn"));
  kept_.commits = FirstNumber(database, "SELECT count(*) FROM txn");
  kept_.bytes = FirstNumber(database, "SELECT sum(size) FROM txn");
  return put_unit_.ok() && delete_unit_.ok() && delete_within_.ok() && put_txn_.ok() &&
         delete_txn_.ok() && oldest_.ok();
}

DatastoreErrors Storage::Load(const ly_ctx* context, Tree* tree) {
  Normalize(context, tree);
  // Shorter places first: an entry comes before what is within it.
  SqlStatement rows(database_.get(),
                    "SELECT place, list, content FROM unit ORDER BY length(place), place, list");
  std::string place, list, contents;
  bool good = true;
  const auto flush = [&] {
    good = good && (contents.empty() || AddUnits(context, place, list, contents, tree));
    contents.clear();
  };
  while (good && rows.Step()) {
    const std::string row_place = rows.Text(0);
    const std::string row_list = rows.Text(1);
    if (row_place != place || row_list != list) flush();
    place = row_place;
    list = row_list;
    if (!contents.empty()) contents += ',';
    contents += rows.Text(2);
  }
  if (rows.failed()) return Refusal(path_, Reason(database_.get()));
  flush();
  if (good) return {};
  DatastoreErrors errors = Refusal(path_, "its content at " + place + " cannot be read");
  TakeErrors(context, nullptr, &errors);
  return errors;
}

DatastoreErrors Storage::Write(const CommitInfo& info, const lyd_node* diff,
                               const lyd_node* after) {
  char* text = nullptr;
  if (lyd_print_mem(&text, diff, LYD_XML, LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS) !=
      LY_SUCCESS) {
    return Refusal(path_, "out of memory");
  }
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  const std::string difference = text;
  std::vector<UnitChange> units;
  if (!CollectUnitChanges(diff, after, &units))
    return Refusal(path_, "the commit changes something that is in no list entry");
  HistoryBound kept = {kept_.commits + 1, kept_.bytes + static_cast<int64_t>(difference.size())};
  SqlTransaction transaction(database_.get());
  if (!transaction.begun() || !WriteUnits(units) || !WriteTransaction(info, difference) ||
      !Prune(&kept) || !transaction.Commit()) {
    return Failure("the commit");
  }
  last_id_ = info.id;
  kept_ = kept;
  return {};
}

bool Storage::WriteTransaction(const CommitInfo& info, const std::string& difference) {
  put_txn_.Bind(1, static_cast<int64_t>(info.id)).Bind(2, info.time_us).Bind(3, info.origin.user);
  put_txn_.Bind(4, static_cast<int64_t>(info.origin.session_id)).Bind(5, info.origin.comment);
  put_txn_.Bind(6, static_cast<int64_t>(info.changes));
  put_txn_.Bind(7, static_cast<int64_t>(difference.size())).Bind(8, difference);
  return put_txn_.Run();
}

bool Storage::WriteUnits(const std::vector<UnitChange>& changes) {
  for (const UnitChange& change : changes) {
    const UnitKey& key = change.key;
    if (!change.content.empty()) {
      put_unit_.Bind(1, key.place).Bind(2, key.list).Bind(3, key.keys).Bind(4, change.content);
      if (!put_unit_.Run()) return false;
      continue;
    }
    delete_unit_.Bind(1, key.place).Bind(2, key.list).Bind(3, key.keys);
    delete_within_.Bind(1, key.Path());
    if (!delete_unit_.Run() || !delete_within_.Run()) return false;
  }
  return true;
}

DatastoreErrors Storage::SetCheckpoint(uint64_t id) {
  const std::string insert = "INSERT INTO checkpoint VALUES(" + std::to_string(id) + ")";
  SqlTransaction transaction(database_.get());
  if (!transaction.begun() || !Execute(database_.get(), "DELETE FROM checkpoint") ||
      (id != 0 && !Execute(database_.get(), insert.c_str())) || !transaction.Commit()) {
    return Failure("the way back");
  }
  checkpoint_ = id;
  return {};
}

// Deletes the oldest commits until `kept`, which counts the new one, is within the bound, or only
// what the checkpoint needs is left.
bool Storage::Prune(HistoryBound* kept) {
  while (kept->commits > 1 && (kept->commits > bound_.commits || kept->bytes > bound_.bytes)) {
    if (!oldest_.Step()) return false;
    const int64_t id = oldest_.Number(0);
    if (checkpoint_ != 0 && id > static_cast<int64_t>(checkpoint_)) {
      oldest_.Reset();
      return true;
    }
    kept->commits -= 1;
    kept->bytes -= oldest_.Number(1);
    oldest_.Reset();
    if (!delete_txn_.Bind(1, id).Run()) return false;
  }
  return true;
}

// Why `what` was not written. To be called before the transaction is undone.
DatastoreErrors Storage::Failure(const char* what) const {
  DatastoreError error;
  const int code = sqlite3_errcode(database_.get());
  error.tag = code == SQLITE_FULL || code == SQLITE_NOMEM ? "resource-denied" : "operation-failed";
  error.message = std::string(what) + " cannot be stored in " + path_ + ": " +
                  sqlite3_errmsg(database_.get()) + "; nothing was changed";
  return {error};
}

std::vector<CommitInfo> Storage::History(size_t most) {
  std::vector<CommitInfo> history;
  SqlStatement rows(database_.get(),
                    "SELECT id, time_us, user, session, comment, changes FROM txn"
                    " ORDER BY id DESC LIMIT ?1");
  rows.Bind(1, static_cast<int64_t>(most));
  while (rows.Step()) history.push_back(InfoOf(rows));
  return history;
}

std::optional<CommitInfo> Storage::CommitOf(uint64_t id) {
  SqlStatement row(database_.get(),
                   "SELECT id, time_us, user, session, comment, changes FROM txn WHERE id = ?1");
  row.Bind(1, static_cast<int64_t>(id));
  if (!row.Step()) return std::nullopt;
  return InfoOf(row);
}

std::string Storage::DifferenceOf(uint64_t id) {
  SqlStatement row(database_.get(), "SELECT diff FROM txn WHERE id = ?1");
  row.Bind(1, static_cast<int64_t>(id));
  return row.Step() ? row.Text(0) : "";
}

}  // namespace host
