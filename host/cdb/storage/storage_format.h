// The format of the database: its tables, how it is opened, and whether it is what was written.
//
// Format 2. Table "unit" has a row per unit (units.h) with its content as JSON; "txn" a row per
// commit with who, when, and the difference in libyang's XML form; "checkpoint" one row with the
// commit that must be found again (0: none); "identity" one row with 16 octets that no other
// database has. Each row has the digest of its values (row_digest.h). The row of a commit also has
// the sum of the digests of all units after it, and that of the commits before it that are kept;
// so the last one vouches for the whole.
//
// Format 1 had neither digests nor identity, and is brought to format 2 when it is opened.
#ifndef HOST_CDB_STORAGE_STORAGE_FORMAT_H_
#define HOST_CDB_STORAGE_STORAGE_FORMAT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/cdb/storage/row_digest.h"
#include "host/cdb/storage/sqlite.h"

namespace host {

inline constexpr int64_t kStorageFormat = 2;  // in the file's header as user_version

// Why a database cannot be used.
struct StorageProblem {
  // Whether its content is at fault; otherwise it is not known, for it cannot be reached.
  bool damaged = false;
  std::string why;  // for people
};

// What the rows of a database say.
struct StorageContent {
  std::string database;     // its identity, 16 octets
  uint64_t last_id = 0;     // of the last commit whose row is sound; 0: there is none
  uint64_t checkpoint = 0;  // 0: none
  int64_t commits = 0;
  int64_t history_bytes = 0;
  DigestSum units, history;  // of the rows
  // What is wrong with it, for people; empty: nothing.
  std::vector<std::string> flaws;
  // Whether the units are those of the commit `last_id`, all of them and nothing else.
  bool units_sound = true;
};

// Opens the database in the file `path`, for this process alone. Only when `*begin`, an empty one
// is given its tables, and one of format 1 brought to format 2, of which it then tells. Null with
// the problem when it cannot be used.
SqlDatabase OpenStorage(const std::string& path, bool* begin, StorageProblem* problem);

// Reads all rows. False with the problem when they cannot be read.
bool ExamineStorage(sqlite3* database, StorageContent* content, StorageProblem* problem);

// What SQLite's last error, of the database in the file `path`, means for the operator.
StorageProblem ProblemOf(sqlite3* database, const std::string& path);

// Whether closing the database moves what is in its log into its file.
void SetCheckpointOnClose(sqlite3* database, bool move);

}  // namespace host

#endif  // HOST_CDB_STORAGE_STORAGE_FORMAT_H_
