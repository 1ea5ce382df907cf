// What is kept on disk: the configuration and its history, in one SQLite database.
//
// Table "unit" has a row per unit (units.h) with its content as JSON; table "txn" a row per commit
// with who, when, and the difference in libyang's XML form. A commit changes both in one database
// transaction, which is on disk (WAL, synchronous FULL) before Write() returns. The database
// belongs to one process, which holds SQLite's exclusive lock on it.
//
// A failed write changes nothing, with one exception that no database can avoid: when the disk
// takes the commit but does not confirm it, nor anything after it, a restart may find the commit.
// The error then says so, and nothing is written until the disk has confirmed that the commit is
// gone.
//
// The history is bounded by the number of commits and by the size of their differences; the last
// commit is always kept, for its id is the transaction id. A checkpoint (table "checkpoint", a row
// or none) holds back what came after it.
#ifndef HOST_CDB_STORAGE_H_
#define HOST_CDB_STORAGE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/cdb/datastore.h"
#include "host/cdb/sqlite.h"
#include "host/cdb/units.h"
#include "host/cdb/yang_tree.h"

namespace host {

class Storage {
 public:
  // Opens or makes the database in the file `path`. Null with the reason, which names the file, in
  // `errors` when it cannot be used, is damaged, or is something else than a database of ours.
  static std::unique_ptr<Storage> Open(const std::string& path, const HistoryBound& bound,
                                       DatastoreErrors* errors);

  // Id of the last commit, 0 when there never was one.
  uint64_t LastId() const { return last_id_; }

  // Reads the configuration into `tree`, which is not validated. Errors name the file.
  DatastoreErrors Load(const ly_ctx* context, Tree* tree);

  // Makes a commit durable. `after` is what the configuration, or the part of it that the
  // difference is in, will be. When it returns errors nothing has been written.
  DatastoreErrors Write(const CommitInfo& info, const lyd_node* diff, const lyd_node* after);

  // Id of the commit after which nothing is pruned, 0 when there is none.
  uint64_t Checkpoint() const { return checkpoint_; }
  // Makes it `id` (0: none), durably. When it returns errors it is as it was.
  DatastoreErrors SetCheckpoint(uint64_t id);

  // The last `most` commits, the latest first.
  std::vector<CommitInfo> History(size_t most);
  // The commit `id`; none when it is not (or no more) kept.
  std::optional<CommitInfo> CommitOf(uint64_t id);
  // The difference that the commit `id` made, as text; empty when it is not (or no more) kept.
  std::string DifferenceOf(uint64_t id);

 private:
  Storage(std::string path, const HistoryBound& bound, SqlDatabase database);

  bool Prepare();
  bool WriteUnits(const std::vector<UnitChange>& changes);
  bool WriteTransaction(const CommitInfo& info, std::string_view difference);
  bool Prune(HistoryBound* kept);
  // Writes with `write`, all or nothing, and durably. `what` is written, for errors.
  DatastoreErrors Transact(const char* what, const std::function<bool()>& write);
  bool TryTransact(const std::function<bool()>& write);
  bool Settle();
  void NoteError();
  DatastoreErrors Failure(const char* what, const char* consequence) const;

  const std::string path_;
  const HistoryBound bound_;
  SqlDatabase database_;  // before the statements: it must outlive them
  SqlStatement put_unit_, delete_unit_, delete_within_, put_txn_, delete_txn_, oldest_;
  uint64_t last_id_ = 0;
  uint64_t checkpoint_ = 0;
  HistoryBound kept_{0, 0};  // what the history holds now
  bool in_doubt_ = false;    // a failed commit may be on disk
  int error_code_ = 0;       // why the last write failed
  std::string error_text_;
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_H_
