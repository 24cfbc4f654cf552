// The files of the database: who makes them, their modes, and what happens when they go.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/Doorbell.h"
#include "statedb/sqlite/fakes/TestFiles.h"

namespace statedb::sqlite {
namespace {

using testing::HasSubstr;

using FilesTest = SqliteTest;

// Sets the umask for as long as it lives.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  Umask(const Umask&) = delete;
  ~Umask() { umask(before_); }

 private:
  mode_t before_;
};

constexpr const char* allFiles[] = {"", "-wal", "-shm", "-bell"};

TEST_F(FilesTest, TheOwnerMakesThemForTheGroupWhateverTheUmask) {
  const Umask mask(0777);
  const auto store = open();
  put(*store, "a", "1");
  for (const char* ending : allFiles) EXPECT_EQ(modeOf(companion(ending)), 0660U) << ending;
}

TEST_F(FilesTest, AllTakeModeAndGroupOfTheDatabase) {
  open();
  // Anybody's second group, or, as root, any.
  gid_t groups[64];
  const int count = getgroups(64, groups);
  const gid_t group = geteuid() == 0 ? 54321 : count > 0 ? groups[count - 1] : getegid();
  ASSERT_EQ(chown(file.c_str(), static_cast<uid_t>(-1), group), 0);
  std::filesystem::remove(companion("-bell"));
  ASSERT_EQ(chmod(file.c_str(), 0640), 0);
  const auto store = open();
  put(*store, "a", "1");
  for (const char* ending : allFiles) {
    EXPECT_EQ(groupOf(companion(ending)), group) << ending;
    EXPECT_EQ(modeOf(companion(ending)), 0640U) << ending;
  }
}

TEST_F(FilesTest, AClientMakesNone) {
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { openClient(); }, &sentence), Trouble::missing);
  EXPECT_EQ(sentence, file.string() +
                          " does not exist: put it back if it was lost; or start or restart "
                          "vmagentd, which makes an empty one");
  EXPECT_TRUE(std::filesystem::is_empty(dir));
}

TEST_F(FilesTest, AReopenerMakesNoneAndSetsUpNoneThatIsEmpty) {
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { open(Role::reopener); }, &sentence), Trouble::missing);
  EXPECT_EQ(sentence, file.string() +
                          " is gone: put it back, and it is read; or restart vmagentd, which makes "
                          "an empty one");
  EXPECT_TRUE(std::filesystem::is_empty(dir));
  contentIs(file, "");
  EXPECT_EQ(troubleOf([&] { open(Role::reopener); }, &sentence), Trouble::missing);
  EXPECT_EQ(sentence, file.string() +
                          " is empty: put a backup in its place, and it is read; or restart "
                          "vmagentd, which sets it up anew");
  EXPECT_EQ(std::filesystem::file_size(file), 0U);
  open();
  put(*open(Role::reopener), "a", "1");
  EXPECT_EQ(openClient()->record("vmConfig", "a")->doc, "1");
}

TEST_F(FilesTest, AMissingDirectoryIsNamed) {
  const auto missing = dir / "no" / "such";
  for (const Role role : {Role::owner, Role::reopener, Role::client}) {
    StoreOptions options;
    options.file = rt::String((missing / "config.db").string());
    options.role = role;
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { openStore(options); }, &sentence), Trouble::missing);
    EXPECT_EQ(sentence, "directory " + missing.string() +
                            " does not exist: start vmagentd, which makes it, or name another");
  }
}

TEST_F(FilesTest, ADirectoryInPlaceOfTheFileIsRefused) {
  std::filesystem::create_directory(file);
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { open(); }, &sentence), Trouble::failed);
  EXPECT_THAT(sentence, HasSubstr(file.string()));
}

TEST_F(FilesTest, AFileThatIsNoDatabaseIsRefusedAndLeftAlone) {
  const std::string text = "this is a text of mine, and no database of yours, whatever its name is";
  contentIs(file, text);
  for (const Role role : {Role::owner, Role::client}) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { open(role); }, &sentence), Trouble::corrupt);
    EXPECT_THAT(sentence, HasSubstr(file.string() + " is damaged or no database"));
    EXPECT_THAT(sentence, HasSubstr("restore a backup"));
  }
  EXPECT_EQ(contentOf(file), text);
}

// Nothing that is the daemon's own is worth a backup.
TEST_F(FilesTest, AStatusThatIsDamagedOrMissingIsToBeMadeAnew) {
  const std::string status = (dir / "status.db").string();
  const auto openStatus = [&](Role role) {
    StoreOptions options;
    options.file = rt::String(status);
    options.role = role;
    openStore(options);
  };
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { openStatus(Role::client); }, &sentence), Trouble::missing);
  EXPECT_EQ(sentence, status + " does not exist: start or restart vmagentd, which makes it");
  contentIs(status, "");
  EXPECT_EQ(troubleOf([&] { openStatus(Role::client); }, &sentence), Trouble::missing);
  EXPECT_EQ(sentence, status + " is empty: restart vmagentd, which sets it up anew");
  contentIs(status, "this is a text of mine, and no database of yours, whatever its name is");
  EXPECT_EQ(troubleOf([&] { openStatus(Role::owner); }, &sentence), Trouble::corrupt);
  EXPECT_THAT(sentence,
              HasSubstr("): stop vmagentd, remove " + status + "*, and start it; nothing is lost"));
}

// Somebody's slip: what is still in the log is no whole database.
TEST_F(FilesTest, OneThatIsEmptiedWhileItIsOpenIsNotWrittenIntoAndIsSetUpAnew) {
  {
    const auto store = open();
    put(*store, "a", "1");
    std::ofstream(file).close();
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { openClient(); }, &sentence), Trouble::missing);
    EXPECT_THAT(sentence, HasSubstr(file.string() + " is empty: put a backup in its place"));
  }
  EXPECT_EQ(std::filesystem::file_size(file), 0U);
  const auto store = open();
  EXPECT_EQ(store->record("table", "a"), std::nullopt);
  put(*store, "a", "2");
}

TEST_F(FilesTest, PagesAreSmallAndTheJournalIsAWriteAheadLog) {
  const auto store = open();
  Connection look(fileName(), rt::Seconds(1));
  EXPECT_EQ(look.number("PRAGMA page_size"), 1024);
  EXPECT_EQ(look.text("PRAGMA journal_mode"), "wal");
}

// Each all of another letter: what is as it was is not written.
rt::String filled(int i) {
  return rt::String("\"" + std::string(100'000, static_cast<char>('a' + i % 26)) + "\"");
}

TEST_F(FilesTest, TheLogIsWrittenBackAndDoesNotGrowForEver) {
  (void)open();
  const auto store = open(Role::client);
  for (int i = 0; i < 60; ++i) put(*store, "a", filled(i));
  EXPECT_LT(std::filesystem::file_size(companion("-wal")), 2U * 1024 * 1024);
  EXPECT_GT(std::filesystem::file_size(file), 100'000U);
  EXPECT_EQ(store->record("vmConfig", "a")->doc, filled(59));
}

TEST_F(FilesTest, TheLogOfConfigurationIsWrittenBackByTheNextClientAndNotByItsOwner) {
  const auto daemon = open();
  const std::string before = contentOf(file);
  for (int i = 0; i < 20; ++i) put(*daemon, "a", filled(i));
  EXPECT_EQ(contentOf(file), before);
  put(*open(Role::client), "a", filled(20));
  EXPECT_NE(contentOf(file), before);
}

TEST_F(FilesTest, AShortLogIsNotWrittenBack) {
  const auto store = open();
  const std::string before = contentOf(file);
  for (int i = 0; i < 20; ++i) put(*store, "a", rt::String(std::to_string(i)));
  EXPECT_EQ(contentOf(file), before);
}

TEST_F(FilesTest, TheLogOfChangesIsTrimmedOnceItHoldsAQuarterMore) {
  const auto store = open(Role::owner, 20);
  Connection look(fileName(), rt::Seconds(1));
  for (int i = 1; i <= 200; ++i) {
    put(*store, "a", rt::String(std::to_string(i)));
    // Six at a time go once it holds a quarter more than is kept.
    EXPECT_EQ(look.number("SELECT count(*) FROM change"), i <= 20 ? i : 20 + (i - 20) % 6);
  }
  EXPECT_EQ(look.number("SELECT min(seq) - 1 FROM change"),
            look.number("SELECT v FROM meta WHERE k = 'trimmed_to'"));
}

TEST_F(FilesTest, WhatIsBelowNoDirectoryCannotBeWatched) {
  contentIs(file, "");
  try {
    Doorbell(fileName() + "/config.db").listen();
    FAIL() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.what(), file.string() +
                                "/config.db could not be used: its directory could not be watched "
                                "(Not a directory)");
  }
}

TEST_F(FilesTest, ARemovedFileIsToldAndNothingIsWrittenToWhatIsLeftOfIt) {
  const auto store = open();
  const Closing wakeUp(store->wakeUp());
  std::filesystem::remove(file);
  EXPECT_TRUE(wakeUp.isReadable());
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { put(*store, "a", "1"); }, &sentence), Trouble::missing);
  EXPECT_THAT(sentence, HasSubstr(file.string() + " is gone: put it back"));
  EXPECT_EQ(troubleOf([&] { (void)store->snapshot({"vmConfig"}); }), Trouble::missing);
  EXPECT_EQ(troubleOf([&] { (void)store->changes({}); }), Trouble::missing);
  EXPECT_FALSE(wakeUp.isReadable());
}

TEST_F(FilesTest, ADirectoryThatIsMovedAwayIsTold) {
  const auto inner = dir / "inner";
  std::filesystem::create_directory(inner);
  StoreOptions options;
  options.file = rt::String((inner / "config.db").string());
  options.role = Role::owner;
  const auto store = openStore(options);
  const Closing wakeUp(store->wakeUp());
  std::filesystem::rename(inner, dir / "away");
  EXPECT_TRUE(wakeUp.isReadable());
  EXPECT_EQ(troubleOf([&] { (void)store->changes({}); }), Trouble::missing);
}

TEST_F(FilesTest, AReplacedFileIsTold) {
  open();
  const auto backup = dir / "backup.db";
  std::filesystem::copy(file, backup);
  const auto store = open();
  const Closing wakeUp(store->wakeUp());
  std::filesystem::rename(backup, file);
  EXPECT_TRUE(wakeUp.isReadable());
  EXPECT_EQ(troubleOf([&] { put(*store, "a", "1"); }), Trouble::replaced);
}

TEST_F(FilesTest, ABackupPutBackIsAnotherStore) {
  auto store = open();
  put(*store, "a", "1");
  const Cursor before = store->snapshot({}).cursor;
  store.reset();
  const auto backup = dir / "backup.db";
  std::filesystem::copy(file, backup);
  std::filesystem::rename(backup, file);
  EXPECT_EQ(open()->changes(before).resume, Resume::otherStore);
}

TEST_F(FilesTest, ABackupGoesOnWithTheHistoryByItself) {
  auto store = open();
  put(*store, "a", "1");
  const Origin origin{store->snapshot({}).cursor.history, store->record("vmConfig", "a")->created};
  store.reset();
  const auto backup = dir / "backup.db";
  std::filesystem::copy(file, backup);
  store = open();
  store->commit(Transaction().del("vmConfig", "a"));
  EXPECT_TRUE(store->hasRemoved("vmConfig", "a", origin));
  store.reset();
  std::filesystem::rename(backup, file);
  store = open();
  EXPECT_EQ(store->snapshot({}).cursor.history, origin.history);
  EXPECT_FALSE(store->hasRemoved("vmConfig", "a", origin)) << "not here";
  // However far it comes by other changes.
  for (int i = 0; i < 10; ++i) put(*store, "b", rt::String(std::to_string(i)));
  EXPECT_FALSE(store->hasRemoved("vmConfig", "a", origin));
  store->commit(Transaction().del("vmConfig", "a"));
  EXPECT_TRUE(store->hasRemoved("vmConfig", "a", origin));
}

TEST_F(FilesTest, AStoreOpenedAgainIsTheSame) {
  auto store = open();
  const Cursor before = store->snapshot({}).cursor;
  put(*store, "a", "1");
  store.reset();
  const Changes changes = open()->changes(before);
  EXPECT_EQ(changes.resume, Resume::resumed);
  EXPECT_THAT(told(changes), testing::ElementsAre("put a"));
}

TEST_F(FilesTest, ALostBellIsMadeAnewByWhoRings) {
  const auto store = open();
  const Closing wakeUp(store->wakeUp());
  std::filesystem::remove(companion("-bell"));
  store->changes({});
  put(*store, "a", "1");
  EXPECT_TRUE(wakeUp.isReadable());
  EXPECT_EQ(modeOf(companion("-bell")), 0660U);
}

TEST_F(FilesTest, WhatIsNoBellMakesRoomForOneAndKeepsNobodyWaiting) {
  const auto store = open();
  const Closing wakeUp(store->wakeUp());
  const auto bell = companion("-bell");
  const std::vector<std::function<void()>> strange = {
      [&] { ASSERT_EQ(mkfifo(bell.c_str(), 0660), 0); },
      [&] { std::filesystem::create_symlink(dir / "elsewhere", bell); },
      [&] { std::filesystem::create_directory(bell); }};
  for (size_t i = 0; i < strange.size(); ++i) {
    std::filesystem::remove(bell);
    strange[i]();
    store->changes({});
    alarm(10);
    put(*store, "a", rt::String(std::to_string(i)));
    alarm(0);
    EXPECT_TRUE(wakeUp.isReadable());
    EXPECT_EQ(modeOf(bell), 0660U);
    EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(bell)));
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "elsewhere"));
}

TEST_F(FilesTest, ABellThatCannotBeOpenedNowStays) {
  const auto store = open();
  put(*store, "a", "1");
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{3, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  put(*store, "a", "2");
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_TRUE(std::filesystem::exists(companion("-bell")));
}

TEST_F(FilesTest, ALinkInPlaceOfTheDatabaseIsRefused) {
  const auto others = dir / "others";
  contentIs(others, "");
  std::filesystem::create_symlink(others, file);
  for (const Role role : {Role::owner, Role::client}) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { open(role); }, &sentence), Trouble::failed);
    EXPECT_THAT(sentence, HasSubstr(file.string()));
  }
  EXPECT_EQ(contentOf(others), "");
}

TEST_F(FilesTest, AnIdThatIsNoneIsRefused) {
  const auto store = open();
  for (const char* id : {"''", "'a\"b'", "'a b'", "7.5", "hex(randomblob(33))"}) {
    Connection(fileName(), rt::Seconds(1))
        .run(("UPDATE meta SET v = " + std::string(id) + " WHERE k = 'store_id'").c_str());
    EXPECT_EQ(troubleOf([&] { (void)store->snapshot({"vmConfig"}); }), Trouble::corrupt) << id;
    EXPECT_EQ(troubleOf([&] {
                (void)store->hasRemoved("vmConfig", "a", {"", 0});
              }),
              Trouble::corrupt);
  }
}

TEST_F(FilesTest, ADamagedPageIsFoundWhenTheOwnerOpens) {
  open()->commit(
      Transaction().put("vmConfig", "a", "\"" + rt::String(std::string(50'000, 'x')) + "\""));
  std::string content = contentOf(file);
  content.replace(1024, 4096, 4096, '\x5a');
  contentIs(file, content);
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { open(); }, &sentence), Trouble::corrupt);
  EXPECT_THAT(sentence, HasSubstr("restore a backup"));
}

}  // namespace
}  // namespace statedb::sqlite
