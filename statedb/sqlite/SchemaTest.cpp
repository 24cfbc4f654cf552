// Formats of the file: older, newer, and other programs'.
#include <gmock/gmock.h>

#include <ctime>

#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/Schema.h"
#include "statedb/sqlite/fakes/TestFiles.h"

namespace statedb::sqlite {
namespace {

class SchemaTest : public SqliteTest {
 protected:
  // The steps of a later version of the program.
  static std::vector<const char*> later(std::initializer_list<const char*> added) {
    std::vector<const char*> steps(formatSteps().begin(), formatSteps().end());
    steps.insert(steps.end(), added);
    return steps;
  }
  int64_t format() const {
    Connection look(fileName(), rt::Seconds(1));
    return look.number("PRAGMA user_version");
  }
  void run(const char* sql) const { Connection(fileName(), rt::Seconds(1)).run(sql); }
};

constexpr const char* addColumn = "ALTER TABLE record ADD COLUMN note TEXT NOT NULL DEFAULT 'x'";
constexpr const char* addTable = "CREATE TABLE extra(a INTEGER) STRICT";

TEST_F(SchemaTest, AnOlderFileIsConvertedWithWhatIsInIt) {
  put(*open(), "a", "1");
  const int64_t before = format();
  Connection connection(fileName(), rt::Seconds(1));
  requireFormat(connection, Role::owner, later({addColumn, addTable}));
  EXPECT_EQ(format(), before + 2);
  EXPECT_EQ(connection.text("SELECT doc || note FROM record"), "1x");
  EXPECT_EQ(connection.number("SELECT count(*) FROM extra"), 0);
}

// For who asks without SQLite: bytes 60 to 63 of the file.
TEST_F(SchemaTest, TheFormatOfAnOpenFileIsInItsHead) {
  const auto store = open();
  Connection connection(fileName(), rt::Seconds(1));
  requireFormat(connection, Role::owner, later({addTable}));
  const std::string head = contentOf(file).substr(60, 4);
  EXPECT_EQ(head, (std::string{0, 0, 0, static_cast<char>(newestFormat() + 1)}));
}

// As any other program may write it.
std::string insertion(size_t table, size_t key, size_t doc) {
  const auto text = [](const char* with, size_t size) {
    return "replace(hex(zeroblob(" + std::to_string(size) + ")), '00', '" + with + "')";
  };
  return "INSERT INTO record(tbl, key, doc) VALUES(" + text("t", table) + ", " + text("k", key) +
         ", '\"' || " + text("d", doc - 2) + " || '\"')";
}

TEST_F(SchemaTest, WhatIsTooLongIsRefusedWhateverProgramWritesIt) {
  open();
  const auto refusalOf = [&](const std::string& sql) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { run(sql.c_str()); }, &sentence), Trouble::invalid) << sql;
    return sentence;
  };
  const std::string words = "a table's name or key has at most 255 bytes, a document 1048576";
  run(insertion(255, 255, 1048576).c_str());
  EXPECT_THAT(refusalOf(insertion(256, 1, 2)), testing::HasSubstr(words));
  EXPECT_THAT(refusalOf(insertion(1, 256, 2)), testing::HasSubstr(words));
  EXPECT_THAT(refusalOf(insertion(1, 1, 1048577)), testing::HasSubstr(words));
  EXPECT_THAT(refusalOf("UPDATE record SET doc = doc || ' '"), testing::HasSubstr(words));
  EXPECT_THAT(refusalOf("UPDATE record SET key = key || 'k'"), testing::HasSubstr(words));
  EXPECT_THAT(refusalOf("UPDATE record SET tbl = tbl || 't'"), testing::HasSubstr(words));
  // Two bytes each.
  EXPECT_THAT(refusalOf("UPDATE record SET key = replace(hex(zeroblob(128)), '00', char(233))"),
              testing::HasSubstr(words));
  run("UPDATE record SET doc = '1'");
}

TEST_F(SchemaTest, WhatIsTooLongInAnOlderFileStaysUntilItIsRemoved) {
  const std::vector<const char*> before(formatSteps().begin(), formatSteps().begin() + 1);
  contentIs(file, "");
  {
    Connection older(fileName(), rt::Seconds(1));
    requireFormat(older, Role::owner, before);
    older.run(insertion(8, 5000, 2'000'000).c_str());
  }
  const auto store = open();
  const rt::String table(std::string(8, 't'));
  const rt::String key(std::string(5000, 'k'));
  const auto record = store->record(table, key);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->doc.size(), 2'000'000U);
  store->commit(Transaction().del(table, key));
  EXPECT_FALSE(store->record(table, key));
}

TEST_F(SchemaTest, AnOlderFileThatIsPutBackIsConvertedToo) {
  put(*open(), "a", "1");
  const int64_t before = format();
  Connection connection(fileName(), rt::Seconds(1));
  requireFormat(connection, Role::reopener, later({addTable}));
  EXPECT_EQ(format(), before + 1);
}

TEST_F(SchemaTest, AConversionThatFailsLeavesTheOlderFile) {
  put(*open(), "a", "1");
  const int64_t before = format();
  Connection connection(fileName(), rt::Seconds(1));
  EXPECT_EQ(troubleOf([&] {
              requireFormat(connection, Role::owner, later({addColumn, "CREATE nonsense"}));
            }),
            Trouble::failed);
  EXPECT_EQ(format(), before);
  EXPECT_EQ(open()->record("vmConfig", "a")->doc, "1");
  EXPECT_EQ(
      connection.number("SELECT count(*) FROM pragma_table_info('record') WHERE name = 'note'"), 0);
}

TEST_F(SchemaTest, AConversionIsDoneOnce) {
  open();
  Connection connection(fileName(), rt::Seconds(1));
  requireFormat(connection, Role::owner, later({addTable}));
  requireFormat(connection, Role::owner, later({addTable}));
  requireFormat(connection, Role::client, later({addTable}));
}

TEST_F(SchemaTest, AClientDoesNotConvert) {
  open();
  const int64_t before = format();
  Connection connection(fileName(), rt::Seconds(1));
  std::string sentence;
  EXPECT_EQ(
      troubleOf([&] { requireFormat(connection, Role::client, later({addTable})); }, &sentence),
      Trouble::older);
  EXPECT_EQ(
      sentence,
      file.string() + " is of format 3, this program's is 4: restart vmagentd, which converts it");
  EXPECT_EQ(format(), before);
}

TEST_F(SchemaTest, ANewerFileIsRefusedAndLeftAlone) {
  put(*open(), "a", "1");
  run("PRAGMA user_version = 7");
  for (const Role role : {Role::owner, Role::client}) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { open(role); }, &sentence), Trouble::newer);
    EXPECT_EQ(sentence,
              file.string() +
                  " is of format 7, but this program knows none above 3: install the newer"
                  " version again, or restore a backup");
  }
  EXPECT_EQ(format(), 7);
}

TEST_F(SchemaTest, AnotherProgramsDatabaseIsRefusedAndLeftAlone) {
  contentIs(file, "");
  run("PRAGMA application_id = 1234; CREATE TABLE record(mine)");
  for (const Role role : {Role::owner, Role::client}) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { open(role); }, &sentence), Trouble::foreign);
    EXPECT_EQ(
        sentence,
        file.string() + " is another program's database: move it away, or name another directory");
  }
  Connection look(fileName(), rt::Seconds(1));
  EXPECT_EQ(look.number("SELECT count(*) FROM sqlite_schema"), 1);
  EXPECT_NE(look.text("PRAGMA journal_mode"), "wal");
}

TEST_F(SchemaTest, ADatabaseWithoutAnApplicationIdIsForeignToo) {
  contentIs(file, "");
  run("CREATE TABLE mine(a)");
  EXPECT_EQ(troubleOf([&] { open(); }), Trouble::foreign);
}

TEST_F(SchemaTest, AnEmptyFileIsSetUpByTheOwnerOnly) {
  contentIs(file, "");
  EXPECT_EQ(troubleOf([&] { openClient(); }), Trouble::missing);
  put(*open(), "a", "1");
  EXPECT_EQ(openClient()->record("vmConfig", "a")->doc, "1");
}

TEST_F(SchemaTest, AnOwnerKilledBeforeTheWriteAheadLogIsGoneOnFrom) {
  open();
  run("PRAGMA journal_mode = DELETE");
  put(*openClient(), "a", "1");
  Connection look(fileName(), rt::Seconds(1));
  EXPECT_EQ(look.text("PRAGMA journal_mode"), "wal");
}

TEST_F(SchemaTest, AChangeHasItsTimeAndItsAuthor) {
  const auto reader = open();
  const Cursor before = reader->snapshot({"vmConfig"}).cursor;
  StoreOptions options{.file = fileName()};
  options.author = {"op1", "vmctl set"};
  openStore(options)->commit(Transaction().put("vmConfig", "a", "1").put("vmConfig", "b", "1"));
  const auto changes = reader->changes(before).changes;
  ASSERT_EQ(changes.size(), 2U);
  for (const Change& change : changes) {
    EXPECT_EQ(change.author.who, "op1");
    EXPECT_EQ(change.author.via, "vmctl set");
    EXPECT_NEAR(static_cast<double>(change.author.at) / 1000,
                static_cast<double>(std::time(nullptr)), 60);
  }
}

TEST_F(SchemaTest, AnAuthorIsCutWhoeverHasWrittenIt) {
  const auto reader = open();
  const Cursor before = reader->snapshot({"vmConfig"}).cursor;
  put(*openClient(), "a", "1");
  run("UPDATE change SET who = printf('%.*c', 2000000, 'A'), via = printf('%.*c', 2000000, 'B')");
  const auto changes = reader->changes(before).changes;
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].author.who, std::string(64, 'A'));
  EXPECT_EQ(changes[0].author.via, std::string(64, 'B'));
}

TEST_F(SchemaTest, AChangeOfAnotherProgramHasItsTimeOnly) {
  const auto reader = open();
  openStore({.file = fileName(), .author = {"op1", "vmctl set"}})
      ->commit(Transaction().put("vmConfig", "a", "1"));
  const Cursor before = reader->snapshot({"vmConfig"}).cursor;
  run("UPDATE record SET doc = '2'");
  const auto changes = reader->changes(before).changes;
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0].author.who, "");
  EXPECT_NE(changes[0].author.at, 0U);
}

}  // namespace
}  // namespace statedb::sqlite
