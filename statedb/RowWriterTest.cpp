// Rows that are ours alone: what is wanted is there, and is written once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "statedb/RowWriter.h"
#include "statedb/fakes/MemoryStore.h"
#include "statedb/fakes/StatusTables.h"
#include "statedb/fakes/StoreContract.h"

namespace statedb {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class RowWriterTest : public testing::Test {
 protected:
  Contents rows() { return contentsOf(db.snapshot({"vmStatus", "fdb"})); }
  uint64_t sequence() { return db.snapshot({}).cursor.sequence; }

  std::shared_ptr<fakes::MemoryData> data = std::make_shared<fakes::MemoryData>();
  StateDb db{
      [] { return std::make_unique<fakes::MemoryStore>(std::make_shared<fakes::MemoryData>()); },
      [this] { return std::make_unique<fakes::MemoryStore>(data, Half::status); }, fakes::isStatus};
  RowWriter writer{db, {"vmStatus", "fdb"}};
};

TEST_F(RowWriterTest, LosesARowThatIsTooLongAndNoOther) {
  const rt::String tooLong = "\"" + rt::String(std::string(longestDocument, 'x')) + "\"";
  writer.rowIs("vmStatus", "web1", "{}");
  writer.rowIs("vmStatus", "web2", "{}");
  writer.flush();
  writer.rowIs("vmStatus", "web1", tooLong);
  writer.rowIs("vmStatus", rt::String(std::string(longestName + 1, 'n')), "{}");
  writer.rowIs("vmStatus", "web2", "[]");
  writer.flush();
  EXPECT_THAT(rows(), ElementsAre(Pair("vmStatus/web2", "[]")));
}

TEST_F(RowWriterTest, WritesNothingBeforeTheFlush) {
  writer.rowIs("vmStatus", "web1", "{}");
  EXPECT_THAT(rows(), IsEmpty());
  writer.flush();
  EXPECT_THAT(rows(), ElementsAre(Pair("vmStatus/web1", "{}")));
}

TEST_F(RowWriterTest, WritesAllInOneTransaction) {
  writer.flush();
  const uint64_t before = data->sequence;
  writer.rowIs("vmStatus", "web1", "1");
  writer.rowIs("fdb", "100/x", "2");
  writer.rowIs("vmStatus", "web1", "3");
  writer.flush();
  EXPECT_EQ(data->sequence, before + 2);
  EXPECT_THAT(rows(), ElementsAre(Pair("fdb/100/x", "2"), Pair("vmStatus/web1", "3")));
}

TEST_F(RowWriterTest, HasNoNewsOfARowThatIsAsItWas) {
  writer.rowIs("vmStatus", "web1", "1");
  writer.flush();
  EXPECT_FALSE(writer.hasNews());
  writer.rowIs("vmStatus", "web1", "1");
  EXPECT_FALSE(writer.hasNews());
  writer.rowIs("vmStatus", "web1", "2");
  EXPECT_TRUE(writer.hasNews());
}

TEST_F(RowWriterTest, RemovesARow) {
  writer.rowIs("vmStatus", "web1", "1");
  writer.flush();
  writer.rowDel("vmStatus", "web1");
  writer.rowDel("vmStatus", "never");
  writer.flush();
  EXPECT_THAT(rows(), IsEmpty());
}

TEST_F(RowWriterTest, ClearsAwayWhatAnEarlierDaemonLeft) {
  db.commit(Transaction().put("vmStatus", "old", "1").put("vmStatus", "web1", "1"));
  db.commit(Transaction().put("vmProblem", "old", "1"));
  writer.rowIs("vmStatus", "web1", "2");
  writer.flush();
  EXPECT_THAT(rows(), ElementsAre(Pair("vmStatus/web1", "2")));
  EXPECT_TRUE(db.record("vmProblem", "old")) << "a table that is not the writer's is left alone";
}

TEST_F(RowWriterTest, DoesNotWriteWhatStandsThereAlready) {
  db.commit(Transaction().put("vmStatus", "web1", "1"));
  const uint64_t before = data->sequence;
  writer.rowIs("vmStatus", "web1", "1");
  writer.flush();
  EXPECT_EQ(data->sequence, before);
}

TEST_F(RowWriterTest, KeepsWhatCouldNotBeWrittenForTheNextTime) {
  writer.rowIs("vmStatus", "web1", "1");
  data->failsCommits = true;
  EXPECT_THROW(writer.flush(), Error);
  EXPECT_TRUE(writer.hasNews());
  writer.rowIs("vmStatus", "web2", "1");
  data->failsCommits = false;
  writer.flush();
  EXPECT_THAT(rows(), ElementsAre(Pair("vmStatus/web1", "1"), Pair("vmStatus/web2", "1")));
}

TEST_F(RowWriterTest, WritesOneHalfOfTheDatabaseOnly) {
  EXPECT_DEATH(RowWriter(db, {"vmStatus", "vmConfig"}),
               "assertion failed: one half of the database is written\n");
}

TEST_F(RowWriterTest, WritesItsOwnTablesOnly) {
  EXPECT_DEATH(writer.rowIs("vmProblem", "web1", "{}"), "assertion failed: a table of ours\n");
}

TEST_F(RowWriterTest, FillsAStoreThatTookThePlaceOfTheFirst) {
  writer.rowIs("vmStatus", "web1", "1");
  writer.flush();
  data = std::make_shared<fakes::MemoryData>();
  writer.reopen();
  EXPECT_TRUE(writer.hasNews());
  writer.flush();
  EXPECT_THAT(rows(), ElementsAre(Pair("vmStatus/web1", "1")));
}

}  // namespace
}  // namespace statedb
