// The directory of a VM, and its lock.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/base/Failure.h"
#include "shim/keep/BoundedLog.h"
#include "shim/keep/ListeningSocket.h"
#include "shim/keep/VmDirectory.h"

namespace shim {
namespace {

using rt::fakes::contentOf;
using rt::fakes::modeOf;
using rt::fakes::TestFolder;
using testing::HasSubstr;

// A process that holds what it makes until this goes.
class Holder {
 public:
  explicit Holder(const std::function<bool()>& make) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      const char made = make() ? 'y' : 'n';
      (void)!write(ends[1], &made, 1);
      while (true) pause();
    }
    char made = 'n';
    (void)!read(ends[0], &made, 1);
    made_ = made == 'y';
    close(ends[0]);
    close(ends[1]);
  }
  Holder(const Holder&) = delete;
  ~Holder() { end(); }
  void end() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }

  bool made() const { return made_; }
  pid_t pid() const { return pid_; }

 private:
  pid_t pid_ = 0;
  bool made_ = false;
};

// The VM's directory.

TEST(VmDirectory, IsReadByItsGroupAndWrittenByNobodyElse) {
  const TestFolder run;
  const mode_t before = umask(077);
  const VmDirectory directory(run.path(), "guest0");
  umask(before);
  EXPECT_EQ(modeOf(run / "vm"), 02750);
  EXPECT_EQ(modeOf(run / "vm/guest0"), 02750);
  EXPECT_EQ(directory.file("lock"), run / "vm/guest0/lock");
}

TEST(VmDirectory, OfAnEarlierVersionIsSetRight) {
  const TestFolder run;
  for (const char* made : {"vm", "vm/guest0"}) {
    std::filesystem::create_directory(run / made);
    ASSERT_EQ(chmod((run / made).c_str(), 02770), 0);
  }
  const VmDirectory directory(run.path(), "guest0");
  EXPECT_EQ(modeOf(run / "vm"), 02750);
  EXPECT_EQ(modeOf(run / "vm/guest0"), 02750);
}

TEST(VmDirectory, IsNeverWhereALinkLeads) {
  const TestFolder run;
  const TestFolder others;
  for (const char* link : {"vm", "vm/guest0"}) {
    std::filesystem::remove_all(run / "vm");
    if (link == std::string("vm/guest0")) std::filesystem::create_directory(run / "vm");
    std::filesystem::create_directory_symlink(others.path(), run / link);
    const VmDirectory directory(run.path(), "guest0");
    directory.lastErrorIs("no disk");
    EXPECT_EQ(contentOf(run / "vm/guest0/last-error"), "no disk\n");
    EXPECT_TRUE(std::filesystem::is_empty(others.path()));
  }
}

TEST(VmDirectory, OfAnotherUserIsRefusedAndNamed) {
  if (geteuid() != 0) return;  // there is no other
  const TestFolder run;
  std::filesystem::create_directories(run / "vm/guest0");
  constexpr uid_t somebody = 65534;
  ASSERT_EQ(chown((run / "vm/guest0").c_str(), somebody, somebody), 0);
  try {
    const VmDirectory directory(run.path(), "guest0");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(std::string(failure.what()),
              "directory " + (run / "vm/guest0") + " is another user's: remove it");
  }
}

TEST(VmDirectory, IsTheSameWhateverBecomesOfItsName) {
  const TestFolder run;
  const VmDirectory directory(run.path(), "guest0");
  std::filesystem::rename(run / "vm", run / "moved");
  std::filesystem::create_directories(run / "vm/guest0");
  directory.lastErrorIs("no disk");
  directory.problemIs("no answer");
  BoundedLog(directory.place("log"), 10).write("12345678");
  BoundedLog(directory.place("log"), 10).write("9012");
  const VmLock lock(directory.place("lock"));
  const ListeningSocket socket(directory.place("s"), "control");
  EXPECT_TRUE(std::filesystem::is_empty(run / "vm/guest0"));
  for (const char* name : {"last-error", "problem", "log", "log.1", "lock", "s"})
    EXPECT_NE(modeOf(run / (std::string("moved/guest0/") + name)), -1) << name;
  directory.lastErrorDel();
  directory.problemIs("");
  socket.remove();
  for (const char* name : {"last-error", "problem", "s"})
    EXPECT_EQ(modeOf(run / (std::string("moved/guest0/") + name)), -1) << name;
}

TEST(VmDirectory, IsOfTheRunDirectorysGroup) {
  const TestFolder run;
  constexpr gid_t operators = 4242;
  const gid_t group = geteuid() == 0 ? operators : getegid();
  ASSERT_EQ(chown(run.path().c_str(), static_cast<uid_t>(-1), group), 0);
  const VmDirectory directory(run.path(), "guest0");
  directory.lastErrorIs("no disk");
  for (const char* made : {"vm", "vm/guest0", "vm/guest0/last-error"}) {
    struct stat status {};
    ASSERT_EQ(stat((run / made).c_str(), &status), 0) << made;
    EXPECT_EQ(status.st_gid, group) << made;
  }
}

TEST(VmDirectory, NeedsTheRunDirectory) {
  const TestFolder run;
  try {
    const VmDirectory directory(run / "gone", "guest0");
    FAIL();
  } catch (const Failure& failure) {
    EXPECT_EQ(std::string(failure.what()),
              "directory " + (run / "gone") +
                  " cannot be used: make it, or set VMAGENT_RUN_DIR: No such file or directory");
  }
}

TEST(VmDirectory, KeepsTheLastErrorOfARun) {
  const TestFolder run;
  const VmDirectory directory(run.path(), "guest0");
  directory.lastErrorIs("no disk");
  directory.lastErrorIs("no memory");
  EXPECT_EQ(contentOf(run / "vm/guest0/last-error"), "no memory\n");
  EXPECT_EQ(modeOf(run / "vm/guest0/last-error"), 0640);
  directory.lastErrorDel();
  EXPECT_EQ(modeOf(run / "vm/guest0/last-error"), -1);
}

// Its lock.

TEST(VmLock, HasOneKeeper) {
  const TestFolder run;
  const Holder other([&] {
    static VmLock held(run / "lock");
    return held.takeKeeping() && held.takeVm();
  });
  ASSERT_TRUE(other.made());
  VmLock lock(run / "lock");
  EXPECT_FALSE(lock.takeKeeping());
  EXPECT_EQ(lock.keeper(), other.pid());
  EXPECT_FALSE(lock.takeVm());
}

TEST(VmLock, CanBeOpenedByNobodyElseWhateverItsModeWas) {
  const TestFolder run;
  std::ofstream(run / "lock") << "";
  ASSERT_EQ(chmod((run / "lock").c_str(), 0660), 0);
  const VmLock lock(run / "lock");
  EXPECT_EQ(modeOf(run / "lock"), 0600);
}

TEST(VmLock, CanBeFilledByNoQemu) {
  const TestFolder run;
  VmLock lock(run / "lock");
  ASSERT_TRUE(lock.takeKeeping() && lock.takeVm());
  EXPECT_EQ(write(lock.number(), "x", 1), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(VmLock, IsFreeOnceItsHolderIsKilled) {
  const TestFolder run;
  Holder other([&] {
    static VmLock held(run / "lock");
    return held.takeKeeping() && held.takeVm();
  });
  other.end();
  VmLock lock(run / "lock");
  EXPECT_EQ(lock.keeper(), 0);
  EXPECT_TRUE(lock.takeKeeping());
  EXPECT_TRUE(lock.takeVm());
}

TEST(VmLock, HasASuccessorWhileItsGuestEnds) {
  const TestFolder run;
  const Holder other([&] {
    static VmLock held(run / "lock");
    const bool taken = held.takeKeeping() && held.takeVm();
    held.endKeeping();
    return taken;
  });
  ASSERT_TRUE(other.made());
  VmLock lock(run / "lock");
  EXPECT_TRUE(lock.takeKeeping());
  EXPECT_FALSE(lock.takeVm());
}

TEST(VmLock, OfTheVmIsHeldByWhoInheritedIt) {
  const TestFolder run;
  auto lock = std::make_unique<VmLock>(run / "lock");
  ASSERT_TRUE(lock->takeKeeping() && lock->takeVm());
  Holder child([] { return true; });
  lock.reset();
  VmLock next(run / "lock");
  EXPECT_TRUE(next.takeKeeping());
  EXPECT_FALSE(next.takeVm());
  child.end();
  EXPECT_TRUE(next.takeVm());
}

}  // namespace
}  // namespace shim
