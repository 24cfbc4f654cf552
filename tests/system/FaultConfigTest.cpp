// The configuration is lost, emptied, or replaced by another: no guest ends by that, and what is so
// is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "model/Tables.h"
#include "statedb/sqlite/Connection.h"
#include "statedb/sqlite/SqliteDb.h"
#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;

using testing::ContainsRegex;
using testing::HasSubstr;

constexpr const char* notKnown = "not configured, and not known to be removed";

class Configuration : public testing::Test {
 protected:
  std::string file() const { return world.stateDir + "/config.db"; }
  // As 'sqlite3 config.db ".backup"' makes one.
  void backUp() const {
    fs::remove(backup);
    statedb::sqlite::Connection(rt::String(file()), rt::Seconds(5))
        .run("VACUUM INTO '/var/run/backup.db'");
  }
  void remove() const {
    for (const char* suffix : {"", "-wal", "-shm", "-bell"}) fs::remove(file() + suffix);
  }
  void putBack() const {
    remove();
    fs::copy_file(backup, file());
  }
  bool isLogged(const std::string& text) const {
    return waitUntil([&] { return world.log().find(text) != std::string::npos; });
  }
  bool isToldOf(const std::string& vm, const std::string& problem) const {
    return waitUntil([&] { return world.shownProblem(vm).find(problem) != std::string::npos; });
  }
  bool isWithoutProblem(const std::string& vm) const {
    return waitUntil([&] { return world.shownProblem(vm).empty(); });
  }
  // The guests that run, of before.
  void runGuests(const std::vector<std::string>& vms) {
    ASSERT_NO_FATAL_FAILURE(world.runGuests(vms));
    for (const auto& vm : vms) qemus[vm] = world.qemu(vm);
  }
  void expectSame(const std::vector<std::string>& vms) const {
    for (const auto& vm : vms) EXPECT_EQ(world.qemu(vm), qemus.at(vm)) << vm << world.log();
  }
  void expectUnknown(const std::string& vm) const {
    EXPECT_TRUE(isToldOf(vm, notKnown)) << world.ctl({"show", vm});
    EXPECT_THAT(world.ctl({"list"}), ContainsRegex(vm + " +unknown"));
    EXPECT_EQ(world.qemu(vm), qemus.at(vm));
  }
  const std::string backup = "/var/run/backup.db";
  std::map<std::string, pid_t> qemus;
  FaultWorld world;
};

TEST_F(Configuration, ThatIsMovedAwayEndsNoGuestIsNotMadeAndIsReadWhenItIsBack) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(runGuests({"web1"}));
  fs::rename(file(), backup);
  EXPECT_TRUE(isLogged("config.db is gone: put it back, and it is read")) << world.log();
  // Some tries later.
  EXPECT_FALSE(waitUntil([&] { return fs::exists(file()); }, 3));
  EXPECT_THAT(world.vmctl({"set", "web1", "memory=48"}).err,
              HasSubstr("config.db does not exist: put it back if it was lost; or start or "
                        "restart vmagentd, which makes an empty one"));
  expectSame({"web1"});
  fs::rename(backup, file());
  EXPECT_TRUE(isLogged("configuration: read again")) << world.log();
  EXPECT_TRUE(world.settles({{"web1", true, qemus["web1"]}}));
  world.ctl({"set", "web1", "memory=48"});
  EXPECT_TRUE(isToldOf("web1", "memory: changed"));
  expectSame({"web1"});
}

TEST_F(Configuration, OfABackupIsTakenUpByTheGuestsThatItHasAndTheOthersGoOn) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(runGuests({"web1", "web2"}));
  backUp();
  ASSERT_NO_FATAL_FAILURE(runGuests({"web3", "web4"}));
  putBack();
  expectUnknown("web3");
  expectUnknown("web4");
  EXPECT_TRUE(isWithoutProblem("web1"));
  // The one is taken back, the other given up.
  EXPECT_THAT(world.vmctl({"remove", "web4"}).err, HasSubstr("--force ends it"));
  world.ctl({"remove", "web4", "--force", "--wait"});
  world.ctl({"add", "web3", "--disk", "/var/run/web3.img", "--memory", "32", "--enabled"});
  EXPECT_TRUE(isWithoutProblem("web3"));
  const std::vector<Expected> all = {{"web1", true, qemus["web1"]},
                                     {"web2", true, qemus["web2"]},
                                     {"web3", true, qemus["web3"]},
                                     {"web4", false}};
  EXPECT_TRUE(world.settles(all)) << world.log();
  // The next daemon finds all as they are.
  world.end(SIGKILL);
  world.ctl({"remove", "web2", "web3", "--force"});
  world.start();
  EXPECT_TRUE(world.settles(
      {{"web1", true, qemus["web1"]}, {"web2", false}, {"web3", false}, {"web4", false}},
      2 * FaultWorld::truth));
}

TEST_F(Configuration, ThatIsEmptyAtTheStartEndsNoGuestAndEachIsTakenUpWhenItIsConfigured) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(runGuests({"web1", "web2"}));
  const std::string documents = world.ctl({"export"});
  world.end(SIGKILL);
  remove();
  std::ofstream(file()).close();
  world.start();
  expectUnknown("web1");
  expectUnknown("web2");
  EXPECT_THAT(world.log(), HasSubstr("VM web1: not configured, and not known to be removed"));
  EXPECT_THAT(world.ctl({"show", "web1"}),
              HasSubstr("config.db is another than the one that its guest was started by"));
  EXPECT_THAT(world.ctl({"logs", "web1"}), HasSubstr("BOOTSECTOR READY"));
  EXPECT_EQ(world.vmctl({"stop", "--all", "--wait"}).status, 4);
  EXPECT_EQ(world.vmctl({"stop", "web1"}).status, 4);
  std::ofstream("/var/run/vms.json") << documents;
  world.ctl({"apply", "-f", "/var/run/vms.json"});
  const std::vector<Expected> both = {{"web1", true, qemus["web1"]}, {"web2", true, qemus["web2"]}};
  EXPECT_TRUE(world.settles(both)) << world.log();
  EXPECT_EQ(world.shownProblem("web1"), "");
  // From here on they are this configuration's.
  world.end(SIGKILL);
  world.ctl({"remove", "web1", "--force"});
  world.start();
  EXPECT_TRUE(world.settles({{"web1", false}, both[1]}, 2 * FaultWorld::truth)) << world.log();
}

TEST_F(Configuration, WhoseDirectoryIsEmptyAtTheStartEndsNoGuestThenOrLater) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(runGuests({"web1", "web2"}));
  const std::string away = "/var/run/away";
  world.end(SIGTERM);
  fs::rename(world.stateDir, away);
  world.start();
  expectUnknown("web1");
  // One ends by itself, and nobody knows of it any more.
  world.signal(qemus["web2"], SIGKILL);
  EXPECT_TRUE(waitUntil([&] { return world.vmctl({"show", "web2"}).status == 3; }));
  world.end(SIGKILL);
  world.start();
  expectUnknown("web1");
  fs::rename(world.stateDir, "/var/run/empty");
  fs::rename(away, world.stateDir);
  EXPECT_TRUE(isWithoutProblem("web1")) << world.log();
  EXPECT_TRUE(world.settles({{"web1", true, qemus["web1"]}, {"web2"}}, 2 * FaultWorld::truth))
      << world.log();
  fs::remove_all("/var/run/empty");
}

TEST_F(Configuration, ThatIsOlderThanAGuestProvesNothingHoweverFarItGoesOn) {
  world.start();
  world.addVm("other");
  backUp();
  ASSERT_NO_FATAL_FAILURE(runGuests({"web1"}));
  putBack();
  expectUnknown("web1");
  // By far more changes than there were when web1 was added.
  for (int memory = 65; memory < 85; ++memory)
    world.ctl({"set", "other", "memory=" + std::to_string(memory)});
  for (const int signal : {SIGTERM, SIGKILL}) {
    world.end(signal);
    world.start();
    expectUnknown("web1");
  }
  EXPECT_THAT(world.ctl({"show", "web1"}), HasSubstr("config.db is older than its guest"));
  // Given up while no daemon runs.
  world.end(SIGTERM);
  world.ctl({"remove", "web1", "--force"});
  world.start();
  EXPECT_TRUE(world.settles({{"web1", false}}, 2 * FaultWorld::truth)) << world.log();
}

TEST_F(Configuration, OfAnotherMachineEndsAndRestartsNoGuest) {
  const std::string elsewhere = "/var/run/elsewhere";
  fs::create_directories(elsewhere);
  {
    auto db = statedb::sqlite::openDb({.stateDir = rt::String(elsewhere),
                                       .runDir = rt::String(elsewhere),
                                       .isStatus = model::isStatus,
                                       .role = statedb::sqlite::Role::owner});
    statedb::Transaction foreign;
    foreign.put("vmConfig", "web2",
                R"({"enabled":true,"diskImage":"/var/run/web2.img","memory":32})");
    foreign.put("vmIntent", "web2", R"({"restart":7})");
    db.commit(foreign);
  }
  for (const bool runs : {true, false}) {
    world.start();
    ASSERT_NO_FATAL_FAILURE(runGuests({"web1", "web2"}));
    if (!runs) world.end(SIGKILL);
    backUp();
    remove();
    fs::copy_file(elsewhere + "/config.db", file());
    if (!runs) world.start();
    expectUnknown("web1");
    EXPECT_TRUE(isWithoutProblem("web2")) << world.ctl({"show", "web2"});
    // Whoever asks here asks anew.
    EXPECT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", "web2", R"("restarts":7)"); }));
    expectSame({"web1", "web2"});
    putBack();
    const std::vector<Expected> both = {{"web1", true, qemus["web1"]},
                                        {"web2", true, qemus["web2"]}};
    EXPECT_TRUE(world.settles(both, 2 * FaultWorld::truth)) << world.log();
    EXPECT_TRUE(isWithoutProblem("web1"));
    world.ctl({"remove", "web1", "web2", "--force", "--wait"});
    world.end(SIGTERM);
  }
  fs::remove_all(elsewhere);
}

// What an operator removed while nobody looked is removed.
TEST_F(Configuration, ThatWasRemovedOrMadeAnewWhileNoDaemonRanEndsTheGuest) {
  world.start();
  ASSERT_NO_FATAL_FAILURE(runGuests({"anew", "removed", "stays"}));
  world.end(SIGKILL);
  world.ctl({"remove", "anew", "removed", "--force"});
  world.ctl({"add", "anew", "--disk", "/var/run/anew.img", "--memory", "32", "--enabled"});
  world.start();
  EXPECT_TRUE(world.settles({{"anew"}, {"removed", false}, {"stays", true, qemus["stays"]}},
                            2 * FaultWorld::truth))
      << world.log();
  EXPECT_NE(world.qemu("anew"), qemus["anew"]) << "it was another VM's";
}

}  // namespace
}  // namespace host::fakes
