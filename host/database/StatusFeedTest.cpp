// Status on its way out: in one transaction a pass, and nothing is lost.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "host/base/HostStatus.h"
#include "host/database/StatusFeed.h"
#include "host/fakes/TroubledStore.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"
#include "runtime/records/VmStatus.h"

namespace host {
namespace {

using statedb::Trouble;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

class StatusFeedTest : public testing::Test {
 protected:
  // What the file holds: "TABLE/KEY" -> document.
  std::map<std::string, std::string> written() const {
    std::map<std::string, std::string> all;
    const auto snapshot =
        file.other(statedb::Half::status)->snapshot({"vmStatus", "vmProcess", "event"});
    for (const auto& record : snapshot.records)
      all[record.table.str() + "/" + record.key.str()] = record.doc.str();
    return all;
  }
  std::vector<std::string> reports() { return traces.take(1); }

  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  rt::fakes::TraceRecorder traces;
  fakes::StoreFile config;
  fakes::StoreFile file;
  statedb::StateDb db = fakes::troubledDb(config, file);
  const Vm::Status::Ptr vms = rt::make<Vm::Status>();
  const HostStatus::Ptr host = rt::make<HostStatus>();
  const StatusFeed::Ptr feed = rt::make<StatusFeed>(
      db, std::vector<StatusFeed::Source>{{vms, "vmStatus"}, {host, "vmProcess"}},
      std::vector<rt::String>{"event"}, clock);
};

TEST_F(StatusFeedTest, WritesTheRowsThatItIsHandedBesideThem) {
  host->vmProcessIs("web1");
  feed->rowIs("event", "000000000001", R"({"id":1})");
  feed->pass();
  EXPECT_THAT(written(), testing::Contains(Pair("event/000000000001", R"({"id":1})")));
  feed->rowDel("event", "000000000001");
  feed->pass();
  EXPECT_THAT(written(), testing::Not(testing::Contains(Pair("event/000000000001", testing::_))));
}

TEST_F(StatusFeedTest, WritesTheRecordsOfAllItsTables) {
  vms->vmStatusIs("web1")->stateIs("Running");
  host->vmProcessIs("web1")->pidIs(4711);
  feed->pass();
  EXPECT_THAT(written(), ElementsAre(Pair("vmProcess/web1",
                                          HasSubstr(R"("process":"none","pid":4711,"restarts":0)")),
                                     Pair("vmStatus/web1", HasSubstr(R"("state":"Running")"))));
}

TEST_F(StatusFeedTest, RemovesWhatAnEarlierDaemonLeft) {
  file.other(statedb::Half::status)
      ->commit(statedb::Transaction().put("vmStatus", "old", "{}").put("vmProcess", "old", "{}"));
  feed->pass();
  EXPECT_THAT(written(), IsEmpty());
}

TEST_F(StatusFeedTest, TouchesTheFileOnlyWhenSomethingChanged) {
  vms->vmStatusIs("web1");
  feed->pass();
  const int before = file.calls;
  feed->pass();
  EXPECT_EQ(file.calls, before);
  vms->vmStatus("web1")->stateIs("Running");
  vms->vmStatus("web1")->consolePtyPathIs("pty:/dev/pts/4");
  feed->pass();
  EXPECT_EQ(file.calls, before + 1) << "one transaction";
}

TEST_F(StatusFeedTest, WritesALockedFileOnceItIsFree) {
  feed->pass();
  file.trouble = Trouble::locked;
  vms->vmStatusIs("web1")->stateIs("Starting");
  feed->pass();
  vms->vmStatusIs("web1")->stateIs("Running");
  vms->vmStatusIs("web2");
  file.trouble.reset();
  feed->pass();
  EXPECT_THAT(written(), IsEmpty()) << "it waits for the next try";
  clock->advance(rt::Seconds(1));
  feed->pass();
  EXPECT_THAT(written(), ElementsAre(Pair("vmStatus/web1", HasSubstr("Running")),
                                     Pair("vmStatus/web2", testing::_)));
}

TEST_F(StatusFeedTest, ReportsATroubleOnceAndItsEnd) {
  file.trouble = Trouble::full;
  vms->vmStatusIs("web1");
  for (int i = 0; i < 5; ++i) {
    feed->pass();
    clock->advance(rt::Seconds(1));
  }
  EXPECT_THAT(reports(), ElementsAre("vmagentd: status: the file is in trouble"));
  file.trouble.reset();
  feed->pass();
  EXPECT_THAT(reports(), ElementsAre("vmagentd: status: written again"));
}

TEST_F(StatusFeedTest, TriesOnceASecondWhileThereIsTrouble) {
  feed->pass();
  file.trouble = Trouble::locked;
  vms->vmStatusIs("web1");
  feed->pass();
  const int before = file.calls;
  for (int i = 0; i < 10; ++i) feed->pass();
  EXPECT_EQ(file.calls, before);
  clock->advance(rt::Seconds(1));
  for (int i = 0; i < 10; ++i) feed->pass();
  EXPECT_EQ(file.calls, before + 1);
}

TEST_F(StatusFeedTest, WritesAllOfItToAFileThatTookAnothersPlace) {
  vms->vmStatusIs("web1");
  feed->pass();
  file.replace();
  vms->vmStatusIs("web2");
  feed->pass();
  clock->advance(rt::Seconds(1));
  feed->pass();
  EXPECT_THAT(written(),
              ElementsAre(Pair("vmStatus/web1", testing::_), Pair("vmStatus/web2", testing::_)));
}

TEST_F(StatusFeedTest, LosesNoRemovalWhileTheFileIsFull) {
  vms->vmStatusIs("web1");
  feed->pass();
  file.trouble = Trouble::full;
  vms->vmStatusDel("web1");
  feed->pass();
  file.trouble.reset();
  clock->advance(rt::Seconds(1));
  feed->pass();
  EXPECT_THAT(written(), IsEmpty());
}

TEST_F(StatusFeedTest, GoesOnWithoutAFileFromTheBeginning) {
  file.trouble = Trouble::missing;
  vms->vmStatusIs("web1");
  feed->pass();
  file.trouble.reset();
  clock->advance(rt::Seconds(1));
  feed->pass();
  EXPECT_EQ(written().size(), 1U);
}

TEST_F(StatusFeedTest, NeverWakesWhenThereIsNothingToDo) {
  feed->pass();
  manager.turn(rt::Seconds(0));
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

}  // namespace
}  // namespace host
