// What stands in the files of control groups.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "host/budget/GroupValues.h"

namespace host {
namespace {

std::map<std::string, std::string> mapped(const std::vector<GroupValue>& values) {
  std::map<std::string, std::string> texts;
  for (const GroupValue& value : values) texts[value.file.str()] = value.text.str();
  return texts;
}

TEST(GroupValues, OfAGuestBoundAllThatItMayTake) {
  const auto limits = rt::make<model::VmLimits>("web1");
  EXPECT_EQ(mapped(valuesOf(*limits, 357)),
            (std::map<std::string, std::string>{{"memory.max", "374341632"},
                                                {"memory.swap.max", "0"},
                                                {"memory.oom.group", "1"},
                                                {"pids.max", "512"},
                                                {"cpu.weight", "100"},
                                                {"cpu.max", "max 20000"},
                                                {"io.weight", "default 100"}}));
}

TEST(GroupValues, AreWhatAnOperatorSays) {
  const auto limits = rt::make<model::VmLimits>("web1");
  limits->cpuWeightIs(50);
  limits->ioWeightIs(7);
  limits->cpuMaxIs(model::Processors(150));
  auto texts = mapped(valuesOf(*limits, 1));
  EXPECT_EQ(texts["cpu.weight"], "50");
  EXPECT_EQ(texts["io.weight"], "default 7");
  EXPECT_EQ(texts["cpu.max"], "30000 20000");
}

// The kernel takes no less than a millisecond.
TEST(GroupValues, OfTheLeastShareAreWhatTheKernelTakes) {
  const auto limits = rt::make<model::VmLimits>("web1");
  limits->cpuMaxIs(model::Processors(5));
  EXPECT_EQ(mapped(valuesOf(*limits, 1))["cpu.max"], "1000 20000");
}

TEST(GroupValues, OfAllGuestsLeaveTheRestToTheMachine) {
  auto texts = mapped(valuesOfAll(1024, model::Processors(300)));
  EXPECT_EQ(texts["memory.max"], "1073741824");
  EXPECT_EQ(texts["cpu.max"], "60000 20000");
  EXPECT_EQ(texts["cpu.weight"], "50");
  EXPECT_EQ(mapped(valuesOfAll(1024, model::Processors()))["cpu.max"], "max 20000");
}

}  // namespace
}  // namespace host
