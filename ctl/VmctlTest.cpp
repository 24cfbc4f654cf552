// The program itself, over SQLite files: what the fixture's world stands in for.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "model/Tables.h"
#include "runtime/base/Text.h"
#include "runtime/base/fakes/TestFolder.h"
#include "statedb/OwnerSign.h"
#include "statedb/sqlite/SqliteDb.h"

namespace ctl {
namespace {

using testing::HasSubstr;

struct Result {
  int exit = -1;  // -1: ended by a signal
  std::string out;
  std::string err;
};

class Vmctl : public testing::Test {
 protected:
  Vmctl() {
    std::filesystem::create_directory(directory_ + "/state");
    std::filesystem::create_directory(directory_ + "/run");
  }

  statedb::StateDb openDb(statedb::sqlite::Role role) const {
    return statedb::sqlite::openDb(
        {directory_ + "/state", directory_ + "/run", model::isStatus, role});
  }
  statedb::StateDb setUpDb() const { return openDb(statedb::sqlite::Role::owner); }

  std::string fileText(const std::string& name) const {
    std::ifstream file(directory_ + "/" + name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  // `out`: where its standard output leads; a file by default.
  Result run(std::vector<std::string> arguments, int out = -1) const {
    arguments.insert(arguments.begin(), VMCTL);
    std::vector<char*> argv;
    argv.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);
    std::vector<std::string> variables{"VMAGENT_STATE_DIR=" + directory_ + "/state",
                                       "VMAGENT_RUN_DIR=" + directory_ + "/run"};
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& variable : variables) environment.push_back(variable.data());
    environment.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string outFile = directory_ + "/out";
    const std::string errFile = directory_ + "/err";
    constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC;
    if (out >= 0)
      posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    else
      posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outFile.c_str(), flags, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errFile.c_str(), flags, 0600);
    pid_t pid = 0;
    EXPECT_EQ(posix_spawn(&pid, VMCTL, &actions, nullptr, argv.data(), environment.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    waitpid(pid, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, fileText("out"), fileText("err")};
  }

  const rt::fakes::TestFolder folder_;
  const std::string& directory_ = folder_.path();
};

TEST_F(Vmctl, WritesWhatAnotherReads) {
  statedb::StateDb db = setUpDb();
  EXPECT_EQ(run({"add", "web1", "--disk", "/images/web.iso"}).exit, 0);
  const auto record = db.record("vmConfig", "web1");
  ASSERT_TRUE(record);
  EXPECT_EQ(record->doc,
            R"({"enabled":false,"diskImage":"/images/web.iso","memory":256,"vncPort":0,)"
            R"("vnicConfig":{}})");
}

TEST_F(Vmctl, ExitsWithTheNumberOfWhatHappened) {
  setUpDb();
  EXPECT_EQ(run({"add", "web1", "--disk", "/images/web.iso"}).exit, 0);
  EXPECT_EQ(run({}).exit, 2);
  EXPECT_EQ(run({"show", "web2"}).exit, 3);
  EXPECT_EQ(run({"add", "web1", "--disk", "/images/web.iso"}).exit, 4);
  EXPECT_EQ(run({"set", "web1", "memory=0"}).exit, 5);
  EXPECT_EQ(run({"list", "--state-dir", directory_}).exit, 6);
  EXPECT_EQ(run({"enable", "web1", "--wait"}).exit, 1);
}

TEST_F(Vmctl, SaysWhatIsMissingBeforeTheDaemonRanForTheFirstTime) {
  const Result result = run({"list"});
  EXPECT_EQ(result.exit, 6);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err, "vmctl: " + directory_ +
                            "/state/config.db does not exist: put it back if it was lost; or "
                            "start or restart vmagentd, which makes an empty one\n");
}

TEST_F(Vmctl, OptionsGoBeforeTheEnvironment) {
  setUpDb();
  EXPECT_THAT(run({"list", "--state-dir=/nowhere"}).err, HasSubstr("/nowhere"));
}

TEST_F(Vmctl, ShowsConfigurationWhileNoDaemonRunsAndThereIsNoStatus) {
  setUpDb();
  std::filesystem::remove(directory_ + "/run/status.db");
  run({"add", "web1", "--disk", "/images/web.iso"});
  const Result result = run({"list", "-o", "json"});
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.out, HasSubstr("\"stale\": true"));
  EXPECT_THAT(result.out, HasSubstr("\"name\": \"web1\""));
  EXPECT_EQ(result.err, "vmctl: vmagentd is not running: the status is as it was left\n");
}

TEST_F(Vmctl, SeesThatADaemonRuns) {
  setUpDb();
  const statedb::OwnerSign sign(directory_ + "/run");
  const Result result = run({"list", "-o", "json"});
  EXPECT_EQ(result.out, "{\n  \"version\": 1,\n  \"vms\": []\n}\n");
  EXPECT_EQ(result.err, "");
}

TEST_F(Vmctl, WakesWhenTheStatusChanges) {
  statedb::StateDb db = setUpDb();
  const statedb::OwnerSign sign(directory_ + "/run");
  db.commit(statedb::Transaction().put("vmConfig", "web1", "{}"));
  // The daemon's part: another process that answers once vmctl has written.
  const pid_t daemon = fork();
  if (daemon == 0) {
    statedb::StateDb own = openDb(statedb::sqlite::Role::client);
    alarm(20);
    pollfd bell{own.store(statedb::Half::config).wakeUp(), POLLIN, 0};
    while (own.record("vmConfig", "web1")) {
      (void)own.store(statedb::Half::config).changes({});
      if (own.record("vmConfig", "web1")) poll(&bell, 1, -1);
    }
    const statedb::Cursor heard = own.store(statedb::Half::config).snapshot({}).cursor;
    own.commit(statedb::Transaction()
                   .del("vmStatus", "web1")
                   .del("vmProcess", "web1")
                   .put("daemon", "vmagentd",
                        R"({"configStore":")" + heard.storeId + R"(","configSequence":)" +
                            rt::toText(heard.sequence) + "}"));
    _exit(0);
  }
  db.commit(statedb::Transaction()
                .put("vmStatus", "web1", R"({"enabled":true,"state":"Running"})")
                .put("vmProcess", "web1", R"({"process":"running","pid":1})"));
  EXPECT_EQ(run({"remove", "web1", "--force", "--wait", "--timeout", "20"}).exit, 0);
  waitpid(daemon, nullptr, 0);
}

TEST_F(Vmctl, TimesOut) {
  statedb::StateDb db = setUpDb();
  const statedb::OwnerSign sign(directory_ + "/run");
  db.commit(statedb::Transaction().put("vmConfig", "web1", "{}"));
  const Result result = run({"wait", "web1", "--for", "state=Running", "--timeout", "0.05"});
  EXPECT_EQ(result.exit, 7);
  EXPECT_THAT(result.err, HasSubstr("timed out after 0.05 s"));
}

TEST_F(Vmctl, EndsQuietlyWhenNobodyReadsItsOutput) {
  setUpDb();
  run({"add", "web1", "--disk", "/images/web.iso"});
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  const Result result = run({"version"}, ends[1]);
  close(ends[1]);
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.err, "");
}

TEST_F(Vmctl, WatchesNoLongerThanSomebodyReads) {
  setUpDb();
  std::filesystem::create_directories(directory_ + "/run/vm/web1");
  std::ofstream(directory_ + "/run/vm/web1/console.log") << "text\n";
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"watch", "-o", "json"}, {"logs", "web1", "-f"}}) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    // Reads what there is at first, and goes.
    std::thread reader([&] {
      char byte = 0;
      EXPECT_EQ(read(ends[0], &byte, 1), 1);
      close(ends[0]);
    });
    const Result result = run(command, ends[1]);
    reader.join();
    close(ends[1]);
    EXPECT_NE(result.exit, -1) << command[0];
    EXPECT_THAT(result.err, testing::Not(HasSubstr("could not be written"))) << command[0];
  }
}

TEST_F(Vmctl, LooksAtTheMachineItself) {
  setUpDb();
  const Result result = run({"doctor"});
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.out, HasSubstr("ok       database: both halves open"));
  EXPECT_THAT(result.out, HasSubstr("FAILED   vmagentd: it is not running\n"));
  EXPECT_THAT(result.out, HasSubstr("ok       clock: it is set\n"));
}

TEST_F(Vmctl, SaysWhenItsOutputCannotBeWritten) {
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_GE(full, 0);
  const Result result = run({"version"}, full);
  close(full);
  EXPECT_EQ(result.exit, 1);
  EXPECT_EQ(result.err, "vmctl: standard output could not be written: No space left on device\n");
}

}  // namespace
}  // namespace ctl
