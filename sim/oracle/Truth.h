// Whether what the daemon says of the machine is so.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "sim/oracle/Ledger.h"
#include "sim/oracle/Scene.h"

namespace sim {

using Rows = std::map<std::string, std::string>;  // by "table/key"

struct Finding {
  std::string clause;
  std::string about;
  std::string text;
};

// What everybody may read.
inline const std::vector<std::string> statusTables = {"vmStatus", "vmProcess", "vmProblem"};

class Truth {
 public:
  Truth(World& world, const Ledger& ledger, const Rows& configuration)
      : world_(world), ledger_(ledger), configuration_(configuration) {}

  // What is told of a VM, and is not so. At any time but for a moment after each change.
  std::optional<Finding> firstLie(const Rows& status) const;
  // What is not as it was asked to be, of a machine that has come to rest.
  std::optional<Finding> firstFault(const Rows& status) const;
  // What is left although there is no VM any more.
  std::optional<Finding> firstRemnant(const Rows& status) const;

  // The QEMU does what it is asked for.
  static bool isGood(const Qemu& qemu);
  // A guest may be in no configuration.
  bool mayBeUnknown = false;

 private:
  std::vector<std::string> vmsOf(const Rows& status) const;
  std::optional<Finding> lieOf(const std::string& vm, const Rows& status) const;
  std::optional<Finding> faultOf(const std::string& vm, const Rows& status) const;
  std::optional<Finding> cardFaultOf(const Qemu& qemu) const;
  std::optional<Finding> strayDevice() const;
  bool isConfiguredCard(const std::string& mac, bool isOn = false) const;
  std::optional<Finding> strayFile(const std::string& vm, bool runs) const;

  World& world_;
  const Ledger& ledger_;
  const Rows& configuration_;
};

}  // namespace sim
