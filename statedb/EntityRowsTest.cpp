// Records as rows: what is so is written, once a pass, and nothing comes back.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/records/VmStatus.h"
#include "statedb/EntityRows.h"
#include "statedb/fakes/MemoryStore.h"
#include "statedb/fakes/StatusTables.h"
#include "statedb/fakes/StoreContract.h"

namespace statedb {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class EntityRowsTest : public testing::Test {
 protected:
  Contents flushed() {
    rows->update(writer);
    writer.flush();
    return contentsOf(db.snapshot({"vmStatus"}));
  }

  const std::shared_ptr<fakes::MemoryData> data = std::make_shared<fakes::MemoryData>();
  StateDb db{
      [] { return std::make_unique<fakes::MemoryStore>(std::make_shared<fakes::MemoryData>()); },
      [this] { return std::make_unique<fakes::MemoryStore>(data, Half::status, fakes::isStatus); },
      fakes::isStatus};
  RowWriter writer{db, {"vmStatus"}};
  const Vm::Status::Ptr status = rt::make<Vm::Status>();
  rt::Ptr<EntityRows> rows = rt::make<EntityRows>(status, "vmStatus", "vmStatus");
};

TEST_F(EntityRowsTest, ShowARecordAsItsDocument) {
  status->vmStatusIs("web1")->stateIs("Running");
  EXPECT_THAT(
      flushed(),
      ElementsAre(Pair("vmStatus/web1", R"({"enabled":false,"state":"Running","consolePtyPath":"",)"
                                        R"("cmdStatusStr":""})")));
}

TEST_F(EntityRowsTest, ShowRecordsThatWereThereFirst) {
  status->vmStatusIs("web1");
  rows = rt::make<EntityRows>(status, "vmStatus", "vmStatus");
  EXPECT_EQ(flushed().size(), 1U);
}

TEST_F(EntityRowsTest, AreWrittenOnceForManyChanges) {
  const auto vm = status->vmStatusIs("web1");
  flushed();
  const uint64_t before = data->sequence;
  vm->enabledIs(true);
  vm->stateIs("Starting");
  vm->stateIs("Running");
  flushed();
  EXPECT_EQ(data->sequence, before + 1);
}

TEST_F(EntityRowsTest, AreNotWrittenForChangesThatCameBack) {
  const auto vm = status->vmStatusIs("web1");
  flushed();
  const uint64_t before = data->sequence;
  vm->cmdStatusStrIs("x");
  vm->cmdStatusStrIs("");
  flushed();
  EXPECT_EQ(data->sequence, before);
}

TEST_F(EntityRowsTest, AreOfACollectionOfRecordsOnly) {
  const auto vm = status->vmStatusIs("web1");
  for (const char* name : {"state", "vmStatus"})
    EXPECT_DEATH(rt::make<EntityRows>(vm, name, "vmStatus"),
                 "assertion failed: a collection of records\n");
}

TEST_F(EntityRowsTest, GoWithTheirRecord) {
  const auto vm = status->vmStatusIs("web1");
  status->vmStatusIs("web2");
  flushed();
  status->vmStatusDel("web1");
  vm->stateIs("Running");  // nobody's any more
  EXPECT_THAT(flushed(), ElementsAre(Pair("vmStatus/web2", testing::_)));
}

TEST_F(EntityRowsTest, FollowTheRecordThatTookAnothersPlace) {
  status->vmStatusIs("web1")->stateIs("Running");
  flushed();
  status->vmStatusDel("web1");
  const auto second = status->vmStatusIs("web1");
  flushed();
  second->stateIs("Starting");
  EXPECT_THAT(flushed(), ElementsAre(Pair(testing::_, testing::HasSubstr("Starting"))));
}

TEST_F(EntityRowsTest, LetNothingComeBackFromTheStore) {
  const auto vm = status->vmStatusIs("web1");
  flushed();
  db.commit(Transaction().put("vmStatus", "web1", R"({"state":"Running"})").del("vmStatus", "x"));
  flushed();
  EXPECT_EQ(vm->state(), "");
  vm->enabledIs(true);
  EXPECT_THAT(flushed(), ElementsAre(Pair(testing::_, testing::HasSubstr(R"("state":"")"))));
}

}  // namespace
}  // namespace statedb
