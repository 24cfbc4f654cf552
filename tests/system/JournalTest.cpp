// The daemon under a real journal.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>

#include "tests/system/DaemonWorld.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A process of ours, until we go.
class Process {
 public:
  explicit Process(std::vector<std::string> words) : pid_(fork()) {
    if (pid_ != 0) return;
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  Process(const Process&) = delete;
  ~Process() {
    for (const int number : {SIGTERM, SIGCONT}) signal(number);
    waitpid(pid_, nullptr, 0);
  }

  void signal(int number) const { Vm::fakes::signalProcess(pid_, number); }

 private:
  const pid_t pid_;
};

// Its sockets, its files and how it is configured are on the tests' own /run.
class Journal : public testing::Test {
 protected:
  void SetUp() override {
    for (const char* place : {"/run/systemd/journal", "/run/systemd/journald.conf.d", "/run/log"})
      fs::create_directories(place);
    // Nothing of the machine's: what the kernel says, and whether it audits.
    std::ofstream("/run/systemd/journald.conf.d/tests.conf")
        << "[Journal]\nStorage=volatile\nReadKMsg=no\nAudit=\n";
    // Where it looks up its writers. The tests' /sys came without.
    ASSERT_EQ(mount("none", "/sys/fs/cgroup", "cgroup2", 0, nullptr), 0) << std::strerror(errno);
    journal_.emplace(std::vector<std::string>{"/lib/systemd/systemd-journald"});
    const bool isUp = waitUntil([] {
      return run({"/usr/bin/systemd-cat", "/usr/bin/true"}).status == 0;
    });
    ASSERT_TRUE(isUp) << "systemd-journald did not start";
  }
  // As a service manager runs it: standard error is the journal's, and the environment says so.
  static std::vector<std::string> service(const DaemonWorld& world) {
    return {"/usr/bin/systemd-cat", "--identifier=vmagentd", "/bin/sh", "-c",
            "JOURNAL_STREAM=$(stat -L -c %d:%i /proc/self/fd/2) exec " VMAGENTD
            " --shim off --trace all --state-dir " +
                world.stateDir + " --run-dir " + world.runDir};
  }
  // Its lines as JSON, of those with that field.
  static std::string lines(const std::string& field) {
    return run({"/usr/bin/journalctl", "-D", "/run/log/journal", "-o", "json", field}).out;
  }

  std::optional<Process> journal_;
};

TEST_F(Journal, KnowsWhichVmALineIsAboutAndHowGraveItIs) {
  DaemonWorld world;
  const Process daemon(service(world));
  ASSERT_TRUE(waitUntil([&] { return world.vmctl({"list"}).status == 0; }));
  world.addVm("web1");
  world.addVm("web2");
  world.ctl({"enable", "web1", "--wait"});
  ASSERT_TRUE(waitUntil([] { return !lines("VMAGENT_VM=web1").empty(); }));
  EXPECT_THAT(lines("VMAGENT_VM=web1"),
              AllOf(HasSubstr(R"("SYSLOG_IDENTIFIER":"vmagentd")"), HasSubstr(R"("PRIORITY":)"),
                    HasSubstr("Vm/VmAgent/"), HasSubstr(R"("MESSAGE":)"), Not(HasSubstr("web2"))));
  EXPECT_THAT(lines("VMAGENT_VM=web2"), Not(HasSubstr(R"("VMAGENT_VM":"web1")")));
  EXPECT_THAT(lines("VMAGENT_VM=web3"), IsEmpty());
}

TEST_F(Journal, HasMessagesOfSeveralLinesWhole) {
  DaemonWorld world;
  const Process daemon(service(world));
  ASSERT_TRUE(waitUntil([&] { return world.vmctl({"list"}).status == 0; }));
  world.addVm("web1", {"--enabled"});
  const std::string part = R"({ \"execute\": \"cont\",\"id\": \"cont\" }\n with fd -1")";
  EXPECT_TRUE(waitUntil(
      [&] { return lines("CODE_FUNC=doIssueQmpRequest").find(part) != std::string::npos; }));
}

TEST_F(Journal, ThatStandsStillStopsNothingAndMissesNothing) {
  DaemonWorld world;
  const Process daemon(service(world));
  ASSERT_TRUE(waitUntil([&] { return world.vmctl({"list"}).status == 0; }));
  journal_->signal(SIGSTOP);
  for (const char* const vm : {"web1", "web2", "web3", "web4", "web5", "web6"}) {
    world.addVm(vm, {"--enabled"});
    EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", vm, R"("enabled":true)"); })) << vm;
  }
  journal_->signal(SIGCONT);
  EXPECT_TRUE(waitUntil([] { return !lines("VMAGENT_VM=web6").empty(); }));
}

TEST_F(Journal, HasWhatTheDaemonSaysBesideItsTraces) {
  DaemonWorld world;
  const Process daemon(service(world));
  EXPECT_TRUE(waitUntil([] {
    return lines("SYSLOG_IDENTIFIER=vmagentd").find(R"("MESSAGE":"vmagentd: ready")") !=
           std::string::npos;
  }));
}

}  // namespace
}  // namespace host::fakes
