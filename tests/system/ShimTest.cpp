// The shim with a real QEMU, which runs a guest of one sector, and with QEMUs that misbehave.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "runtime/base/fakes/TestFolder.h"
#include "shim/fakes/ShimProcess.h"
#include "shim/fakes/ShimWorld.h"
#include "shim/keep/ListeningSocket.h"
#include "tests/system/KernelSandbox.h"
#include "tests/system/PrivateMounts.h"

namespace shim {
namespace {

using fakes::AgentClient;
using fakes::becomesReadable;
using fakes::comesToHold;
using fakes::exited;
using fakes::queryStatus;
using fakes::readUntil;
using fakes::realQemu;
using fakes::ShimProcess;
using fakes::signaled;
using rt::fakes::contentOf;
using rt::fakes::modeOf;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class Shim : public fakes::ShimWorld {};

// A guest's life.

TEST_F(Shim, BringsAGuestUp) {
  const auto shim = start();
  AgentClient agent(monitor());
  EXPECT_THAT(agent.line(), StartsWith(R"({"QMP": {"version": )"));
  EXPECT_EQ(agent.ask(R"({ "execute": "qmp_capabilities","id": "enter" })"),
            R"({"return": {}, "id": "enter"})");
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": false)"));
  EXPECT_EQ(agent.ask(R"({ "execute": "cont","id": "cont" })"), R"({"return": {}, "id": "cont"})");
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
}

TEST_F(Shim, OffersTheConsoleAtAPtyAndKeepsItsLog) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const std::string path = agent.console();
  EXPECT_THAT(path, StartsWith("/dev/pts/"));
  const rt::Descriptor terminal = openTerminal(path);
  EXPECT_THAT(readUntil(terminal, "BOOTSECTOR READY\r\n"), HasSubstr("BOOTSECTOR READY\r\n"));
  ASSERT_EQ(write(terminal.number(), "hello", 5), 5);
  EXPECT_THAT(readUntil(terminal, "hello"), HasSubstr("hello"));
  EXPECT_TRUE(comesToHold(file("console.log"), "hello"));
  EXPECT_THAT(contentOf(file("console.log")), HasSubstr("BOOTSECTOR READY\r\n"));
}

TEST_F(Shim, NamesTheMonitorAsTheSocketThatTheAgentAskedFor) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_THAT(agent.ask(R"({ "execute": "query-chardev","id": "chardev" })"),
              HasSubstr(R"("filename": "unix:)" + monitor() + R"(,server=on")"));
}

TEST_F(Shim, ShowsTheScreenOnASocketOnceQemuCanAndAsLongAsItRuns) {
  const std::string late = script("sleep 0.5\nexec " + std::string(realQemu) + " \"$@\"");
  std::vector<std::string> words = arguments();
  std::replace(words.begin(), words.end(), std::string("-nographic"), std::string("-vnc"));
  words.insert(std::find(words.begin(), words.end(), "-vnc") + 1, "0.0.0.0:3");
  ShimProcess shim(VMAGENT_SHIM, words, environment(late));
  const AgentClient agent(monitor());
  ASSERT_TRUE(comesToHold(file("shim.log"), "-vnc none"));
  const rt::Descriptor early = connectionTo(file("vnc.sock"));
  const rt::Descriptor second = connectionTo(file("vnc.sock"));
  EXPECT_EQ(readUntil(early, "\n"), "RFB 003.008\n");
  EXPECT_EQ(readUntil(second, "\n"), "RFB 003.008\n");
  shim.signal(SIGTERM);
  EXPECT_EQ(exited(shim.wait()), 0) << shim.errors();
  EXPECT_EQ(modeOf(file("vnc.sock")), -1);
}

TEST_F(Shim, WithoutAScreenLeavesNoneOfAnEarlierRun) {
  std::filesystem::create_directories(folder / "vm/guest0");
  std::ofstream(file("vnc.sock")) << "";
  const auto shim = start();
  const AgentClient agent(monitor());
  ASSERT_TRUE(comesToHold(file("shim.log"), "started as"));
  EXPECT_EQ(modeOf(file("vnc.sock")), -1);
}

TEST_F(Shim, KeepsItsFilesFromOthers) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_EQ(modeOf(file("lock")), 0600);
  for (const char* const name : {"console.log", "shim.log"})
    EXPECT_EQ(modeOf(file(name)), 0640) << name;
  for (const char* const name : {"console.sock", "shim.sock"})
    EXPECT_EQ(modeOf(file(name)), 0660) << name;
  EXPECT_EQ(modeOf(folder / "vm/guest0"), 02750);
  EXPECT_EQ(modeOf(monitor()), 0600);
}

TEST_F(Shim, GoesOnThoughItMayOpenFewerDescriptorsThanItHas) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const rlimit one{1, 1};
  ASSERT_EQ(prlimit(shim->pid(), RLIMIT_NOFILE, &one, nullptr), 0);
  for (int i = 0; i < 2; ++i) EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  const rt::Descriptor refused = connectionTo(file("shim.sock"));
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  shim->signal(SIGTERM);
  EXPECT_EQ(exited(shim->wait()), 0) << shim->errors();
}

TEST_F(Shim, GivesItsQemuNothingOfItsEnvironment) {
  auto told = environment();
  told["TOKEN"] = "secret";
  const ShimProcess shim(VMAGENT_SHIM, arguments(), told);
  AgentClient agent(monitor());
  agent.bringUp();
  const std::string process = "/proc/" + std::to_string(shim.qemu());
  EXPECT_THAT(contentOf(process + "/cmdline"), HasSubstr("guest0"));
  EXPECT_EQ(contentOf(process + "/environ"), "");
}

TEST_F(Shim, HandsItsQemuTheLockAndNoPipeOfTheAgents) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const std::string descriptors = "/proc/" + std::to_string(shim->qemu()) + "/fd";
  std::vector<std::string> open;
  for (const auto& entry : std::filesystem::directory_iterator(descriptors))
    open.push_back(std::filesystem::read_symlink(entry.path()).string());
  char pipe[64];
  struct stat ours {};
  fstat(shim->pipe().number(), &ours);
  std::snprintf(pipe, sizeof pipe, "pipe:[%lu]", static_cast<unsigned long>(ours.st_ino));
  EXPECT_THAT(open, Not(Contains(pipe)));
  EXPECT_THAT(open, Contains(file("lock")));
  EXPECT_EQ(std::filesystem::read_symlink(descriptors + "/0"), "/dev/null");
}

TEST_F(Shim, SleepsWhileNothingHappens) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const rt::Descriptor terminal = openTerminal(agent.console());
  readUntil(terminal, "BOOTSECTOR READY\r\n.\r\n");
  agent.ask(queryStatus);
  const auto switches = [&] {
    const std::string status = contentOf("/proc/" + std::to_string(shim->pid()) + "/status");
    return status.substr(status.find("voluntary_ctxt_switches"));
  };
  // Its answer was out before it slept; how soon it does, is up to the machine.
  const auto sleepsForASecond = [&] {
    const std::string before = switches();
    EXPECT_FALSE(becomesReadable(agent.socket().number(), 1'000));
    return switches() == before;
  };
  bool sleeps = false;
  for (int i = 0; i < 20 && !sleeps; ++i) sleeps = sleepsForASecond();
  EXPECT_TRUE(sleeps);
}

// Its end.

TEST_F(Shim, EndsAsItsGuestPowersOff) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const rt::Descriptor terminal = openTerminal(agent.console());
  readUntil(terminal, "BOOTSECTOR READY\r\n");
  ASSERT_EQ(write(terminal.number(), "\x04", 1), 1);
  EXPECT_EQ(exited(shim->wait()), 0);
  EXPECT_EQ(modeOf(monitor()), -1);
  EXPECT_EQ(modeOf(file("last-error")), -1);
}

TEST_F(Shim, ToldToEndEndsItsGuest) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const pid_t qemu = shim->qemu();
  shim->signal(SIGTERM);
  EXPECT_EQ(exited(shim->wait()), 0);
  EXPECT_TRUE(fakes::ends(qemu));
  EXPECT_EQ(modeOf(monitor()), -1);
  EXPECT_EQ(modeOf(file("last-error")), -1);
  EXPECT_THAT(contentOf(file("shim.log")), HasSubstr("asks QEMU to quit"));
}

TEST_F(Shim, TellsTheAgentOfTheEndBeforeItHangsUp) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_TRUE(fakes::signalProcess(shim->qemu(), SIGKILL));
  pollfd polled[] = {{shim->pipe().number(), POLLIN, 0}, {agent.socket().number(), POLLIN, 0}};
  ASSERT_GT(poll(polled, 2, fakes::amplePatience), 0);
  EXPECT_NE(polled[0].revents, 0);
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
  EXPECT_EQ(agent.line(), "");
}

TEST_F(Shim, ThatFailsEndsThoughNobodyReadsItsStandardError) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const rt::Descriptor reading(ends[0]);
  const rt::Descriptor writing(ends[1]);
  fcntl(writing.number(), F_SETFL, O_NONBLOCK);
  while (write(writing.number(), "xxxx", 4) > 0) {
  }
  fcntl(writing.number(), F_SETFL, 0);
  const pid_t shim = fork();
  if (shim == 0) {
    dup2(writing.number(), STDERR_FILENO);
    execl(VMAGENT_SHIM, "vmagent-shim", nullptr);
    _exit(127);
  }
  const rt::Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, shim, 0)));
  const bool hasEnded = becomesReadable(process.number());
  EXPECT_TRUE(hasEnded);
  if (!hasEnded) fakes::signalProcess(shim, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(shim, &status, 0), shim);
  EXPECT_EQ(exited(status), 1);
}

TEST_F(Shim, EndsByTheSignalThatEndedItsQemu) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_TRUE(fakes::signalProcess(shim->qemu(), SIGKILL));
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
  EXPECT_EQ(contentOf(file("last-error")), "QEMU was ended by signal 9\n");
  EXPECT_EQ(modeOf(monitor()), -1);
}

TEST_F(Shim, EndsByAFaultWithoutACore) {
  const auto shim = start(script("kill -SEGV $$"));
  const int status = shim->wait();
  EXPECT_EQ(signaled(status), SIGSEGV);
  EXPECT_FALSE(WCOREDUMP(status));
}

TEST_F(Shim, EndsWithTheStatusOfItsQemu) {
  const auto shim = start(script("echo starting; echo no room >&2; exit 37"));
  EXPECT_EQ(exited(shim->wait()), 37);
  EXPECT_EQ(contentOf(file("last-error")), "no room\n");
  EXPECT_THAT(contentOf(file("shim.log")),
              AllOf(HasSubstr(" qemu: starting\n"), HasSubstr(" qemu: no room\n"),
                    HasSubstr("QEMU ended with status 37")));
}

TEST_F(Shim, SaysWhyQemuFailedAtOnce) {
  // As another QEMU locks it.
  const rt::Descriptor disk(open((folder / "disk.img").c_str(), O_RDWR | O_CLOEXEC));
  struct flock noOtherWriter {};
  noOtherWriter.l_type = F_RDLCK;
  noOtherWriter.l_start = 201;
  noOtherWriter.l_len = 1;
  ASSERT_EQ(fcntl(disk.number(), F_OFD_SETLK, &noOtherWriter), 0);
  const auto shim = start();
  EXPECT_EQ(exited(shim->wait()), 1);
  EXPECT_EQ(contentOf(file("last-error")),
            "Is another process using the image [" + (folder / "disk.img") + "]?\n");
}

TEST_F(Shim, SaysThatThereIsNoQemu) {
  const auto shim = start("/nowhere/qemu");
  EXPECT_EQ(exited(shim->wait()), 127);
  EXPECT_EQ(contentOf(file("last-error")),
            "QEMU /nowhere/qemu cannot be run: No such file or directory\n");
}

TEST_F(Shim, ForgetsTheLastErrorOfTheRunBefore) {
  start(script("echo bad; exit 1"))->wait();
  ASSERT_NE(contentOf(file("last-error")), "");
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_EQ(modeOf(file("last-error")), -1);
}

TEST_F(Shim, KilledTakesItsQemuAlong) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const pid_t qemu = shim->qemu();
  ASSERT_GT(qemu, 0);
  shim->signal(SIGKILL);
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
  EXPECT_TRUE(fakes::ends(qemu));
}

TEST_F(Shim, StartsAgainAfterItWasKilled) {
  {
    const auto shim = start();
    AgentClient(monitor()).bringUp();
    shim->signal(SIGKILL);
    shim->wait();
  }
  const auto shim = start();
  AgentClient agent(monitor());
  EXPECT_THAT(agent.line(), StartsWith(R"({"QMP": )"));
}

// Two of one VM.

TEST_F(Shim, IsRefusedWhileAnotherKeepsTheGuest) {
  const auto first = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const auto second = start();
  EXPECT_EQ(exited(second->wait()), 1);
  EXPECT_EQ(second->errors(),
            "vmagent-shim: VM 'guest0' runs already, kept by process " +
                std::to_string(first->pid()) + " (adopt: the guest is kept for process " +
                std::to_string(getpid()) + ", which lives): end that process first, with 'kill " +
                std::to_string(first->pid()) + "'\n");
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_EQ(modeOf(monitor()), 0600);
}

TEST_F(Shim, WaitsForAGuestThatIsEnding) {
  const auto first = start(script("trap '' TERM\necho up\nexec sleep 1000", "deaf.sh"));
  ASSERT_TRUE(comesToHold(file("shim.log"), "qemu: up"));
  first->signal(SIGTERM);
  ASSERT_TRUE(comesToHold(file("shim.log"), "sends SIGTERM"));
  const auto second = start(script("exit 7"));
  EXPECT_EQ(signaled(first->wait()), SIGKILL);
  EXPECT_EQ(exited(second->wait()), 7);
}

TEST_F(Shim, RefusesACommandLineWithoutAName) {
  ShimProcess shim(VMAGENT_SHIM, {"-S"}, {});
  EXPECT_EQ(exited(shim.wait()), 1);
  EXPECT_EQ(shim.errors(), "vmagent-shim: the command line names no VM: it must have -name NAME\n");
}

// Trouble.

TEST_F(Shim, AnswersForAQemuThatStandsStill) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  const pid_t qemu = shim->qemu();
  EXPECT_TRUE(fakes::signalProcess(qemu, SIGSTOP));
  EXPECT_EQ(agent.ask(queryStatus),
            R"({"id": "status", "error": {"class": "GenericError", "desc": )"
            R"("QEMU does not answer"}})");
  EXPECT_EQ(agent.ask(R"({"execute": "netdev_del", "arguments": {"id": "h"}, "id": "netdev"})"),
            R"({"return": {}, "id": "netdev"})");
  EXPECT_TRUE(fakes::signalProcess(qemu, SIGCONT));
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
  EXPECT_TRUE(comesToHold(file("shim.log"), "problem: netdev_del h: Device 'h' not found"));
}

TEST_F(Shim, KillsAQemuThatStandsStillWhenToldOftenEnough) {
  const auto shim = start();
  AgentClient agent(monitor());
  agent.bringUp();
  EXPECT_TRUE(fakes::signalProcess(shim->qemu(), SIGSTOP));
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) shim->signal(signal);
  EXPECT_EQ(signaled(shim->wait()), SIGKILL);
}

TEST_F(Shim, ServesOneAgentAtATime) {
  const auto shim = start();
  auto first = std::make_unique<AgentClient>(monitor());
  first->bringUp();
  AgentClient second(monitor());
  for (int i = 0; i < 3; ++i) EXPECT_THAT(first->ask(queryStatus), HasSubstr(R"("running": true)"));
  first.reset();
  EXPECT_THAT(second.line(), StartsWith(R"({"QMP": )"));
}

TEST_F(Shim, ServesAnAgentThatComesAgain) {
  const auto shim = start();
  {
    AgentClient agent(monitor());
    agent.bringUp();
  }
  AgentClient agent(monitor());
  EXPECT_THAT(agent.line(), StartsWith(R"({"QMP": )"));
  EXPECT_EQ(agent.ask(R"({ "execute": "qmp_capabilities","id": "enter" })"),
            R"({"return": {}, "id": "enter"})");
  EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
}

// The kernel sandbox's /dev is empty: with what a QEMU and a pty need.
std::string furnishDev() {
  const auto node = [](const char* path, unsigned minor) {
    return mknod(path, S_IFCHR | 0666, makedev(1, minor)) == 0;
  };
  constexpr unsigned nullMinor = 3;
  constexpr unsigned urandomMinor = 9;
  if (!node("/dev/null", nullMinor) || !node("/dev/urandom", urandomMinor) ||
      mkdir("/dev/pts", 0755) != 0 ||
      mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666,mode=620") != 0 ||
      symlink("pts/ptmx", "/dev/ptmx") != 0)
    return "the right to make devices and pseudo terminals of its own";
  return {};
}

std::string enterSandbox() {
  if (access(realQemu, X_OK) != 0) return "QEMU (qemu-system-x86)";
  std::string needs = Vm::fakes::enterKernelSandbox();
  return needs.empty() ? furnishDev() : needs;
}

}  // namespace
}  // namespace shim

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests)) {
    // A pipe of whoever started us would be the daemon's to a shim.
    close_range(3, ~0U, 0);
    if (const auto needs = shim::enterSandbox(); !needs.empty())
      return Vm::fakes::leaveOut("shim_system_test", needs);
  }
  return RUN_ALL_TESTS();
}
