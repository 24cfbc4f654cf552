// A store in memory, for tests of what uses one.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include "statedb/StateDb.h"

namespace statedb::fakes {

// What all users of a store share.
struct MemoryData {
  MemoryData();
  // A copy, as a backup is.
  explicit MemoryData(MemoryData& original);

  const rt::String id;  // of this one and no other
  const rt::String history;
  std::mutex mutex;
  std::map<std::pair<rt::String, rt::String>, Record> records;
  // Sequence -> record, of its last change only: older ones would never be told.
  std::map<uint64_t, std::pair<rt::String, rt::String>> log;
  std::map<std::pair<rt::String, rt::String>, uint64_t> lastChange;  // the other way about
  std::map<std::pair<rt::String, rt::String>, uint64_t> removals;    // the last of each
  uint64_t sequence = 0;
  uint64_t trimmedTo = 0;
  std::set<int> bells;        // the users' eventfds
  bool failsLooks = false;    // hasRemoved() throws, for somebody has it locked
  bool failsCommits = false;  // commit() throws, for there is no space left
};

class MemoryStore final : public Store {
 public:
  // Without `isStatus` it takes tables of any half.
  explicit MemoryStore(std::shared_ptr<MemoryData> data, Half half = Half::config,
                       IsStatus isStatus = nullptr);
  ~MemoryStore() override;

  Snapshot snapshot(const std::vector<rt::String>& tables) override;
  std::optional<Record> record(const rt::String& table, const rt::String& key) override;
  bool hasRemoved(const rt::String& table, const rt::String& key, const Origin& origin) override;
  Changes changes(const Cursor& since) override;
  void commit(const Transaction& transaction) override;
  int wakeUp() override;

  // Forgets all that happened until now.
  void trim();

 private:
  Cursor cursor() const { return {data_->id, data_->sequence, data_->history}; }
  void require(const Transaction& transaction) const;
  bool write(const Change& change);

  const std::shared_ptr<MemoryData> data_;
  const Half half_;
  const IsStatus isStatus_;
  int bell_ = -1;
};

}  // namespace statedb::fakes
