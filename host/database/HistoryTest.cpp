#include <gmock/gmock.h>

#include "host/database/History.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace host {
namespace {

namespace kind = model::eventKind;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HistoryTest : public testing::Test {
 protected:
  History history() {
    return History({.rowIs = [this](const rt::String& key,
                                    const rt::String& doc) { rows[key.str()] = doc.str(); },
                    .rowDel = [this](const rt::String& key) { rows.erase(key.str()); },
                    .droppedIs =
                        [this](uint64_t count, uint64_t seq) {
                          dropped = count;
                          droppedSeq = seq;
                        }});
  }
  static model::Event::Ptr event(const char* kind, const char* vm, const char* reason,
                                 const char* text, uint64_t at = 1'000'000) {
    auto made = rt::make<model::Event>("");
    made->kindIs(kind);
    made->vmIs(vm);
    made->reasonIs(reason);
    made->textIs(text);
    made->atIs(at);
    return made;
  }
  static model::Event::Ptr told(model::Event::Ptr event, uint64_t run, uint64_t n) {
    event->runIs(run);
    event->nIs(n);
    return event;
  }
  // "1 state stopped: off", with ×COUNT where it is several.
  std::vector<std::string> shown() const {
    std::vector<std::string> all;
    for (const model::Event::Ptr& each : events())
      all.push_back(std::to_string(each->seq()) + " " + each->kind().str() + " " +
                    each->reason().str() + ": " + each->text().str() +
                    (each->count() > 1 ? " ×" + std::to_string(each->count()) : ""));
    return all;
  }
  std::vector<model::Event::Ptr> events() const {
    std::vector<model::Event::Ptr> all;
    for (const auto& [key, doc] : rows) {
      all.push_back(rt::make<model::Event>(key));
      statedb::fillKnown(*all.back(), doc);
    }
    return all;
  }

  std::map<std::string, std::string> rows;
  uint64_t dropped = 0;
  uint64_t droppedSeq = 0;
};

TEST_F(HistoryTest, HasARowForEachEventInTheOrderThatTheyCame) {
  History all = history();
  all.add(event(kind::state, "web1", "starting", "on its way"));
  all.add(event(kind::state, "web1", "running", "up"));
  all.add(event(kind::config, "web2", "changed", "memory 128 -> 140"));
  EXPECT_THAT(shown(), ElementsAre("1 state starting: on its way", "2 state running: up",
                                   "3 config changed: memory 128 -> 140"));
  EXPECT_EQ(rows.begin()->first, "000000000001");
}

TEST_F(HistoryTest, MergesWhatComesAgainWithinAMinuteUnderANewSeq) {
  History all = history();
  all.add(event(kind::card, "web1", "no-carrier", "nic00: 1", 1'000));
  all.add(event(kind::guest, "web1", "reset", "by itself", 2'000));
  all.add(event(kind::card, "web1", "no-carrier", "nic00: 2", 60'000));
  EXPECT_THAT(shown(), ElementsAre("3 card no-carrier: nic00: 2 ×2", "2 guest reset: by itself"));
  EXPECT_EQ(events()[0]->first(), 1'000U);
  EXPECT_EQ(events()[0]->at(), 60'000U);
  all.add(event(kind::card, "web1", "no-carrier", "nic00: 3", 120'001));
  EXPECT_THAT(shown(), testing::Contains("4 card no-carrier: nic00: 3"));
}

TEST_F(HistoryTest, MergesNothingOfAnotherVmCardOrReason) {
  History all = history();
  all.add(event(kind::card, "web1", "gone", "a"));
  all.add(event(kind::card, "web2", "gone", "b"));
  all.add(event(kind::card, "web1", "no-carrier", "c"));
  const auto other = event(kind::card, "web1", "gone", "d");
  other->subjectIs("nic01");
  all.add(other);
  EXPECT_EQ(shown().size(), 4U);
}

TEST_F(HistoryTest, MergesNoStateNoEndAndNoChangeOfTheConfiguration) {
  for (const char* each : {kind::state, kind::end, kind::config}) {
    rows.clear();
    History all = history();
    for (int i = 0; i < 3; ++i) all.add(event(each, "web1", "same", "same"));
    EXPECT_EQ(shown().size(), 3U) << each;
  }
}

TEST_F(HistoryTest, MergesNothingOverAChangeOfState) {
  History all = history();
  all.add(event(kind::guest, "web1", "reset", "before"));
  all.add(event(kind::state, "web1", "running", "up"));
  all.add(event(kind::guest, "web1", "reset", "behind"));
  EXPECT_EQ(shown().size(), 3U);
}

TEST_F(HistoryTest, IsBoundedAndSaysWhatItDropped) {
  History all = history();
  all.add(event(kind::state, "quiet", "running", "long ago"));
  for (size_t i = 0; i < History::mostRows + 5; ++i)
    all.add(event(kind::state, "busy", "running", "again"));
  EXPECT_EQ(rows.size(), History::mostRows);
  EXPECT_EQ(events().front()->vm(), "quiet") << "the busy one makes room";
  EXPECT_EQ(dropped, 6U);
  EXPECT_EQ(droppedSeq, 7U);
}

TEST_F(HistoryTest, GoesOnFromWhatAnEarlierDaemonLeft) {
  {
    History before = history();
    before.add(event(kind::state, "web1", "running", "up"));
    before.add(told(event(kind::guest, "web1", "reset", "by itself"), 7, 5));
    before.add(told(event(kind::end, "web1", "killed", "signal 9"), 7, 0));
  }
  const auto left = events();
  rows.clear();
  History now = history();
  now.rowsAre(left, 12, 2);
  EXPECT_EQ(rows.size(), 3U) << "written again, or they would go";
  now.add(told(event(kind::guest, "web1", "reset", "by itself"), 7, 5));
  now.add(told(event(kind::end, "web1", "killed", "signal 9"), 7, 0));
  EXPECT_EQ(rows.size(), 3U) << "told before";
  now.add(told(event(kind::guest, "web1", "reset", "by itself"), 8, 1));
  EXPECT_THAT(shown().back(), "4 guest reset: by itself");
}

TEST_F(HistoryTest, CutsALongTextBetweenTwoCharacters) {
  History all = history();
  std::string text(156, 'a');
  text += "ää and so on";
  all.add(event(kind::problem, "web1", "qemu", text.c_str()));
  EXPECT_LE(events()[0]->text().size(), model::longestEventText);
  EXPECT_EQ(events()[0]->text().str(), std::string(156, 'a') + "…");
}

}  // namespace
}  // namespace host
