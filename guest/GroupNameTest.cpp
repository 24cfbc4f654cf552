// The names of guests' control groups.
#include <gtest/gtest.h>

#include "guest/GroupName.h"

namespace guest {
namespace {

TEST(GroupName, SaysWhoseItIsAndWhatItWasMadeFor) {
  for (const char* vm : {"web1", "web.2", "vm-x", "1"}) {
    const auto name = groupFrom(groupNameOf(vm, 357));
    ASSERT_TRUE(name) << vm;
    EXPECT_EQ(name->vm, vm);
    EXPECT_EQ(name->need, 357U);
  }
}

TEST(GroupName, OfSomethingElseIsNone) {
  for (const char* name :
       {"", "vm-", "vm-.5", "vm-web1", "vm-web1.", "vm-web1.x", "web1.5", "init.scope"})
    EXPECT_FALSE(groupFrom(name)) << name;
}

}  // namespace
}  // namespace guest
