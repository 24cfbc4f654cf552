#include "statedb/Follower.h"

#include <algorithm>

#include "runtime/base/Check.h"

namespace statedb {

namespace {

std::pair<rt::String, rt::String> nameOf(const Record& record) {
  return {record.table, record.key};
}

Change removal(const std::pair<rt::String, rt::String>& name, Proof proof) {
  return {Op::del, {name.first, name.second, {}, 0, 0}, proof};
}

}  // namespace

Follower::Follower(StateDb& db, std::vector<rt::String> tables)
    : db_(db), tables_(std::move(tables)), half_(db.halfOf(tables_.at(0))) {
  for (const rt::String& table : tables_)
    rt::check(db.halfOf(table) == half_, "one half of the database is followed");
}

int Follower::wakeUp() { return db_.store(half_).wakeUp(); }

void Follower::reopen() { db_.close(half_); }

std::vector<Change> Follower::catchUp() {
  if (!cursor_) return compare(Resume::otherStore);
  Changes all = db_.store(half_).changes(*cursor_);
  if (all.resume != Resume::resumed) return compare(all.resume);
  std::vector<Change> news = follow(std::move(all.changes));
  cursor_ = all.cursor;
  return news;
}

std::vector<Change> Follower::follow(std::vector<Change> changes) {
  std::erase_if(changes, [this](const Change& change) { return !isFollowed(change.record.table); });
  Names removed;  // looked up before anything is taken: that may throw
  for (const auto& [op, record, proof, author] : changes) {
    const auto lost = lost_.find(nameOf(record));
    if (op == Op::put && lost != lost_.end() &&
        db_.store(half_).hasRemoved(record.table, record.key, lost->second))
      removed.insert(lost->first);
  }
  std::vector<Change> news;
  for (Change& change : changes) {
    const Name name = nameOf(change.record);
    if (removed.contains(name)) news.push_back(removal(name, Proof::history));
    if (take(change)) news.push_back(std::move(change));
  }
  return news;
}

// With a snapshot: what is gone first, so that what it held is free for what is new.
std::vector<Change> Follower::compare(Resume resume) {
  Snapshot now = db_.store(half_).snapshot(tables_);
  const Names removed = this->removed(now, resume);
  std::vector<Change> news;
  takeGone(now, removed, news);
  // In the order in which they came to be as they are.
  std::sort(now.records.begin(), now.records.end(),
            [](const Record& a, const Record& b) { return a.revision < b.revision; });
  const bool sameStore = cursor_ && cursor_->storeId == now.cursor.storeId;
  const Proof proof = resume == Resume::trimmed ? Proof::history : Proof::comparison;
  for (Record& record : now.records) {
    Change change{Op::put, std::move(record), proof};
    // Another store counts its revisions anew.
    if (!sameStore) known_.erase(nameOf(change.record));
    if (take(change)) news.push_back(std::move(change));
  }
  cursor_ = now.cursor;
  return news;
}

// Those that were told and that the history has removed since, whether another of the name is there
// or not.
Follower::Names Follower::removed(const Snapshot& now, Resume resume) {
  if (known_.empty() && lost_.empty()) return {};
  std::map<Name, uint64_t> there;  // when it was made
  for (const Record& record : now.records) there[nameOf(record)] = record.created;
  Store& store = db_.store(half_);
  Names names;
  for (const auto& [name, known] : known_) {
    const auto found = there.find(name);
    if (found != there.end() && found->second == known.created) continue;
    // What a store's own log does not reach back to has happened all the same.
    if (resume == Resume::trimmed ||
        store.hasRemoved(name.first, name.second, {cursor_->history, known.created}))
      names.insert(name);
  }
  for (const auto& [name, origin] : lost_)
    if (store.hasRemoved(name.first, name.second, origin)) names.insert(name);
  return names;
}

void Follower::takeGone(const Snapshot& now, const Names& removed, std::vector<Change>& news) {
  for (const Name& name : removed) {
    news.push_back(removal(name, Proof::history));
    known_.erase(name);
    lost_.erase(name);
  }
  Names there;
  for (const Record& record : now.records) there.insert(nameOf(record));
  for (auto known = known_.begin(); known != known_.end();) {
    if (there.contains(known->first)) {
      ++known;
      continue;
    }
    news.push_back(removal(known->first, Proof::comparison));
    lost_[known->first] = {cursor_->history, known->second.created};
    known = known_.erase(known);
  }
}

bool Follower::isFollowed(const rt::String& table) const {
  return std::find(tables_.begin(), tables_.end(), table) != tables_.end();
}

// Whether it is news.
bool Follower::take(const Change& change) {
  const Record& record = change.record;
  const Name name = nameOf(record);
  const bool wasLost = lost_.erase(name) > 0;
  if (change.op == Op::del) return known_.erase(name) > 0 || wasLost;
  Known& known = known_[name];
  known.created = record.created;
  return std::exchange(known.revision, record.revision) != record.revision;
}

}  // namespace statedb
