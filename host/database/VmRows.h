// Which rows of the configuration may be handed to the agent.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "model/ConfigIndex.h"
#include "model/VmConfigCheck.h"
#include "runtime/records/VmConfig.h"
#include "statedb/StateDb.h"

namespace host {

// One row, as far as the host goes by it.
struct VmRow {
  // What was valid last; null when nothing was yet.
  Vm::VmConfig::Ptr valid;
  // Why the row as it stands is refused; empty when it is not.
  std::vector<rt::Problem> problems;
  // Where it was made.
  statedb::Origin origin;
  // Whose row it is, from 1 on: a row that was removed and made anew is another VM's; one that a
  // store has which took the place of another is not.
  uint64_t vm = 0;
  // The store does not have it, and nobody need have removed it. Then nothing of it is valid.
  bool isLost = false;
};

// Judges rows as they come. A removed one is forgotten, a lost one is not. Of two that clash, the
// one that was there keeps what it has, and the newcomer is refused until that is free; but some
// may change places. A refused row of a VM that had a valid one leaves that in force.
class VmRows {
 public:
  explicit VmRows(const model::MachineLimits& limits) : limits_(limits) {}

  // The names of the VMs whose row is another now: valid, refused, lost, or gone. The changes are
  // of a store of that history.
  std::set<rt::String> apply(const std::vector<statedb::Change>& changes,
                             const rt::String& history = {});

  // Null when there is none, and there was none or it was removed.
  const VmRow* row(const rt::String& name) const;
  const std::map<rt::String, VmRow>& rows() const { return rows_; }

 private:
  // A document as it was read, and what is wrong with it beside those that are in force.
  struct Judged {
    Vm::VmConfig::Ptr vm;
    std::vector<rt::Problem> problems;
  };

  void remove(const rt::String& name);
  void lose(const rt::String& name);
  void take(const statedb::Change& change, const rt::String& history);
  Judged read(const statedb::Record& record) const;
  bool judge(const statedb::Record& record);
  std::vector<statedb::Record> refused() const;
  void judgeRefused(std::set<rt::String>& changed);
  bool exchange(std::set<rt::String>& changed);

  const model::MachineLimits limits_;
  std::map<rt::String, VmRow> rows_;
  std::map<rt::String, statedb::Record> refused_;  // the documents, to be looked at again
  model::ConfigIndex index_;                       // of the valid ones
  uint64_t lastVm_ = 0;
};

}  // namespace host
