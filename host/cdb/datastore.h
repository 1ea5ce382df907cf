// The configuration datastore: the running configuration as one libyang tree, changed by commits
// that are all or nothing, and the operational state beside it.
//
// A commit never looks at the whole tree. The configuration is made of units (an access-list entry,
// an interface, a profile's own leaves); a commit copies the units that its edit touches into a
// small tree, applies the edit to a copy of that, validates the copy, and applies the difference of
// the two to running. Checks that cross units are made by hand (cross_checks.h). The result is that
// of a validation and replacement of the whole tree, at a cost that does not grow with it.
//
// A commit is on disk (storage.h) before running changes and before anyone is told of it; what was
// acknowledged survives any end of the process. Where the disk does not keep it, that is noticed
// (state_directory.h), and running is read only until an operator has settled it.
//
// Invariants:
//  - running is always valid, and has no part of a commit that was refused;
//  - observers run after the commit is persistent and running is changed, before Edit() returns;
//  - an observer must not change running.
#ifndef HOST_CDB_DATASTORE_H_
#define HOST_CDB_DATASTORE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"
#include "host/runtime/entry_origins.h"

namespace host {

class OperationalStore;

// Why something was refused, in the terms of RFC 6241, Appendix A.
struct DatastoreError {
  std::string tag;      // error-tag, such as "invalid-value"
  std::string app_tag;  // error-app-tag, or empty
  std::string path;     // instance path of the node at fault, or empty
  std::string message;  // for a person to read
  // Content of error-info where the tag asks for it; empty otherwise.
  std::string bad_element;
  std::string bad_namespace;
};
// Empty means success.
using DatastoreErrors = std::vector<DatastoreError>;
// What one message is answered with at most, so that the answer to it stays in proportion. Who
// looks for errors stops when there is one more: it tells that there are more.
inline constexpr size_t kMaxErrors = 100;

// Who makes a change.
struct Origin {
  std::string user;
  uint32_t session_id = 0;   // 0: the daemon itself
  std::string comment = "";  // what who makes it says of it, or what it is
};

// A commit as the history has it.
struct CommitInfo {
  uint64_t id = 0;
  int64_t time_us = 0;  // microseconds since 1970
  Origin origin;
  size_t changes = 0;  // list entries and leaves that it created, deleted or set
};

enum class DefaultOperation { kMerge, kReplace, kNone };
enum class TestOption { kTestThenSet, kSet, kTestOnly };

struct EditOptions {
  DefaultOperation default_operation = DefaultOperation::kMerge;
  TestOption test_option = TestOption::kTestThenSet;
};

// Filter entries that a configuration needs, by group: "l2" and "l3".
using GroupNeeds = std::map<std::string, int64_t>;

// What an edit would do.
struct EditPreview {
  DatastoreErrors errors;  // why it would be refused; empty: it would not
  Tree difference;         // in libyang's form; null when there is none, or when it is not known
  GroupNeeds now;
  GroupNeeds then;  // empty when the edit fails before that is known
};

// Why the stored configuration cannot be taken for the last one that was acknowledged
// (state_directory.h). Nothing can be committed while there is doubt.
struct StateDoubt {
  std::vector<std::string> reasons;  // for people; empty: there is no doubt
  uint64_t found = 0;                // commit that running was read as; 0: nothing could be read
  uint64_t acknowledged = 0;         // the last commit that is known of; 0: none is
  bool sound = true;                 // running is what it was after the commit `found`, exactly
};

// What an operator makes of a state that is in doubt.
struct Recovery {
  // Take what was found, which must be of the commit `accept`; 0: replace it.
  uint64_t accept = 0;
  const lyd_node* config = nullptr;  // by this, or by nothing
};

// Told of every commit that changes running.
class CommitObserver {
 public:
  virtual ~CommitObserver() = default;
  // The commit is persistent, and running still has the old content: the last moment to look at it.
  virtual void BeforeCommit(const lyd_node* /*diff*/) {}
  // `diff` is the difference in libyang's form (nodes with yang:operation), owned by the datastore
  // and valid during the call; running already has the new content, and may share what was created
  // with it: it is to be read from the top down, or copied first.
  virtual void OnCommit(const lyd_node* diff, const CommitInfo& info) = 0;
  // A commit ended the doubt about the state; `diff` is null when running stays as it is.
  virtual void OnRecovery(const lyd_node* diff, const CommitInfo& info) {
    if (diff != nullptr) OnCommit(diff, info);
  }
};

// How much of the history is kept: so many commits, and so many octets of differences. The last
// commit is always kept.
struct HistoryBound {
  int64_t commits = 1000;
  int64_t bytes = 64 << 20;
};

struct DatastoreOptions {
  std::string yang_directory;
  // Where running is kept. Empty: it is not, and ends with the process.
  std::string state_directory;
  // What running begins with when nothing was ever committed: JSON or XML by its ending; empty:
  // with nothing. A configuration that was committed is never replaced by it.
  std::string startup_file;
  HistoryBound history;
  // Ports on which filters of an earlier process are in force: evidence that there was a state.
  size_t filters_in_force = 0;
  // Filter entries that each group holds; none: any number. A commit is refused that would make a
  // group need more. What is stored is loaded all the same.
  std::optional<uint32_t> group_capacity;
};

class Datastore {
 public:
  // Loads the modules and the running configuration. Null on failure, with the reasons in `errors`.
  static std::unique_ptr<Datastore> Open(const DatastoreOptions& options, DatastoreErrors* errors);
  virtual ~Datastore() = default;

  // The schema; lives as long as the datastore.
  virtual const ly_ctx* Context() const = 0;
  // First top-level node of the running configuration. Containers without presence may be there
  // and hold nothing, or be absent. Read only, valid until the next commit.
  virtual const lyd_node* Running() const = 0;
  // Grows with every commit that changed something, over restarts as well; never 0.
  virtual uint64_t TransactionId() const = 0;

  // Applies an edit (nodes with nc:operation metadata, RFC 6241 section 7.2) to running. Parts of
  // the edit that the schema does not know may be opaque nodes: they are refused here, with path
  // and reason. All or nothing; an edit that changes nothing succeeds and makes no commit.
  virtual DatastoreErrors Edit(const lyd_node* edit, const EditOptions& options,
                               const Origin& origin) = 0;

  // The same, for an edit that is not needed any more: its content goes over into running instead
  // of being copied.
  virtual DatastoreErrors EditFrom(Tree edit, const EditOptions& options, const Origin& origin) = 0;

  // What Edit() would do, without doing it.
  virtual EditPreview Preview(const lyd_node* edit, const EditOptions& options) = 0;

  // What the running configuration needs, and what there is.
  virtual const GroupNeeds& Needs() const = 0;
  virtual std::optional<uint32_t> GroupCapacity() const = 0;
  // Where the entries of the group `type`, "l2" or "l3", come from in the running configuration.
  virtual std::shared_ptr<const GroupOrigins> OriginsOf(const std::string& type) const = 0;

  // The last `most` commits, the latest first. Without a state directory there is no history.
  virtual std::vector<CommitInfo> History(size_t most) const = 0;
  // The difference that a commit made, in libyang's form; the caller frees it (lyd_free_all). Null
  // with the reason in `errors` when the history does not (or no more) have it, and without when it
  // changed nothing.
  virtual lyd_node* DifferenceOf(uint64_t id, DatastoreErrors* errors) const = 0;
  // The commit `id` as the history has it; none when it does not.
  virtual std::optional<CommitInfo> CommitOf(uint64_t id) const = 0;
  // What becomes of the configuration between two commits, in either direction, in libyang's form;
  // null when nothing does. Costs what has changed since the earlier one.
  virtual Tree DifferenceBetween(uint64_t from, uint64_t to, DatastoreErrors* errors) = 0;
  // Makes running again what it was after the commit `id`, by a new commit. Costs what has changed
  // since. Refused like any edit, so when a profile was made anew with another priority meanwhile;
  // but the daemon itself gets back to a checkpoint even where the capacity has become too small.
  virtual DatastoreErrors Rollback(uint64_t id, const Origin& origin) = 0;

  // A place in the history that must be found again whatever happens to the process: notes the
  // last commit, on disk before this returns, in place of an earlier note. Until it is cleared, in
  // this process or a later one, the history keeps what a rollback to there takes, beyond its
  // bound. Errors without a state directory, or when the disk fails; the note is then as it was.
  virtual DatastoreErrors SetCheckpoint() = 0;
  virtual DatastoreErrors ClearCheckpoint() = 0;
  // Id of the commit that was noted, 0 when there is no note.
  virtual uint64_t Checkpoint() const = 0;

  // Whether the state is in doubt, as it is now: at the start, or since somebody touched its files.
  virtual StateDoubt Doubt() const = 0;
  // Ends the doubt by a commit, which makes running what the recovery says. Refused, and the doubt
  // stays, like any edit, or when there is no doubt or no such commit was found.
  virtual DatastoreErrors Recover(const Recovery& recovery, const Origin& origin) = 0;

  // Observers are called in the order of their registration. Not owned.
  virtual void AddObserver(CommitObserver* observer) = 0;
  virtual void RemoveObserver(CommitObserver* observer) = 0;

  virtual OperationalStore& Operational() = 0;
};

}  // namespace host

#endif  // HOST_CDB_DATASTORE_H_
