#include "statedb/sqlite/SqliteStore.h"

#include <set>

#include "runtime/base/Format.h"
#include "statedb/Requests.h"
#include "statedb/sqlite/Schema.h"
#include "statedb/sqlite/Sentences.h"

namespace statedb::sqlite {

namespace {

using Kind = Transactional::Kind;

constexpr rt::Seconds daemonsPatience(0.05);
constexpr rt::Seconds clientsPatience(5);

rt::Seconds patienceOf(const StoreOptions& options) {
  return options.patience.value_or(options.role == Role::client ? clientsPatience
                                                                : daemonsPatience);
}

// To write it back to a flash disk takes longer than the daemon's handlers may stand still. It
// writes configuration only where an operator has written more, who does it then.
Connection::LongLog longLogOf(const StoreOptions& options) {
  return options.half == Half::config && options.role != Role::client
             ? Connection::LongLog::isLeftToOthers
             : Connection::LongLog::isWrittenBack;
}

const rt::String& existing(const StoreOptions& options) {
  requireFile(options.file, options.role);
  return options.file;
}

// It is told to others, in their words: nothing of it is to mean anything there.
bool isId(std::string_view text) {
  constexpr size_t longest = 64;
  constexpr std::string_view letters =
      "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  return !text.empty() && text.size() <= longest &&
         text.find_first_not_of(letters) == std::string_view::npos;
}

Record recordOf(const Query& row) {
  return {row.text(0), row.text(1), row.text(2), static_cast<uint64_t>(row.number(3)),
          static_cast<uint64_t>(row.number(4))};
}

}  // namespace

SqliteStore::SqliteStore(const StoreOptions& options)
    : options_(options),
      doorbell_(options.file),
      connection_(existing(options), patienceOf(options)) {
  prepare();
  id_ = idOf(options_.file);
  if (options_.role != Role::client) doorbell_.make();
  shareCompanions(options_.file);
  connection_.committedHookIs([this] { doorbell_.ring(); }, longLogOf(options_));
}

void SqliteStore::prepare() {
  // secure_delete would write zeros over what is deleted, to flash; a status that is lost with the
  // power needs no syncs; the log of changes made is cut to its usual size after a burst.
  connection_.run(options_.half == Half::config ? "PRAGMA synchronous = FULL"
                                                : "PRAGMA synchronous = OFF");
  connection_.run(
      "PRAGMA secure_delete = OFF; PRAGMA temp_store = MEMORY; PRAGMA cell_size_check = ON;"
      "PRAGMA journal_size_limit = 1048576");
  requireFormat(connection_, options_.role);
  if (connection_.text("PRAGMA journal_mode = WAL") != "wal")
    throw failed(options_.file, "its file system cannot share memory between processes");
  if (options_.role == Role::client) return;
  const rt::String finding = connection_.text("PRAGMA quick_check(1)");
  if (finding != "ok") throw corrupt(options_.file, finding);
}

rt::String SqliteStore::history() {
  rt::String id = connection_.text("SELECT v FROM meta WHERE k = 'store_id'");
  if (!isId(id)) throw corrupt(options_.file, "its id is none");
  return id;
}

// Its sequence counts also what was trimmed.
Cursor SqliteStore::cursor() {
  const rt::String id = history();
  const int64_t sequence =
      connection_.number("SELECT coalesce(max(seq), 0) FROM sqlite_sequence WHERE name = 'change'");
  // With the inode, because a backup that was put back has the id of the file it is of.
  return {id + rt::format("-%ju", static_cast<uintmax_t>(id_.inode)),
          static_cast<uint64_t>(sequence), id};
}

Snapshot SqliteStore::snapshot(const std::vector<rt::String>& tables) {
  requireTables(tables, options_.half, options_.isStatus);
  requireSame(options_.file, id_);
  Snapshot snapshot;
  Transactional moment(connection_, Kind::read);
  snapshot.cursor = cursor();
  const std::set<rt::String> sorted(tables.begin(), tables.end());
  for (const rt::String& table : sorted) {
    Query rows =
        connection_.query("SELECT tbl, key, doc, rev, born FROM record WHERE tbl = ? ORDER BY key");
    rows.with(table);
    while (rows.step()) snapshot.records.push_back(recordOf(rows));
  }
  return snapshot;
}

std::optional<Record> SqliteStore::record(const rt::String& table, const rt::String& key) {
  requireSoundName(table, key);
  requireTables({table}, options_.half, options_.isStatus);
  requireSame(options_.file, id_);
  Query row =
      connection_.query("SELECT tbl, key, doc, rev, born FROM record WHERE tbl = ? AND key = ?");
  row.with(table).with(key);
  if (!row.step()) return std::nullopt;
  return recordOf(row);
}

bool SqliteStore::hasRemoved(const rt::String& table, const rt::String& key, const Origin& origin) {
  requireSoundName(table, key);
  requireTables({table}, options_.half, options_.isStatus);
  requireSame(options_.file, id_);
  const Transactional moment(connection_, Kind::read);
  if (origin.history != history()) return false;
  Query last = connection_.query(
      "SELECT coalesce(max(seq), 0) FROM change WHERE tbl = ? AND key = ? AND op = 'del'");
  last.with(table).with(key);
  return last.step() && static_cast<uint64_t>(last.number(0)) > origin.created;
}

Changes SqliteStore::changes(const Cursor& since) {
  doorbell_.silence();
  requireSame(options_.file, id_);
  const Transactional moment(connection_, Kind::read);
  const Cursor now = cursor();
  const Resume resume = resumeFrom(since, now);
  if (resume != Resume::resumed) return {resume, {}, since};
  if (since.sequence == now.sequence) return {resume, {}, now};
  return {resume, changesAfter(since.sequence), now};
}

Resume SqliteStore::resumeFrom(const Cursor& since, const Cursor& now) {
  if (since.storeId != now.storeId || since.sequence > now.sequence) return Resume::otherStore;
  const int64_t trimmedTo = connection_.number("SELECT v FROM meta WHERE k = 'trimmed_to'");
  return static_cast<int64_t>(since.sequence) < trimmedTo ? Resume::trimmed : Resume::resumed;
}

// What a record is now decides, and not the log: so the two cannot contradict each other. Any
// program may have written how long an author is.
std::vector<Change> SqliteStore::changesAfter(uint64_t sequence) {
  Query rows = connection_.query(
      "SELECT last.tbl, last.key, doc, rev, born, doc IS NOT NULL,"
      " substr(who, 1, 64), substr(via, 1, 64), at FROM"
      " (SELECT tbl, key, max(seq) AS seq, who, via, at FROM change WHERE seq > ?"
      " GROUP BY tbl, key) AS last"
      " LEFT JOIN record ON record.tbl = last.tbl AND record.key = last.key ORDER BY last.seq");
  rows.with(static_cast<int64_t>(sequence));
  std::vector<Change> changes;
  while (rows.step())
    changes.push_back({rows.number(5) != 0 ? Op::put : Op::del,
                       recordOf(rows),
                       Proof::history,
                       {rows.text(6), rows.text(7), static_cast<uint64_t>(rows.number(8))}});
  return changes;
}

void SqliteStore::commit(const Transaction& transaction) {
  requireSound(transaction, options_.half, options_.isStatus);
  requireSame(options_.file, id_);
  if (transaction.guards().empty() && transaction.writes().empty()) return;
  Transactional all(connection_, Kind::write);
  for (const auto& guard : transaction.guards()) {
    const uint64_t found = revision(guard.table, guard.key);
    if (found != guard.revision) throw conflict(guard, found);
  }
  const int64_t before = lastChange();
  for (const Change& change : transaction.writes()) write(change);
  sign(before);
  trim();
  all.commit();
}

int64_t SqliteStore::lastChange() {
  return connection_.number("SELECT coalesce(max(seq), 0) FROM change");
}

// What was written behind that.
void SqliteStore::sign(int64_t before) {
  const Author& author = options_.author;
  if (author.who.empty() && author.via.empty()) return;
  Query query = connection_.query("UPDATE change SET who = ?, via = ? WHERE seq > ?");
  query.with(author.who).with(author.via).with(before).run();
}

uint64_t SqliteStore::revision(const rt::String& table, const rt::String& key) {
  Query row = connection_.query("SELECT rev FROM record WHERE tbl = ? AND key = ?");
  row.with(table).with(key);
  return row.step() ? static_cast<uint64_t>(row.number(0)) : 0;
}

void SqliteStore::write(const Change& change) {
  const Record& record = change.record;
  if (change.op == Op::del) {
    Query query = connection_.query("DELETE FROM record WHERE tbl = ? AND key = ?");
    query.with(record.table).with(record.key).run();
    return;
  }
  // Not INSERT OR REPLACE, which to the triggers is a record removed and another made.
  Query query = connection_.query(
      "INSERT INTO record(tbl, key, doc) VALUES(?, ?, ?) ON CONFLICT(tbl, key)"
      " DO UPDATE SET doc = excluded.doc WHERE doc <> excluded.doc");
  query.with(record.table).with(record.key).with(record.doc);
  try {
    query.run();
  } catch (const Error& error) {
    if (error.trouble() != Trouble::invalid) throw;
    throw notJson(record.table, record.key);
  }
}

// Within a transaction that writes anyway.
void SqliteStore::trim() {
  const int64_t kept = options_.keptChanges;
  const int64_t length = connection_.number(
      "SELECT coalesce((SELECT max(seq) FROM change) - (SELECT v FROM meta WHERE k = 'trimmed_to'),"
      " 0)");
  if (length <= kept + kept / 4) return;
  connection_.run(rt::format("UPDATE meta SET v = (SELECT max(seq) FROM change) - %jd"
                             " WHERE k = 'trimmed_to';"
                             "DELETE FROM change WHERE seq <= (SELECT v FROM meta"
                             " WHERE k = 'trimmed_to')",
                             static_cast<intmax_t>(kept))
                      .charPtr());
}

int SqliteStore::wakeUp() { return doorbell_.listen(); }

}  // namespace statedb::sqlite
