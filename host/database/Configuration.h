// The configuration as the daemon goes by it.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>

#include "host/database/VmRows.h"

namespace host {

// Takes changes of all its tables, and hands them to those who act on them. What is only missing in
// a store that took the place of another is none of an operator's doing:
//
//   a row that is lost | is taken for
//   -------------------+----------------------------------------------------------------------
//   vmConfig           | see VmRows
//   interface          | what it was: guests are on it
//   vmIntent           | what it was; the numbers of a store that took its place ask for nothing
//   vmImage            | what it was: the guest may have written into its disk by now
//
// Owned by the daemon.
class Configuration {
 public:
  struct Takers {
    // Nothing: it has no row.
    std::function<void(const rt::String& id, const std::optional<rt::String>& doc)> interfaceIs;
    std::function<void(const rt::String& vm, uint64_t number)> restartIs;
    // All restarts up to that number were asked for before this daemon's time, or elsewhere.
    std::function<void(const rt::String& vm, uint64_t number)> restartIsPast;
    // What the VM's disk image is opened as. Before the VM's own row.
    std::function<void(const rt::String& vm, const std::optional<statedb::Record>& row)> imageIs;
    std::function<void(const rt::String& vm)> imageIsLost;
    // The VM's row is another now.
    std::function<void(const rt::String& vm, const VmRow* row)> rowIs;
    // An operator gave that guest of the VM's up; empty: none. When all rows are known.
    std::function<void(const rt::String& vm, const rt::String& guest)> givenUpIs;
  };
  // `before`: how far the daemon before had come with it.
  Configuration(Takers takers, const model::MachineLimits& limits, statedb::Cursor before)
      : takers_(std::move(takers)), rows_(limits), reached_(std::move(before)) {}

  // What a taker throws is thrown again once all changes are taken.
  void take(const std::vector<statedb::Change>& changes, const statedb::Cursor& reached);

  const VmRows& rows() const { return rows_; }
  // The moment that was taken last.
  const statedb::Cursor& reached() const { return reached_; }
  bool isGivenUp(const rt::String& vm, const rt::String& guest) const;

 private:
  void takeInterface(const statedb::Change& change);
  void takeImage(const statedb::Change& change);
  void takeIntent(const statedb::Change& change, bool isPast);

  const Takers takers_;
  VmRows rows_;
  statedb::Cursor reached_;
  std::map<rt::String, rt::String> givenUp_;  // by VM
};

}  // namespace host
