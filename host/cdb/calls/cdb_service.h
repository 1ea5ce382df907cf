// The server behind the cdb_* calls: sessions with the running and the operational datastore, by
// handle. There is one per process at a time; the calls find it by themselves.
#ifndef HOST_CDB_CALLS_CDB_SERVICE_H_
#define HOST_CDB_CALLS_CDB_SERVICE_H_

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/cdb/calls/cdb_path.h"
#include "host/cdb/datastore.h"
#include "host/cdb/schema/cdb_schema.h"
#include "platform/confd/confd_cdb.h"

namespace host {

// The text of the last error, for confd_lasterr().
void SetCdbError(const std::string& text);
const std::string& CdbError();

// One session: which datastore, and where in it.
class CdbSession {
 public:
  // `absolute` resolves the absolute paths of all sessions with the same database, since they
  // follow one another in the same places. It must outlive the session.
  CdbSession(const CdbSchema* schema, cdb_db_type db, PathResolver* absolute)
      : db_(db), absolute_(absolute), relative_(schema) {}

  cdb_db_type db() const { return db_; }

  // Resolves a path, relative ones from the position. Null after an error (SetCdbError).
  const PathSteps* Resolve(std::string_view path, const PathTree& tree);

  // The position as a path, "/" at the top. It stays the same whatever is committed.
  const std::string& Position();
  // The steps of the position in the tree as it is now, all entries by their keys; their data means
  // nothing. Null after an error (SetCdbError).
  const PathSteps* PositionSteps(const PathTree& tree);
  // Goes to `path`; whether there is such a node in the data makes no difference. False after an
  // error (SetCdbError).
  bool MoveTo(std::string_view path, const PathTree& tree);

 private:
  const PathSteps* Read(std::string_view path, const PathTree& tree);
  PathResolver* ResolverOf(std::string_view* path);
  void TakePosition(const PathSteps& steps, bool same_tree);

  cdb_db_type db_;
  // Apart, so that neither loses the steps that it goes on from to the other.
  PathResolver* absolute_;
  PathResolver relative_;
  std::string position_ = "/";  // empty: to be printed when it is asked for
  PathSteps position_steps_;    // of the tree of position_generation_
  uint64_t position_generation_ = 0;
  std::string joined_;  // the last relative path's absolute form; a member to save allocations
};

class CdbService {
 public:
  // `datastore` must outlive the service.
  explicit CdbService(Datastore* datastore);
  CdbService(const CdbService&) = delete;
  CdbService& operator=(const CdbService&) = delete;
  ~CdbService();

  // The process's service, null while there is none.
  static CdbService* Instance();

  Datastore& datastore() { return *datastore_; }
  const CdbSchema& schema() const { return schema_; }
  KeypathPrinter& keypath_printer() { return keypath_printer_; }

  // Returns the session's handle, negative for a database that is not served.
  int OpenSession(cdb_db_type db);
  void CloseSession(int handle);
  // Null when there is no such session.
  CdbSession* Session(int handle);

  // The session's tree as it is now.
  PathTree TreeOf(const CdbSession& session);

 private:
  struct IndexOfTree {
    uint64_t generation = 0;
    ListIndex index;
  };
  PathTree Tree(const lyd_node* first, uint64_t generation, uint64_t losses, IndexOfTree* index);

  Datastore* datastore_;
  CdbSchema schema_;
  KeypathPrinter keypath_printer_{&schema_};
  PathResolver running_paths_;
  PathResolver operational_paths_;
  std::vector<std::unique_ptr<CdbSession>> sessions_;  // by handle
  IndexOfTree running_index_;
  IndexOfTree operational_index_;
};

}  // namespace host

#endif  // HOST_CDB_CALLS_CDB_SERVICE_H_
