// Which tables there are.
#include <gtest/gtest.h>

#include <set>

#include "model/Tables.h"

namespace model {
namespace {

TEST(Tables, OfStatusAreThoseThatTheDaemonWrites) {
  for (const char* name : {"daemon", "vmStatus", "vmProcess", "vmProblem", "vmCard",
                           "interfaceStatus", "fdb", "event"})
    EXPECT_TRUE(isStatus(name)) << name;
  for (const char* name : {"vmConfig", "vmImage", "vmLimits", "vmPolicy", "vmIntent", "interface",
                           "removed", "", "vmstatus"})
    EXPECT_FALSE(isStatus(name)) << name;
}

TEST(Tables, OfVmsAreThoseWhoseKeysAreNamesOfVms) {
  for (const char* name : {"vmConfig", "vmImage", "vmLimits", "vmPolicy", "vmIntent", "vmStatus",
                           "vmProcess", "vmProblem"})
    EXPECT_TRUE(isOfVms(name)) << name;
  for (const char* name :
       {"interface", "removed", "interfaceStatus", "fdb", "event", "daemon", "vm", "vmCard"})
    EXPECT_FALSE(isOfVms(name)) << name;
}

TEST(Tables, AreListedOnce) {
  std::set<std::string_view> names;
  for (const Table& table : tables) EXPECT_TRUE(names.insert(table.name).second) << table.name;
  EXPECT_EQ(names.size(), 15U);
}

}  // namespace
}  // namespace model
