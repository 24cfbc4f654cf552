// What the kernel says of control groups.
#include <gtest/gtest.h>

#include "guest/GroupText.h"

namespace guest {
namespace {

TEST(GroupText, HasWordsAndNumbers) {
  EXPECT_TRUE(hasWord("cpuset cpu io memory\n", "memory"));
  EXPECT_TRUE(hasWord("cpuset cpu", "cpu"));
  EXPECT_FALSE(hasWord("cpuset io", "cpu"));
  EXPECT_FALSE(hasWord("", "cpu"));
  EXPECT_EQ(numberOf("populated 1\nfrozen 0\n", "populated"), 1U);
  EXPECT_EQ(numberOf("low 0\noom_kill 3\noom_group_kill 2\n", "oom_group_kill"), 2U);
  EXPECT_EQ(numberOf("low 0\n", "populated"), 0U);
}

}  // namespace
}  // namespace guest
