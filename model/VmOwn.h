// What operators say of a VM that is the host's own: the agent knows nothing of it.
#pragma once

#include <algorithm>
#include <array>
#include <string_view>

#include "model/Tables.h"
#include "model/VmLimits.h"
#include "model/VmPolicy.h"

namespace model {

struct OwnTable {
  std::string_view table;
  std::string_view member;  // what a document of the VM calls its row
};
inline constexpr std::array ownTables{OwnTable{table::vmLimits, "limits"},
                                      OwnTable{table::vmPolicy, "policy"}};

constexpr bool isOwn(std::string_view table) {
  return std::any_of(ownTables.begin(), ownTables.end(),
                     [&](const OwnTable& each) { return each.table == table; });
}

// A record of each of those tables, never null: at first what a VM has of which nobody has said
// anything. Copies share them.
struct VmOwn {
  VmOwn() : VmOwn(rt::String()) {}
  explicit VmOwn(const rt::String& vm)
      : limits(rt::make<VmLimits>(vm)), policy(rt::make<VmPolicy>(vm)) {}

  VmLimits::Ptr limits;
  VmPolicy::Ptr policy;

  rt::Entity& record(std::string_view table) const {
    if (table == table::vmPolicy) return *policy;
    return *limits;
  }
  // Takes the record of that table from another.
  void recordIs(std::string_view table, const VmOwn& other) {
    if (table == table::vmPolicy)
      policy = other.policy;
    else
      limits = other.limits;
  }
};

}  // namespace model
