// The host's own rows of each VM, judged.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/OwnRows.h"

namespace host {
namespace {

class OwnRowsTest : public testing::Test {
 protected:
  void put(const char* doc) {
    rows.rowIs("vmLimits", "web1", statedb::Record{"vmLimits", "web1", doc, 1, 1});
  }

  OwnRows rows{model::MachineLimits{.memory = 1024}};
};

TEST_F(OwnRowsTest, OfAVmWithoutOneAreTheUsual) {
  const auto limits = rows.limits("web1");
  EXPECT_EQ(limits->cpuWeight(), model::usualWeight);
  EXPECT_EQ(limits->ioWeight(), model::usualWeight);
  EXPECT_EQ(limits->memoryReserve(), 0U);
  EXPECT_EQ(limits->cpuMax(), model::Processors());
  EXPECT_EQ(rows.problem("web1"), "");
}

TEST_F(OwnRowsTest, AreWhatTheySay) {
  put(R"({"cpuWeight":50,"cpuMax":"1.5","memoryReserve":64,"ioWeight":7})");
  const auto limits = rows.limits("web1");
  EXPECT_EQ(limits->cpuWeight(), 50U);
  EXPECT_EQ(limits->cpuMax().text(), "1.5");
  EXPECT_EQ(limits->memoryReserve(), 64U);
  EXPECT_EQ(limits->ioWeight(), 7U);
  EXPECT_EQ(rows.limits("web2")->cpuWeight(), model::usualWeight);
}

TEST_F(OwnRowsTest, ThatAreRefusedLeaveWhatWasInForce) {
  put(R"({"cpuWeight":50})");
  put(R"({"cpuWeight":0,"memoryReserve":2000})");
  EXPECT_EQ(rows.limits("web1")->cpuWeight(), 50U);
  EXPECT_EQ(rows.problem("web1"),
            "vmLimits: cpuWeight: '0' is refused: must be 1 to 10000; 100 is usual; memoryReserve: "
            "'2000' is refused: must be 0 to 1024 (mebibytes; this machine has no more)");
  put(R"({"cpuWeight":70})");
  EXPECT_EQ(rows.problem("web1"), "");
  EXPECT_EQ(rows.limits("web1")->cpuWeight(), 70U);
}

TEST_F(OwnRowsTest, ThatAreRefusedFirstLeaveTheUsual) {
  put(R"({"cpuMax":2})");
  EXPECT_EQ(rows.problem("web1"),
            "vmLimits: cpuMax: '2' is refused: must be a number of processors, such as 1.5, in "
            "quotes");
  EXPECT_EQ(rows.limits("web1")->cpuWeight(), model::usualWeight);
}

TEST_F(OwnRowsTest, AreEachOfItsTable) {
  put(R"({"cpuWeight":50})");
  rows.rowIs("vmPolicy", "web1",
             statedb::Record{"vmPolicy", "web1", R"({"restart":"often"})", 1, 1});
  EXPECT_EQ(rows.policy("web1")->restart(), "no");
  EXPECT_EQ(rows.problem("web1"),
            "vmPolicy: restart: 'often' is refused: must be no, on-failure or always");
  rows.rowIs("vmPolicy", "web1",
             statedb::Record{"vmPolicy", "web1", R"({"restart":"always"})", 1, 1});
  EXPECT_EQ(rows.policy("web1")->restart(), "always");
  EXPECT_EQ(rows.limits("web1")->cpuWeight(), 50U);
  EXPECT_EQ(rows.problem("web1"), "");
}

TEST_F(OwnRowsTest, ThatAreRemovedAreTheUsualAgain) {
  put(R"({"cpuWeight":50})");
  rows.rowIs("vmPolicy", "web1", statedb::Record{"vmPolicy", "web1", R"({"restart":"?"})", 1, 1});
  rows.rowIs("vmLimits", "web1", std::nullopt);
  EXPECT_EQ(rows.limits("web1")->cpuWeight(), model::usualWeight);
  EXPECT_NE(rows.problem("web1"), "") << "the other row is there";
  EXPECT_EQ(rows.size(), 1U);
  rows.rowIs("vmPolicy", "web1", std::nullopt);
  EXPECT_EQ(rows.problem("web1"), "");
  EXPECT_EQ(rows.size(), 0U) << "it may come and go under ever new names";
}

}  // namespace
}  // namespace host
