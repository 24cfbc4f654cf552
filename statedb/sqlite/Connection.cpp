#include "statedb/sqlite/Connection.h"

#include <sqlite3.h>
#include <sys/stat.h>

#include "statedb/sqlite/Sentences.h"

namespace statedb::sqlite {

namespace {

// Pages in the log from which on it is written back: 1 MiB. Until then a page that changes often is
// written to the database itself only once.
constexpr int longLog = 1000;

}  // namespace

Query::~Query() {
  sqlite3_reset(statement_);
  sqlite3_clear_bindings(statement_);
}

Query& Query::with(std::string_view text) {
  // Never null, which would be NULL and not an empty text.
  const char* bytes = text.data() != nullptr ? text.data() : "";
  connection_.require(sqlite3_bind_text64(statement_, ++parameters_, bytes, text.size(),
                                          SQLITE_TRANSIENT, SQLITE_UTF8));
  return *this;
}

Query& Query::with(int64_t number) {
  connection_.require(sqlite3_bind_int64(statement_, ++parameters_, number));
  return *this;
}

bool Query::step() {
  const int result = sqlite3_step(statement_);
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) connection_.fail(result);
  return false;
}

void Query::run() {
  while (step()) continue;
}

rt::String Query::text(int column) const {
  const unsigned char* bytes = sqlite3_column_text(statement_, column);
  if (bytes == nullptr) return {};
  return {reinterpret_cast<const char*>(bytes),
          static_cast<size_t>(sqlite3_column_bytes(statement_, column))};
}

int64_t Query::number(int column) const { return sqlite3_column_int64(statement_, column); }

// The last who closes a database writes its log back: into one that somebody has emptied, half of
// one.
void Connection::Closer::operator()(sqlite3* database) const {
  const char* const file = sqlite3_db_filename(database, "main");
  struct stat found {};
  if (file && stat(file, &found) == 0 && found.st_size == 0)
    sqlite3_db_config(database, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  sqlite3_close(database);
}

void Connection::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Connection::Connection(rt::String file, rt::Seconds patience)
    : file_(std::move(file)), patience_(patience) {
  sqlite3* database = nullptr;
  const int result =
      sqlite3_open_v2(file_.charPtr(), &database,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, nullptr);
  database_.reset(database);
  require(result);
  sqlite3_busy_timeout(database, static_cast<int>(patience.value() * 1000));
}

void Connection::run(const char* statements) {
  require(sqlite3_exec(database_.get(), statements, nullptr, nullptr, nullptr));
}

Query Connection::query(const char* sql) {
  auto& statement = statements_[sql];
  if (!statement) {
    sqlite3_stmt* prepared = nullptr;
    require(sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &prepared,
                               nullptr));
    statement.reset(prepared);
  }
  return {*this, statement.get()};
}

int64_t Connection::number(const char* sql) {
  Query one = query(sql);
  if (!one.step()) throw corrupt(file_, "a row is missing");
  return one.number(0);
}

rt::String Connection::text(const char* sql) {
  Query one = query(sql);
  if (!one.step()) throw corrupt(file_, "a row is missing");
  return one.text(0);
}

bool Connection::isInTransaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }

void Connection::committedHookIs(std::function<void()> hook, LongLog log) {
  committedHook_ = std::move(hook);
  log_ = log;
  sqlite3_wal_hook(
      database_.get(),
      [](void* self, sqlite3*, const char*, int logPages) {
        return static_cast<Connection*>(self)->handleCommitted(logPages);
      },
      this);
}

// The transaction stands, whatever becomes of the rest: so this never fails.
int Connection::handleCommitted(int logPages) noexcept {
  committedHook_();
  if (logPages >= longLog && log_ == LongLog::isWrittenBack)
    sqlite3_wal_checkpoint_v2(database_.get(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr,
                              nullptr);
  return SQLITE_OK;
}

void Connection::require(int result) {
  if (result != SQLITE_OK) fail(result);
}

void Connection::fail(int result) {
  const rt::String detail = database_ ? sqlite3_errmsg(database_.get()) : sqlite3_errstr(result);
  const int error = database_ ? sqlite3_system_errno(database_.get()) : 0;
  switch (result & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw locked(file_, patience_);
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      throw corrupt(file_, detail);
    case SQLITE_FULL:
      throw full(file_);
    case SQLITE_READONLY:
      throw notWritable(file_);
    case SQLITE_CONSTRAINT:
      throw Error(Trouble::invalid, file_ + " refused what was to be written: " + detail);
    case SQLITE_IOERR:
      if (result == SQLITE_IOERR_SHMSIZE) throw full(file_);
      throw fromErrno(file_, error, detail);
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      throw fromErrno(file_, error, detail);
    default:
      throw failed(file_, detail);
  }
}

Transactional::Transactional(Connection& connection, Kind kind) : connection_(connection) {
  connection_.run(kind == Kind::read ? "BEGIN" : "BEGIN IMMEDIATE");
}

Transactional::~Transactional() {
  if (!connection_.isInTransaction()) return;
  try {
    connection_.run("ROLLBACK");
  } catch (const Error&) {
    // Then SQLite has undone it, or will when the file is opened next.
  }
}

void Transactional::commit() { connection_.run("COMMIT"); }

}  // namespace statedb::sqlite
