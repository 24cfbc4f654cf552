// What guests take, as it is shown.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ctl/line/Json.h"
#include "ctl/view/TopView.h"

namespace ctl {
namespace {

using testing::HasSubstr;
using testing::Not;

TEST(TopView, AmountsHaveFourCharactersAtMost) {
  const std::pair<double, const char*> cases[] = {
      {0, "0"},          {0.4, "0"},          {999.4, "999"}, {999.6, "1.0k"},
      {1234, "1.2k"},    {9949, "9.9k"},      {9951, "10k"},  {999'499, "999k"},
      {999'600, "1.0M"}, {45'000'000, "45M"}, {3e12, "3.0T"}};
  for (const auto& [amount, text] : cases) EXPECT_EQ(amountText(amount), text) << amount;
}

class TopPictureOf : public testing::Test {
 protected:
  TopPictureOf() {
    GuestFacts web = facts("web1");
    web.cards.push_back({"nic00", "Ethernet1", "52:54:00:00:00:01"});
    web.counters.cards.push_back({"macvtap0", CardCounters{1000, 2000, 3, 4, 5, 6}, true});
    web.cpuMax = model::Processors(150);
    sample_.guests = {facts("db"), web};
    rates_.resize(2);
    rates_[0].cpu = 0.145;
    rates_[1].cpu = 1.5;
    rates_[1].throttled = 0.02;
    rates_[1].read = 0;
    rates_[1].written = 12'000;
    rates_[1].cards = {{1234.0, 40'000.0, 0.0}};
  }
  static GuestFacts facts(const char* name) {
    GuestFacts guest;
    guest.name = name;
    guest.actual = "running";
    guest.severity = "ok";
    guest.pid = 4711;
    guest.startedAt = 1'700'000'000 - 980;
    guest.memory = 128;
    guest.counters.cpu = 17;
    guest.counters.memory = 102ULL << 20U;
    guest.counters.memoryMax = 140ULL << 20U;
    return guest;
  }
  TopPicture picture() const { return {sample_, rates_, {4, 2048ULL << 20U}, false}; }

  Sample sample_{1'700'000'000'123, rt::Seconds(1000.25), {}};
  std::vector<GuestRates> rates_;
};

TEST_F(TopPictureOf, GuestsHasTheBusiestFirst) {
  EXPECT_EQ(topTable(picture(), Format::table, {}).text({}),
            "NAME  ACTUAL   UP      CPU%         MEM  RX/s  TX/s  RD/s  WR/s  DROP\n"
            "web1  running  16m20s   150    102/140M  1.2k   40k     0   12k     0\n"
            "db    running  16m20s  14.5    102/140M     -     -     -     -     -\n");
  EXPECT_EQ(topHead(picture()), "2 guests: 1.65 of 4 processors, 204 of 2,048 MiB");
}

TEST_F(TopPictureOf, GuestsHasALineForEachCardWhereItIsWide) {
  EXPECT_EQ(topTable(picture(), Format::wide, {}).text({}),
            "NAME     ACTUAL     UP      CPU%         MEM  RX/s  TX/s  RD/s  WR/s  DROP  CPUMAX  "
            "HELD%  PID\n"
            "web1     running    16m20s   150    102/140M  1.2k   40k     0   12k     0  1.5     "
            " 2.0   4711\n"
            "  nic00  Ethernet1                  macvtap0  1.2k   40k                 0          "
            "        \n"
            "db       running    16m20s  14.5    102/140M     -     -     -     -     -  -       "
            "   -   4711\n");
}

TEST_F(TopPictureOf, GuestsFitsOnAScreen) {
  sample_.guests[1].name = "a-name-that-is-far-too-long-for-it";
  const rt::String text = topScreen(picture(), Format::table, {.columns = 80}, 3);
  EXPECT_EQ(std::count(text.str().begin(), text.str().end(), '\n'), 3);
  std::istringstream lines(text.str());
  for (std::string line; std::getline(lines, line);) EXPECT_LE(line.size(), 80U) << line;
  EXPECT_THAT(text.str(), HasSubstr("q quits"));
  EXPECT_THAT(text.str(), HasSubstr("a-name...or-it"));
  EXPECT_EQ(topScreen(picture(), Format::table, {.columns = 80}, 0), "");
}

TEST_F(TopPictureOf, GuestsIsOneLineOfJsonWithAllThatWasCounted) {
  const rt::String json = topJson(picture(), 2.0);
  EXPECT_EQ(json.str().find('\n'), std::string::npos);
  const auto document = JsonValue::parse(json);
  ASSERT_TRUE(document);
  EXPECT_EQ(document->number("atMs"), 1'700'000'000'123);
  EXPECT_EQ(document->number("clockMs"), 1'000'250);
  EXPECT_EQ(document->member("guests")->elements().size(), 2U);
  EXPECT_EQ(
      document->member("guests")->elements()[1].dump(),
      R"({"name":"web1","actual":"running","severity":"ok","pid":4711,"startedAtMs":1699999020000,)"
      R"("cpu":{"usedUs":17,"throttledUs":null,"max":1.5,"used":1.5,"throttled":0.02},)"
      R"("memory":{"bytes":106954752,"maxBytes":146800640,"configuredBytes":134217728},)"
      R"("disk":null,"cards":[{"key":"nic00","interface":"Ethernet1","device":"macvtap0","carrier":true,)"
      R"("receivedBytes":1000,"sentBytes":2000,"receivedPackets":3,"sentPackets":4,)"
      R"("receivedDrops":5,"sentDrops":6,"receivedBytesPerSecond":1234.0,)"
      R"("sentBytesPerSecond":40000.0,"dropsPerSecond":0.0}]})");
}

TEST_F(TopPictureOf, WhatNobodyKnowsIsNullAndAlwaysThere) {
  GuestFacts& guest = sample_.guests[1];
  guest.counters = {};
  guest.counters.cards.resize(1);
  guest.counters.disk = DiskCounters{1, 2, 3, 4};
  rates_[1] = {};
  rates_[1].cards.resize(1);
  guest.pid = 0;
  guest.startedAt = 0;
  guest.memory = 0;
  guest.cpuMax = {};
  const auto document = JsonValue::parse(topJson(picture(), std::nullopt));
  ASSERT_TRUE(document);
  EXPECT_EQ(document->member("intervalSeconds")->dump(), "null");
  EXPECT_EQ(
      document->member("guests")->elements()[1].dump(),
      R"({"name":"web1","actual":"running","severity":"ok","pid":null,"startedAtMs":null,)"
      R"("cpu":{"usedUs":null,"throttledUs":null,"max":null,"used":null,"throttled":null},)"
      R"("memory":{"bytes":null,"maxBytes":null,"configuredBytes":null},)"
      R"("disk":{"readBytes":1,"writtenBytes":2,"reads":3,"writes":4,"readBytesPerSecond":null,)"
      R"("writtenBytesPerSecond":null},"cards":[{"key":"nic00","interface":"Ethernet1",)"
      R"("device":null,"carrier":null,"receivedBytes":null,"sentBytes":null,"receivedPackets":null,)"
      R"("sentPackets":null,"receivedDrops":null,"sentDrops":null,)"
      R"("receivedBytesPerSecond":null,"sentBytesPerSecond":null,"dropsPerSecond":null}]})");
}

}  // namespace
}  // namespace ctl
