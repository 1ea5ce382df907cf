// Digests that tell whether the rows of the database are what was written.
//
// SQLite notices damage to its own structure, and not a bit that flips within a value. So each row
// has a digest of its values, and the sum of the digests of a table, modulo 2^64, is kept apart
// from it: the sum tells of rows that are missing, or that are there in an older form, and follows
// a change of one row at the cost of that row. The digests (XXH3, 64 bits) are against faults, not
// against people who may write the file.
#ifndef HOST_CDB_STORAGE_ROW_DIGEST_H_
#define HOST_CDB_STORAGE_ROW_DIGEST_H_

#include <cstdint>
#include <string_view>

struct sqlite3;

namespace host {

// The digest of a row: its values are added in the order of the columns.
class RowDigest {
 public:
  RowDigest& Add(std::string_view text);
  RowDigest& Add(int64_t number);
  int64_t value() const { return static_cast<int64_t>(value_); }

 private:
  uint64_t value_ = 0;
};

// A sum of digests.
class DigestSum {
 public:
  explicit DigestSum(int64_t value = 0) : value_(static_cast<uint64_t>(value)) {}
  void Add(int64_t digest) { value_ += static_cast<uint64_t>(digest); }
  void Remove(int64_t digest) { value_ -= static_cast<uint64_t>(digest); }
  int64_t value() const { return static_cast<int64_t>(value_); }

 private:
  uint64_t value_;
};

// Gives SQL the same: row_digest(VALUE, ...), and the aggregate digest_sum(DIGEST). False on an
// error of SQLite.
bool AddDigestFunctions(sqlite3* database);

}  // namespace host

#endif  // HOST_CDB_STORAGE_ROW_DIGEST_H_
