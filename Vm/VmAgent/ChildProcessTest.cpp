// A child process, and the machine that reaps it.
#include <fcntl.h>

#include <csignal>

#include "Vm/VmAgent/ChildProcess.h"
#include "Vm/VmAgent/fakes/AgentFixture.h"

namespace Vm {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using StatusCode = ChildProcess::StatusCode;

class ChildProcessTest : public AgentFixture {
 protected:
  ChildProcess::Ptr launch() {
    char program[] = "/bin/true";
    char* argv[] = {program, nullptr};
    return runCmd(argv);
  }
  // Launched and watched; nothing of it is left in traces and effects.
  ChildProcess::Ptr watched() {
    auto child = launch();
    recorder->watch(child);
    forget();
    return child;
  }
};

TEST_F(ChildProcessTest, IsLaunchedWithItsNameItsPidAndItsPipe) {
  const auto child = launch();
  EXPECT_EQ(child->name(), "ChildProcess-1000");
  EXPECT_EQ(child->pid(), 1000);
  EXPECT_EQ(child->status(), StatusCode::none);
  EXPECT_EQ(child->exitStatus(), 0);
  EXPECT_EQ(child->exitSignal(), 0);
  EXPECT_EQ(child->pipeFd()->name(), "Child1000Pipe");
  EXPECT_EQ(child->pipeFd()->parent(), child.get());
  EXPECT_EQ(child->childSm()->child(), child);
  EXPECT_EQ(child->childSm()->pipeFd(), child->pipeFd());
  EXPECT_TRUE(child->childSm()->initialized());
  EXPECT_THAT(said(), ElementsAre("8 Vm::ChildProcess::Ptr Vm::runCmd(char**) cmd ADDRESS"));
  EXPECT_THAT(effects.take(), ElementsAre("fork 1000"));
}

TEST_F(ChildProcessTest, IsWatchedForReadabilityOfAPipeEndThatNoGuestInherits) {
  const auto child = launch();
  const auto& pipe = *child->pipeFd();
  EXPECT_TRUE(pipe.nonBlocking());
  EXPECT_TRUE(pipe.notifyOnReadable());
  EXPECT_FALSE(pipe.notifyOnWritable());
  EXPECT_FALSE(pipe.notifyOnException());
  EXPECT_NE(fcntl(pipe.descriptor(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(fcntl(pipe.descriptor(), F_GETFL) & O_ACCMODE, O_RDONLY);
  EXPECT_NE(fcntl(pipe.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(ChildProcessTest, TracesTheVectorsAddress) {
  char program[] = "/bin/true";
  char* argv[] = {program, nullptr};
  runCmd(argv);
  std::ostringstream expected;
  expected << "8 Vm::ChildProcess::Ptr Vm::runCmd(char**) cmd " << static_cast<void*>(argv);
  EXPECT_THAT(traces.take(), ElementsAre(expected.str()));
}

TEST_F(ChildProcessTest, ThatRunsIsLeftAlone) {
  const auto child = watched();
  advance(60);
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_THAT(said(), IsEmpty());
}

TEST_F(ChildProcessTest, ThatExitsWithOneIsReapedInOrder) {
  const auto child = watched();
  processes.end(1000, 1 << 8);
  turn();
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000", "ChildProcess.exitStatus = 1",
                                          "ChildProcess.status = exited", "ChildProcess.childSm",
                                          "ChildProcess.pipeFd"));
  EXPECT_THAT(said(), ElementsAre("8 void Vm::ChildProcessSm::handlePipeFd()"));
  EXPECT_EQ(child->exitSignal(), 0);
  EXPECT_EQ(child->childSm(), nullptr);
  EXPECT_EQ(child->pipeFd(), nullptr);
}

TEST_F(ChildProcessTest, ThatExitsWithZeroTellsOfItsStatusOnly) {
  const auto child = watched();
  processes.end(1000, 0);
  turn();
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000", "ChildProcess.status = exited",
                                          "ChildProcess.childSm", "ChildProcess.pipeFd"));
  EXPECT_EQ(child->exitStatus(), 0);
}

TEST_F(ChildProcessTest, KilledByATermSignalIsReapedInOrder) {
  const auto child = watched();
  processes.end(1000, SIGTERM);
  turn();
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000", "ChildProcess.exitSignal = 15",
                                          "ChildProcess.status = signaled", "ChildProcess.childSm",
                                          "ChildProcess.pipeFd"));
  EXPECT_EQ(child->exitStatus(), 0);
}

TEST_F(ChildProcessTest, EndsWithTheCodeOrTheSignalOfItsWaitStatus) {
  struct End {
    int waitStatus;
    StatusCode status;
    int code;
    int signal;
  };
  for (const End& end :
       {End{127 << 8, StatusCode::exited, 127, 0}, End{255 << 8, StatusCode::exited, 255, 0},
        End{SIGKILL, StatusCode::signaled, 0, 9},
        End{SIGSEGV | 0x80, StatusCode::signaled, 0, 11},  // with a core
        End{SIGRTMAX, StatusCode::signaled, 0, 64}}) {
    const auto child = launch();
    processes.end(child->pid(), end.waitStatus);
    turn();
    EXPECT_EQ(child->status(), end.status) << end.waitStatus;
    EXPECT_EQ(child->exitStatus(), end.code) << end.waitStatus;
    EXPECT_EQ(child->exitSignal(), end.signal) << end.waitStatus;
  }
}

TEST_F(ChildProcessTest, HasItsPipeClosedWhenItIsReaped) {
  const auto child = launch();
  const auto pipe = child->pipeFd();
  const int number = pipe->descriptor();
  processes.end(1000);
  turn();
  EXPECT_EQ(pipe->descriptor(), -1);
  EXPECT_FALSE(fakes::isOpen(number));
}

TEST_F(ChildProcessTest, IsReapedOnce) {
  launch();
  processes.end(1000);
  turn();
  forget();
  advance(60);
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(ChildProcessTest, ThatNobodyHoldsIsReapedAndReleased) {
  auto child = launch();
  const auto pipe = child->pipeFd();
  child = nullptr;
  forget();
  processes.end(1000, 3 << 8);
  turn();
  EXPECT_THAT(effects.take(), ElementsAre("waitpid 1000"));
  EXPECT_EQ(pipe->references(), 1u);
}

TEST_F(ChildProcessTest, WithThePidZeroIsNotReaped) {
  const auto child = rt::make<ChildProcess>("ChildProcess-0", 0);
  const auto pipe = child->pipeFdIs("Child0Pipe");
  pipe->descriptorIs(fakes::fileWith("x").release());
  pipe->notifyOnReadableIs(true);
  child->childSmIs(child, pipe);
  turn();
  EXPECT_THAT(said(), ElementsAre("8 void Vm::ChildProcessSm::handlePipeFd()"));
  EXPECT_THAT(effects.take(), IsEmpty());
  EXPECT_EQ(child->status(), StatusCode::none);
  child->childSmDel();
  child->pipeFdDel();
}

TEST_F(ChildProcessTest, IsNotThereWithoutAPipe) {
  processes.failPipe = ENFILE;
  EXPECT_EQ(launch(), nullptr);
  EXPECT_THAT(said(), ElementsAre("8 Vm::ChildProcess::Ptr Vm::runCmd(char**) cmd ADDRESS",
                                  "1 runCmd FAIL: cannot open a pipe, err: 23"));
  EXPECT_THAT(effects.take(), IsEmpty());
}

TEST_F(ChildProcessTest, OfAFailedForkIsAChildThatHasEnded) {
  processes.failFork = true;
  const auto child = launch();
  EXPECT_EQ(child->name(), "ChildProcess--1");
  EXPECT_EQ(child->pid(), -1);
  EXPECT_EQ(child->pipeFd()->name(), "Child-1Pipe");
  EXPECT_EQ(child->status(), StatusCode::none);
  EXPECT_THAT(saidAt(1), IsEmpty());
  forget();
  turn();
  EXPECT_THAT(effects.take(), IsEmpty());  // above all no waitpid
  EXPECT_THAT(said(), ElementsAre("8 void Vm::ChildProcessSm::handlePipeFd()"));
  EXPECT_EQ(child->status(), StatusCode::exited);
  EXPECT_EQ(child->exitStatus(), 0);
  EXPECT_EQ(child->references(), 1u);
}

TEST_F(ChildProcessTest, ReturnsItsPipeWhenAskedForTheSameNameOnly) {
  const auto child = rt::make<ChildProcess>("ChildProcess-7", 7);
  const auto pipe = child->pipeFdIs("Child7Pipe");
  EXPECT_EQ(child->pipeFdIs("Child7Pipe"), pipe);
  EXPECT_EQ(refusalOf([&] { child->pipeFdIs("another"); }),
            "Vm::ChildProcess::pipeFd: it exists already with a different value");
  child->pipeFdDel();
  EXPECT_EQ(child->pipeFd(), nullptr);
  EXPECT_EQ(pipe->parent(), nullptr);
  child->pipeFdDel();  // a second time: nothing
}

TEST_F(ChildProcessTest, ReturnsItsMachineWhenAskedForTheSameInputsOnly) {
  const auto child = rt::make<ChildProcess>("ChildProcess-7", 7);
  const auto pipe = child->pipeFdIs("Child7Pipe");
  const auto machine = child->childSmIs(child, pipe);
  EXPECT_EQ(child->childSmIs(child, pipe), machine);
  for (const auto& refusal :
       {refusalOf([&] { child->childSmIs(child, rt::make<rt::FileDescriptor>("another")); }),
        refusalOf([&] { child->childSmIs(rt::make<ChildProcess>("another", 8), pipe); })})
    EXPECT_EQ(refusal, "Vm::ChildProcess::childSm: it exists already with a different value");
  child->childSmDel();
  EXPECT_EQ(child->childSm(), nullptr);
  child->childSmDel();
}

TEST_F(ChildProcessTest, ListsItsAttributes) {
  const auto child = launch();
  EXPECT_EQ(listing(*child), "[name] [pid] [pipeFd] [childSm] exitStatus exitSignal status");
  EXPECT_EQ(listing(*child->childSm()), "[child] [pipeFd] [initialized]");
  EXPECT_EQ(rt::attributeText(*child, "pid"), "1000");
  EXPECT_EQ(rt::attributeText(*child, "status"), "none");
  rt::attributeTextIs(*child, "status", "signaled");
  EXPECT_EQ(child->status(), StatusCode::signaled);
  EXPECT_THROW(rt::attributeTextIs(*child, "status", "ended"), rt::AttributeException);
  EXPECT_THROW(rt::attributeTextIs(*child, "exitStatus", "256"), rt::AttributeException);
}

TEST_F(ChildProcessTest, HasStatusCodesOfOneByteInOrder) {
  EXPECT_EQ(sizeof(StatusCode), 1u);
  EXPECT_EQ(static_cast<int>(StatusCode::none), 0);
  EXPECT_EQ(static_cast<int>(StatusCode::exited), 1);
  EXPECT_EQ(static_cast<int>(StatusCode::signaled), 2);
}

void reapAStoppedChild() {
  fakes::AgentWorld world;
  char program[] = "/bin/true";
  char* argv[] = {program, nullptr};
  runCmd(argv);
  world.processes.end(1000, SIGSTOP << 8 | 0x7F);
  world.turn();
}

TEST(ChildProcessDeathTest, ThatIsStoppedEndsTheProcess) {
  EXPECT_DEATH(reapAStoppedChild(), "ChildProcess.cpp:[0-9]+: assertion failed: 0\n");
}

}  // namespace

}  // namespace Vm
