// A store that fails when a test says so, and can be replaced under its users.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "model/Tables.h"
#include "statedb/fakes/MemoryStore.h"

namespace host::fakes {

// One file of the database, as all its users find it.
struct StoreFile {
  std::shared_ptr<statedb::fakes::MemoryData> data = std::make_shared<statedb::fakes::MemoryData>();
  std::optional<statedb::Trouble> trouble;  // of every call
  bool isDeaf = false;                      // wakeUp() alone fails
  std::function<void()> afterRead;          // something that happens right after a read
  int calls = 0;

  // Another file takes its place. Those who have it open are told that it was replaced.
  void replace() { data = std::make_shared<statedb::fakes::MemoryData>(); }
  // Another user's look and commit, which always succeed.
  std::unique_ptr<statedb::Store> other(statedb::Half half) const {
    return std::make_unique<statedb::fakes::MemoryStore>(data, half, model::isStatus);
  }
};

class TroubledStore final : public statedb::Store {
 public:
  // `file` outlives it.
  TroubledStore(StoreFile& file, statedb::Half half)
      : file_(file), data_(file.data), store_(file.data, half, model::isStatus) {
    require();
  }

  statedb::Snapshot snapshot(const std::vector<rt::String>& tables) override {
    require();
    auto snapshot = store_.snapshot(tables);
    tell();
    return snapshot;
  }
  std::optional<statedb::Record> record(const rt::String& table, const rt::String& key) override {
    require();
    return store_.record(table, key);
  }
  bool hasRemoved(const rt::String& table, const rt::String& key,
                  const statedb::Origin& origin) override {
    require();
    return store_.hasRemoved(table, key, origin);
  }
  statedb::Changes changes(const statedb::Cursor& since) override {
    require();
    auto changes = store_.changes(since);
    tell();
    return changes;
  }
  void commit(const statedb::Transaction& transaction) override {
    require();
    store_.commit(transaction);
  }
  int wakeUp() override {
    require();
    if (file_.isDeaf) throw statedb::Error(statedb::Trouble::failed, "there is no doorbell");
    return store_.wakeUp();
  }

 private:
  void require() {
    ++file_.calls;
    if (data_ != file_.data)
      throw statedb::Error(statedb::Trouble::replaced, "another file stands there");
    if (file_.trouble) throw statedb::Error(*file_.trouble, "the file is in trouble");
  }
  void tell() const {
    if (file_.afterRead) std::exchange(file_.afterRead, nullptr)();
  }

  StoreFile& file_;
  const std::shared_ptr<statedb::fakes::MemoryData> data_;
  statedb::fakes::MemoryStore store_;
};

// `config` and `status` outlive it.
inline statedb::StateDb troubledDb(StoreFile& config, StoreFile& status) {
  return {[&config] { return std::make_unique<TroubledStore>(config, statedb::Half::config); },
          [&status] { return std::make_unique<TroubledStore>(status, statedb::Half::status); },
          model::isStatus};
}

}  // namespace host::fakes
