// What happens while no daemon runs, or while one is killed half-way, is carried out by the next.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "guest/VmFiles.h"
#include "host/guests/DiskShims.h"
#include "runtime/base/Descriptor.h"
#include "shim/keep/ListeningSocket.h"
#include "shim/keep/VmDirectory.h"
#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::ContainsRegex;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

const std::vector<std::string> traced = {"--trace", "1,8"};

class Meanwhile : public testing::Test {
 protected:
  std::string documentOf(const std::string& vm, const std::string& what,
                         const std::string& with) const {
    std::string document = world.row("vmConfig", vm);
    const size_t at = document.find(what);
    EXPECT_NE(at, std::string::npos) << document;
    return at == std::string::npos ? document : document.replace(at, what.size(), with);
  }
  // A foreign program changes part of the row.
  void rewrite(const std::string& vm, const std::string& what, const std::string& with) const {
    world.write("vmConfig", vm, documentOf(vm, what, with));
  }

  FaultWorld world;
};

TEST_F(Meanwhile, RowsAreRewrittenByAForeignerAndTheNextDaemonGoesByThem) {
  world.start(traced);
  const std::vector<std::string> vms = {"same",     "changed", "disabled", "removed",
                                        "repaired", "spoilt",  "unwanted"};
  ASSERT_NO_FATAL_FAILURE(world.runGuests(vms));
  std::map<std::string, pid_t> before;
  for (const auto& vm : vms) before[vm] = world.qemu(vm);
  world.end(SIGKILL);
  const std::string good = world.row("vmConfig", "repaired");
  rewrite("changed", R"("memory":32)", R"("memory":48)");
  rewrite("disabled", R"("enabled":true)", R"("enabled":false)");
  world.write("vmConfig", "removed", "");
  for (const char* vm : {"repaired", "spoilt", "unwanted"})
    rewrite(vm, R"("memory":32)", R"("memory":0)");
  world.start(traced);
  const auto expected = [&](const std::string& vm, bool runs = true) {
    return Expected{vm, runs, runs ? before.at(vm) : 0};
  };
  EXPECT_TRUE(world.settles({expected("same"), expected("changed"), expected("disabled", false),
                             expected("removed", false)}));
  EXPECT_TRUE(waitUntil([&] {
    return world.shownProblem("changed").find("memory") != std::string::npos;
  })) << world.ctl({"show", "changed"});
  for (const char* vm : {"repaired", "spoilt", "unwanted"}) {
    EXPECT_EQ(world.qemu(vm), before.at(vm)) << "what is not understood ends no guest: " << vm;
    EXPECT_THAT(world.shownProblem(vm), HasSubstr("memory: '0' is refused"));
  }
  world.write("vmConfig", "repaired", good);
  world.write("vmConfig", "spoilt", "");
  rewrite("unwanted", R"({"enabled":true)", R"({"enabled":false)");
  rewrite("unwanted", R"("memory":0)", R"("memory":32)");
  const std::vector<Expected> all = {
      expected("same"),           expected("changed"),  expected("disabled", false),
      expected("removed", false), expected("repaired"), expected("spoilt", false),
      expected("unwanted", false)};
  EXPECT_TRUE(world.settles(all, 2 * FaultWorld::truth));
  EXPECT_TRUE(world.rests(all));
}

// A daemon takes guests up one after the other; the last ones may wait still, or be in the midst.
TEST_F(Meanwhile, AGuestThatWaitsToBeTakenUpEndsWhenItIsNotWantedAnyMore) {
  world.start({"--stop-timeout", "0"});
  const std::vector<std::string> vms = {"web1", "web2", "web3", "web4", "web5", "web6"};
  ASSERT_NO_FATAL_FAILURE(world.runGuests(vms));
  std::vector<Expected> all;
  for (const auto& vm : vms) all.push_back({vm, true, world.qemu(vm)});
  world.end(SIGKILL);
  world.start({"--stop-timeout", "0"});
  world.ctl({"disable", "web6"});
  world.ctl({"remove", "web5", "--force"});
  world.ctl({"remove", "web4", "--force"});
  ASSERT_EQ(world.addGuest("web4").status, 0);
  all[5] = {"web6", false};
  all[4] = {"web5", false};
  const pid_t old = std::exchange(all[3], Expected{"web4", true}).qemu;
  EXPECT_TRUE(world.settles(all));
  EXPECT_NE(world.qemu("web4"), old) << "it was another VM's";
  for (const char* vm : {"web5", "web6"})
    EXPECT_THAT(world.shimLog(vm), Not(ContainsRegex("started as(.|\n)*started as"))) << vm;
}

// To a shim, a pipe that nobody reads any more is the sign of its daemon's end.
TEST_F(Meanwhile, ABrokenPipeThatADaemonIsStartedWithIsNoneOfItsGuests) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1"}));
  const Expected expected{"web1", true, world.qemu("web1")};
  world.end(SIGKILL);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[0]);
  world.start();
  close(ends[1]);
  EXPECT_TRUE(world.settles({expected}));
}

// The guest takes no notice of its power button, so there is time to kill the daemon.
TEST_F(Meanwhile, ADisableThatTheDaemonWasKilledInIsCarriedThrough) {
  const std::vector<std::string> slow = {"--stop-timeout", "2"};
  world.start(slow);
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1", "web2", "web3"}));
  const pid_t other = world.qemu("web3");
  world.ctl({"disable", "web1", "web2"});
  for (const std::string vm : {"web1", "web2"})
    ASSERT_TRUE(waitUntil([&] {
      return world.shimLog(vm).find("presses the guest's power button") != std::string::npos;
    })) << world.shimLog(vm);
  world.end(SIGKILL);
  world.ctl({"enable", "web2"});
  world.start(slow);
  EXPECT_TRUE(
      world.settles({{"web1", false}, {"web2"}, {"web3", true, other}}, 2 * FaultWorld::truth));
  EXPECT_THAT(world.shimLog("web1"), HasSubstr("asks QEMU to quit"));
  EXPECT_THAT(world.row("vmConfig", "web1"), HasSubstr(R"("enabled":false)"));
}

// One shim is killed, and one leaves its monitor's socket to a daemon that is killed before it
// could remove it.
TEST_F(Meanwhile, TheSocketsOfAGuestThatEndsAreRemoved) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1", "web2", "web3"}));
  const Expected stays{"web3", true, world.qemu("web3")};
  FaultWorld::signal(world.daemon(), SIGSTOP);
  FaultWorld::signal(world.keeper("web1"), SIGKILL);
  FaultWorld::signal(world.qemu("web2"), SIGKILL);
  for (const char* vm : {"web1", "web2"})
    ASSERT_TRUE(waitUntil([&] { return world.guests(vm).empty(); })) << vm;
  EXPECT_TRUE(fs::exists(guest::monitorOf("web2")));
  world.end(SIGKILL);
  world.ctl({"disable", "web1"});
  world.ctl({"remove", "web2", "--force"});
  world.start();
  EXPECT_TRUE(world.settles({{"web1", false}, {"web2", false}, stays}));
}

// What lies in the VM's directory.

// Holds half of a VM's lock, as a process of its own. Ends with this.
class Holder {
 public:
  enum class Half { keepers, vms };

  Holder(const std::string& directory, Half half) {
    fs::create_directories(directory);
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      shim::VmLock lock(directory + "/lock");
      const bool held = half == Half::keepers ? lock.takeKeeping() : lock.takeVm();
      close(ends[0]);
      close(ends[1]);
      if (held)
        for (;;) pause();
      _exit(1);
    }
    close(ends[1]);
    char none = 0;
    (void)!read(ends[0], &none, 1);
    close(ends[0]);
  }
  Holder(const Holder&) = delete;
  ~Holder() {
    FaultWorld::signal(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }
  bool lives() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
  pid_t pid_ = 0;
};

class Files : public Meanwhile {
 protected:
  bool isTold(const std::string& vm, const std::string& part) const {
    return waitUntil([&] { return world.shownProblem(vm).find(part) != std::string::npos; },
                     FaultWorld::truth);
  }
};

TEST_F(Files, HeldByStrangersAreToldOfAndNoStrangerIsHarmedAndNoOtherVm) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"stays"}));
  const pid_t stays = world.qemu("stays");
  {
    const Holder keeper(world.directory("web1"), Holder::Half::keepers);
    const Holder holder(world.directory("web2"), Holder::Half::vms);
    const Holder later(world.directory("web3"), Holder::Half::keepers);
    shim::ListeningSocket socket(world.directory("web3") + "/shim.sock", "control");
    std::ofstream(world.directory("web1") + "/problem") << getpid();
    for (const char* vm : {"web1", "web2", "web3"}) ASSERT_EQ(world.addGuest(vm).status, 0);
    std::vector<rt::Descriptor> clients;
    ASSERT_TRUE(waitUntil([&] {
      if (rt::Descriptor client = socket.accept()) {
        // One that only looked whether somebody listens has hung up by now.
        (void)send(client.number(), "{\"shim\":7,\"vm\":\"web3\",\"pid\":4711}\n", 35,
                   MSG_NOSIGNAL);
        clients.push_back(std::move(client));
      }
      return world.shownProblem("web3").find("(7 and not 1)") != std::string::npos;
    })) << world.ctl({"show", "web3"});
    EXPECT_THAT(world.shownProblem("web3"), HasSubstr("'kill 4711'"));
    EXPECT_TRUE(isTold("web1", "kept by process " + std::to_string(keeper.pid())))
        << world.ctl({"show", "web1"});
    EXPECT_TRUE(isTold("web2", "'fuser " + world.directory("web2") + "/lock' names it"))
        << world.ctl({"show", "web2"});
    for (const char* vm : {"web1", "web2", "web3"}) EXPECT_THAT(world.qemus(vm), IsEmpty());
    for (const Holder* each : {&keeper, &holder, &later}) EXPECT_TRUE(each->lives());
  }
  world.ctl({"restart", "web1", "web3"});
  EXPECT_TRUE(
      world.settles({{"web1"}, {"web2"}, {"web3"}, {"stays", true, stays}}, 2 * FaultWorld::truth));
  for (const char* vm : {"web1", "web2", "web3"}) EXPECT_EQ(world.shownProblem(vm), "") << vm;
}

TEST_F(Files, ThatAreAllGoneLetNoSecondGuestStart) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(world.runGuests({"web1", "stays"}));
  const pid_t stays = world.qemu("stays");
  world.end(SIGKILL);
  fs::remove_all(world.directory("web1"));
  world.start();
  size_t most = 0;
  EXPECT_TRUE(waitUntil(
      [&] {
        most = std::max(most, world.qemus("web1").size());
        return world.wrong({{"web1"}, {"stays", true, stays}}).empty();
      },
      2 * FaultWorld::truth))
      << world.wrong({{"web1"}, {"stays", true, stays}}) << world.log();
  EXPECT_EQ(most, 1U);
}

// What the daemon says to a shim, as it was shipped.
TEST_F(Files, HearAStopInTheWordsOfVersion1) {
  fs::create_directories(world.directory("web1"));
  shim::ListeningSocket socket(world.directory("web1") + "/shim.sock", "control");
  ASSERT_TRUE(host::DiskShims(rt::String(world.runDir), "1").askToStop("web1", std::nullopt));
  const rt::Descriptor daemon = socket.accept();
  char bytes[256];
  const ssize_t count = read(daemon.number(), bytes, sizeof bytes);
  ASSERT_GT(count, 0);
  std::ifstream file(VMAGENT_TEST_DATA "/shim/stop-1.jsonl");
  std::string shipped;
  for (std::string line; std::getline(file, line);)
    if (line.starts_with(R"({"dir":">","raw":")")) shipped = line.substr(18);
  shipped = shipped.substr(0, shipped.rfind('"'));
  std::string said;
  for (const char c : std::string(bytes, static_cast<size_t>(count - 1)))
    said += c == '"' ? "\\\"" : std::string(1, c);
  EXPECT_EQ(said, shipped);
  EXPECT_EQ(bytes[count - 1], '\n');
}

}  // namespace
}  // namespace host::fakes
