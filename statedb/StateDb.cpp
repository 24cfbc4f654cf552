#include "statedb/StateDb.h"

#include <algorithm>
#include <array>

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

Half halfOf(std::string_view table) {
  constexpr std::array<std::string_view, 6> status = {"daemon",    "vmStatus",        "vmProcess",
                                                      "vmProblem", "interfaceStatus", "fdb"};
  return std::find(status.begin(), status.end(), table) == status.end() ? Half::config
                                                                        : Half::status;
}

StateDb::StateDb(Opener config, Opener status) : openers_{std::move(config), std::move(status)} {}

Store& StateDb::store(Half half) {
  const auto index = static_cast<size_t>(half);
  if (!stores_[index]) stores_[index] = openers_[index]();
  return *stores_[index];
}

void StateDb::close(Half half) { stores_[static_cast<size_t>(half)].reset(); }

Snapshot StateDb::snapshot(const std::vector<rt::String>& tables) {
  return store(halfOf(tables)).snapshot(tables);
}

std::optional<Record> StateDb::record(const rt::String& table, const rt::String& key) {
  return store(table).record(table, key);
}

void StateDb::commit(const Transaction& transaction) {
  if (transaction.guards().empty() && transaction.writes().empty()) return;
  store(halfOf(transaction)).commit(transaction);
}

}  // namespace statedb
