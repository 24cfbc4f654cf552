// The state database: what an operator asked for and what is so, as JSON documents in tables.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "statedb/Error.h"
#include "statedb/Record.h"

namespace statedb {

// Puts and dels that happen together or not at all, if all guards hold.
class Transaction {
 public:
  struct Guard {
    rt::String table;
    rt::String key;
    uint64_t revision;  // 0: there is no such record
  };

  Transaction& put(rt::String table, rt::String key, rt::String doc);
  // Of a record that does not exist: nothing happens.
  Transaction& del(rt::String table, rt::String key);
  // Of revision 0: that there is no such record.
  Transaction& guard(rt::String table, rt::String key, uint64_t revision);

  const std::vector<Change>& writes() const { return writes_; }
  const std::vector<Guard>& guards() const { return guards_; }

 private:
  std::vector<Change> writes_;  // their revisions mean nothing
  std::vector<Guard> guards_;
};

// One store, as one of its many users sees it. All calls throw Error, and return soon: the longest
// wait is the backend's time-out. Used by one thread. Not to be carried over a fork.
class Store {
 public:
  Store() = default;
  Store(const Store&) = delete;
  virtual ~Store() = default;

  virtual Snapshot snapshot(const std::vector<rt::String>& tables) = 0;
  virtual std::optional<Record> record(const rt::String& table, const rt::String& key) = 0;
  // Whether the store's log shows that the record of that name and origin was removed since. False
  // also when nobody knows: of another history, of a part of it that this copy does not have, or
  // when the log was trimmed.
  virtual bool hasRemoved(const rt::String& table, const rt::String& key, const Origin& origin) = 0;
  // Silences the wake-up first, so that no commit is missed in between.
  virtual Changes changes(const Cursor& since) = 0;
  // ConflictError when a guard does not hold. A document put as it already stands is no change: its
  // revision stays and nobody is told. Each record may be written once.
  virtual void commit(const Transaction& transaction) = 0;
  // A descriptor to poll, the caller's to close (rt::FileDescriptor does). Readable means "look":
  // after this call every commit of anybody makes it so, and sometimes nothing did; the next
  // changes() ends it, whatever it returns. Nothing is to be read from it. For no gap: wakeUp()
  // first, then snapshot(), then changes() whenever it is readable. One watcher a Store.
  virtual int wakeUp() = 0;
};

// Configuration is durable and written by operators. Status is the daemon's word about the machine
// as it runs: it is written often, never to flash, and may be gone after a reboot.
enum class Half : uint8_t { config, status };

// Whether a table is status; all others are configuration. Told by who gives the tables meaning.
using IsStatus = bool (*)(std::string_view table);

// Both halves, each a store of its own: no snapshot, cursor or transaction spans the two. A request
// that names tables of both is `invalid`.
class StateDb {
 public:
  using Opener = std::function<std::unique_ptr<Store>()>;

  // A half is opened when first asked for; what opening throws is thrown then, each time.
  StateDb(Opener config, Opener status, IsStatus isStatus);

  Half halfOf(std::string_view table) const;
  Store& store(Half half);
  // The half is opened anew when next asked for; for one whose file was replaced.
  void close(Half half);
  Store& store(const rt::String& table) { return store(halfOf(table)); }

  Snapshot snapshot(const std::vector<rt::String>& tables);
  std::optional<Record> record(const rt::String& table, const rt::String& key);
  void commit(const Transaction& transaction);

 private:
  IsStatus isStatus_;
  Opener openers_[2];
  std::unique_ptr<Store> stores_[2];
};

}  // namespace statedb
