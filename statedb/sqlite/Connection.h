// SQLite, as much of it as the store needs.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string_view>

#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"
#include "statedb/Error.h"

struct sqlite3;
struct sqlite3_stmt;

namespace statedb::sqlite {

class Connection;

// One run of a statement, until it goes: no query is left open that would keep the log from being
// written back into the database.
class Query {
 public:
  Query(Connection& connection, sqlite3_stmt* statement)
      : connection_(connection), statement_(statement) {}
  Query(const Query&) = delete;
  ~Query();

  // The next parameter. The text is copied.
  Query& with(std::string_view text);
  Query& with(int64_t number);
  // The next row, if there is one.
  bool step();
  // To the end; the rows are not looked at.
  void run();

  rt::String text(int column) const;
  int64_t number(int column) const;

 private:
  Connection& connection_;
  sqlite3_stmt* statement_;
  int parameters_ = 0;
};

// A database file, open for as long as this lives. Everything throws Error.
class Connection {
 public:
  // The file must exist, if only as an empty one. Who must wait for another process's lock does so
  // for `patience`.
  Connection(rt::String file, rt::Seconds patience);
  Connection(const Connection&) = delete;

  const rt::String& file() const { return file_; }

  // Statements without parameters, their rows not looked at.
  void run(const char* statements);
  // One statement; it is compiled once. `sql` is a literal.
  Query query(const char* sql);
  // The first column of the one row that a statement yields.
  int64_t number(const char* sql);
  rt::String text(const char* sql);

  bool isInTransaction() const;
  // `hook` is called after each commit that changed something, when all others can see it, and must
  // not throw. After it, the log is written back if it has grown long, unless others do that.
  enum class LongLog : uint8_t { isWrittenBack, isLeftToOthers };
  void committedHookIs(std::function<void()> hook, LongLog log = LongLog::isWrittenBack);

 private:
  friend class Query;
  struct Closer {
    void operator()(sqlite3* database) const;
  };
  struct Finalizer {
    void operator()(sqlite3_stmt* statement) const;
  };

  void require(int result);
  [[noreturn]] void fail(int result);
  int handleCommitted(int logPages) noexcept;

  rt::String file_;
  rt::Seconds patience_;
  std::function<void()> committedHook_;
  LongLog log_ = LongLog::isWrittenBack;
  std::unique_ptr<sqlite3, Closer> database_;
  std::map<const char*, std::unique_ptr<sqlite3_stmt, Finalizer>> statements_;
};

// A transaction that is undone unless commit() was reached.
class Transactional {
 public:
  enum class Kind : uint8_t {
    read,   // sees one moment throughout
    write,  // takes the lock at once: a reader that turns writer is refused without waiting
  };
  Transactional(Connection& connection, Kind kind);
  Transactional(const Transactional&) = delete;
  ~Transactional();

  void commit();

 private:
  Connection& connection_;
};

}  // namespace statedb::sqlite
