// The configuration as the daemon goes by it.
#pragma once

#include <map>
#include <optional>
#include <set>

#include "host/database/VmRows.h"

namespace host {

// Acts on the configuration as it comes.
class ConfigurationTaker {
 public:
  virtual ~ConfigurationTaker() = default;
  // Takes an interface's row; nothing: it has none.
  virtual void interfaceIs(const rt::String& id, const std::optional<rt::String>& doc) = 0;
  // Takes the number of restarts that were asked for. `ifEnded`: the last is of a guest that has
  // ended, and one that runs goes on.
  virtual void restartIs(const rt::String& vm, uint64_t number, bool ifEnded) = 0;
  // The number, all of which were asked for before this daemon's time, or elsewhere.
  virtual void restartIsPast(const rt::String& vm, uint64_t number) = 0;
  // Takes how many stops were asked for that had a time of their own, and that of the last stop or
  // restart: seconds that the guest gets; negative: as always. Before the VM's own row.
  virtual void stopIs(const rt::String& vm, uint64_t number, int32_t within) = 0;
  // Takes what the VM's disk image is opened as. Before the VM's own row.
  virtual void imageIs(const rt::String& vm, const std::optional<statedb::Record>& row) = 0;
  virtual void imageIsLost(const rt::String& vm) = 0;
  // Takes the host's own row of the VM, of one of model::ownTables. Before that of vmConfig.
  virtual void ownRowIs(const rt::String& table, const rt::String& vm,
                        const std::optional<statedb::Record>& row) = 0;
  // Takes note that the VM's row is another now.
  virtual void rowIs(const rt::String& vm, const VmRow* row) = 0;
  // Takes which guest of the VM's an operator gave up; empty: none. When all rows are known.
  virtual void givenUpIs(const rt::String& vm, const rt::String& guest) = 0;
};

// Takes changes of all its tables, and hands them to who acts on them. What is only missing in
// a store that took the place of another is none of an operator's doing:
//
//   a row that is lost | is taken for
//   -------------------+----------------------------------------------------------------------
//   vmConfig           | see VmRows
//   interface          | what it was: guests are on it
//   vmIntent           | what it was; the numbers of a store that took its place ask for nothing
//   vmImage            | what it was: the guest may have written into its disk by now
//   vmLimits, vmPolicy | what it was: what others were promised stays
//
// Owned by the daemon.
class Configuration {
 public:
  // `before`: how far the daemon before had come with it.
  Configuration(const model::MachineLimits& limits, statedb::Cursor before)
      : rows_(limits), reached_(std::move(before)) {}

  // Hands them to `taker`. What that throws is thrown again once all changes are taken.
  void take(const std::vector<statedb::Change>& changes, const statedb::Cursor& reached,
            ConfigurationTaker& taker);

  const VmRows& rows() const { return rows_; }
  // The moment that was taken last.
  const statedb::Cursor& reached() const { return reached_; }
  bool isGivenUp(const rt::String& vm, const rt::String& guest) const;

 private:
  void takeIntent(const statedb::Change& change, bool isPast, ConfigurationTaker& taker);

  VmRows rows_;
  statedb::Cursor reached_;
  std::map<rt::String, rt::String> givenUp_;  // by VM
};

}  // namespace host
