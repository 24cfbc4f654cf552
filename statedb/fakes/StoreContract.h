// What every backend promises, as one suite over a backend that a test can open like processes do.
//
// A backend joins by INSTANTIATE_TEST_SUITE_P(Name, StoreContract, testing::Values(...)) in a test
// program that links StoreContractTest.cpp.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "statedb/StateDb.h"

namespace statedb {

// One store, empty at first.
class Backend {
 public:
  virtual ~Backend() = default;
  // Another user of the store. Called on any thread.
  virtual std::unique_ptr<Store> open() = 0;
  // Commits enough through `store` for all cursors until now to be trimmed.
  virtual void trim(Store& store) = 0;
};

struct BackendCase {
  const char* name;
  std::function<std::unique_ptr<Backend>()> make;
  Half half = Half::config;
};

inline std::ostream& operator<<(std::ostream& out, const BackendCase& backend) {
  return out << backend.name;
}
inline std::ostream& operator<<(std::ostream& out, const Record& record) {
  return out << record.table << "/" << record.key << "@" << record.revision << " "
             << record.doc.substr(0, 200);
}
inline std::ostream& operator<<(std::ostream& out, const Cursor& cursor) {
  return out << cursor.storeId << ":" << cursor.sequence;
}
inline std::ostream& operator<<(std::ostream& out, const Change& change) {
  return out << (change.op == Op::put ? "put " : "del ") << change.record;
}

// Closes a descriptor when it ends.
class Closing {
 public:
  explicit Closing(int descriptor) : descriptor_(descriptor) {}
  Closing(const Closing&) = delete;
  ~Closing() { close(descriptor_); }

  // Whether it is readable now, or within the time.
  bool isReadable(int milliseconds = 0) const {
    pollfd look{descriptor_, POLLIN, 0};
    return poll(&look, 1, milliseconds) == 1;
  }

 private:
  int descriptor_;
};

// "table/key" -> document.
using Contents = std::map<std::string, std::string>;

inline std::string nameOf(const Record& record) {
  return record.table.str() + "/" + record.key.str();
}
inline Contents contentsOf(const Snapshot& snapshot) {
  Contents contents;
  for (const Record& record : snapshot.records) contents[nameOf(record)] = record.doc.str();
  return contents;
}
inline void replay(const Changes& changes, Contents& contents) {
  for (const Change& change : changes.changes) {
    if (change.op == Op::put)
      contents[nameOf(change.record)] = change.record.doc.str();
    else
      contents.erase(nameOf(change.record));
  }
}
// "put a", "del b", in order.
inline std::vector<std::string> told(const Changes& changes) {
  std::vector<std::string> told;
  for (const Change& change : changes.changes)
    told.push_back((change.op == Op::put ? "put " : "del ") + change.record.key.str());
  return told;
}

// What `action` is refused for; nothing else may come of it.
template <class Action>
Trouble troubleOf(Action action, std::string* sentence = nullptr) {
  try {
    action();
  } catch (const Error& error) {
    if (sentence) *sentence = error.what();
    return error.trouble();
  }
  ADD_FAILURE() << "nothing was thrown";
  return Trouble::failed;
}

class StoreContract : public testing::TestWithParam<BackendCase> {
 protected:
  Half half() const { return GetParam().half; }
  std::unique_ptr<Store> open() { return backend->open(); }
  Snapshot all() { return store->snapshot({table, other}); }
  // Commits one put.
  void put(const rt::String& key, const rt::String& doc) {
    store->commit(Transaction().put(table, key, doc));
  }
  void del(const rt::String& key) { store->commit(Transaction().del(table, key)); }
  uint64_t revision(const rt::String& key) { return store->record(table, key)->revision; }
  Origin originOf(const rt::String& key) {
    return {all().cursor.history, store->record(table, key)->created};
  }

  const std::unique_ptr<Backend> backend = GetParam().make();
  const std::unique_ptr<Store> store = backend->open();
  // Two tables of the store, and one that it does not have.
  const rt::String table = half() == Half::config ? "vmConfig" : "vmStatus";
  const rt::String other = half() == Half::config ? "interface" : "fdb";
  const rt::String foreign = half() == Half::config ? "vmStatus" : "vmConfig";
};

}  // namespace statedb
