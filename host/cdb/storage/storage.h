// What is kept on disk: the configuration and its history, in one SQLite database.
//
// A commit changes the units and adds its own row to the history (storage_format.h) in one database
// transaction, which is on disk (WAL, synchronous FULL) before Write() returns. The database
// belongs to one process, which holds SQLite's exclusive lock on it. Whether it is the one that it
// should be is for its user (state_directory.h) to find out, who until then must not write.
//
// A failed write changes nothing, with one exception that no database can avoid: when the disk
// takes the commit but does not confirm it, nor anything after it, a restart may find the commit.
// The error then says so, and nothing is written until the disk has confirmed that the commit is
// gone.
//
// The history is bounded by the number of commits and by the size of their differences; the last
// commit is always kept, for its id is the transaction id. A checkpoint holds back what came after
// it.
#ifndef HOST_CDB_STORAGE_STORAGE_H_
#define HOST_CDB_STORAGE_STORAGE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"
#include "host/cdb/storage/sqlite.h"
#include "host/cdb/storage/storage_format.h"
#include "host/cdb/storage/units.h"

namespace host {

class Storage {
 public:
  // Opens the database in the file `path`; only when `*begin` it is made, or brought to this
  // version's format, of which `*begin` then tells. Null with the problem when it cannot be used.
  static std::unique_ptr<Storage> Open(const std::string& path, const HistoryBound& bound,
                                       bool* begin, StorageProblem* problem);

  // Id of the last commit, 0 when there never was one.
  uint64_t LastId() const { return content_.last_id; }
  // 16 octets that tell this database from others.
  const std::string& Database() const { return content_.database; }
  // What was wrong with the content at the opening, for people, and whether the units were.
  const std::vector<std::string>& Flaws() const { return content_.flaws; }
  bool UnitsSound() const { return content_.units_sound; }

  // To be called when it is certain that file and log belong together: what is in the log moves
  // into the file at the end. Before, the end leaves both as they are.
  void Trust() { SetCheckpointOnClose(database_.get(), true); }
  void Distrust() { SetCheckpointOnClose(database_.get(), false); }

  // Reads the configuration into `tree`, which is not validated. Errors name the file.
  DatastoreErrors Load(const ly_ctx* context, Tree* tree);

  // Makes a commit durable. `diff` may be null, when only the fact is to be noted. `after` is what
  // the configuration, or the part of it that the difference is in, will be. When it returns errors
  // nothing has been written.
  DatastoreErrors Write(const CommitInfo& info, const lyd_node* diff, const lyd_node* after);

  // Id of the commit after which nothing is pruned, 0 when there is none.
  uint64_t Checkpoint() const { return content_.checkpoint; }
  // Makes it `id` (0: none), durably. When it returns errors it is as it was.
  DatastoreErrors SetCheckpoint(uint64_t id);

  // The last `most` commits, the latest first.
  std::vector<CommitInfo> History(size_t most);
  // The commit `id`; none when it is not (or no more) kept.
  std::optional<CommitInfo> CommitOf(uint64_t id);
  // The difference that the commit `id` made, as text, empty where it changed nothing; none when
  // it is not (or no more) kept.
  std::optional<std::string> DifferenceOf(uint64_t id);

 private:
  Storage(std::string path, const HistoryBound& bound, SqlDatabase database);

  bool Prepare();
  // These keep `content` in step with what they write.
  bool WriteUnit(const UnitChange& change, StorageContent* content);
  bool DeleteUnit(const UnitKey& key, StorageContent* content);
  bool WriteTransaction(const CommitInfo& info, std::string_view difference,
                        StorageContent* content);
  bool Prune(StorageContent* content);
  // Writes with `write`, all or nothing, and durably. `what` is written, for errors.
  DatastoreErrors Transact(const char* what, const std::function<bool()>& write);
  bool TryTransact(const std::function<bool()>& write);
  bool Settle();
  void NoteError();
  DatastoreErrors Failure(const char* what, const char* consequence) const;

  const std::string path_;
  const HistoryBound bound_;
  SqlDatabase database_;  // before the statements: it must outlive them
  SqlStatement make_unit_, put_unit_, unit_digest_, delete_unit_, delete_within_;
  SqlStatement put_txn_, delete_txn_, oldest_;
  StorageContent content_;
  bool in_doubt_ = false;  // a failed commit may be on disk
  int error_code_ = 0;     // why the last write failed
  std::string error_text_;
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_STORAGE_H_
