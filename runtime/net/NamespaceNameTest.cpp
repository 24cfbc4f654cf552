#include <gtest/gtest.h>

#include "runtime/net/NamespaceName.h"

namespace rt {
namespace {

TEST(NamespaceName, IsTheDefaultOneAtFirst) {
  EXPECT_EQ(NamespaceName().text(), "default");
  EXPECT_EQ(NamespaceName(), NamespaceName::defaultNamespace());
}

TEST(NamespaceName, KeepsItsText) {
  EXPECT_EQ(NamespaceName("ns-mgmt").text(), "ns-mgmt");
  EXPECT_EQ(NamespaceName::fromText("ns-mgmt"), NamespaceName("ns-mgmt"));
}

TEST(NamespaceName, NamedDefaultIsTheDefaultOne) {
  EXPECT_EQ(NamespaceName::fromText("default"), NamespaceName::defaultNamespace());
}

TEST(NamespaceName, RefusesEmptyText) { EXPECT_EQ(NamespaceName::fromText(""), std::nullopt); }

TEST(NamespaceName, EqualsAndOrdersByText) {
  EXPECT_NE(NamespaceName("a"), NamespaceName("b"));
  EXPECT_LT(NamespaceName("a"), NamespaceName("b"));
}

}  // namespace
}  // namespace rt
