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

// What one whom vmctl's author never met says of a document, with the schema.
class VmctlSchema : public Vmctl {
 protected:
  VmctlSchema() {
    setUpDb();
    std::ofstream(directory_ + "/schema.json") << run({"schema"}).out;
  }
  // Of each document whether it is valid: "yes" or "no".
  std::string validityOf(const std::vector<std::string>& documents) const {
    std::ofstream(directory_ + "/check.py")
        << "import json, sys, jsonschema\n"
           "schema = json.load(open(sys.argv[1]))\n"
           "jsonschema.Draft202012Validator.check_schema(schema)\n"
           "validator = jsonschema.Draft202012Validator(schema)\n"
           "for file in sys.argv[2:]:\n"
           "    print('yes' if validator.is_valid(json.load(open(file))) else 'no', end=' ')\n";
    std::string command = "python3 " + directory_ + "/check.py " + directory_ + "/schema.json";
    for (size_t i = 0; i < documents.size(); ++i) {
      const std::string file = directory_ + "/document" + std::to_string(i);
      std::ofstream(file) << documents[i];
      command += " " + file;
    }
    EXPECT_EQ(std::system((command + " >" + directory_ + "/validity").c_str()), 0);
    return fileText("validity");
  }
  // Whether vmctl takes it.
  bool isTaken(const std::string& document) const {
    std::ofstream(directory_ + "/taken.json") << document;
    return run({"apply", "-f", directory_ + "/taken.json", "--dry-run"}).exit == 0;
  }
};

TEST_F(VmctlSchema, AgreesWithWhatVmctlTakes) {
  const std::string card = R"({"model":"e1000","macAddr":"52:54:00:12:34:56","intfName":"Vlan1"})";
  const auto vm = [](const std::string& config, const std::string& more = "") {
    return R"({"version":1,"vms":[{"name":"web1","config":{)" + config + "}" + more + "}]}";
  };
  const std::string disk = R"("diskImage":"/a.iso")";
  const std::vector<std::string> sound{
      vm(disk),
      vm(disk, R"(,"format":null)"),
      vm(disk, R"(,"limits":{"cpuMax":"0.5"})"),
      vm(disk + R"(,"memory":64,"vncPort":0,"enabled":true,"vnicConfig":{"nic00":)" + card + "}",
         R"(,"format":"qcow2","policy":{"restart":"always"},"status":null)"),
      R"({"name":"web1","config":{)" + disk + "}}",
      R"({"version":1,"vms":[]})"};
  for (const std::string& each : sound) EXPECT_TRUE(isTaken(each)) << each;
  EXPECT_EQ(validityOf(sound), "yes yes yes yes yes yes ");
  const std::vector<std::string> wrong{vm(""),
                                       vm(disk + R"(,"memory":"64")"),
                                       vm(disk + R"(,"colour":"red")"),
                                       vm(R"("diskImage":"a.iso")"),
                                       vm(disk, R"(,"format":"vmdk")"),
                                       vm(disk, R"(,"limits":{"cpuMax":0.5})"),
                                       vm(disk, R"(,"policy":{"restart":"maybe"})"),
                                       vm(disk + R"(,"vnicConfig":{"nic00":{"model":"e1000"}})"),
                                       vm(disk, R"(,"limit":{})"),
                                       R"({"version":2,"vms":[]})",
                                       R"({"vms":[]})",
                                       "[]"};
  for (const std::string& each : wrong) EXPECT_FALSE(isTaken(each)) << each;
  EXPECT_EQ(validityOf(wrong), "no no no no no no no no no no no no ");
}

TEST_F(VmctlSchema, AgreesWithWhatVmctlWrites) {
  run({"add", "web1", "--disk", "/images/web.iso", "--nic", "intf=Vlan1", "--restart", "always"});
  statedb::StateDb db = setUpDb();
  db.commit(statedb::Transaction()
                .put("vmStatus", "web1", R"({"enabled":true,"state":"Running"})")
                .put("vmProcess", "web1", R"({"process":"running","pid":1})"));
  std::vector<std::string> documents;
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{"export"}, {"list", "-o", "json"}, {"show", "web1", "-o", "json"}})
    documents.push_back(run(command).out);
  for (const std::string& document : documents) {
    EXPECT_THAT(document, HasSubstr("web1"));
    EXPECT_TRUE(isTaken(document)) << document;
  }
  EXPECT_EQ(validityOf(documents), "yes yes yes ") << documents[1];
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
