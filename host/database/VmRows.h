// Which rows of the configuration may be handed to the agent.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "edge/ConfigIndex.h"
#include "edge/VmConfigCheck.h"
#include "runtime/records/VmConfig.h"
#include "statedb/StateDb.h"

namespace host {

// One row, as far as the host goes by it.
struct VmRow {
  // What was valid last; null when nothing was yet. Of the row that was made at `created`.
  Vm::VmConfig::Ptr valid;
  uint64_t created = 0;
  // Why the row as it stands is refused; empty when it is not.
  std::vector<rt::Problem> problems;
};

// Judges rows as they come. Of two that clash, the one that was there keeps what it has, and the
// newcomer is refused until that is free; but some may change places. A refused row of a VM that
// had a valid one leaves that in force.
class VmRows {
 public:
  explicit VmRows(const edge::MachineLimits& limits) : limits_(limits) {}

  // The names of the VMs whose row is another now: valid, refused, or gone.
  std::set<rt::String> apply(const std::vector<statedb::Change>& changes);

  // Null when there is no such row.
  const VmRow* row(const rt::String& name) const;
  const std::map<rt::String, VmRow>& rows() const { return rows_; }

 private:
  // A document as it was read, and what is wrong with it beside those that are in force.
  struct Judged {
    Vm::VmConfig::Ptr vm;
    std::vector<rt::Problem> problems;
  };

  void remove(const rt::String& name);
  Judged read(const statedb::Record& record) const;
  bool judge(const statedb::Record& record);
  std::vector<statedb::Record> refused() const;
  void judgeRefused(std::set<rt::String>& changed);
  bool exchange(std::set<rt::String>& changed);

  const edge::MachineLimits limits_;
  std::map<rt::String, VmRow> rows_;
  std::map<rt::String, statedb::Record> refused_;  // the documents, to be looked at again
  edge::ConfigIndex index_;                        // of the valid ones
};

}  // namespace host
