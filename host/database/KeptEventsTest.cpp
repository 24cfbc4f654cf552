#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/database/History.h"
#include "host/database/KeptEvents.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

class KeptEventsTest : public testing::Test {
 protected:
  KeptEventsTest() { kept.numbersAre("store-a"); }
  static model::Event::Ptr event(uint64_t id, uint64_t seq, const char* text = "it runs") {
    auto made = rt::make<model::Event>(History::keyOf(id));
    made->idIs(id);
    made->seqIs(seq);
    made->textIs(text);
    return made;
  }
  void row(uint64_t id, uint64_t seq, const char* text = "it runs") {
    kept.rowIs(History::keyOf(id), statedb::documentOf(*event(id, seq, text)));
  }
  void write(bool mustBeWhole = false) {
    const auto [text, isWhole] = kept.next(mustBeWhole);
    file = isWhole ? text : file + text;
    whole += isWhole ? 1 : 0;
  }
  EventsBefore read() {
    auto all = KeptEvents::read(file, why);
    return all ? *all : EventsBefore{};
  }
  // "7: it runs", by seq.
  static std::vector<std::string> shown(const EventsBefore& events) {
    std::map<uint64_t, std::string> all;
    for (const auto& each : events.rows)
      all[each->seq()] = std::to_string(each->seq()) + ": " + each->text().str();
    std::vector<std::string> texts;
    for (const auto& [seq, text] : all) texts.push_back(text);
    return texts;
  }

  KeptEvents kept;
  std::string file;
  int whole = 0;
  rt::String why;
};

TEST_F(KeptEventsTest, AreReadAsTheyWereWritten) {
  row(1, 1);
  row(2, 2, "it was reset");
  write(true);
  row(2, 3, "it was reset again");
  row(3, 4, "it \"ended\"\n");
  kept.rowDel(History::keyOf(1));
  kept.droppedIs(5, 1);
  kept.ended();
  write();
  const EventsBefore all = read();
  EXPECT_EQ(whole, 1);
  EXPECT_THAT(shown(all), ElementsAre("3: it was reset again", "4: it \"ended\"\n"));
  EXPECT_EQ(all.numbers, "store-a");
  EXPECT_EQ(all.dropped, 5U);
  EXPECT_EQ(all.lostTo, 1U);
  EXPECT_EQ(all.rows.at(0)->key(), "000000000002");
}

TEST_F(KeptEventsTest, AreWrittenOnlyWhereTheyChanged) {
  row(1, 1, "the first");
  write(true);
  row(2, 2, "the second");
  const auto part = kept.next(false);
  EXPECT_THAT(part.text, HasSubstr("the second"));
  EXPECT_THAT(part.text, testing::Not(HasSubstr("the first")));
}

TEST_F(KeptEventsTest, AreWrittenAnewBeforeTheFileGrowsTooLong) {
  write(true);
  const std::string text(20'000, 'x');
  for (uint64_t n = 1; n <= 400; ++n) {
    row(n % 10 + 1, n, text.c_str());
    write();
    ASSERT_LE(file.size(), KeptEvents::mostBytes);
  }
  EXPECT_GT(whole, 1);
  EXPECT_LT(whole, 10);
  EXPECT_THAT(read().rows, SizeIs(10));
}

TEST_F(KeptEventsTest, LeaveOutALineThatWasBeingWrittenWhenThePowerFailed) {
  row(1, 1);
  row(2, 2);
  write(true);
  file.resize(file.size() - 3);
  EXPECT_THAT(shown(read()), ElementsAre("1: it runs"));
}

// What was told after the last write, and shown to somebody, is nobody else's number.
TEST_F(KeptEventsTest, GoOnWithNumbersOfNoOtherWhenTheDaemonDidNotEndInOrder) {
  row(1, 41);
  write(true);
  EXPECT_EQ(read().lostTo, 100'041U);
  kept.ended();
  write();
  EXPECT_EQ(read().lostTo, 0U);
}

TEST_F(KeptEventsTest, AreRefusedWholeWhenAnyLineIsNone) {
  row(1, 1);
  write(true);
  const std::string good = file;
  for (const char* bad : {"rubbish\n", "{}\n", "\n", "{\"id\":1,\"seq\":\"x\"}\n", "[1]\n",
                          "{\"version\":2,\"numbers\":\"store-a\"}\n", "{\"version\":1}\n"}) {
    file = good + bad;
    why = {};
    EXPECT_THAT(read().rows, IsEmpty()) << bad;
    EXPECT_THAT(why.str(), HasSubstr("line 3 is ")) << bad;
  }
  file = "";
  EXPECT_THAT(read().rows, IsEmpty());
  EXPECT_EQ(why, "it has no head");
}

TEST_F(KeptEventsTest, OfTheDatabaseGoOnWhereNothingIsOnDisk) {
  EXPECT_THAT(shown(joined({"store-b", {event(1, 1)}, 2, 0}, std::nullopt)),
              ElementsAre("1: it runs"));
}

TEST_F(KeptEventsTest, OnDiskGoOnWhereTheDatabaseHasNone) {
  const EventsBefore all = joined({"store-b", {}, 0, 0}, EventsBefore{"store-a", {event(3, 9)}});
  EXPECT_EQ(all.numbers, "store-a");
  EXPECT_THAT(shown(all), ElementsAre("9: it runs"));
}

TEST_F(KeptEventsTest, OfAnEarlierBootAreOfNoRunOfThisOne) {
  const auto old = event(3, 9);
  old->runIs(4'000'000);
  old->nIs(7);
  const EventsBefore all = joined({"store-b", {}, 0, 0}, EventsBefore{"store-a", {old}});
  EXPECT_EQ(all.rows.at(0)->run(), 0U);
  EXPECT_EQ(all.rows.at(0)->n(), 0U);
}

TEST_F(KeptEventsTest, OfTheSameNumbersAreTheDatabasesWhichAreLater) {
  const EventsBefore all = joined({"store-a", {event(3, 10)}, 0, 0},
                                  EventsBefore{"store-a", {event(2, 8), event(3, 9)}});
  EXPECT_THAT(shown(all), ElementsAre("10: it runs"));
}

TEST_F(KeptEventsTest, OfOtherNumbersStandBehindThoseOnDisk) {
  const EventsBefore all = joined({"store-b", {event(1, 1, "new"), event(2, 5, "newer")}, 3, 0},
                                  EventsBefore{"store-a", {event(3, 9, "old")}, 4, 2});
  EXPECT_EQ(all.numbers, "store-a");
  EXPECT_THAT(shown(all), ElementsAre("9: old", "10: new", "14: newer"));
  EXPECT_EQ(all.rows.at(1)->key(), "000000000004");
  EXPECT_EQ(all.dropped, 7U);
  EXPECT_EQ(all.lostTo, 2U);
}

TEST_F(KeptEventsTest, OfOtherNumbersAreLostBehindThoseOnDiskToo) {
  const EventsBefore all =
      joined({"store-b", {event(8, 8)}, 7, 7}, EventsBefore{"store-a", {event(3, 9)}, 4, 2});
  EXPECT_EQ(all.lostTo, 16U);
}

// A daemon that kept none on disk had gone on with the table.
TEST_F(KeptEventsTest, OfOtherNumbersThatAreOnDiskTooAreThereOnce) {
  const EventsBefore all =
      joined({"store-b", {event(3, 9, "old"), event(4, 10, "new")}, 0, 0},
             EventsBefore{"store-a", {event(2, 8, "older"), event(3, 9, "old")}, 0, 0});
  EXPECT_THAT(shown(all), ElementsAre("8: older", "9: old", "19: new"));
}

}  // namespace
}  // namespace host
