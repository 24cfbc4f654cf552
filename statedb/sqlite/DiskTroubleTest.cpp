// Locked, full, read-only: what is said, and that nothing is half written.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstring>
#include <iostream>
#include <thread>

#include "runtime/fakes/LoopFixture.h"
#include "statedb/OwnerLock.h"
#include "statedb/fakes/StoreContract.h"
#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/Sentences.h"
#include "statedb/sqlite/fakes/TestFiles.h"
#include "statedb/sqlite/fakes/Writer.h"

namespace statedb::sqlite {
namespace {

using DiskTroubleLock = SqliteTest;

TEST_F(DiskTroubleLock, ALockHeldTooLongIsToldAndNothingIsWritten) {
  StoreOptions options;
  options.file = fileName();
  options.role = Role::owner;
  const auto store = openStore(options);
  Writer holder("lock", fileName());
  ASSERT_TRUE(holder.heard());
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { put(*store, "a", "1"); }, &sentence), Trouble::locked);
  EXPECT_EQ(sentence, file.string() +
                          " was locked by another process for 0.05 s: try again; 'fuser " +
                          file.string() + "' names who has it open");
  holder.kill();
  EXPECT_FALSE(store->record("vmConfig", "a"));
  put(*store, "a", "1");
}

TEST_F(DiskTroubleLock, ReadersAndWatchersAreNotLockedOut) {
  const auto store = open();
  put(*store, "a", "1");
  const Cursor before = store->snapshot({}).cursor;
  Writer holder("lock", fileName());
  ASSERT_TRUE(holder.heard());
  EXPECT_EQ(store->snapshot({"vmConfig"}).records.size(), 1U);
  EXPECT_EQ(store->changes(before).resume, Resume::resumed);
  EXPECT_EQ(openClient()->record("vmConfig", "a")->doc, "1");
}

TEST_F(DiskTroubleLock, AClientWaitsForAShortLock) {
  open();
  const auto client = openClient();
  Writer holder("lock", fileName());
  ASSERT_TRUE(holder.heard());
  const int waiting = rt::fakes::threadId();
  std::thread releaser([&] {
    while (!rt::fakes::isAsleep(waiting)) std::this_thread::yield();
    holder.kill();
  });
  put(*client, "a", "1");
  releaser.join();
  EXPECT_EQ(client->record("vmConfig", "a")->doc, "1");
}

// Is somebody else to the file system for as long as it lives, when it would else be root.
class Unprivileged {
 public:
  Unprivileged() { changed_ = geteuid() == 0 && seteuid(65534) == 0; }
  Unprivileged(const Unprivileged&) = delete;
  ~Unprivileged() {
    if (changed_ && seteuid(0) != 0) std::abort();
  }

 private:
  bool changed_ = false;
};

class DiskTroubleDenied : public SqliteTest {
 protected:
  void modeIs(const std::filesystem::path& path, mode_t mode) const {
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
  }
};

TEST_F(DiskTroubleDenied, ADirectoryThatMayNotBeWrittenIsNamedWithTheWayOut) {
  modeIs(dir, 0555);
  {
    const Unprivileged somebody;
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { open(); }, &sentence), Trouble::denied);
    EXPECT_EQ(sentence, "no permission to use " + file.string() +
                            ": run as root, or as a member of the file's group");
  }
  modeIs(dir, 0755);
  EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(DiskTroubleDenied, AFileThatMayBeReadButNotWrittenNeedsTheDaemonToBeRunning) {
  put(*open(), "a", "1");
  modeIs(file, 0444);
  modeIs(dir, 0555);
  {
    const Unprivileged somebody;
    EXPECT_EQ(troubleOf([&] { openClient()->snapshot({"vmConfig"}); }), Trouble::denied);
  }
  modeIs(dir, 0755);
}

TEST_F(DiskTroubleDenied, AWriteByOneWhoMayOnlyReadIsDenied) {
  const auto store = open();
  put(*store, "a", "1");
  for (const char* ending : {"", "-wal", "-shm"}) modeIs(companion(ending), 0444);
  const Unprivileged somebody;
  const auto reader = openClient();
  EXPECT_EQ(reader->record("vmConfig", "a")->doc, "1");
  EXPECT_EQ(troubleOf([&] { put(*reader, "a", "2"); }), Trouble::denied);
}

// What it says of a lock there; "nothing" when it is had.
std::string lockTrouble(const rt::String& lock, Trouble trouble) {
  try {
    const OwnerLock held(lock);
    return "nothing";
  } catch (const Error& error) {
    EXPECT_EQ(error.trouble(), trouble);
    return error.what();
  }
}

TEST_F(DiskTroubleDenied, ALockThatMayNotBeMadeIsNamedWithTheWayOut) {
  modeIs(dir, 0555);
  {
    const Unprivileged somebody;
    EXPECT_EQ(lockTrouble(companion("-lock").string(), Trouble::denied),
              "cannot make the lock file " + file.string() +
                  "-lock: Permission denied; run as a user who may write there");
  }
  modeIs(dir, 0755);
}

TEST_F(DiskTroubleDenied, ALockOfANameThatIsTooLongIsToldWithTheReason) {
  const std::string lock = file.string() + std::string(300, 'x');
  EXPECT_EQ(lockTrouble(lock, Trouble::failed), "cannot lock " + lock + ": File name too long");
}

TEST_F(DiskTroubleDenied, AFileThatMayNotBeReadIsDenied) {
  put(*open(), "a", "1");
  modeIs(file, 0);
  const Unprivileged somebody;
  EXPECT_EQ(troubleOf([&] { openClient(); }), Trouble::denied);
}

// Whether this process may mount, in a namespace of its own. If not, the test is left out, which
// only a developer's machine may do.
bool hasPrivateMounts() {
  const bool has =
      unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  if (has) return true;
  std::cerr << "left out, because it needs root: mounting a small disk\n";
  if (std::getenv("CI") != nullptr || std::getenv("VMAGENT_REQUIRE_ALL") != nullptr)
    ADD_FAILURE() << "nothing may be left out here";
  return false;
}

class DiskTroubleMount : public SqliteTest {
 protected:
  void SetUp() override {
    if (!hasPrivateMounts()) return;
    mounted = mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=512k,mode=755") == 0;
    ASSERT_TRUE(mounted);
  }
  void TearDown() override {
    if (mounted) umount2(dir.c_str(), MNT_DETACH);
  }
  // Fills the disk to its last byte.
  void fill() const {
    const int filler = ::open(fillerName().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const Closing closing(filler);
    const std::string block(4096, 'x');
    while (::write(filler, block.data(), block.size()) > 0) continue;
  }
  std::string fillerName() const { return (dir / "filler").string(); }
  void remount(unsigned long flags) const {
    ASSERT_EQ(mount("tmpfs", dir.c_str(), "tmpfs", MS_REMOUNT | flags, nullptr), 0)
        << std::strerror(errno);
  }

  bool mounted = false;
};

TEST_F(DiskTroubleMount, AFullDiskLeavesNothingHalfWrittenAndIsGotOver) {
  if (!mounted) return;
  const auto store = open();
  put(*store, "before", "1");
  const Snapshot before = store->snapshot({"vmConfig"});
  const Closing wakeUp(store->wakeUp());
  fill();
  Transaction large;
  std::string text = "\"";
  text.append(2000, 'x').append("\"");
  for (int i = 0; i < 200; ++i) large.put("vmConfig", rt::String(std::to_string(i)), text);
  std::string sentence;
  EXPECT_EQ(troubleOf([&] { store->commit(large); }, &sentence), Trouble::full);
  EXPECT_EQ(sentence, "no space left on the disk of " + file.string() +
                          ": nothing was written; free some and try again");
  EXPECT_EQ(store->snapshot({"vmConfig"}).records, before.records);
  EXPECT_EQ(store->snapshot({}).cursor, before.cursor);
  EXPECT_EQ(openClient()->snapshot({"vmConfig"}).records, before.records);
  store->changes(before.cursor);
  EXPECT_FALSE(wakeUp.isReadable());

  std::filesystem::remove(fillerName());
  put(*store, "after", "1");
  EXPECT_EQ(store->snapshot({"vmConfig"}).records.size(), 2U);
  Connection check(fileName(), rt::Seconds(1));
  EXPECT_EQ(check.text("PRAGMA integrity_check"), "ok");
}

// Small commits, as a running system makes them, until the disk has no room for the next.
TEST_F(DiskTroubleMount, ADiskThatFillsUpKeepsAllThatWasCommitted) {
  if (!mounted) return;
  const auto store = open();
  int committed = 0;
  const rt::String filling(std::string(900, 'x'));
  EXPECT_EQ(troubleOf([&] {
              for (;; ++committed)
                put(*store, rt::String(std::to_string(committed)), "\"" + filling + "\"");
            }),
            Trouble::full);
  EXPECT_GT(committed, 10);
  EXPECT_EQ(store->snapshot({"vmConfig"}).records.size(), static_cast<size_t>(committed));
  EXPECT_EQ(store->snapshot({}).cursor.sequence, static_cast<uint64_t>(committed));
}

TEST_F(DiskTroubleMount, AFullDiskIsToldWhenTheDatabaseIsMade) {
  if (!mounted) return;
  fill();
  EXPECT_EQ(troubleOf([&] { open(); }), Trouble::full);
  std::filesystem::remove(fillerName());
  put(*open(), "a", "1");
}

TEST_F(DiskTroubleMount, AReadOnlyDiskIsNamedWithTheWayOut) {
  if (!mounted) return;
  put(*open(), "a", "1");
  remount(MS_RDONLY);
  for (const Role role : {Role::owner, Role::client}) {
    std::string sentence;
    EXPECT_EQ(troubleOf([&] { open(role)->snapshot({"vmConfig"}); }, &sentence), Trouble::readOnly);
    EXPECT_EQ(sentence, "the file system of " + file.string() +
                            " is read-only: mount it writable, or name another directory");
  }
  remount(0);
  EXPECT_EQ(open()->record("vmConfig", "a")->doc, "1");
}

TEST_F(DiskTroubleMount, ALockOnAReadOnlyDiskIsNamedWithTheWayOut) {
  if (!mounted) return;
  remount(MS_RDONLY);
  EXPECT_EQ(lockTrouble(fileName(), Trouble::readOnly),
            "cannot make the lock file " + file.string() +
                ": its file system is read-only; name another directory");
}

TEST_F(DiskTroubleMount, WhatIsNotWritableOnAReadOnlyDiskIsToldAsThatAndElseAsDenied) {
  if (!mounted) return;
  open();
  EXPECT_EQ(notWritable(fileName()).trouble(), Trouble::denied);
  remount(MS_RDONLY);
  EXPECT_EQ(notWritable(fileName()).trouble(), Trouble::readOnly);
}

TEST_F(DiskTroubleMount, AnEmptyReadOnlyDiskIsNamedToo) {
  if (!mounted) return;
  remount(MS_RDONLY);
  EXPECT_EQ(troubleOf([&] { open(); }), Trouble::readOnly);
}

}  // namespace
}  // namespace statedb::sqlite
