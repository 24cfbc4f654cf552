#include "statedb/sqlite/Schema.h"

#include <array>

#include "runtime/base/Format.h"
#include "statedb/sqlite/Sentences.h"

namespace statedb::sqlite {

namespace {

constexpr int64_t applicationId = 0x766d6167;  // "vmag"

// Why it is as it is:
//   Triggers fill the log, so that what any program writes is told.
//   A record's revision is the sequence of its last change: so it is never used again. The trigger
//   on update is deaf to it, and to a document that is written as it stands.
//   AUTOINCREMENT: a sequence is never used again, though the log be empty.
//   A record's row holds its document (no WITHOUT ROWID): in pages of 1 KiB an index entry above
//   230 bytes would take a page of its own.
constexpr const char* format1 = R"(
CREATE TABLE record(
  tbl TEXT NOT NULL CHECK(tbl <> '' AND instr(tbl, char(0)) = 0),
  key TEXT NOT NULL CHECK(key <> '' AND instr(key, char(0)) = 0),
  doc TEXT NOT NULL CHECK(json_valid(doc) AND instr(doc, char(0)) = 0),
  rev INTEGER NOT NULL DEFAULT 0,
  born INTEGER NOT NULL DEFAULT 0,
  PRIMARY KEY(tbl, key)) STRICT;
CREATE TABLE change(
  seq INTEGER PRIMARY KEY AUTOINCREMENT,
  tbl TEXT NOT NULL,
  key TEXT NOT NULL,
  op TEXT NOT NULL CHECK(op IN ('put', 'del'))) STRICT;
CREATE TABLE meta(k TEXT PRIMARY KEY, v ANY NOT NULL) STRICT, WITHOUT ROWID;
CREATE TRIGGER record_inserted AFTER INSERT ON record BEGIN
  INSERT INTO change(tbl, key, op) VALUES(NEW.tbl, NEW.key, 'put');
  UPDATE record SET rev = last_insert_rowid(), born = last_insert_rowid()
    WHERE rowid = NEW.rowid;
END;
CREATE TRIGGER record_updated AFTER UPDATE OF doc ON record
WHEN OLD.doc <> NEW.doc AND OLD.tbl = NEW.tbl AND OLD.key = NEW.key BEGIN
  INSERT INTO change(tbl, key, op) VALUES(NEW.tbl, NEW.key, 'put');
  UPDATE record SET rev = last_insert_rowid() WHERE rowid = NEW.rowid;
END;
CREATE TRIGGER record_renamed AFTER UPDATE OF tbl, key ON record
WHEN OLD.tbl <> NEW.tbl OR OLD.key <> NEW.key BEGIN
  INSERT INTO change(tbl, key, op) VALUES(OLD.tbl, OLD.key, 'del');
  INSERT INTO change(tbl, key, op) VALUES(NEW.tbl, NEW.key, 'put');
  UPDATE record SET rev = last_insert_rowid(), born = last_insert_rowid()
    WHERE rowid = NEW.rowid;
END;
CREATE TRIGGER record_deleted AFTER DELETE ON record BEGIN
  INSERT INTO change(tbl, key, op) VALUES(OLD.tbl, OLD.key, 'del');
END;
INSERT INTO meta(k, v) VALUES('store_id', lower(hex(randomblob(16)))), ('trimmed_to', 0);
)";

// Lengths in bytes: that of a text is in characters. Triggers, for the checks of a table cannot be
// added to. What is too long already stays until it is removed.
constexpr const char* format2 = R"(
CREATE TRIGGER record_inserted_fits BEFORE INSERT ON record
WHEN max(length(CAST(NEW.tbl AS BLOB)), length(CAST(NEW.key AS BLOB))) > 255
  OR length(CAST(NEW.doc AS BLOB)) > 1048576 BEGIN
  SELECT RAISE(ABORT, 'a table''s name or key has at most 255 bytes, a document 1048576');
END;
CREATE TRIGGER record_updated_fits BEFORE UPDATE OF tbl, key, doc ON record
WHEN max(length(CAST(NEW.tbl AS BLOB)), length(CAST(NEW.key AS BLOB))) > 255
  OR length(CAST(NEW.doc AS BLOB)) > 1048576 BEGIN
  SELECT RAISE(ABORT, 'a table''s name or key has at most 255 bytes, a document 1048576');
END;
)";

// The log has each change's time, whatever program makes it, and its author where that says who.
constexpr const char* format3 = R"(
ALTER TABLE change ADD COLUMN at INTEGER NOT NULL DEFAULT 0;
ALTER TABLE change ADD COLUMN who TEXT NOT NULL DEFAULT '';
ALTER TABLE change ADD COLUMN via TEXT NOT NULL DEFAULT '';
DROP TRIGGER record_inserted;
DROP TRIGGER record_updated;
DROP TRIGGER record_renamed;
DROP TRIGGER record_deleted;
CREATE TRIGGER record_inserted AFTER INSERT ON record BEGIN
  INSERT INTO change(tbl, key, op, at) VALUES(NEW.tbl, NEW.key, 'put',
    CAST((julianday('now') - 2440587.5) * 86400000 AS INTEGER));
  UPDATE record SET rev = last_insert_rowid(), born = last_insert_rowid()
    WHERE rowid = NEW.rowid;
END;
CREATE TRIGGER record_updated AFTER UPDATE OF doc ON record
WHEN OLD.doc <> NEW.doc AND OLD.tbl = NEW.tbl AND OLD.key = NEW.key BEGIN
  INSERT INTO change(tbl, key, op, at) VALUES(NEW.tbl, NEW.key, 'put',
    CAST((julianday('now') - 2440587.5) * 86400000 AS INTEGER));
  UPDATE record SET rev = last_insert_rowid() WHERE rowid = NEW.rowid;
END;
CREATE TRIGGER record_renamed AFTER UPDATE OF tbl, key ON record
WHEN OLD.tbl <> NEW.tbl OR OLD.key <> NEW.key BEGIN
  INSERT INTO change(tbl, key, op, at) VALUES(OLD.tbl, OLD.key, 'del',
    CAST((julianday('now') - 2440587.5) * 86400000 AS INTEGER));
  INSERT INTO change(tbl, key, op, at) VALUES(NEW.tbl, NEW.key, 'put',
    CAST((julianday('now') - 2440587.5) * 86400000 AS INTEGER));
  UPDATE record SET rev = last_insert_rowid(), born = last_insert_rowid()
    WHERE rowid = NEW.rowid;
END;
CREATE TRIGGER record_deleted AFTER DELETE ON record BEGIN
  INSERT INTO change(tbl, key, op, at) VALUES(OLD.tbl, OLD.key, 'del',
    CAST((julianday('now') - 2440587.5) * 86400000 AS INTEGER));
END;
)";

constexpr std::array<const char*, 3> allSteps = {format1, format2, format3};

bool isEmpty(Connection& connection) {
  return connection.number("SELECT count(*) FROM sqlite_schema") == 0;
}

// The file's format; throws for a file that is not ours.
size_t formatOf(Connection& connection, size_t known) {
  const int64_t application = connection.number("PRAGMA application_id");
  const int64_t format = connection.number("PRAGMA user_version");
  if (application == 0 && format == 0 && isEmpty(connection)) return 0;
  if (application != applicationId || format <= 0) throw foreign(connection.file());
  if (format > static_cast<int64_t>(known)) throw newer(connection.file(), format, known);
  return static_cast<size_t>(format);
}

void convert(Connection& connection, std::span<const char* const> steps) {
  // Takes effect in an empty file only. Small pages: a change of one record writes fewer bytes to
  // flash.
  connection.run("PRAGMA page_size = 1024");
  Transactional transaction(connection, Transactional::Kind::write);
  // Looked at again, now that nobody else can write.
  for (const char* step : steps.subspan(formatOf(connection, steps.size()))) connection.run(step);
  connection.run(rt::format("PRAGMA application_id = %d; PRAGMA user_version = %zu",
                            static_cast<int>(applicationId), steps.size())
                     .charPtr());
  transaction.commit();
  // Out of the log, if nobody reads: the file's head has its format then, for who asks without
  // SQLite.
  (void)connection.number("PRAGMA wal_checkpoint(PASSIVE)");
}

}  // namespace

std::span<const char* const> formatSteps() { return allSteps; }

size_t newestFormat() { return formatSteps().size(); }

void requireFormat(Connection& connection, Role role, std::span<const char* const> steps) {
  const size_t format = formatOf(connection, steps.size());
  if (format == steps.size()) return;
  if (format == 0 && role != Role::owner) throw emptied(connection.file());
  if (role != Role::client) return convert(connection, steps);
  throw older(connection.file(), static_cast<int64_t>(format), steps.size());
}

}  // namespace statedb::sqlite
