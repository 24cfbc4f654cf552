#include <gmock/gmock.h>

#include "host/database/History.h"
#include "runtime/base/Format.h"
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

TEST_F(HistoryTest, TakesUpNoRowThatIsNoneOfItsOwn) {
  const auto row = [&](const char* key, uint64_t id, uint64_t seq) {
    auto made = rt::make<model::Event>(key);
    made->kindIs(kind::guest);
    made->idIs(id);
    made->seqIs(seq);
    return made;
  };
  const auto wordy = row("000000000005", 5, 5);
  wordy->byIs(std::string(900'000, 'A'));
  const auto verbose = row("000000000006", 6, 6);
  verbose->textIs(std::string(900'000, 'A'));
  History all = history();
  all.rowsAre({row("000000000004", 4, 4), row("9223372036854775807", INT64_MAX, 7),
               row("000000000007", 7, INT64_MAX), row("000000000009", 8, 9),
               row("000000000010", 10, 0), wordy, verbose},
              0, UINT64_MAX);
  EXPECT_THAT(shown(), ElementsAre("4 guest : "));
  all.add(event(kind::state, "web1", "running", "up"));
  EXPECT_THAT(shown().back(), "5 state running: up");
}

TEST_F(HistoryTest, TakesUpTheNewestOfAnyNumberOfRows) {
  std::vector<model::Event::Ptr> rowsBefore;
  for (uint64_t i = 1; i <= 2 * History::mostRows; ++i) {
    auto made = rt::make<model::Event>(rt::format("%012ju", static_cast<uintmax_t>(i)));
    made->idIs(i);
    made->seqIs(i);
    made->vmIs("vm" + rt::toText(i));
    rowsBefore.push_back(std::move(made));
  }
  History all = history();
  all.rowsAre(rowsBefore, 0, 0);
  EXPECT_EQ(rows.size(), History::mostRows);
  EXPECT_EQ(events().back()->seq(), 2 * History::mostRows);
  EXPECT_EQ(dropped, History::mostRows);
  EXPECT_EQ(droppedSeq, History::mostRows);
}

TEST_F(HistoryTest, TellsWhatShimsTellOnceTheDaemonHasBegunWhateverTheRowsSay) {
  auto forged = told(event(kind::guest, "web1", "reset", "forged"), INT64_MAX, INT64_MAX);
  forged->idIs(1);
  forged->seqIs(1);
  auto row = rt::make<model::Event>("000000000001");
  statedb::fillKnown(*row, statedb::documentOf(*forged));
  History all = history();
  all.rowsAre({row}, 0, 0);
  all.daemonHasBegun();
  all.add(told(event(kind::state, "web1", "running", "up"), 0, 0));
  all.add(told(event(kind::guest, "web1", "reset", "by itself"), 7, 5));
  all.add(told(event(kind::end, "web1", "killed", "signal 9"), 7, 0));
  EXPECT_THAT(shown(), ElementsAre("1 guest reset: forged", "2 state running: up",
                                   "3 guest reset: by itself", "4 end killed: signal 9"));
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
