#include "statedb/fakes/MemoryStore.h"

#include <fcntl.h>
#include <jansson.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "runtime/base/Text.h"
#include "statedb/Requests.h"

namespace statedb::fakes {

namespace {

rt::String nextId() {
  static std::atomic<int> count = 0;
  return "memory-" + rt::toText(++count);
}

bool isJson(const rt::String& doc) {
  json_t* const value =
      json_loadb(doc.charPtr(), doc.size(), JSON_DECODE_ANY | JSON_ALLOW_NUL, nullptr);
  json_decref(value);
  return value != nullptr;
}

}  // namespace

MemoryData::MemoryData() : id(nextId()), history(id) {}

MemoryData::MemoryData(MemoryData& original) : id(nextId()), history(original.history) {
  const std::lock_guard held(original.mutex);
  records = original.records;
  log = original.log;
  lastChange = original.lastChange;
  removals = original.removals;
  sequence = original.sequence;
  trimmedTo = original.trimmedTo;
}

MemoryStore::MemoryStore(std::shared_ptr<MemoryData> data, Half half, IsStatus isStatus)
    : data_(std::move(data)), half_(half), isStatus_(isStatus) {}

MemoryStore::~MemoryStore() {
  if (bell_ < 0) return;
  const std::lock_guard held(data_->mutex);
  data_->bells.erase(bell_);
  close(bell_);
}

Snapshot MemoryStore::snapshot(const std::vector<rt::String>& tables) {
  requireTables(tables, half_, isStatus_);
  const std::lock_guard held(data_->mutex);
  Snapshot snapshot{{}, cursor()};
  for (const auto& [name, record] : data_->records)
    if (std::find(tables.begin(), tables.end(), name.first) != tables.end())
      snapshot.records.push_back(record);
  return snapshot;
}

std::optional<Record> MemoryStore::record(const rt::String& table, const rt::String& key) {
  requireSoundName(table, key);
  requireTables({table}, half_, isStatus_);
  const std::lock_guard held(data_->mutex);
  const auto found = data_->records.find({table, key});
  if (found == data_->records.end()) return std::nullopt;
  return found->second;
}

bool MemoryStore::hasRemoved(const rt::String& table, const rt::String& key, const Origin& origin) {
  if (data_->failsLooks) throw Error(Trouble::locked, "somebody has it");
  requireSoundName(table, key);
  requireTables({table}, half_, isStatus_);
  const std::lock_guard held(data_->mutex);
  const auto last = data_->removals.find({table, key});
  return origin.history == data_->history && last != data_->removals.end() &&
         last->second > origin.created;
}

Changes MemoryStore::changes(const Cursor& since) {
  const std::lock_guard held(data_->mutex);
  eventfd_t rings = 0;
  if (bell_ >= 0) (void)eventfd_read(bell_, &rings);
  if (since.storeId != data_->id || since.sequence > data_->sequence)
    return {Resume::otherStore, {}, since};
  if (since.sequence < data_->trimmedTo) return {Resume::trimmed, {}, since};
  Changes changes{Resume::resumed, {}, cursor()};
  for (auto entry = data_->log.upper_bound(since.sequence); entry != data_->log.end(); ++entry) {
    const auto found = data_->records.find(entry->second);
    if (found == data_->records.end())
      changes.changes.push_back({Op::del, {entry->second.first, entry->second.second, "", 0, 0}});
    else
      changes.changes.push_back({Op::put, found->second});
  }
  return changes;
}

void MemoryStore::commit(const Transaction& transaction) {
  if (data_->failsCommits) throw Error(Trouble::full, "there is no space left");
  requireSound(transaction, half_, isStatus_);
  const std::lock_guard held(data_->mutex);
  require(transaction);
  bool changed = false;
  for (const Change& change : transaction.writes()) changed = write(change) || changed;
  if (!changed) return;
  for (const int bell : data_->bells) (void)eventfd_write(bell, 1);
}

void MemoryStore::require(const Transaction& transaction) const {
  for (const auto& guard : transaction.guards()) {
    const auto found = data_->records.find({guard.table, guard.key});
    const uint64_t revision = found == data_->records.end() ? 0 : found->second.revision;
    if (revision != guard.revision) throw conflict(guard, revision);
  }
  for (const Change& write : transaction.writes())
    if (write.op == Op::put && !isJson(write.record.doc))
      throw notJson(write.record.table, write.record.key);
}

// Returns whether anything changed.
bool MemoryStore::write(const Change& change) {
  const std::pair name(change.record.table, change.record.key);
  const auto found = data_->records.find(name);
  const bool exists = found != data_->records.end();
  if (change.op == Op::del ? !exists : exists && found->second.doc == change.record.doc)
    return false;
  const uint64_t sequence = ++data_->sequence;
  data_->log.erase(std::exchange(data_->lastChange[name], sequence));
  data_->log[sequence] = name;
  if (change.op == Op::del) {
    data_->records.erase(found);
    data_->removals[name] = sequence;
  } else {
    data_->records[name] = {name.first, name.second, change.record.doc, sequence,
                            exists ? found->second.created : sequence};
  }
  return true;
}

int MemoryStore::wakeUp() {
  const std::lock_guard held(data_->mutex);
  if (bell_ < 0) bell_ = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  data_->bells.insert(bell_);
  return fcntl(bell_, F_DUPFD_CLOEXEC, 0);
}

void MemoryStore::trim() {
  const std::lock_guard held(data_->mutex);
  ++data_->sequence;  // as if that had been a change: no cursor until now is at its end
  data_->trimmedTo = data_->sequence;
  data_->log.clear();
  data_->removals.clear();
}

}  // namespace statedb::fakes
