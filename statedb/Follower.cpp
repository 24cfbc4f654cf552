#include "statedb/Follower.h"

#include <algorithm>
#include <set>

#include "runtime/base/Check.h"

namespace statedb {

Follower::Follower(StateDb& db, std::vector<rt::String> tables)
    : db_(db), tables_(std::move(tables)), half_(halfOf(tables_.at(0).str())) {
  for (const rt::String& table : tables_)
    rt::check(halfOf(table.str()) == half_, "one half of the database is followed");
}

int Follower::wakeUp() { return db_.store(half_).wakeUp(); }

void Follower::reopen() { db_.close(half_); }

std::vector<Change> Follower::catchUp() {
  if (!cursor_) return compare();
  Changes all = db_.store(half_).changes(*cursor_);
  if (all.resume != Resume::resumed) return compare();
  cursor_ = all.cursor;
  std::vector<Change> news;
  for (Change& change : all.changes)
    if (take(change)) news.push_back(std::move(change));
  return news;
}

// With a snapshot: what is gone first, so that what it held is free for what is new.
std::vector<Change> Follower::compare() {
  Snapshot now = db_.store(half_).snapshot(tables_);
  std::set<Name> there;
  for (const Record& record : now.records) there.emplace(record.table, record.key);
  std::vector<Change> news;
  for (auto known = revisions_.begin(); known != revisions_.end();) {
    if (there.contains(known->first)) {
      ++known;
      continue;
    }
    news.push_back({Op::del, {known->first.first, known->first.second, {}, 0, 0}});
    known = revisions_.erase(known);
  }
  // In the order in which they came to be as they are.
  std::sort(now.records.begin(), now.records.end(),
            [](const Record& a, const Record& b) { return a.revision < b.revision; });
  const bool sameStore = cursor_ && cursor_->storeId == now.cursor.storeId;
  for (Record& record : now.records) {
    Change change{Op::put, std::move(record)};
    // Another store counts its revisions anew.
    if (!sameStore) revisions_.erase({change.record.table, change.record.key});
    if (take(change)) news.push_back(std::move(change));
  }
  cursor_ = now.cursor;
  return news;
}

// Whether it is one of ours, and news.
bool Follower::take(const Change& change) {
  const Record& record = change.record;
  if (std::find(tables_.begin(), tables_.end(), record.table) == tables_.end()) return false;
  const Name name(record.table, record.key);
  if (change.op == Op::del) return revisions_.erase(name) > 0;
  return std::exchange(revisions_[name], record.revision) != record.revision;
}

}  // namespace statedb
