#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <optional>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/base/Failure.h"
#include "shim/box/GuestUser.h"

namespace shim {
namespace {

using rt::fakes::TestFolder;

// None of them has a process.
constexpr guest::UserRange two{60001, 60002};
constexpr guest::UserRange one{60001, 60001};

std::string refusal(const std::string& locks, const guest::UserRange& range) {
  try {
    const GuestUser user(locks, range);
    return std::to_string(user.number());
  } catch (const Failure& error) {
    return error.what();
  }
}

// Another shim, which has one of the range until it is killed.
class OtherShim {
 public:
  OtherShim(const std::string& locks, const guest::UserRange& range) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      const GuestUser user(locks, range);
      const unsigned number = user.number();
      (void)!write(ends[1], &number, sizeof number);
      pause();
      _exit(0);
    }
    close(ends[1]);
    (void)!read(ends[0], &number_, sizeof number_);
    close(ends[0]);
  }
  OtherShim(const OtherShim&) = delete;
  ~OtherShim() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }

  unsigned number() const { return number_; }

 private:
  pid_t pid_ = 0;
  unsigned number_ = 0;
};

TEST(GuestUser, IsAnotherForEachShim) {
  const TestFolder folder;
  const OtherShim other(folder / "users", two);
  const GuestUser own(folder / "users", two);
  EXPECT_EQ(own.number() + other.number(), two.first + two.last);
}

TEST(GuestUser, IsNoneWhenAllAreTakenAndIsFreeOnceItsShimIsKilled) {
  const TestFolder folder;
  {
    const OtherShim other(folder / "users", one);
    EXPECT_EQ(refusal(folder / "users", one),
              "no user is left to run QEMU as: all of 60001-60001 are somebody's, or have "
              "processes; name others with --guest-users");
  }
  EXPECT_EQ(refusal(folder / "users", one), "60001");
}

TEST(GuestUser, IsNobodyWhoIsNamedOnTheMachine) {
  const TestFolder folder;
  constexpr guest::UserRange nobody{65534, 65534};
  EXPECT_THAT(refusal(folder / "users", nobody), testing::HasSubstr("somebody's"));
}

TEST(GuestUser, LeavesAFileThatNobodyElseMayOpen) {
  const TestFolder folder;
  const GuestUser user(folder / "users", one);
  EXPECT_EQ(rt::fakes::modeOf(folder / "users"), 0600);
}

}  // namespace
}  // namespace shim
