// SQLite's handles as C++ objects; errors as texts.
#ifndef HOST_CDB_STORAGE_SQLITE_H_
#define HOST_CDB_STORAGE_SQLITE_H_

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace host {

// A prepared statement. Parameters count from 1, columns from 0.
class SqlStatement {
 public:
  SqlStatement() = default;
  // `sql` is one statement of the program's own; a fault in it shows in ok().
  SqlStatement(sqlite3* database, const char* sql);

  bool ok() const { return statement_ != nullptr; }
  // `text` must stay until the statement is reset.
  SqlStatement& Bind(int parameter, std::string_view text);
  SqlStatement& Bind(int parameter, int64_t number);
  // True while there is a row. Afterwards, and before parameters are bound anew, Reset().
  bool Step();
  // Runs a statement without rows to its end and resets it. False on an error.
  bool Run();
  // Forgets rows and parameters.
  void Reset();

  std::string Text(int column) const { return std::string(View(column)); }
  // The same, valid until the next step.
  std::string_view View(int column) const;
  int64_t Number(int column) const;
  // Whether the last Step() failed rather than ended.
  bool failed() const { return result_ != SQLITE_ROW && result_ != SQLITE_DONE; }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
  int result_ = SQLITE_DONE;
};

struct CloseDatabase {
  void operator()(sqlite3* database) const { sqlite3_close(database); }
};
using SqlDatabase = std::unique_ptr<sqlite3, CloseDatabase>;

// Runs statements without parameters and rows. False on an error.
bool Execute(sqlite3* database, const char* sql);

// A transaction, rolled back unless it is committed.
class SqlTransaction {
 public:
  explicit SqlTransaction(sqlite3* database);
  SqlTransaction(const SqlTransaction&) = delete;
  SqlTransaction& operator=(const SqlTransaction&) = delete;
  ~SqlTransaction();

  bool begun() const { return open_; }
  // False when it could not be made durable; it is then undone.
  bool Commit();

 private:
  sqlite3* database_;
  bool open_;
};

}  // namespace host

#endif  // HOST_CDB_STORAGE_SQLITE_H_
