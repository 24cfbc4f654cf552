// Names of tables for tests of the store, to which they mean nothing.
#pragma once

#include <string_view>

namespace statedb::fakes {

inline bool isStatus(std::string_view table) {
  return table == "vmStatus" || table == "vmProblem" || table == "fdb";
}

}  // namespace statedb::fakes
