// SQLite's handles as C++ objects.
#include "host/cdb/storage/sqlite.h"

namespace host {

SqlStatement::SqlStatement(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  result_ = sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  statement_.reset(statement);
}

SqlStatement& SqlStatement::Bind(int parameter, std::string_view text) {
  sqlite3_bind_text64(statement_.get(), parameter, text.data(), text.size(), SQLITE_STATIC,
                      SQLITE_UTF8);
  return *this;
}

SqlStatement& SqlStatement::Bind(int parameter, int64_t number) {
  sqlite3_bind_int64(statement_.get(), parameter, number);
  return *this;
}

bool SqlStatement::Step() {
  result_ = statement_ != nullptr ? sqlite3_step(statement_.get()) : SQLITE_ERROR;
  return result_ == SQLITE_ROW;
}

bool SqlStatement::Run() {
  while (Step()) {
  }
  const bool done = result_ == SQLITE_DONE;
  Reset();
  return done;
}

void SqlStatement::Reset() {
  sqlite3_reset(statement_.get());
  sqlite3_clear_bindings(statement_.get());
}

std::string_view SqlStatement::View(int column) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  const int length = sqlite3_column_bytes(statement_.get(), column);
  return text != nullptr ? std::string_view(text, static_cast<size_t>(length)) : "";
}

int64_t SqlStatement::Number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

bool Execute(sqlite3* database, const char* sql) {
  return sqlite3_exec(database, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

SqlTransaction::SqlTransaction(sqlite3* database)
    : database_(database), open_(Execute(database, "BEGIN IMMEDIATE")) {}

SqlTransaction::~SqlTransaction() {
  if (open_) Execute(database_, "ROLLBACK");
}

bool SqlTransaction::Commit() {
  if (!Execute(database_, "COMMIT")) return false;  // undone by the destructor
  open_ = false;
  return true;
}

}  // namespace host
