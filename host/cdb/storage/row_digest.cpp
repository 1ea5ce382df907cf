// Digests of the database's rows.
#include "host/cdb/storage/row_digest.h"

#include <sqlite3.h>
#include <xxhash.h>

namespace host {
namespace {

void RowDigestFunction(sqlite3_context* context, int count, sqlite3_value** values) {
  RowDigest digest;
  for (int i = 0; i < count; ++i) {
    if (sqlite3_value_type(values[i]) == SQLITE_INTEGER) {
      digest.Add(int64_t{sqlite3_value_int64(values[i])});
      continue;
    }
    const auto* text = static_cast<const char*>(sqlite3_value_blob(values[i]));
    digest.Add(std::string_view(text, static_cast<size_t>(sqlite3_value_bytes(values[i]))));
  }
  sqlite3_result_int64(context, digest.value());
}

// The memory that SQLite gives an aggregate begins as zeros.
uint64_t* SumOf(sqlite3_context* context) {
  return static_cast<uint64_t*>(sqlite3_aggregate_context(context, sizeof(uint64_t)));
}

void AddToSum(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  uint64_t* sum = SumOf(context);
  if (sum == nullptr) return sqlite3_result_error_nomem(context);
  *sum += static_cast<uint64_t>(sqlite3_value_int64(values[0]));
}

void FinishSum(sqlite3_context* context) {
  const uint64_t* sum = SumOf(context);
  if (sum == nullptr) return sqlite3_result_error_nomem(context);
  sqlite3_result_int64(context, static_cast<int64_t>(*sum));
}

}  // namespace

// Each value's digest begins with that of the values before, so that it matters where they part.
RowDigest& RowDigest::Add(std::string_view text) {
  value_ = XXH3_64bits_withSeed(text.data(), text.size(), value_ + 1);
  return *this;
}

RowDigest& RowDigest::Add(int64_t number) {
  value_ = XXH3_64bits_withSeed(&number, sizeof(number), value_ + 2);
  return *this;
}

bool AddDigestFunctions(sqlite3* database) {
  constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS;
  return sqlite3_create_function(database, "row_digest", -1, kFlags, nullptr, RowDigestFunction,
                                 nullptr, nullptr) == SQLITE_OK &&
         sqlite3_create_function(database, "digest_sum", 1, kFlags, nullptr, nullptr, AddToSum,
                                 FinishSum) == SQLITE_OK;
}

}  // namespace host
