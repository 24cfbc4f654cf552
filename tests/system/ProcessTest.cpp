// The agent's QEMU processes, for real: how they are started, and how their ends are seen.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "Vm/Monitor/fakes/QmpPeer.h"
#include "runtime/fakes/TraceRecorder.h"
#include "tests/system/PrivateMounts.h"
#include "tests/system/RealWorld.h"

namespace Vm {

namespace {

namespace fs = std::filesystem;
using fakes::OwnedDescriptor;
using fakes::QemuStart;
using testing::ElementsAre;
using testing::HasSubstr;
using StatusCode = ChildProcess::StatusCode;

class Processes : public testing::Test, public fakes::RealWorld {
 protected:
  Processes() : RealWorld(rootFactory) { start(); }

  // Switched on, and its QEMU has been told to let the guest run.
  VmConfig::Ptr addRunning(const std::string& name, const std::string& script = "") {
    auto added = addVm(name, script);
    added->enabledIs(true);
    EXPECT_TRUE(waitForAnswers(name));
    return added;
  }
  static bool isThere(int pid) { return fs::exists("/proc/" + std::to_string(pid)); }
  static std::string linkOf(int descriptor) {
    return fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
  }
  rt::fakes::TraceRecorder traces;

  static std::string ownSignals(const std::string& name) {
    std::ifstream file("/proc/self/status");
    for (std::string line; std::getline(file, line);)
      if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
    return {};
  }
};

TEST_F(Processes, AreStartedWithExactlyTheseWords) {
  const auto web1 = addVm("web1");
  web1->vncPortIs(5902);
  const auto card = web1->vnicConfigIs("nic0");
  card->modelIs("e1000");
  card->macAddrIs(rt::EthAddr(rt::String("52:54:00:00:00:01")));
  card->intfNameIs("Vlan100");
  web1->enabledIs(true);
  EXPECT_THAT(
      startOf("web1").args,
      ElementsAre("/usr/bin/qemu-system-x86_64", "-S", "-M", "pc", "-enable-kvm", "-smp", "1",
                  "-nodefaults", "-nodefconfig", "-no-user-config", "-rtc", "base=utc", "-chardev",
                  "pty,id=serial0", "-device", "isa-serial,chardev=serial0", "-m", "256", "-name",
                  "web1", "-chardev", "socket,id=monitor,path=/var/run/web1.monitor,server,nowait",
                  "-mon", "chardev=monitor,mode=control", "-usb", "-device", "usb-tablet,id=input0",
                  "-vnc", "0.0.0.0:2", "-device", "cirrus-vga", "-boot", "order=dc", "-drive",
                  "file=/var/run/disk.img,if=none,id=ide-drive0", "-device",
                  "ide-hd,drive=ide-drive0,bus=ide.0,unit=0", "-device",
                  "e1000,id=net0,mac=52:54:00:00:00:01"));
}

TEST_F(Processes, AreGivenABlankAsTheEndOfAWord) {
  addVm("two words", "")->enabledIs(false);
  // Its monitor's path is cut as well, so it is not waited for.
  auto** const argv = [this] {
    vm("two words")->doComposeQemuCommandLine();
    return static_cast<char**>(vm("two words")->allocArgvFromQemuCommandline());
  }();
  const auto child = runCmd(argv);
  vm("two words")->freeArgv(argv);
  // The scripted QEMU takes "/var/run/two" for its monitor's path.
  const auto args = startOf("two").args;
  fakes::signalProcess(child->pid(), SIGKILL);
  waitFor([&] { return child->status() != StatusCode::none; });
  const auto name = std::find(args.begin(), args.end(), "-name");
  ASSERT_NE(name, args.end());
  EXPECT_EQ(*(name + 1), "two");
  EXPECT_EQ(*(name + 2), "words");
}

TEST_F(Processes, HoldNothingOfOursButTheirStandardStreamsAndTheirPipe) {
  // A disk that cannot be read leaves a file open in the agent.
  std::ofstream("/var/run/short.img") << "short";
  const auto broken = addVm("broken");
  broken->diskImageIs("/var/run/short.img");
  broken->enabledIs(true);
  for (const char* name : {"web1", "web2", "web3"}) addRunning(name);
  for (const char* name : {"web1", "web2", "web3"}) {
    const QemuStart start = startOf(name);
    ASSERT_EQ(start.descriptors.size(), 4u) << testing::PrintToString(start.descriptors);
    for (const int number : {0, 1, 2})
      EXPECT_EQ(start.descriptors.count(number), 1u) << name << ' ' << number;
    EXPECT_EQ(start.descriptors.rbegin()->second,
              linkOf(vm(name)->qemuChildProcess()->pipeFd()->descriptor()))
        << name;
  }
}

TEST_F(Processes, InheritTheSignalsOfTheHost) {
  addRunning("web1");
  const QemuStart start = startOf("web1");
  EXPECT_EQ(start.blocked, ownSignals("SigBlk"));
  EXPECT_EQ(start.ignored, ownSignals("SigIgn"));
}

TEST_F(Processes, AreThoseThatTheAgentRecords) {
  addRunning("web1");
  const auto child = vm("web1")->qemuChildProcess();
  EXPECT_EQ(startOf("web1").pid, child->pid());
  EXPECT_EQ(child->name().str(), "ChildProcess-" + std::to_string(child->pid()));
  EXPECT_EQ(vmStatus("web1")->consolePtyPath(), "pty:/dev/pts/9");
}

TEST_F(Processes, ThatExitAreSeenWithTheirCode) {
  for (const int code : {0, 1, 7, 255}) {
    const std::string name = "exits-" + std::to_string(code);
    addVm(name, "monitor\nserve 400\nexit " + std::to_string(code) + "\n")->enabledIs(true);
    const auto child = vm(name)->qemuChildProcess();
    ASSERT_TRUE(waitForEnd(name)) << name;
    EXPECT_EQ(vmStatus(name)->state(), "Stopped") << name;
    EXPECT_EQ(child->status(), StatusCode::exited) << name;
    EXPECT_EQ(child->exitStatus(), code) << name;
    EXPECT_TRUE(vmStatus(name)->enabled());
    EXPECT_FALSE(isThere(child->pid()));
  }
}

TEST_F(Processes, ThatDieByASignalAreSeenWithIt) {
  for (const int signal : {SIGKILL, SIGSEGV, SIGABRT}) {
    const std::string name = "dies-" + std::to_string(signal);
    addVm(name, "monitor\nserve 400\nsignal " + std::to_string(signal) + "\n")->enabledIs(true);
    const auto child = vm(name)->qemuChildProcess();
    ASSERT_TRUE(waitForEnd(name)) << name;
    EXPECT_EQ(child->status(), StatusCode::signaled) << name;
    EXPECT_EQ(child->exitSignal(), signal) << name;
    EXPECT_EQ(vmStatus(name)->state(), "Stopped") << name;
  }
}

TEST_F(Processes, ThatAreSwitchedOffEndByATermSignal) {
  const auto web1 = addRunning("web1");
  const auto child = vm("web1")->qemuChildProcess();
  web1->enabledIs(false);
  ASSERT_TRUE(waitForEnd("web1"));
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  EXPECT_EQ(child->status(), StatusCode::signaled);
  EXPECT_EQ(child->exitSignal(), SIGTERM);
  EXPECT_FALSE(isThere(child->pid()));
}

TEST_F(Processes, OfARemovedVmAreReaped) {
  addRunning("web1");
  const int pid = vm("web1")->qemuChildProcess()->pid();
  config->vmConfigDel("web1");
  EXPECT_TRUE(isThere(pid));
  EXPECT_TRUE(waitFor([&] { return !isThere(pid); }));
}

TEST_F(Processes, ThatTakeTheirTimeToEndKeepANewOneFromBeingStarted) {
  const auto web1 = addRunning("web1", "ignore-sigterm\nmonitor\nserve 0\n");
  const int pid = vm("web1")->qemuChildProcess()->pid();
  web1->enabledIs(false);
  traces.take();
  web1->enabledIs(true);
  EXPECT_THAT(traces.take(), testing::Contains("8 startQemu qemuChildProcess with pid: <<" +
                                               std::to_string(pid) + " already exists"));
  EXPECT_FALSE(vmStatus("web1")->enabled());
  EXPECT_TRUE(isThere(pid));
  fakes::signalProcess(pid, SIGKILL);
  ASSERT_TRUE(waitForEnd("web1"));
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  web1->enabledIs(false);
  web1->enabledIs(true);
  EXPECT_TRUE(waitForAnswers("web1"));
  EXPECT_NE(vm("web1")->qemuChildProcess()->pid(), pid);
}

TEST_F(Processes, OutliveTheAgent) {
  addRunning("web1");
  const auto child = vm("web1")->qemuChildProcess();
  root->agentDel();
  manager.turn(rt::Seconds(0.05));
  EXPECT_EQ(child->status(), StatusCode::none);
  EXPECT_TRUE(isThere(child->pid()));
  fakes::signalProcess(child->pid(), SIGKILL);
  EXPECT_TRUE(waitFor([&] { return child->status() == StatusCode::signaled; }));
  root->agentIs(config, status, rt::make<Interface::AllIntfStatusDir>(),
                rt::make<Interface::AllIntfStatusLocalDir>(),
                rt::make<Interface::DeviceIntfStatusDir>(), rt::make<KernelNetInfo::Status>(),
                rt::make<Bridging::Input::Config>());
}

// Closes its descriptor when the process, or a copy of it, exits.
struct ClosedAtExit {
  ~ClosedAtExit() { descriptor.close(); }
  OwnedDescriptor descriptor;
} closedAtExit;

TEST_F(Processes, ThatCannotBeExecutedExitWith127AndTouchNothingOfOurs) {
  const OwnedDescriptor lock(open("/var/run/lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  closedAtExit.descriptor =
      OwnedDescriptor(open("/var/run/database", O_RDWR | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(write(closedAtExit.descriptor, "rows", 4), 4);
  ASSERT_EQ(flock(closedAtExit.descriptor, LOCK_EX), 0);
  const OwnedDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string("/var/run/host.sock").copy(address.sun_path, sizeof address.sun_path - 1);
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(listener, name, sizeof address), 0);
  ASSERT_EQ(listen(listener, 1), 0);

  char program[] = "/usr/bin/there-is-no-such-program";
  char* argv[] = {program, nullptr};
  const auto child = runCmd(argv);
  ASSERT_TRUE(waitFor([&] { return child->status() != StatusCode::none; }));
  EXPECT_EQ(child->status(), StatusCode::exited);
  EXPECT_EQ(child->exitStatus(), 127);

  for (const char* path : {"/var/run/lock", "/var/run/database"}) {
    const OwnedDescriptor other(open(path, O_RDWR | O_CLOEXEC));
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), -1) << path << " is not locked any more";
  }
  EXPECT_EQ(fs::file_size("/var/run/database"), 4u);
  EXPECT_TRUE(fakes::isOpen(closedAtExit.descriptor));
  const OwnedDescriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  EXPECT_EQ(connect(client, name, sizeof address), 0);
  closedAtExit.descriptor.close();
}

TEST_F(Processes, WithoutAQemuLeaveTheVmEnabledAndStopped) {
  fs::rename(fakes::qemuPath, "/usr/bin/.hidden");
  const auto web1 = addVm("web1");
  web1->enabledIs(true);  // ten seconds: the monitor is awaited
  fs::rename("/usr/bin/.hidden", fakes::qemuPath);
  EXPECT_TRUE(vmStatus("web1")->enabled());
  EXPECT_EQ(vmStatus("web1")->state(), "Starting");
  EXPECT_TRUE(waitForEnd("web1"));
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  EXPECT_THAT(traces.take(1), testing::Contains(HasSubstr("check if qemu process has died")));
}

TEST_F(Processes, WhoseMonitorComesLateAreConnectedAllTheSame) {
  addVm("late", "sleep 700\nmonitor\nserve 0\n")->enabledIs(true);
  EXPECT_TRUE(waitForAnswers("late"));
  const auto attempts = traces.take(1);
  EXPECT_THAT(attempts, testing::IsEmpty());
}

TEST_F(Processes, ThatCloseTheirMonitorOnlyAreConnectedAgain) {
  addVm("web1", "monitor\nserve 500\nclose\nserve 0\n")->enabledIs(true);
  const int pid = vm("web1")->qemuChildProcess()->pid();
  const auto session = vm("web1")->monSm();
  ASSERT_TRUE(waitFor([&] { return vm("web1")->monSm() != session; }));
  EXPECT_TRUE(waitForAnswers("web1"));
  EXPECT_EQ(vm("web1")->qemuChildProcess()->pid(), pid);
}

}  // namespace

}  // namespace Vm
