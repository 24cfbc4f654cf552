// What is said of a failed system call: the cause, and the way out.
#include <gtest/gtest.h>

#include <cerrno>

#include "statedb/sqlite/Sentences.h"
#include "statedb/sqlite/fakes/TestFiles.h"

namespace statedb::sqlite {
namespace {

using SentencesTest = SqliteTest;

TEST_F(SentencesTest, AnErrorHasTheTroubleThatItIsOf) {
  contentIs(file, "");
  const auto troubleOf = [&](int error) { return fromErrno(fileName(), error, "why").trouble(); };
  for (const int error : {ENOSPC, EDQUOT}) EXPECT_EQ(troubleOf(error), Trouble::full) << error;
  for (const int error : {EACCES, EPERM}) EXPECT_EQ(troubleOf(error), Trouble::denied) << error;
  EXPECT_EQ(troubleOf(EROFS), Trouble::readOnly);
  for (const int error : {0, EIO, EISDIR, EMFILE})
    EXPECT_EQ(troubleOf(error), Trouble::failed) << error;
}

TEST_F(SentencesTest, AnErrorOfItsOwnIsToldWithItsText) {
  EXPECT_STREQ(fromErrno("/a/b.db", EIO, "why").what(),
               "/a/b.db could not be used: why (Input/output error)");
}

TEST_F(SentencesTest, WhatHasNoErrorIsToldWithoutOne) {
  EXPECT_STREQ(fromErrno("/a/b.db", 0, "why").what(), "/a/b.db could not be used: why");
}

TEST_F(SentencesTest, AMissingFileIsToldAsMissing) {
  EXPECT_EQ(fromErrno(fileName(), ENOENT, "why").trouble(), Trouble::missing);
}

TEST_F(SentencesTest, AFileThatIsThereMissesWhatCouldNotBeMadeBesideIt) {
  contentIs(file, "");
  EXPECT_EQ(fromErrno(fileName(), ENOENT, "why").trouble(), Trouble::denied);
}

TEST_F(SentencesTest, ADirectoryIsWhatStandsBeforeTheLastSlash) {
  EXPECT_EQ(directoryOf("/a/b/c.db"), "/a/b");
  EXPECT_EQ(directoryOf("/c.db"), "/");
  EXPECT_EQ(directoryOf("b/c.db"), "b");
  EXPECT_EQ(directoryOf("c.db"), ".");
}

}  // namespace
}  // namespace statedb::sqlite
