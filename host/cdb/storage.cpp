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

// The first value that a statement gives; 0 or empty where it is NULL. False on an error.
bool ReadText(sqlite3* database, const char* sql, std::string* text) {
  SqlStatement statement(database, sql);
  const bool found = statement.Step();
  if (found) *text = statement.Text(0);
  return found;
}
bool ReadNumber(sqlite3* database, const char* sql, int64_t* number) {
  SqlStatement statement(database, sql);
  const bool found = statement.Step();
  if (found) *number = statement.Number(0);
  return found;
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

// Makes the tables in an empty database, or finds out that it is not one of ours. Empty on success.
std::string CheckFormat(sqlite3* database) {
  int64_t tables = 0, application = 0, format = 0;
  if (!ReadNumber(database, "SELECT count(*) FROM sqlite_schema", &tables) ||
      !ReadNumber(database, "PRAGMA application_id", &application) ||
      !ReadNumber(database, "PRAGMA user_version", &format)) {
    return Reason(database);
  }
  if (tables == 0 && application == 0 && format == 0) {
    const std::string header = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                               "; PRAGMA user_version = " + std::to_string(kFormat) + ";";
    SqlTransaction transaction(database);
    const bool made = transaction.begun() && Execute(database, kMakeTables) &&
                      Execute(database, header.c_str()) && transaction.Commit();
    return made ? "" : Reason(database);
  }
  if (application != kApplicationId) return "it is a database of another program";
  if (format != kFormat) {
    return "its format " + std::to_string(format) + " is not the one of this version (" +
           std::to_string(kFormat) + ")";
  }
  std::string check;
  if (!ReadText(database, "PRAGMA quick_check(1)", &check)) return Reason(database);
  return check == "ok" ? "" : "it is damaged (" + check + "); restore it or move it away";
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
  std::string journal;
  if (why.empty() && !ReadText(raw, "PRAGMA journal_mode", &journal)) why = Reason(raw);
  if (why.empty() && journal != "wal") why = "it cannot be written";
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
  put_unit_ = SqlStatement(database, "INSERT OR REPLACE INTO unit VALUES(?1, ?2, ?3, ?4)");
  delete_unit_ =
      SqlStatement(database, "DELETE FROM unit WHERE place = ?1 AND list = ?2 AND keys = ?3");
  // All places below a path: '0' follows '/' in the order of bytes.
  delete_within_ = SqlStatement(
      database, "DELETE FROM unit WHERE place = ?1 OR (place > ?1 || '/' AND place < ?1 || '0')");
  put_txn_ = SqlStatement(database, "INSERT INTO txn VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
  delete_txn_ = SqlStatement(database, "DELETE FROM txn WHERE id = ?1");
  oldest_ = SqlStatement(database, "SELECT id, size FROM txn ORDER BY id LIMIT 1");
  int64_t last = 0, checkpoint = 0;
  if (!ReadNumber(database, "SELECT max(id) FROM txn", &last) ||
      !ReadNumber(database, "SELECT max(id) FROM checkpoint", &checkpoint) ||
      !ReadNumber(database, "SELECT count(*) FROM txn", &kept_.commits) ||
      !ReadNumber(database, "SELECT sum(size) FROM txn", &kept_.bytes)) {
    return false;
  }
  last_id_ = static_cast<uint64_t>(last);
  checkpoint_ = static_cast<uint64_t>(checkpoint);
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
  const std::string_view difference = text;
  std::vector<UnitChange> units;
  if (!CollectUnitChanges(diff, after, &units))
    return Refusal(path_, "the commit changes something that is in no list entry");
  HistoryBound kept;
  DatastoreErrors errors = Transact("the commit", [&] {
    kept = {kept_.commits + 1, kept_.bytes + static_cast<int64_t>(difference.size())};
    return WriteUnits(units) && WriteTransaction(info, difference) && Prune(&kept);
  });
  if (!errors.empty()) return errors;
  last_id_ = info.id;
  kept_ = kept;
  return {};
}

DatastoreErrors Storage::Transact(const char* what, const std::function<bool()>& write) {
  if (in_doubt_ && !Settle()) return Failure(what, "an earlier one may come back at a restart");
  if (TryTransact(write)) return {};
  // A full disk may have room when what is in the log has moved into the database.
  if (error_code_ == SQLITE_FULL && !in_doubt_ &&
      Execute(database_.get(), "PRAGMA wal_checkpoint(TRUNCATE)") && TryTransact(write)) {
    return {};
  }
  if (!in_doubt_) return Failure(what, "nothing was changed");
  return Failure(
      what, "running is unchanged, but until the disk works again a restart may bring it back");
}

bool Storage::TryTransact(const std::function<bool()>& write) {
  {
    SqlTransaction transaction(database_.get());
    if (transaction.begun() && write()) {
      if (transaction.Commit()) return true;
      // On a full disk the log lacks the end of the commit, without which it does not count.
      in_doubt_ = sqlite3_errcode(database_.get()) != SQLITE_FULL;
    }
    NoteError();
  }
  if (in_doubt_) Settle();
  return false;
}

// A commit that failed may be in the log all the same, complete, when it was only the disk's word
// that was missing; the next start would take it. Another transaction takes its place in the log,
// and with that what follows there is void. When that is on disk the failed one is gone for
// certain.
bool Storage::Settle() {
  // Writes the first page as it is.
  const std::string touch = "PRAGMA user_version = " + std::to_string(kFormat);
  SqlTransaction transaction(database_.get());
  in_doubt_ =
      !transaction.begun() || !Execute(database_.get(), touch.c_str()) || !transaction.Commit();
  if (in_doubt_) NoteError();
  return !in_doubt_;
}

bool Storage::WriteTransaction(const CommitInfo& info, std::string_view difference) {
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
    const std::string path = key.Path();
    delete_within_.Bind(1, path);
    if (!delete_unit_.Run() || !delete_within_.Run()) return false;
  }
  return true;
}

DatastoreErrors Storage::SetCheckpoint(uint64_t id) {
  const std::string insert = "INSERT INTO checkpoint VALUES(" + std::to_string(id) + ")";
  DatastoreErrors errors = Transact("the way back", [&] {
    return Execute(database_.get(), "DELETE FROM checkpoint") &&
           (id == 0 || Execute(database_.get(), insert.c_str()));
  });
  if (errors.empty()) checkpoint_ = id;
  return errors;
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

// To be called before a failed transaction is undone, for that may fail as well.
void Storage::NoteError() {
  error_code_ = sqlite3_errcode(database_.get());
  error_text_ = sqlite3_errmsg(database_.get());
}

// Why `what` was not written, as noted, and what follows.
DatastoreErrors Storage::Failure(const char* what, const char* consequence) const {
  DatastoreError error;
  const bool full = error_code_ == SQLITE_FULL || error_code_ == SQLITE_NOMEM;
  error.tag = full ? "resource-denied" : "operation-failed";
  error.message =
      std::string(what) + " cannot be stored in " + path_ + ": " + error_text_ + "; " + consequence;
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
