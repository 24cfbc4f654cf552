#include "statedb/StateDb.h"

#include "statedb/Requests.h"

namespace statedb {

Transaction& Transaction::put(rt::String table, rt::String key, rt::String doc) {
  writes_.push_back({Op::put, {std::move(table), std::move(key), std::move(doc), 0, 0}});
  return *this;
}

Transaction& Transaction::del(rt::String table, rt::String key) {
  writes_.push_back({Op::del, {std::move(table), std::move(key), {}, 0, 0}});
  return *this;
}

Transaction& Transaction::guard(rt::String table, rt::String key, uint64_t revision) {
  guards_.push_back({std::move(table), std::move(key), revision});
  return *this;
}

StateDb::StateDb(Opener config, Opener status, IsStatus isStatus)
    : isStatus_(isStatus), openers_{std::move(config), std::move(status)} {}

Half StateDb::halfOf(std::string_view table) const { return statedb::halfOf(table, isStatus_); }

Store& StateDb::store(Half half) {
  const auto index = static_cast<size_t>(half);
  if (!stores_[index]) stores_[index] = openers_[index]();
  return *stores_[index];
}

void StateDb::close(Half half) { stores_[static_cast<size_t>(half)].reset(); }

Snapshot StateDb::snapshot(const std::vector<rt::String>& tables) {
  return store(statedb::halfOf(tables, isStatus_)).snapshot(tables);
}

std::optional<Record> StateDb::record(const rt::String& table, const rt::String& key) {
  return store(table).record(table, key);
}

void StateDb::commit(const Transaction& transaction) {
  if (transaction.guards().empty() && transaction.writes().empty()) return;
  store(statedb::halfOf(transaction, isStatus_)).commit(transaction);
}

}  // namespace statedb
