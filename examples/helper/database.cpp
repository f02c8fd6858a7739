#include "examples/helper/database.h"

#include <sys/stat.h>

#include <cstdio>

#include "examples/helper/text.h"

namespace sample {
namespace {

// A helper that is being replaced may still hold the file for the moment that it takes to end.
constexpr int kBusyLimitInMilliseconds = 5000;

std::uint64_t fileNumber(const std::string& path) noexcept {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
}

[[noreturn]] void fail(sqlite3* handle, const std::string& action) {
  throw DatabaseError(action + ": " + sqlite3_errmsg(handle));
}

}  // namespace

Database::Database(const std::string& path, const char* schema) : path_(path) {
  try {
    open(schema);
  } catch (const DatabaseError&) {
    const int code = handle_ ? sqlite3_errcode(handle_.get()) : SQLITE_CANTOPEN;
    if (code != SQLITE_NOTADB && code != SQLITE_CORRUPT) throw;
    handle_.reset();
    const std::string aside = path + ".corrupt-" + timeStamp();
    if (std::rename(path.c_str(), aside.c_str()) != 0) throw;
    open(schema);
  }
  fileNumber_ = fileNumber(path_);
}

void Database::open(const char* schema) {
  sqlite3* handle = nullptr;
  const int result =
      sqlite3_open_v2(path_.c_str(), &handle,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) fail(handle, "cannot open " + path_);
  sqlite3_busy_timeout(handle, kBusyLimitInMilliseconds);
  execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;");
  execute(schema);
}

void Database::execute(const char* statements) {
  if (sqlite3_exec(handle(), statements, nullptr, nullptr, nullptr) != SQLITE_OK) {
    fail(handle(), "cannot change " + path_);
  }
}

bool Database::isStillInPlace() const noexcept { return fileNumber(path_) == fileNumber_; }

Transaction::Transaction(Database& database, Durability durability) : database_(database) {
  database.execute(durability == Durability::kPower ? "PRAGMA synchronous = FULL"
                                                    : "PRAGMA synchronous = NORMAL");
  database.execute("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (isOpen_) sqlite3_exec(database_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void Transaction::commit() {
  database_.execute("COMMIT");
  isOpen_ = false;
}

Statement::Statement(Database& database, const char* text) : database_(database) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(database.handle(), text, -1, &statement, nullptr) != SQLITE_OK) {
    fail(database.handle(), "cannot prepare a statement");
  }
  statement_.reset(statement);
}

Statement& Statement::bind(int parameter, std::string_view text) {
  // SQLite's functions end a text at its first NUL; bytes are compared whole.
  const bool isText = text.find('\0') == std::string_view::npos;
  const auto length = static_cast<sqlite3_uint64>(text.size());
  const char* bytes = text.data() == nullptr ? "" : text.data();  // null would bind no value
  const int result =
      isText ? sqlite3_bind_text64(statement_.get(), parameter, bytes, length, SQLITE_TRANSIENT,
                                   SQLITE_UTF8)
             : sqlite3_bind_blob64(statement_.get(), parameter, bytes, length, SQLITE_TRANSIENT);
  if (result != SQLITE_OK) fail(database_.handle(), "cannot bind a text");
  return *this;
}

Statement& Statement::bind(int parameter, std::int64_t number) {
  if (sqlite3_bind_int64(statement_.get(), parameter, number) != SQLITE_OK) {
    fail(database_.handle(), "cannot bind a number");
  }
  return *this;
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) fail(database_.handle(), "cannot carry out a statement");
  return false;
}

std::string Statement::text(int column) const {
  const void* bytes = sqlite3_column_blob(statement_.get(), column);
  const auto length = static_cast<std::size_t>(sqlite3_column_bytes(statement_.get(), column));
  return bytes == nullptr ? std::string() : std::string(static_cast<const char*>(bytes), length);
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(statement_.get(), column);
}

}  // namespace sample
