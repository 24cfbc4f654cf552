#include <gmock/gmock.h>

#include "guest/EventWords.h"
#include "host/Chronicle.h"
#include "statedb/EntityDocument.h"

namespace host {
namespace {

using model::ProblemSource;
using statedb::Change;
using statedb::Op;
using testing::ElementsAre;
using testing::IsEmpty;

class ChronicleTest : public testing::Test {
 protected:
  static Change put(const char* table, const char* key, const char* doc, uint64_t revision = 7) {
    return {Op::put,
            {table, key, doc, revision, 1},
            statedb::Proof::history,
            {"op1", "vmctl set", 1'700'000'000'123}};
  }
  void change(const Change& change) {
    chronicle.configChanges({change}, rows, own);
    rows.apply({change});
    if (model::isOwn(change.record.table))
      own.rowIs(change.record.table, change.record.key,
                change.op == Op::put ? std::optional(change.record) : std::nullopt);
    chronicle.configChanged({change}, rows, own);
  }
  // "config web1 changed: memory 128 -> 140 (op1)" since the last call.
  std::vector<std::string> news() {
    std::vector<std::string> all;
    for (const auto& event : std::exchange(events, {}))
      all.push_back(event->kind().str() + " " + event->vm().str() + " " + event->reason().str() +
                    ": " + event->text().str() +
                    (event->by().empty() ? "" : " (" + event->by().str() + ")"));
    return all;
  }

  std::vector<model::Event::Ptr> events;
  History history{{.rowIs =
                       [this](const rt::String& key, const rt::String& doc) {
                         events.push_back(rt::make<model::Event>(key));
                         statedb::fillKnown(*events.back(), doc);
                       },
                   .rowDel = [](const rt::String&) {},
                   .droppedIs = [](uint64_t, uint64_t) {}}};
  Chronicle chronicle{history, [] { return uint64_t{1'700'000'001'000}; }};
  VmRows rows{model::MachineLimits{.memory = 8192}};
  OwnRows own{model::MachineLimits{.memory = 8192}};
};

constexpr char vm[] = R"({"diskImage":"/a.iso","memory":128})";

TEST_F(ChronicleTest, TellsWhatWasChangedFromWhatToWhatWhenAndByWhom) {
  change(put("vmConfig", "web1", vm, 1));
  EXPECT_THAT(news(), ElementsAre("config web1 added: added, disabled (op1)"));
  change(put("vmConfig", "web1", R"({"diskImage":"/a.iso","memory":140})"));
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0]->at(), 1'700'000'000'123U);
  EXPECT_EQ(events[0]->via(), "vmctl set");
  EXPECT_THAT(news(), ElementsAre("config web1 changed: memory 128 -> 140 (op1)"));
  change(put("vmConfig", "web1", R"({"diskImage":"/a.iso","memory":-1})"));
  EXPECT_THAT(news(), ElementsAre(testing::HasSubstr("config web1 refused: ")));
}

TEST_F(ChronicleTest, TellsTheTimeOfNoChangeThatIsToCome) {
  for (const uint64_t at : {uint64_t{1'700'000'001'001}, UINT64_MAX, uint64_t{INT64_MAX} + 2}) {
    Change strange = put("vmIntent", "web1", R"({"restart":3})");
    strange.author.at = at;
    change(strange);
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0]->at(), 1'700'000'001'000U) << at;
    news();
  }
}

TEST_F(ChronicleTest, TellsThatAVmWasRemovedButNotThatOneIsMissing) {
  change(put("vmConfig", "web1", vm, 1));
  news();
  Change removed{Op::del, {"vmConfig", "web1", {}, 0, 0}};
  removed.proof = statedb::Proof::comparison;
  change(removed);
  EXPECT_THAT(news(), IsEmpty());
  removed.proof = statedb::Proof::history;
  change(removed);
  EXPECT_THAT(news(), ElementsAre("config web1 removed: removed"));
}

TEST_F(ChronicleTest, TellsWhatWasAskedForOnce) {
  change(put("vmIntent", "web1", R"({"restart":3})"));
  change(put("vmIntent", "web1", R"({"restart":4,"within":0})"));
  Change stop = put("vmIntent", "web1", R"({"restart":4,"stop":1,"within":90})");
  stop.author.via = "vmctl stop";
  change(stop);
  EXPECT_THAT(news(), ElementsAre("config web1 restart: restart asked for (op1)",
                                  "config web1 restart: restart asked for, at once (op1)",
                                  "config web1 stop: asked to stop, within 90 s (op1)"));
}

TEST_F(ChronicleTest, TellsWhatWasChangedWhileNoDaemonRan) {
  chronicle.configWasChanged({put("vmConfig", "web1", vm, 1), put("vmConfig", "web2", vm, 9)});
  EXPECT_THAT(news(), ElementsAre("config web1 added: added while no vmagentd ran (op1)",
                                  "config web2 changed: changed while no vmagentd ran (op1)"));
}

TEST_F(ChronicleTest, TellsWhatOfTheHostsOwnRowsIsOther) {
  change(put("vmLimits", "web1", R"({"cpuMax":"0.5"})"));
  change(put("vmLimits", "web1", R"({"cpuMax":"1.5","cpuWeight":50})"));
  change(put("vmPolicy", "web1", R"({"restart":"always"})"));
  change(put("vmPolicy", "web1", R"({"restart":"often"})"));
  EXPECT_THAT(news(),
              ElementsAre("config web1 limits: cpuMax 0 -> 0.5 (op1)",
                          "config web1 limits: cpuWeight 100 -> 50, cpuMax 0.5 -> 1.5 (op1)",
                          "config web1 policy: restart no -> always (op1)",
                          "config web1 policy: policy: refused (op1)"));
}

TEST_F(ChronicleTest, TellsProblemsOnceAndWhenTheyAreMended) {
  chronicle.problemIs("web1", "no such interface", ProblemSource::card);
  chronicle.problemIs("web1", "no such interface", ProblemSource::card);
  chronicle.problemIs("web1", "its row is refused", ProblemSource::config);
  chronicle.problemIs("web1", "", ProblemSource::config);
  chronicle.problemIs("web1", "", ProblemSource::config);
  EXPECT_THAT(news(), ElementsAre("card web1 card: no such interface",
                                  "problem web1 config: its row is refused",
                                  "problem web1 mended: no more: its row is refused"));
}

TEST_F(ChronicleTest, TellsOfNoMendingWhereAProblemIsHiddenByAWeightierOne) {
  chronicle.problemIs("web1", "no such interface", ProblemSource::card);
  chronicle.problemIs("web1", "QEMU ended", ProblemSource::qemu);
  chronicle.problemIs("web1", "no such interface", ProblemSource::card);
  EXPECT_THAT(news(), ElementsAre("card web1 card: no such interface"));
  chronicle.problemIs("web1", "", ProblemSource::card);
  EXPECT_THAT(news(), ElementsAre("card web1 mended: no more: no such interface"));
}

TEST_F(ChronicleTest, LeavesToOthersWhatTheyTell) {
  chronicle.problemIs("web1", "QEMU ended", ProblemSource::qemu);
  chronicle.problemIs("web1", "memory: changed", ProblemSource::restart);
  chronicle.problemIs("web1", "", ProblemSource::restart);
  EXPECT_THAT(news(), IsEmpty());
}

TEST_F(ChronicleTest, TellsWhoResetAGuest) {
  const auto told = rt::make<GuestEvent>("web1");
  told->kindIs(rt::String(std::string(guest::event::reset)));
  told->byGuestIs(true);
  EXPECT_EQ(happeningOf(*told, "")->text(), "the guest reset itself");
  EXPECT_EQ(happeningOf(*told, "op1")->by(), "op1");
  told->kindIs(rt::String(std::string(guest::event::resumed)));
  EXPECT_EQ(happeningOf(*told, ""), nullptr);
}

TEST(Happening, IsWhatAnOperatorDidThatChangesNoState) {
  const auto told = rt::make<GuestEvent>("web1");
  told->kindIs(rt::String(std::string(guest::event::wished)));
  told->byIs("op1");
  for (const auto& [wish, text] : {std::pair{"nmi", "it was sent a non-maskable interrupt"},
                                   std::pair{"key", "keys were pressed for it"},
                                   std::pair{"screenshot", "a picture of its screen was taken"}}) {
    told->reasonIs(wish);
    const auto event = happeningOf(*told, "");
    ASSERT_NE(event, nullptr) << wish;
    EXPECT_EQ(event->text(), text);
    EXPECT_EQ(event->by(), "op1");
    EXPECT_EQ(event->subject(), wish);
  }
  for (const char* wish : {"pause", "resume", "stop", "reset"}) {
    told->reasonIs(wish);
    EXPECT_EQ(happeningOf(*told, ""), nullptr)
        << "a state, or an event of QEMU's, says so: " << wish;
  }
}

}  // namespace
}  // namespace host
