// The state directory: the database, the mark beside it, and whether they are what was left there.
//
// A start must not take an older or a damaged configuration for the last one, for it would take
// filters out of force that were committed. So before anything is read from the database it is
// compared with what vouches for it:
//  - its own digests (storage_format.h): that its rows are what was written, all of them;
//  - the mark (commit_mark.h): that it is the database of this directory, and has every commit that
//    was acknowledged;
//  - the filters that are in force: a directory in which nothing was ever committed is not where
//    they came from.
// Damage to any one file, its loss, or an older copy of it in its place leaves one that contradicts
// it. Then the state is in doubt: nothing is written, and the files stay as they are, until an
// operator says what the configuration is to be (Recover()), or puts the right files back and
// starts the daemon anew.
//
// While the daemon runs, nobody else writes into the directory: before each write the files are
// looked at, and if they were touched the write is refused.
#ifndef HOST_CDB_STORAGE_STATE_DIRECTORY_H_
#define HOST_CDB_STORAGE_STATE_DIRECTORY_H_

#include <cstdint>
#include <memory>
#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/storage/commit_mark.h"
#include "host/cdb/storage/file_watch.h"
#include "host/cdb/storage/storage.h"

namespace host {

class StateDirectory {
 public:
  // Looks at the directory of the options, and makes what is missing at a first start. Null with
  // the reasons, which name the file, when it cannot be reached; damage is no error but doubt.
  static std::unique_ptr<StateDirectory> Open(const DatastoreOptions& options,
                                              DatastoreErrors* errors);

  StateDoubt Doubt() const;
  // The configuration that the database holds cannot be used, for `errors`.
  void DoubtContent(const DatastoreErrors& errors);

  // For reading; null when the database cannot be read.
  Storage* storage() const { return storage_.get(); }
  // Id of the last commit that was or may have been acknowledged; 0: there was none.
  uint64_t LastId() const;

  // As Storage has them; refused while there is doubt.
  DatastoreErrors Write(const CommitInfo& info, const lyd_node* diff, const lyd_node* after);
  DatastoreErrors SetCheckpoint(uint64_t id);

  // Ends the doubt: makes the configuration that `after` is, whole, the stored one, by the commit
  // `info`. `diff` is its difference to what was read from the database, `whole` that to nothing.
  // The database goes on where it is sound; otherwise it is set aside, under a name that says so,
  // and a new one is begun. After errors there is doubt as before.
  DatastoreErrors Recover(const CommitInfo& info, const lyd_node* diff, const lyd_node* whole,
                          const lyd_node* after);

 private:
  explicit StateDirectory(const DatastoreOptions& options);

  DatastoreErrors Examine(size_t filters_in_force);
  void CompareWithMark(const std::optional<CommitMark::Content>& mark, bool mark_damaged,
                       bool converted);
  DatastoreErrors Begin(const std::optional<CommitMark::Content>& mark);
  DatastoreErrors Refuse() const;
  DatastoreErrors BeginAnew(int64_t time_us);
  void Advance(uint64_t id);

  const std::string directory_, path_;
  const HistoryBound history_;
  std::unique_ptr<Storage> storage_;
  CommitMark mark_;
  FileWatch watch_;
  StateDoubt doubt_;
  bool set_aside_ = false;  // whether the database is of no further use
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_STATE_DIRECTORY_H_
