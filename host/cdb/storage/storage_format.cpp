// The format of the database.
#include "host/cdb/storage/storage_format.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace host {
namespace {

constexpr int64_t kApplicationId = 0x41434c31;  // says in the file's header that it is ours

constexpr char kMakeTables[] =
    "CREATE TABLE unit(place TEXT NOT NULL, list TEXT NOT NULL, keys TEXT NOT NULL,"
    " content TEXT NOT NULL, digest INTEGER NOT NULL DEFAULT 0, PRIMARY KEY(place, list, keys))"
    " WITHOUT ROWID;"
    "CREATE TABLE txn(id INTEGER PRIMARY KEY, time_us INTEGER NOT NULL, user TEXT NOT NULL,"
    " session INTEGER NOT NULL, comment TEXT NOT NULL, changes INTEGER NOT NULL,"
    " size INTEGER NOT NULL, diff TEXT NOT NULL, units INTEGER NOT NULL DEFAULT 0,"
    " earlier INTEGER NOT NULL DEFAULT 0, digest INTEGER NOT NULL DEFAULT 0);"
    "CREATE TABLE checkpoint(id INTEGER NOT NULL, digest INTEGER NOT NULL);"
    "INSERT INTO checkpoint VALUES(0, row_digest(0));";

constexpr char kMakeIdentity[] =
    "CREATE TABLE identity(database BLOB NOT NULL, digest INTEGER NOT NULL);"
    "INSERT INTO identity VALUES(randomblob(16), 0);"
    "UPDATE identity SET digest = row_digest(database);";

#define TXN_DIGEST \
  "row_digest(id, time_us, user, session, comment, changes, size, diff, units, earlier)"

// The last commit's row vouches for the rest, so it comes last.
constexpr char kConvert[] =
    "ALTER TABLE unit ADD COLUMN digest INTEGER NOT NULL DEFAULT 0;"
    "UPDATE unit SET digest = row_digest(place, list, keys, content);"
    "ALTER TABLE txn ADD COLUMN units INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE txn ADD COLUMN earlier INTEGER NOT NULL DEFAULT 0;"
    "ALTER TABLE txn ADD COLUMN digest INTEGER NOT NULL DEFAULT 0;"
    "UPDATE txn SET digest = " TXN_DIGEST
    " WHERE id < (SELECT max(id) FROM txn);"
    "UPDATE txn SET units = (SELECT digest_sum(digest) FROM unit),"
    " earlier = (SELECT digest_sum(digest) FROM txn) WHERE id = (SELECT max(id) FROM txn);"
    "UPDATE txn SET digest = " TXN_DIGEST
    " WHERE id = (SELECT max(id) FROM txn);"
    "CREATE TABLE IF NOT EXISTS checkpoint(id INTEGER NOT NULL);"
    "INSERT INTO checkpoint SELECT 0 WHERE NOT EXISTS (SELECT * FROM checkpoint);"
    "ALTER TABLE checkpoint ADD COLUMN digest INTEGER NOT NULL DEFAULT 0;"
    "UPDATE checkpoint SET digest = row_digest(id);";

// One process at a time: with the exclusive mode the first access takes a lock that stays.
constexpr const char* kSettings[] = {
    "PRAGMA locking_mode = EXCLUSIVE",  "PRAGMA journal_mode = WAL", "PRAGMA synchronous = FULL",
    "PRAGMA wal_autocheckpoint = 1000", "BEGIN EXCLUSIVE",           "COMMIT",
};

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

StorageProblem Damaged(std::string why) { return {true, std::move(why)}; }

// SQLite tells of pages that it could not read as if they were damaged, with its code for why.
bool CheckStructure(sqlite3* database, const std::string& path, StorageProblem* problem) {
  static constexpr char kCode[] = "error code=";
  std::string said;
  if (!ReadText(database, "PRAGMA quick_check(1)", &said)) {
    *problem = ProblemOf(database, path);
    return false;
  }
  if (said == "ok") return true;
  said.erase(0, said.rfind('\n') + 1);
  const size_t code = said.find(kCode);
  const int reason = code != std::string::npos ? std::atoi(&said[code + sizeof(kCode) - 1]) : 0;
  *problem = {(reason & 0xff) != SQLITE_IOERR, "it is damaged (" + said + ")"};
  return false;
}

// Makes the tables in an empty database, or finds out that it is not one of ours. No `why` on
// success.
StorageProblem CheckFormat(sqlite3* database, const std::string& path, bool* begin) {
  const bool may_begin = std::exchange(*begin, false);
  int64_t tables = 0, application = 0, format = 0;
  if (!ReadNumber(database, "SELECT count(*) FROM sqlite_schema", &tables) ||
      !ReadNumber(database, "PRAGMA application_id", &application) ||
      !ReadNumber(database, "PRAGMA user_version", &format)) {
    return ProblemOf(database, path);
  }
  const bool empty = tables == 0 && application == 0 && format == 0;
  if (empty && !may_begin) return Damaged("it is empty");
  if (!empty && application != kApplicationId)
    return Damaged("it is a database of another program");
  StorageProblem structure;
  if (!empty && !CheckStructure(database, path, &structure)) return structure;
  if (!empty && format == kStorageFormat) return {};
  if (!empty && (format != 1 || !may_begin)) {
    return Damaged("its format " + std::to_string(format) + " is not the one of this version (" +
                   std::to_string(kStorageFormat) + ")");
  }
  const std::string header = "PRAGMA application_id = " + std::to_string(kApplicationId) +
                             "; PRAGMA user_version = " + std::to_string(kStorageFormat) + ";";
  SqlTransaction transaction(database);
  const bool made = transaction.begun() && Execute(database, empty ? kMakeTables : kConvert) &&
                    Execute(database, kMakeIdentity) && Execute(database, header.c_str()) &&
                    transaction.Commit();
  if (!made) return ProblemOf(database, path);
  *begin = !empty;
  return {};
}

std::string OutOf(int64_t part, int64_t all) {
  return std::to_string(part) + " of " + std::to_string(all);
}

// An entry with a digest that is not its own, or a text that is none: what looks for a text finds
// no octets, and the digest is the same for both.
#define UNIT_IS_DAMAGED                                   \
  "(digest IS NOT row_digest(place, list, keys, content)" \
  " OR typeof(place) <> 'text' OR typeof(list) <> 'text'" \
  " OR typeof(keys) <> 'text' OR typeof(content) <> 'text')"

bool ExamineUnits(sqlite3* database, StorageContent* content) {
  SqlStatement sums(database,
                    "SELECT count(*), sum(" UNIT_IS_DAMAGED "), digest_sum(digest) FROM unit");
  if (!sums.Step()) return false;
  const int64_t damaged = sums.Number(1);
  content->units = DigestSum(sums.Number(2));
  if (damaged == 0) return true;
  content->units_sound = false;
  std::string first;
  if (!ReadText(database,
                "SELECT place || '/' || list || keys FROM unit"
                " WHERE " UNIT_IS_DAMAGED " LIMIT 1",
                &first)) {
    return false;
  }
  content->flaws.push_back(OutOf(damaged, sums.Number(0)) +
                           " stored entries are damaged, the first is " + first);
  return true;
}

bool ExamineHistory(sqlite3* database, StorageContent* content) {
  SqlStatement rows(database, "SELECT id, digest, digest IS " TXN_DIGEST
                              ", units, earlier, size FROM txn ORDER BY id");
  int64_t damaged = 0, vouched_units = 0, vouched_history = 0;
  DigestSum before_last;
  bool last_sound = true;
  while (rows.Step()) {
    ++content->commits;
    content->history_bytes += rows.Number(5);
    before_last = content->history;
    content->history.Add(rows.Number(1));
    last_sound = rows.Number(2) != 0;
    if (!last_sound) {
      ++damaged;
      continue;
    }
    content->last_id = static_cast<uint64_t>(rows.Number(0));
    vouched_units = rows.Number(3);
    vouched_history = rows.Number(4);
  }
  if (rows.failed()) return false;
  if (damaged != 0)
    content->flaws.push_back(OutOf(damaged, content->commits) +
                             " commits of the history are damaged");
  if (!last_sound || vouched_units != content->units.value()) content->units_sound = false;
  if (last_sound && vouched_units != content->units.value() && content->flaws.empty())
    content->flaws.emplace_back("its entries are not those of its last commit");
  if (last_sound && vouched_history != before_last.value() && content->flaws.empty())
    content->flaws.emplace_back("commits of its history are missing or damaged");
  return true;
}

// The tables of one row.
bool ExamineSingles(sqlite3* database, StorageContent* content) {
  int64_t sound = 0;
  if (!ReadNumber(database,
                  "SELECT (SELECT count(*) FROM identity) = 1 AND (SELECT count(*) FROM checkpoint)"
                  " = 1 AND (SELECT digest IS row_digest(database) FROM identity)"
                  " AND (SELECT digest IS row_digest(id) FROM checkpoint)",
                  &sound) ||
      !ReadText(database, "SELECT max(database) FROM identity", &content->database)) {
    return false;
  }
  int64_t checkpoint = 0;
  if (!ReadNumber(database, "SELECT max(id) FROM checkpoint", &checkpoint)) return false;
  content->checkpoint = static_cast<uint64_t>(checkpoint);
  if (sound == 0) content->flaws.emplace_back("its identity or its checkpoint is damaged");
  return true;
}

}  // namespace

StorageProblem ProblemOf(sqlite3* database, const std::string& path) {
  switch (sqlite3_errcode(database)) {
    case SQLITE_NOTADB:
      return Damaged("it is no database");
    case SQLITE_CORRUPT:
      return Damaged("it is damaged");
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return {false, "another process uses it"};
    case SQLITE_READONLY:
      return {access(path.c_str(), W_OK) == 0, "it cannot be written"};
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_AUTH:
    case SQLITE_IOERR:
    case SQLITE_FULL:
    case SQLITE_NOMEM:
    case SQLITE_PROTOCOL:
      return {false, sqlite3_errmsg(database)};
    default:
      return Damaged(std::string("it is damaged (") + sqlite3_errmsg(database) + ")");
  }
}

void SetCheckpointOnClose(sqlite3* database, bool move) {
  sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, move ? 0 : 1, nullptr);
}

SqlDatabase OpenStorage(const std::string& path, bool* begin, StorageProblem* problem) {
  *problem = {};
  sqlite3* raw = nullptr;
  const mode_t mask = umask(077);  // the configuration is for the daemon's user only
  const int opened =
      sqlite3_open_v2(path.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  SqlDatabase database(raw);
  bool good = opened == SQLITE_OK && AddDigestFunctions(raw);
  // Until it is known that the log belongs to the file, neither is to change.
  if (good) SetCheckpointOnClose(raw, false);
  for (const char* setting : kSettings) good = good && Execute(raw, setting);
  std::string journal;
  good = good && ReadText(raw, "PRAGMA journal_mode", &journal);
  if (!good) *problem = ProblemOf(raw, path);
  if (good && journal != "wal") *problem = {false, "it cannot be written"};
  // So it is, whatever the file's mode, when its header asks for a newer version of SQLite.
  const bool read_only = good && sqlite3_db_readonly(raw, "main") == 1;
  if (read_only) *problem = {access(path.c_str(), W_OK) == 0, "it cannot be written"};
  if (good && journal == "wal" && !read_only) *problem = CheckFormat(raw, path, begin);
  umask(mask);
  if (!problem->why.empty()) database.reset();
  return database;
}

bool ExamineStorage(sqlite3* database, StorageContent* content, StorageProblem* problem) {
  *content = StorageContent();
  if (ExamineUnits(database, content) && ExamineHistory(database, content) &&
      ExamineSingles(database, content)) {
    return true;
  }
  *problem = ProblemOf(database, "");
  return false;
}

}  // namespace host
