// The configuration and its history on disk.
#include "host/cdb/storage/storage.h"

#include <utility>

#include "host/cdb/diff_text.h"
#include "host/cdb/schema/schema.h"
#include "host/cdb/storage/unit_builder.h"

namespace host {
namespace {

DatastoreErrors Refusal(const std::string& path, const std::string& why) {
  DatastoreError error;
  error.tag = "operation-failed";
  error.message = "cannot use the configuration database " + path + ": " + why;
  return {error};
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

// Puts units into a tree, list by list.
class UnitLoader {
 public:
  explicit UnitLoader(const Tree& tree) : tree_(tree) {}

  // Where the unit that could not be read is, if one could not.
  const std::string& place() const { return place_; }

  // Adds a unit, all of one list one after the other. False when something cannot be read.
  bool Add(std::string_view place, std::string_view list, std::string_view content) {
    const bool same = parent_ != nullptr && place == place_ && list == list_;
    if (!same && !(Finish() && Begin(place, list))) return false;
    if (schema_ != nullptr && builder_.Add(parent_, schema_, content)) return true;
    if (others_++ > 0) contents_ += ',';
    contents_ += content;
    return true;
  }

  // To be called behind the last one.
  bool Finish() {
    const bool read = others_ == 0 || AddUnits(parent_, list_, contents_);
    others_ = 0;
    contents_.clear();
    return read;
  }

 private:
  bool Begin(std::string_view place, std::string_view list) {
    place_ = place;
    list_ = list;
    if (lyd_find_path(tree_.get(), place_.c_str(), 0, &parent_) != LY_SUCCESS) return false;
    const lysc_node* const parent = parent_->schema;
    schema_ = lys_find_child(parent, parent->module, list_.c_str(), 0, LYS_LIST, 0);
    return true;
  }

  const Tree& tree_;
  UnitBuilder builder_;
  std::string place_, list_;
  lyd_node* parent_ = nullptr;
  const lysc_node* schema_ = nullptr;
  size_t others_ = 0;     // of the list, that are not written as this version writes
  std::string contents_;  // theirs
};

}  // namespace

std::unique_ptr<Storage> Storage::Open(const std::string& path, const HistoryBound& bound,
                                       bool* begin, StorageProblem* problem) {
  SqlDatabase database = OpenStorage(path, begin, problem);
  if (database == nullptr) return nullptr;
  sqlite3* const raw = database.get();
  std::unique_ptr<Storage> storage(new Storage(path, bound, std::move(database)));
  if (!ExamineStorage(raw, &storage->content_, problem)) return nullptr;
  if (storage->Prepare()) return storage;
  *problem = ProblemOf(raw, path);
  return nullptr;
}

Storage::Storage(std::string path, const HistoryBound& bound, SqlDatabase database)
    : path_(std::move(path)), bound_(bound), database_(std::move(database)) {}

bool Storage::Prepare() {
  sqlite3* database = database_.get();
  make_unit_ = SqlStatement(database, "INSERT INTO unit VALUES(?1, ?2, ?3, ?4, ?5)");
  put_unit_ = SqlStatement(database, "REPLACE INTO unit VALUES(?1, ?2, ?3, ?4, ?5)");
  unit_digest_ = SqlStatement(
      database, "SELECT digest FROM unit WHERE place = ?1 AND list = ?2 AND keys = ?3");
  delete_unit_ = SqlStatement(
      database, "DELETE FROM unit WHERE place = ?1 AND list = ?2 AND keys = ?3 RETURNING digest");
  // All places below a path: '0' follows '/' in the order of bytes.
  delete_within_ = SqlStatement(database,
                                "DELETE FROM unit WHERE place = ?1 OR"
                                " (place > ?1 || '/' AND place < ?1 || '0') RETURNING digest");
  put_txn_ = SqlStatement(database,
                          "INSERT INTO txn VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11)");
  delete_txn_ = SqlStatement(database, "DELETE FROM txn WHERE id = ?1");
  oldest_ = SqlStatement(database, "SELECT id, size, digest FROM txn ORDER BY id LIMIT 1");
  return make_unit_.ok() && put_unit_.ok() && unit_digest_.ok() && delete_unit_.ok() &&
         delete_within_.ok() && put_txn_.ok() && delete_txn_.ok() && oldest_.ok();
}

DatastoreErrors Storage::Load(const ly_ctx* context, Tree* tree) {
  Normalize(context, tree);
  // As they are stored: a place within an entry sorts behind the place of that entry.
  SqlStatement rows(database_.get(),
                    "SELECT place, list, content FROM unit ORDER BY place, list, keys");
  UnitLoader loader(*tree);
  bool read = true;
  while (read && rows.Step()) read = loader.Add(rows.View(0), rows.View(1), rows.View(2));
  if (rows.failed()) return Refusal(path_, ProblemOf(database_.get(), path_).why);
  if (read && loader.Finish()) return {};
  DatastoreErrors errors = Refusal(path_, "its content at " + loader.place() + " cannot be read");
  TakeErrors(context, nullptr, &errors);
  return errors;
}

DatastoreErrors Storage::Write(const CommitInfo& info, const lyd_node* diff,
                               const lyd_node* after) {
  const std::string difference = DifferenceText(diff);
  StorageContent content;
  bool in_units = true;
  DatastoreErrors errors = Transact("the commit", [&] {
    content = content_;
    // Unit by unit: all of a bulk edit together would take more memory than all else about it.
    const auto write = [&](const UnitChange& change) { return WriteUnit(change, &content); };
    return VisitUnitChanges(diff, after, write, &in_units) &&
           WriteTransaction(info, difference, &content);
  });
  if (!in_units) return Refusal(path_, "the commit changes something that is in no list entry");
  if (errors.empty()) content_ = std::move(content);
  return errors;
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
  const std::string touch = "PRAGMA user_version = " + std::to_string(kStorageFormat);
  SqlTransaction transaction(database_.get());
  in_doubt_ =
      !transaction.begun() || !Execute(database_.get(), touch.c_str()) || !transaction.Commit();
  if (in_doubt_) NoteError();
  return !in_doubt_;
}

bool Storage::WriteTransaction(const CommitInfo& info, std::string_view difference,
                               StorageContent* content) {
  const auto number = [](auto value) { return static_cast<int64_t>(value); };
  ++content->commits;
  content->history_bytes += number(difference.size());
  if (!Prune(content)) return false;
  RowDigest digest;
  digest.Add(number(info.id)).Add(info.time_us).Add(info.origin.user);
  digest.Add(number(info.origin.session_id)).Add(info.origin.comment).Add(number(info.changes));
  digest.Add(number(difference.size())).Add(difference);
  digest.Add(content->units.value()).Add(content->history.value());
  put_txn_.Bind(1, number(info.id)).Bind(2, info.time_us).Bind(3, info.origin.user);
  put_txn_.Bind(4, number(info.origin.session_id)).Bind(5, info.origin.comment);
  put_txn_.Bind(6, number(info.changes));
  put_txn_.Bind(7, number(difference.size())).Bind(8, difference);
  put_txn_.Bind(9, content->units.value()).Bind(10, content->history.value());
  put_txn_.Bind(11, digest.value());
  content->history.Add(digest.value());
  content->last_id = info.id;
  return put_txn_.Run();
}

bool Storage::WriteUnit(const UnitChange& change, StorageContent* content) {
  const UnitKey& key = change.key;
  if (change.content.empty()) return DeleteUnit(key, content);
  if (!change.is_new) {
    unit_digest_.Bind(1, key.place).Bind(2, key.list).Bind(3, key.keys);
    if (unit_digest_.Step()) content->units.Remove(unit_digest_.Number(0));
    unit_digest_.Reset();
  }
  RowDigest digest;
  digest.Add(key.place).Add(key.list).Add(key.keys).Add(change.content);
  SqlStatement& put = change.is_new ? make_unit_ : put_unit_;
  put.Bind(1, key.place).Bind(2, key.list).Bind(3, key.keys).Bind(4, change.content);
  if (!put.Bind(5, digest.value()).Run()) return false;
  content->units.Add(digest.value());
  return true;
}

// Deletes a unit, and all units within it.
bool Storage::DeleteUnit(const UnitKey& key, StorageContent* content) {
  const std::string path = key.Path();
  delete_unit_.Bind(1, key.place).Bind(2, key.list).Bind(3, key.keys);
  delete_within_.Bind(1, path);
  for (SqlStatement* statement : {&delete_unit_, &delete_within_}) {
    while (statement->Step()) content->units.Remove(statement->Number(0));
    const bool failed = statement->failed();
    statement->Reset();
    if (failed) return false;
  }
  return true;
}

DatastoreErrors Storage::SetCheckpoint(uint64_t id) {
  const std::string update = "UPDATE checkpoint SET id = " + std::to_string(id) + ", digest = " +
                             std::to_string(RowDigest().Add(static_cast<int64_t>(id)).value());
  DatastoreErrors errors =
      Transact("the way back", [&] { return Execute(database_.get(), update.c_str()); });
  if (errors.empty()) content_.checkpoint = id;
  return errors;
}

// Deletes the oldest commits until `content`, which counts one that is about to come, is within the
// bound, or only what the checkpoint needs is left.
bool Storage::Prune(StorageContent* content) {
  while (content->commits > 1 &&
         (content->commits > bound_.commits || content->history_bytes > bound_.bytes)) {
    if (!oldest_.Step()) return false;
    const int64_t id = oldest_.Number(0);
    if (content->checkpoint != 0 && id > static_cast<int64_t>(content->checkpoint)) {
      oldest_.Reset();
      return true;
    }
    content->commits -= 1;
    content->history_bytes -= oldest_.Number(1);
    content->history.Remove(oldest_.Number(2));
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

std::optional<std::string> Storage::DifferenceOf(uint64_t id) {
  SqlStatement row(database_.get(), "SELECT diff FROM txn WHERE id = ?1");
  row.Bind(1, static_cast<int64_t>(id));
  if (!row.Step()) return std::nullopt;
  return row.Text(0);
}

}  // namespace host
