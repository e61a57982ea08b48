#pragma once
// One SQLite connection with a cache of prepared statements. SQLite's result codes become
// TWError here and nowhere else; nothing above this file sees a raw code.
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>

struct sqlite3;
struct sqlite3_stmt;

namespace tw {

class Database;

// One use of a cached prepared statement. Resets the statement and its bindings when it goes
// out of scope, so the next use starts clean.
class Query {
 public:
  Query(Database& database, sqlite3_stmt* statement) : database_(database), statement_(statement) {}
  ~Query();
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;

  Query& BindInt(int index, int64_t value);
  Query& BindReal(int index, double value);
  Query& BindText(int index, std::string_view value);
  // Advances to the next row; false when there is none.
  bool Step();
  // Runs a statement that returns no rows.
  void Run();

  enum class Kind { Integer, Real, Text, Blob, Null };
  Kind ColumnKind(int column) const;
  int64_t Int(int column) const;
  double Real(int column) const;
  std::string Text(int column) const;

 private:
  Database& database_;
  sqlite3_stmt* statement_;
};

class Database {
 public:
  // Opens an existing database file for reading and writing; raises TWError when it cannot.
  explicit Database(const std::string& path);
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Runs one or more statements that return no rows; `action` names them in an error ("read",
  // "write").
  void Execute(const std::string& sql, std::string_view action = "write");
  // Execute, tried again for up to the busy time-out while another connection holds the file:
  // for the statements that SQLite's busy handler does not wait for, such as a change of the
  // journal mode, which fails at once rather than risk a deadlock.
  void ExecuteWhenFree(const std::string& sql, int timeoutMilliseconds, std::string_view action = "write");
  Query Prepare(std::string_view sql);
  int Changes() const;
  int64_t LastInsertId() const;
  const std::string& Path() const { return path_; }

  // Raises the TWError for a failed SQLite call: "Cannot <action> settings file <path>: <why>".
  [[noreturn]] void Fail(int resultCode, std::string_view action) const;

 private:
  std::string path_;
  sqlite3* connection_ = nullptr;
  std::unordered_map<std::string, sqlite3_stmt*> statements_;
};

// BEGIN IMMEDIATE ... COMMIT; rolled back unless committed.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  void Commit();

 private:
  Database& database_;
  bool done_ = false;
};

}  // namespace tw
