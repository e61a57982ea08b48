#include "settings/Database.h"

#include <sqlite3.h>

#include <system_error>

#include "common/Error.h"

namespace tw {
namespace {
const char* kSource = "TWSettings";
}

Query::~Query() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

Query& Query::BindInt(int index, int64_t value) {
  const int rc = sqlite3_bind_int64(statement_, index, value);
  if (rc != SQLITE_OK) database_.Fail(rc, "write");
  return *this;
}

Query& Query::BindReal(int index, double value) {
  const int rc = sqlite3_bind_double(statement_, index, value);
  if (rc != SQLITE_OK) database_.Fail(rc, "write");
  return *this;
}

Query& Query::BindText(int index, std::string_view value) {
  const int rc = sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()),
                                   SQLITE_TRANSIENT);
  if (rc != SQLITE_OK) database_.Fail(rc, "write");
  return *this;
}

bool Query::Step() {
  const int rc = sqlite3_step(statement_);
  if (rc == SQLITE_ROW) return true;
  if (rc == SQLITE_DONE) return false;
  database_.Fail(rc, sqlite3_stmt_readonly(statement_) ? "read" : "write");
}

void Query::Run() {
  while (Step()) {
  }
}

Query::Kind Query::ColumnKind(int column) const {
  switch (sqlite3_column_type(statement_, column)) {
    case SQLITE_INTEGER: return Kind::Integer;
    case SQLITE_FLOAT: return Kind::Real;
    case SQLITE_TEXT: return Kind::Text;
    case SQLITE_BLOB: return Kind::Blob;
    default: return Kind::Null;
  }
}

int64_t Query::Int(int column) const { return sqlite3_column_int64(statement_, column); }

double Query::Real(int column) const { return sqlite3_column_double(statement_, column); }

std::string Query::Text(int column) const {
  const auto* text = sqlite3_column_text(statement_, column);
  const int size = sqlite3_column_bytes(statement_, column);
  return text == nullptr ? std::string() : std::string(reinterpret_cast<const char*>(text), size);
}

Database::Database(const std::string& path) : path_(path) {
  const int rc = sqlite3_open_v2(path.c_str(), &connection_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_FULLMUTEX,
                                 nullptr);
  if (rc != SQLITE_OK) {
    std::string message = connection_ ? sqlite3_errmsg(connection_) : sqlite3_errstr(rc);
    const int systemError = connection_ ? sqlite3_system_errno(connection_) : 0;
    if (systemError != 0) message = std::generic_category().message(systemError);
    sqlite3_close_v2(connection_);
    connection_ = nullptr;
    throw TWError(rc, "Cannot open settings file " + path + ": " + message, kSource);
  }
  sqlite3_extended_result_codes(connection_, 1);
}

Database::~Database() {
  for (auto& [sql, statement] : statements_) sqlite3_finalize(statement);
  sqlite3_close_v2(connection_);
}

void Database::Execute(const std::string& sql, std::string_view action) {
  char* message = nullptr;
  const int rc = sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, &message);
  sqlite3_free(message);
  if (rc != SQLITE_OK) Fail(rc, action);
}

void Database::ExecuteWhenFree(const std::string& sql, int timeoutMilliseconds, std::string_view action) {
  constexpr int kPauseMilliseconds = 10;
  for (int waited = 0;; waited += kPauseMilliseconds) {
    const int rc = sqlite3_exec(connection_, sql.c_str(), nullptr, nullptr, nullptr);
    if (rc == SQLITE_OK) return;
    if ((rc & 0xFF) != SQLITE_BUSY || waited >= timeoutMilliseconds) Fail(rc, action);
    sqlite3_sleep(kPauseMilliseconds);
  }
}

Query Database::Prepare(std::string_view sql) {
  auto found = statements_.find(std::string(sql));
  if (found == statements_.end()) {
    sqlite3_stmt* statement = nullptr;
    const int rc = sqlite3_prepare_v3(connection_, sql.data(), static_cast<int>(sql.size()),
                                      SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (rc != SQLITE_OK) Fail(rc, "read");
    found = statements_.emplace(std::string(sql), statement).first;
  }
  return Query(*this, found->second);
}

int Database::Changes() const { return sqlite3_changes(connection_); }

int64_t Database::LastInsertId() const { return sqlite3_last_insert_rowid(connection_); }

void Database::Fail(int resultCode, std::string_view action) const {
  const char* message = sqlite3_errmsg(connection_);
  if (message == nullptr || sqlite3_extended_errcode(connection_) != resultCode) {
    message = sqlite3_errstr(resultCode);
  }
  throw TWError(resultCode, "Cannot " + std::string(action) + " settings file " + path_ + ": " + message, kSource);
}

Transaction::Transaction(Database& database) : database_(database) { database_.Execute("BEGIN IMMEDIATE"); }

Transaction::~Transaction() {
  if (done_) return;
  try {
    database_.Execute("ROLLBACK");
  } catch (...) {
    // Nothing more can be done; SQLite rolls back itself when the connection closes.
  }
}

void Transaction::Commit() {
  database_.Execute("COMMIT");
  done_ = true;
}

}  // namespace tw
