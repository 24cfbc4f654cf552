// The contract of a store: what is kept, and what is refused.
#include "statedb/fakes/StoreContract.h"

namespace statedb {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Pair;

TEST_P(StoreContract, ANewStoreIsEmptyAndHasAnId) {
  const Snapshot snapshot = all();
  EXPECT_THAT(snapshot.records, IsEmpty());
  EXPECT_FALSE(snapshot.cursor.storeId.empty());
}

TEST_P(StoreContract, ASnapshotHoldsTheTablesAskedForInOrder) {
  store->commit(Transaction()
                    .put(table, "b", R"({"n":1})")
                    .put(table, "a", R"({"n":2})")
                    .put(other, "c", R"({"n":3})"));
  const Snapshot one = store->snapshot({table});
  ASSERT_EQ(one.records.size(), 2U);
  EXPECT_EQ(one.records[0].key, "a");
  EXPECT_EQ(one.records[0].table, table);
  EXPECT_EQ(one.records[0].doc, R"({"n":2})");
  EXPECT_EQ(one.records[1].key, "b");
  EXPECT_EQ(store->snapshot({table, other}).records, store->snapshot({other, table}).records);
  EXPECT_EQ(store->snapshot({table, other}).records.size(), 3U);
}

TEST_P(StoreContract, NoTablesMakeAnEmptySnapshotWithACursor) {
  put("a", "{}");
  EXPECT_THAT(store->snapshot({}).records, IsEmpty());
  EXPECT_EQ(store->snapshot({}).cursor, all().cursor);
}

TEST_P(StoreContract, ARecordIsReadByName) {
  put("a", R"({"n":1})");
  const auto found = store->record(table, "a");
  ASSERT_TRUE(found);
  EXPECT_EQ(*found, all().records.at(0));
  EXPECT_GT(found->revision, 0U);
}

TEST_P(StoreContract, ARecordThatDoesNotExistIsNothing) {
  put("a", "{}");
  EXPECT_FALSE(store->record(table, "b"));
  EXPECT_FALSE(store->record(other, "a"));
}

TEST_P(StoreContract, AllUsersSeeWhatOneCommitted) {
  const auto reader = open();
  put("a", "1");
  EXPECT_EQ(reader->record(table, "a")->doc, "1");
  EXPECT_EQ(reader->snapshot({table}).records, all().records);
}

TEST_P(StoreContract, WhatIsTooLongIsRefusedByNameAndNothingIsWritten) {
  const rt::String longest(std::string(longestName, 'n'));
  const rt::String text = "\"" + rt::String(std::string(longestDocument - 2, 'x')) + "\"";
  put(longest, text);
  EXPECT_EQ(all().records.size(), 1U);
  const auto sentenceOf = [&](const rt::String& key, const rt::String& doc) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { put(key, doc); }, &sentence), Trouble::invalid);
    return sentence;
  };
  EXPECT_EQ(sentenceOf(longest + "n", "1"),
            "the name '" + std::string(32, 'n') + "...' has 256 bytes: it must have at most 255");
  EXPECT_EQ(sentenceOf("a", text + " "), "the document for record 'a' of table '" + table.str() +
                                             "' has 1048577 bytes: it must have at most 1048576");
  EXPECT_EQ(all().records.size(), 1U);
  del(longest + "n");
}

TEST_P(StoreContract, ARecordCanBeReplacedAndRemoved) {
  put("a", "1");
  put("a", "2");
  EXPECT_THAT(contentsOf(all()), ElementsAre(Pair(table.str() + "/a", "2")));
  del("a");
  EXPECT_THAT(all().records, IsEmpty());
}

TEST_P(StoreContract, ARemovalIsKnownToTheHistoryThatItHappenedIn) {
  put("a", "1");
  const Origin origin = originOf("a");
  EXPECT_FALSE(store->hasRemoved(table, "a", origin));
  put("a", "2");
  EXPECT_FALSE(store->hasRemoved(table, "a", origin)) << "it was changed only";
  del("a");
  EXPECT_TRUE(store->hasRemoved(table, "a", origin));
  EXPECT_FALSE(store->hasRemoved(other, "a", origin));
  EXPECT_FALSE(store->hasRemoved(table, "b", origin));
}

TEST_P(StoreContract, ARemovalIsOfTheRecordThatWasThereAndNotOfItsSuccessor) {
  put("a", "1");
  const Origin first = originOf("a");
  del("a");
  put("a", "1");
  EXPECT_TRUE(store->hasRemoved(table, "a", first));
  EXPECT_FALSE(store->hasRemoved(table, "a", originOf("a")));
}

TEST_P(StoreContract, NoRemovalIsKnownOfAnotherHistory) {
  put("a", "1");
  Origin origin = originOf("a");
  del("a");
  origin.history = GetParam().make()->open()->snapshot({table}).cursor.history;
  EXPECT_FALSE(store->hasRemoved(table, "a", origin));
}

TEST_P(StoreContract, ARemovalIsForgottenWithTheLog) {
  put("a", "1");
  const Origin origin = originOf("a");
  del("a");
  backend->trim(*store);
  EXPECT_FALSE(store->hasRemoved(table, "a", origin));
}

TEST_P(StoreContract, ARevisionIsOfOneChangeAndNeverComesAgain) {
  put("a", "1");
  const uint64_t first = revision("a");
  put("a", "2");
  const uint64_t second = revision("a");
  del("a");
  put("a", "1");
  const uint64_t third = revision("a");
  EXPECT_NE(first, second);
  EXPECT_NE(second, third);
  EXPECT_NE(first, third);
}

TEST_P(StoreContract, ARecordMadeAnewIsKnownForAnotherOne) {
  put("a", "1");
  const auto first = store->record(table, "a");
  EXPECT_EQ(first->created, first->revision);
  put("a", "2");
  EXPECT_EQ(store->record(table, "a")->created, first->created);
  const Cursor before = all().cursor;
  del("a");
  put("a", "2");
  const auto second = store->record(table, "a");
  EXPECT_NE(second->created, first->created);
  EXPECT_EQ(second->created, second->revision);
  EXPECT_EQ(store->changes(before).changes.at(0).record, *second);
}

TEST_P(StoreContract, ARevisionStaysWhenAnotherRecordChanges) {
  put("a", "1");
  const uint64_t before = revision("a");
  put("b", "1");
  EXPECT_EQ(revision("a"), before);
}

TEST_P(StoreContract, AGuardThatHoldsLetsTheTransactionThrough) {
  put("a", "1");
  store->commit(Transaction().guard(table, "a", revision("a")).put(table, "a", "2"));
  EXPECT_EQ(store->record(table, "a")->doc, "2");
  store->commit(Transaction().guard(table, "b", 0).put(table, "b", "1"));
  EXPECT_EQ(store->record(table, "b")->doc, "1");
}

TEST_P(StoreContract, AConflictNamesTheRecordAndWritesNothing) {
  put("a", "1");
  put("b", "1");
  const uint64_t stale = revision("b");
  put("b", "2");
  const Snapshot before = all();
  try {
    store->commit(Transaction()
                      .guard(table, "a", revision("a"))
                      .guard(table, "b", stale)
                      .put(table, "a", "3")
                      .put(other, "new", "3")
                      .del(table, "b"));
    FAIL() << "nothing was thrown";
  } catch (const ConflictError& error) {
    EXPECT_EQ(error.trouble(), Trouble::conflict);
    EXPECT_EQ(error.table(), table);
    EXPECT_EQ(error.key(), "b");
    EXPECT_THAT(error.what(), HasSubstr("'b'"));
  }
  EXPECT_EQ(all().records, before.records);
  EXPECT_EQ(all().cursor, before.cursor);
}

TEST_P(StoreContract, AStoreGoesOnAfterAConflict) {
  put("a", "1");
  EXPECT_EQ(
      troubleOf([&] { store->commit(Transaction().guard(table, "a", 0).put(table, "a", "2")); }),
      Trouble::conflict);
  put("a", "3");
  EXPECT_EQ(store->record(table, "a")->doc, "3");
}

TEST_P(StoreContract, AGuardOfARemovedRecordDoesNotHoldEvenWhenItIsMadeAnewAlike) {
  put("a", "1");
  const uint64_t before = revision("a");
  del("a");
  const auto guarded = [&] {
    store->commit(Transaction().guard(table, "a", before).put(table, "b", "1"));
  };
  EXPECT_EQ(troubleOf(guarded), Trouble::conflict);
  put("a", "1");
  EXPECT_EQ(troubleOf(guarded), Trouble::conflict);
  EXPECT_FALSE(store->record(table, "b"));
}

TEST_P(StoreContract, WhatIsNotJsonIsRefusedWithItsTransaction) {
  for (const char* doc : {"", "{", "{]", "{} x", "'a'", "nonsense"}) {
    std::string sentence;
    EXPECT_EQ(
        troubleOf(
            [&] { store->commit(Transaction().put(table, "good", "{}").put(table, "bad", doc)); },
            &sentence),
        Trouble::invalid)
        << doc;
    EXPECT_THAT(sentence, HasSubstr("'bad'"));
  }
  EXPECT_THAT(all().records, IsEmpty());
}

TEST_P(StoreContract, NulBytesAreRefused) {
  const rt::String nul("a\0b", 3);
  const rt::String doc("{}\0{", 4);
  EXPECT_EQ(troubleOf([&] { put(nul, "{}"); }), Trouble::invalid);
  EXPECT_EQ(troubleOf([&] { del(nul); }), Trouble::invalid);
  EXPECT_EQ(troubleOf([&] { put("a", doc); }), Trouble::invalid);
  EXPECT_EQ(troubleOf([&] { (void)store->record(table, nul); }), Trouble::invalid);
  EXPECT_THAT(all().records, IsEmpty());
}

TEST_P(StoreContract, EmptyNamesAreRefused) {
  EXPECT_EQ(troubleOf([&] { put("", "{}"); }), Trouble::invalid);
  EXPECT_EQ(troubleOf([&] { store->commit(Transaction().put("", "a", "{}")); }), Trouble::invalid);
  EXPECT_EQ(troubleOf([&] { store->commit(Transaction().guard(table, "", 0)); }), Trouble::invalid);
}

TEST_P(StoreContract, ARecordWrittenTwiceInOneTransactionIsRefused) {
  EXPECT_EQ(troubleOf([&] { store->commit(Transaction().put(table, "a", "1").del(table, "a")); }),
            Trouble::invalid);
  EXPECT_THAT(all().records, IsEmpty());
}

TEST_P(StoreContract, TablesOfTheOtherHalfAreRefused) {
  EXPECT_EQ(troubleOf([&] { (void)store->snapshot({table, foreign}); }), Trouble::invalid);
  EXPECT_EQ(troubleOf([&] { (void)store->record(foreign, "a"); }), Trouble::invalid);
  EXPECT_EQ(
      troubleOf([&] { store->commit(Transaction().put(table, "a", "1").put(foreign, "a", "1")); }),
      Trouble::invalid);
  EXPECT_THAT(all().records, IsEmpty());
}

TEST_P(StoreContract, KeepsAnyNameAndDocumentByteForByte) {
  const std::vector<rt::String> texts = {"'",
                                         "\"",
                                         "a'; DROP TABLE record; --",
                                         "%s%n",
                                         "100/00:11:22:33:44:55",
                                         "a\nb\tc",
                                         "\xff\xfe",
                                         "Z\xc3\xbcrich \xf0\x9f\x90\xa7",
                                         rt::String(std::string(longestName, 'k')),
                                         " ",
                                         "A",
                                         "a"};
  const std::vector<rt::String> docs = {"{}",
                                        "[1, 2.50, -3e9]",
                                        "null",
                                        R"("a\u0000b")",
                                        "{ \"spaced\" :\n1 }",
                                        R"({"'":"\"","ü":"🐧"})",
                                        R"({"a":1,"a":2})"};
  for (const rt::String& text : texts)
    for (const rt::String& doc : docs) {
      put(text, doc);
      const auto found = store->record(table, text);
      ASSERT_TRUE(found);
      EXPECT_EQ(found->key, text);
      EXPECT_EQ(found->doc, doc);
    }
  EXPECT_EQ(all().records.size(), texts.size());
}

TEST_P(StoreContract, KeepsADocumentOfOneMebibyte) {
  const rt::String doc = "\"" + rt::String(std::string(1024 * 1024 - 2, 'x')) + "\"";
  const Cursor before = all().cursor;
  put("a", doc);
  EXPECT_EQ(all().records.at(0).doc, doc);
  EXPECT_EQ(open()->changes(before).changes.at(0).record.doc, doc);
}

TEST_P(StoreContract, AnEmptyTransactionIsNoChange) {
  const Cursor before = all().cursor;
  store->commit({});
  EXPECT_EQ(all().cursor, before);
}

}  // namespace
}  // namespace statedb
