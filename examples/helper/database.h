#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace sample {

/// Raised when the database could not do what it was asked; nothing of the transaction stays then.
class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One SQLite file. A committed transaction outlives the process, however that ends.
class Database {
 public:
  /// Opens the file, making it where it is missing, and lays out `schema`. A file that is no
  /// database any more is kept aside (".corrupt-" and the time) and a new one begun.
  /// @throws DatabaseError.
  Database(const std::string& path, const char* schema);

  sqlite3* handle() const noexcept { return handle_.get(); }

  /// Runs statements that yield nothing. @throws DatabaseError.
  void execute(const char* statements);

  /// False when the file was removed or replaced behind the open database: what would be written
  /// now would be gone with it.
  bool isStillInPlace() const noexcept;

 private:
  void open(const char* schema);

  struct Close {
    void operator()(sqlite3* handle) const noexcept { sqlite3_close_v2(handle); }
  };
  std::string path_;
  std::unique_ptr<sqlite3, Close> handle_;
  std::uint64_t fileNumber_ = 0;
};

/// How much a committed transaction outlives.
enum class Durability {
  kProcess,  ///< The process's end, also by SIGKILL; costs no wait for the disk.
  kPower,    ///< The power's failure too.
};

/// Everything done between its creation and `commit` happens, or nothing of it.
class Transaction {
 public:
  /// @throws DatabaseError.
  explicit Transaction(Database& database, Durability durability = Durability::kProcess);
  /// Takes back what was not committed.
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  /// @throws DatabaseError.
  void commit();

 private:
  Database& database_;
  bool isOpen_ = true;
};

/// One statement with its parameters, numbered from 1, and its rows' columns, numbered from 0.
class Statement {
 public:
  /// @throws DatabaseError.
  Statement(Database& database, const char* text);

  Statement& bind(int parameter, std::string_view text);
  Statement& bind(int parameter, std::int64_t number);

  /// Goes on to the next row. @return false when there is none. @throws DatabaseError.
  bool step();
  /// Carries out a statement that yields no rows. @throws DatabaseError.
  void run() { step(); }

  std::string text(int column) const;
  std::int64_t number(int column) const;

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const noexcept { sqlite3_finalize(statement); }
  };
  Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

}  // namespace sample
