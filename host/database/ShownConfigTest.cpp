#include <gtest/gtest.h>

#include "host/database/ShownConfig.h"

namespace host {
namespace {

TEST(ShownConfig, ShowsOnceAllTurnsAreOverThatWereAskedForByThen) {
  ShownConfig config;
  config.taken({"s", 1, "h"}, 3);
  config.taken({"s", 2, "h"}, 5);
  config.taken({"s", 3, "h"}, 9);
  EXPECT_FALSE(config.shown(2));
  EXPECT_EQ(config.shown(3)->sequence, 1U);
  EXPECT_FALSE(config.shown(4)) << "no farther";
  EXPECT_EQ(config.shown(9)->sequence, 3U);
  EXPECT_FALSE(config.shown(9));
}

TEST(ShownConfig, ShowsAtOnceWhereNoVmIsToldOf) {
  ShownConfig config;
  config.taken({"s", 1, "h"}, 0);
  EXPECT_EQ(config.shown(0)->sequence, 1U);
}

}  // namespace
}  // namespace host
