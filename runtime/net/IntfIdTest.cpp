#include <gtest/gtest.h>

#include <unordered_set>

#include "runtime/net/IntfId.h"

namespace rt {
namespace {

TEST(IntfId, IsEmptyAtFirst) { EXPECT_EQ(IntfId().text(), ""); }

TEST(IntfId, KeepsItsTextAsItIs) {
  for (const char* text : {"Vlan100", "Ethernet1/2.30", "vlan100", "", " x "}) {
    EXPECT_EQ(IntfId(text).text(), text);
    EXPECT_EQ(IntfId(text).name(), text);
    EXPECT_EQ(IntfId::fromText(text), IntfId(text));
  }
}

TEST(IntfId, EqualsTheSameTextOnly) {
  EXPECT_EQ(IntfId("Vlan100"), IntfId("Vlan100"));
  EXPECT_NE(IntfId("Vlan100"), IntfId("vlan100"));
}

TEST(IntfId, OrdersByText) {
  EXPECT_LT(IntfId("Ethernet1"), IntfId("Vlan1"));
  EXPECT_LT(IntfId("Vlan10"), IntfId("Vlan9"));
}

TEST(IntfId, HashTellsIdsApart) {
  const std::unordered_set<IntfId> ids{IntfId("a"), IntfId("b"), IntfId("a")};
  EXPECT_EQ(ids.size(), 2U);
}

}  // namespace
}  // namespace rt
