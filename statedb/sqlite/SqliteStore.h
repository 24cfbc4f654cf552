// A store in an SQLite file.
#pragma once

#include "statedb/StateDb.h"
#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/Doorbell.h"
#include "statedb/sqlite/SqliteDb.h"
#include "statedb/sqlite/StoreFile.h"

namespace statedb::sqlite {

class SqliteStore final : public Store {
 public:
  explicit SqliteStore(const StoreOptions& options);

  Snapshot snapshot(const std::vector<rt::String>& tables) override;
  std::optional<Record> record(const rt::String& table, const rt::String& key) override;
  bool hasRemoved(const rt::String& table, const rt::String& key, const Origin& origin) override;
  Changes changes(const Cursor& since) override;
  void commit(const Transaction& transaction) override;
  int wakeUp() override;

 private:
  void prepare();
  rt::String history();
  Cursor cursor();
  uint64_t revision(const rt::String& table, const rt::String& key);
  Resume resumeFrom(const Cursor& since, const Cursor& now);
  std::vector<Change> changesAfter(uint64_t sequence);
  void write(const Change& change);
  int64_t lastChange();
  void sign(int64_t before);
  void trim();

  const StoreOptions options_;
  Doorbell doorbell_;
  Connection connection_;
  FileId id_;
};

}  // namespace statedb::sqlite
