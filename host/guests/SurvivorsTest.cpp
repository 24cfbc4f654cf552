// Guests that an earlier daemon left, with real processes in their place.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "host/fakes/FakeShims.h"
#include "host/guests/Survivors.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"

namespace host {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr const char* qemu = "/usr/bin/qemu-system-x86_64";

std::string monitorOf(const std::string& vm) {
  return "socket,id=monitor,path=/var/run/" + vm + ".monitor,server,nowait";
}

// The words as the kernel shows them.
std::string line(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += word + '\0';
  return text;
}

TEST(VmOnCommandLine, IsNamedByTheMonitor) {
  EXPECT_EQ(vmOnCommandLine(line({qemu, "-chardev", monitorOf("web1"), "-m", "256"})), "web1");
}

TEST(VmOnCommandLine, IsFoundInTheLastWordWithoutItsEnd) {
  std::string text = line({qemu, monitorOf("a.b-c_1")});
  text.pop_back();
  EXPECT_EQ(vmOnCommandLine(text), "a.b-c_1");
}

TEST(VmOnCommandLine, IsNoneOfAnotherProgram) {
  EXPECT_EQ(vmOnCommandLine(line({"/usr/bin/kvm", "-chardev", monitorOf("web1")})), "");
  EXPECT_EQ(vmOnCommandLine(line({"vim", qemu, monitorOf("web1")})), "");
  EXPECT_EQ(vmOnCommandLine(line({std::string(qemu) + "-old", monitorOf("web1")})), "");
}

TEST(VmOnCommandLine, IsNoneWithoutAMonitorOfOurs) {
  for (const std::string word : {"socket,id=monitor,path=/tmp/web1.monitor,server,nowait",
                                 "socket,id=monitor,path=/var/run/web1.monitor,server",
                                 "socket,id=other,path=/var/run/web1.monitor,server,nowait",
                                 "socket,id=monitor,path=/var/run/.monitor,server,nowait", "web1"})
    EXPECT_EQ(vmOnCommandLine(line({qemu, "-chardev", word})), "") << word;
}

TEST(VmOnCommandLine, IsNoneOfAnEmptyLine) {
  EXPECT_EQ(vmOnCommandLine(""), "");
  EXPECT_EQ(vmOnCommandLine(std::string_view("\0", 1)), "");
  EXPECT_EQ(vmOnCommandLine(qemu), "");
}

// A shell with a guest's command line, which waits until it is killed. Ends with this.
class FakeGuest {
 public:
  enum class Manner { yielding, stubborn };  // stubborn: SIGTERM does not end it

  FakeGuest(std::string vm, Manner manner, const std::string& program = "/bin/sh")
      : vm_(std::move(vm)) {
    const std::string word = monitorOf(vm_);
    const char* const script =
        manner == Manner::stubborn ? "trap '' TERM; echo; read never" : "echo; read never";
    const char* const words[] = {qemu, "-c", script, word.c_str(), nullptr};
    int in[2] = {-1, -1};
    int out[2] = {-1, -1};
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      dup2(in[0], STDIN_FILENO);
      dup2(out[1], STDOUT_FILENO);
      execv(program.c_str(), const_cast<char* const*>(words));
      _exit(127);
    }
    close(in[0]);
    close(out[1]);
    stdin_ = in[1];
    char ready = 0;
    EXPECT_EQ(read(out[0], &ready, 1), 1);
    close(out[0]);
  }
  FakeGuest(const FakeGuest&) = delete;
  ~FakeGuest() {
    if (pid_ > 0) kill(pid_, SIGKILL);
    wait();
    close(stdin_);
  }

  GuestProcess process() const { return {vm_, pid_}; }
  // The signal that ended it, 0 for none. To be called once it has ended, or is to be waited for.
  int wait() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, 0) != pid_) return 0;
    pid_ = 0;
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }

 private:
  const std::string vm_;
  pid_t pid_ = 0;
  int stdin_ = -1;
};

// A name that no other process of the machine has on its command line.
std::string own(const char* name) { return "test" + std::to_string(getpid()) + name; }

class SurvivorsTest : public testing::Test {
 protected:
  SurvivorsTest() { shims.gone = {own("web1"), own("web2")}; }

  Survivors::Ptr survivors(const std::vector<GuestProcess>& guests) {
    return rt::make<Survivors>(
        guests, shims, patience,
        [this](const rt::String& vm, size_t left) {
          told.push_back(vm.str() + " " + std::to_string(left));
        },
        clock);
  }
  // Until that many are left; fails after long.
  void turnUntilLeft(const Survivors& all, size_t left) {
    for (int i = 0; i < 1000 && all.left() > left; ++i) manager.turn(rt::Seconds(0.05));
    EXPECT_EQ(all.left(), left);
  }

  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  rt::fakes::TraceRecorder traces;
  rt::Seconds patience{0};
  std::vector<std::string> asked;  // "ask web1"
  fakes::FakeShims shims{asked};
  std::vector<std::string> told;
};

TEST_F(SurvivorsTest, AreLookedForAmongProcessesThatEndMeanwhile) {
  for (int round = 0; round < 20; ++round) {
    std::vector<pid_t> children;
    for (int i = 0; i < 20; ++i) {
      const pid_t child = fork();
      if (child == 0) _exit(0);
      children.push_back(child);
    }
    EXPECT_NO_THROW((void)guestProcesses());
    for (const pid_t child : children) waitpid(child, nullptr, 0);
  }
}

TEST_F(SurvivorsTest, AreFoundByTheirCommandLine) {
  const FakeGuest guest(own("web1"), FakeGuest::Manner::yielding);
  EXPECT_THAT(guestProcesses(),
              Contains(testing::AllOf(Field(&GuestProcess::vm, own("web1")),
                                      Field(&GuestProcess::pid, guest.process().pid))));
}

TEST_F(SurvivorsTest, AreAskedToEndAtOnceAndToldOfWhenTheyAreGone) {
  FakeGuest guest(own("web1"), FakeGuest::Manner::yielding);
  const auto all = survivors({guest.process()});
  EXPECT_THAT(told, ElementsAre(own("web1") + " 1"));
  EXPECT_THAT(traces.take(1),
              ElementsAre("vmagentd: VM " + own("web1") +
                          ": ending the guest that an earlier daemon left (process " +
                          std::to_string(guest.process().pid) + ")"));
  turnUntilLeft(*all, 0);
  EXPECT_THAT(told, ElementsAre(own("web1") + " 1", own("web1") + " 0"));
  EXPECT_EQ(guest.wait(), SIGTERM);
}

// Of two signals that wait for a process the kernel delivers the lower one first.
TEST_F(SurvivorsTest, ThatAreAskedByTheirShimsAreNotSignalledMeanwhile) {
  shims.gone.clear();
  FakeGuest guest(own("web1"), FakeGuest::Manner::yielding);
  const auto all = survivors({guest.process()});
  EXPECT_THAT(asked, ElementsAre("ask " + own("web1")));
  ASSERT_EQ(kill(guest.process().pid, SIGXCPU), 0);
  EXPECT_EQ(guest.wait(), SIGXCPU);
}

TEST_F(SurvivorsTest, AreKilledWhenPatienceIsAtItsEnd) {
  FakeGuest guest(own("web1"), FakeGuest::Manner::stubborn);
  const auto all = survivors({guest.process()});
  clock->advance(Survivors::leastPatience - rt::Seconds(0.001));
  EXPECT_EQ(all->left(), 1U);
  clock->advance(rt::Seconds(0.001));
  turnUntilLeft(*all, 0);
  EXPECT_EQ(guest.wait(), SIGKILL);
}

TEST_F(SurvivorsTest, ThatComeLaterHaveAsMuchTime) {
  FakeGuest first(own("web1"), FakeGuest::Manner::stubborn);
  FakeGuest second(own("web2"), FakeGuest::Manner::stubborn);
  const auto all = survivors({first.process()});
  clock->advance(Survivors::leastPatience - rt::Seconds(1));
  all->add({second.process()});
  EXPECT_THAT(told, ElementsAre(own("web1") + " 1", own("web2") + " 1"));
  clock->advance(rt::Seconds(1));
  turnUntilLeft(*all, 1);
  EXPECT_EQ(first.wait(), SIGKILL);
  clock->advance(Survivors::leastPatience - rt::Seconds(1.5));
  EXPECT_EQ(all->left(), 1U);
  clock->advance(rt::Seconds(0.5));
  turnUntilLeft(*all, 0);
  EXPECT_EQ(second.wait(), SIGKILL);
}

TEST_F(SurvivorsTest, AreCountedByTheirVm) {
  FakeGuest first(own("web1"), FakeGuest::Manner::yielding);
  FakeGuest second(own("web1"), FakeGuest::Manner::stubborn);
  FakeGuest other(own("web2"), FakeGuest::Manner::stubborn);
  const auto all = survivors({first.process(), second.process(), other.process()});
  EXPECT_THAT(told, testing::UnorderedElementsAre(own("web1") + " 2", own("web1") + " 2",
                                                  own("web2") + " 1"));
  told.clear();
  turnUntilLeft(*all, 2);
  EXPECT_THAT(told, ElementsAre(own("web1") + " 1"));
  clock->advance(Survivors::leastPatience);
  turnUntilLeft(*all, 0);
  EXPECT_THAT(told, Contains(own("web1") + " 0"));
  EXPECT_THAT(told, Contains(own("web2") + " 0"));
}

TEST_F(SurvivorsTest, AreNotAProcessThatHasTheNumberOfOneByNow) {
  FakeGuest guest(own("web1"), FakeGuest::Manner::yielding);
  const auto all = survivors({{own("web2"), guest.process().pid}});
  EXPECT_EQ(all->left(), 0U);
  EXPECT_EQ(kill(guest.process().pid, 0), 0) << "it was not signalled";
  EXPECT_THAT(guestProcesses(), Contains(Field(&GuestProcess::vm, own("web1"))));
}

// Anybody may start it, with words of his choice, and it is ours then.
TEST_F(SurvivorsTest, AreNoProgramThatChangesItsUserWhenItIsStarted) {
  const std::string program = testing::TempDir() + own("program");
  std::filesystem::copy("/bin/sh", program);
  for (const mode_t mode : {04755U, 02755U}) {
    ASSERT_EQ(chmod(program.c_str(), mode), 0);
    const FakeGuest guest(own("web1"), FakeGuest::Manner::yielding, program);
    EXPECT_THAT(guestProcesses(), testing::Not(Contains(Field(&GuestProcess::vm, own("web1")))));
    const auto all = survivors({guest.process()});
    EXPECT_EQ(all->left(), 0U);
    EXPECT_EQ(kill(guest.process().pid, 0), 0) << "it was not signalled";
  }
  std::filesystem::remove(program);
}

TEST_F(SurvivorsTest, MayRunAProgramThatIsNotThereAnyMore) {
  const std::string program = testing::TempDir() + own("program");
  std::filesystem::copy("/bin/sh", program);
  const FakeGuest guest(own("web1"), FakeGuest::Manner::yielding, program);
  std::filesystem::remove(program);
  EXPECT_THAT(guestProcesses(), Contains(Field(&GuestProcess::pid, guest.process().pid)));
}

TEST_F(SurvivorsTest, AreNotOneThatHasGoneMeanwhile) {
  GuestProcess gone;
  {
    const FakeGuest guest(own("web1"), FakeGuest::Manner::yielding);
    gone = guest.process();
  }
  const auto all = survivors({gone});
  EXPECT_EQ(all->left(), 0U);
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(SurvivorsTest, ThatAreOnlyWatchedAreLeftAloneAndToldOfWhenTheyAreGone) {
  FakeGuest guest(own("web1"), FakeGuest::Manner::yielding);
  const auto all = survivors({});
  all->watch({guest.process()});
  EXPECT_THAT(told, ElementsAre(own("web1") + " 1"));
  EXPECT_THAT(asked, IsEmpty());
  clock->advance(rt::Seconds(3600));
  EXPECT_EQ(all->left(), 1U);
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
  ASSERT_EQ(kill(guest.process().pid, SIGKILL), 0);
  turnUntilLeft(*all, 0);
  EXPECT_THAT(told, ElementsAre(own("web1") + " 1", own("web1") + " 0"));
}

TEST_F(SurvivorsTest, ThatWereOnlyWatchedCanBeEndedLaterAndForgottenBefore) {
  FakeGuest first(own("web1"), FakeGuest::Manner::yielding);
  FakeGuest second(own("web2"), FakeGuest::Manner::yielding);
  const auto all = survivors({});
  all->watch({first.process(), second.process()});
  told.clear();
  all->forget(own("web2"));
  EXPECT_EQ(all->left(), 1U);
  EXPECT_THAT(told, IsEmpty());
  all->add({first.process()});
  all->forget(own("web1"));
  EXPECT_EQ(all->left(), 1U) << "it is to end";
  turnUntilLeft(*all, 0);
  EXPECT_EQ(first.wait(), SIGTERM);
  EXPECT_EQ(kill(second.process().pid, 0), 0);
}

TEST_F(SurvivorsTest, NeverWakeTheLoopWhenThereAreNone) {
  const auto all = survivors({});
  manager.turn(rt::Seconds(0));
  EXPECT_EQ(clock->nextWakeUpTime(), rt::Seconds::infinity());
}

}  // namespace
}  // namespace host
