// What lies about in a VM's directory: stale, torn, foreign, or gone.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include "shim/fakes/AdoptionWorld.h"
#include "shim/keep/Keeper.h"
#include "shim/keep/VmDirectory.h"

namespace shim {
namespace {

namespace fs = std::filesystem;

using fakes::AgentClient;
using fakes::DaemonProcess;
using fakes::exited;
using fakes::queryStatus;
using rt::fakes::contentOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

const std::vector<const char*> plainFiles = {"lock",          "shim.log",   "shim.log.1",
                                             "console.log",   "last-error", "last-error.new",
                                             "console.log.1", "problem",    "problem.new"};

// A process that is nobody's business: what it does first, and then for ever. Ends with this.
class Stranger {
 public:
  using Act = std::function<void()>;

  explicit Stranger(
      const Act& first = [] {}, const Act& forEver = [] { pause(); }) {
    int ends[2];
    if (pipe(ends) != 0) std::abort();
    pid_ = fork();
    if (pid_ == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      first();
      close(ends[0]);
      close(ends[1]);
      for (;;) forEver();
    }
    close(ends[1]);
    char none = 0;
    (void)!read(ends[0], &none, 1);
    close(ends[0]);
  }
  Stranger(const Stranger&) = delete;
  ~Stranger() {
    if (fakes::signalProcess(pid_, SIGKILL)) waitpid(pid_, nullptr, 0);
  }
  pid_t pid() const { return pid_; }
  bool lives() const { return waitpid(pid_, nullptr, WNOHANG) == 0; }

 private:
  pid_t pid_ = 0;
};

// For a process that has nothing else to do than to hold it.
void holdKeeping(const std::string& path) {
  auto* const lock = new VmLock(path);
  if (!lock->takeKeeping()) _exit(EXIT_FAILURE);
}

class ShimFiles : public fakes::AdoptionWorld {
 protected:
  ShimFiles() { fs::create_directories(folder / "vm/guest0"); }

  void put(const std::string& name, const std::string& content) const {
    std::ofstream(file(name), std::ios::trunc) << content;
  }
  // A daemon finds a VM that it can start, and ends it.
  void expectAStart() {
    fakes::ShimProcess shim(VMAGENT_SHIM, arguments(), environment());
    AgentClient agent(monitor());
    agent.bringUp();
    EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
    shim.signal(SIGTERM);
    EXPECT_EQ(exited(shim.wait()), 0) << shim.errors();
  }
  // A daemon finds a VM that it cannot start; the sentence.
  std::string refusal() {
    fakes::ShimProcess shim(VMAGENT_SHIM, arguments(), environment());
    EXPECT_EQ(exited(shim.wait()), 1);
    std::string said = shim.errors();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    EXPECT_EQ("vmagent-shim: " + contentOf(file("last-error")), said);
    return said;
  }
  // A daemon takes the guest up.
  void expectAdoption(pid_t qemu) {
    DaemonProcess& next = daemon();
    AgentClient agent(monitor());
    agent.bringUp();
    EXPECT_THAT(agent.ask(queryStatus), HasSubstr(R"("running": true)"));
    EXPECT_THAT(qemusOfOurs(), ElementsAre(qemu));
    next.kill();
  }
};

// No guest runs.

TEST_F(ShimFiles, MayHoldAnythingBeforeAStart) {
  const Stranger stranger;
  const std::string pid = std::to_string(stranger.pid());
  const std::string rubbish[] = {"", "\n", pid + "\n", R"({"shim":1,"vm":"gue)",
                                 std::string(100'000, '\0')};
  for (const std::string& content : rubbish) {
    SCOPED_TRACE(content.substr(0, 20));
    for (const char* name : plainFiles) put(name, content);
    expectAStart();
  }
  EXPECT_TRUE(stranger.lives());
}

TEST_F(ShimFiles, MayBeDirectoriesWhereOnlyWordsAreWritten) {
  for (const char* name : plainFiles)
    if (name != std::string("lock")) fs::create_directories(file(name) + "/full");
  expectAStart();
}

TEST_F(ShimFiles, ThatAreSocketsOfNobodyAreReplacedAtOnce) {
  for (const std::string& path : {file("shim.sock"), file("console.sock"), monitor()}) {
    fs::remove(path);
    // Removed by nobody: bound, and closed with its process.
    const Stranger dead([&] {
      (void)!new ListeningSocket(path, "stale");
      _exit(0);
    });
    ASSERT_TRUE(fs::is_socket(path));
  }
  const Time before = now();
  expectAStart();
  EXPECT_LT(now() - before, std::chrono::seconds(10)) << "it waited for the dead";
}

TEST_F(ShimFiles, ThatShouldBeSocketsAndAreNotAreNamed) {
  for (const char* name : {"shim.sock", "console.sock"}) {
    put(name, "");
    EXPECT_THAT(refusal(), HasSubstr(file(name) + " is taken by what is no socket: remove it"));
    fs::remove(file(name));
  }
  fs::remove(file("lock"));
  fs::create_directory(file("lock"));
  EXPECT_THAT(refusal(), HasSubstr("lock file " + file("lock") + " could not be opened"));
}

TEST_F(ShimFiles, LockedByAStrangerAreLeftToItAndTheStrangerIsNamed) {
  const Stranger stranger([this] { holdKeeping(file("lock")); });
  DaemonProcess& refused = daemon();
  AgentClient agent(monitor());
  EXPECT_EQ(agent.line(), "") << "connected, and told of the end: it need not look any longer";
  EXPECT_EQ(exited(refused.shimStatus()), 1);
  EXPECT_FALSE(connectionTo(monitor()));
  const std::string pid = std::to_string(stranger.pid());
  EXPECT_EQ(contentOf(file("last-error")),
            "VM 'guest0' runs already, kept by process " + pid +
                " (its shim cannot be reached at " + file("shim.sock") +
                "): end that process first, with 'kill " + pid + "'\n");
  EXPECT_TRUE(stranger.lives());
  EXPECT_THAT(qemusOfOurs(), IsEmpty());
}

TEST_F(ShimFiles, LockedByAStrangerAreToldOfWhileTheEndIsWaitedFor) {
  {
    const Stranger stranger([this] {
      auto* const lock = new VmLock(file("lock"));
      if (!lock->takeVm()) _exit(1);
    });
    daemon();
    const AgentClient agent(monitor());
    EXPECT_TRUE(fakes::comesToHold(file("problem"), "'fuser " + file("lock") + "' names it"));
    EXPECT_TRUE(stranger.lives());
    EXPECT_THAT(qemusOfOurs(), IsEmpty());
  }
  EXPECT_TRUE(fakes::comeToBe(1, folder.path())) << "it starts once the lock is free";
  EXPECT_EQ(rt::fakes::modeOf(file("problem")), -1);
}

// A guest runs.

TEST_F(ShimFiles, TornAtAnyPlaceUnderALivingGuestLetItBeTakenUp) {
  const pid_t qemu = orphan();
  for (const char* name : plainFiles) {
    SCOPED_TRACE(name);
    for (const uintmax_t share : {2U, 40U, 0U}) {
      if (!fs::exists(file(name))) put(name, "some words, more or less, of an earlier run\n");
      fs::resize_file(file(name), share == 0 ? 0 : fs::file_size(file(name)) / share);
      expectAdoption(qemu);
    }
  }
}

TEST_F(ShimFiles, RemovedUnderALivingGuestAreNotNeededToTakeItUp) {
  const pid_t qemu = orphan();
  for (const char* name : plainFiles) fs::remove(file(name));
  expectAdoption(qemu);
  // The lock was made anew, and protects nobody.
  expectAdoption(qemu);
  fakes::LineClient host(file("shim.sock"));
  host.line();
  host.ask(R"({"stop":{"timeout":0}})");
  expectNothingLeft();
  expectAStart();
}

TEST_F(ShimFiles, WithoutTheSocketOfALivingGuestNameItsShim) {
  const pid_t qemu = orphan();
  const pid_t shim = keeper();
  fs::remove(file("shim.sock"));
  daemon();
  AgentClient agent(monitor());
  EXPECT_EQ(agent.line(), "");
  EXPECT_THAT(contentOf(file("last-error")),
              HasSubstr("runs already, kept by process " + std::to_string(shim) +
                        " (its shim cannot be reached at " + file("shim.sock") + ")"));
  EXPECT_THAT(qemusOfOurs(), ElementsAre(qemu));
  EXPECT_TRUE(fakes::signalProcess(shim, SIGTERM));
  expectNothingLeft();
  expectAStart();
}

// Whoever listens at the shim's socket is no shim that we know.

struct Peer {
  std::string name;
  std::string says;      // to who connects
  std::string repeats;   // every 20 ms; "-": hangs up at once
  std::string sentence;  // what is told of it
};

constexpr char ours[] =
    "{\"shim\":1,\"vm\":\"guest0\",\"pid\":77,\"qemu\":78,\"state\":\"running\"}\n";
const std::vector<Peer> peers{
    {"silent", "", "", "(its shim does not answer): end that process first"},
    {"hangs up", "", "-", "(its shim has ended): end that process first"},
    {"babbles", "what?\n", "\xff\xfe{]\n", "(its shim does not answer)"},
    {"greets and no more", ours, "", "(its shim does not answer)"},
    {"greets for ever", ours, ours, "(its shim does not answer)"},
    {"agrees to what nobody asked", "{\"return\":{}}\n", "", "(its shim does not answer)"},
    {"refuses", ours, "{\"error\":\"not today\"}\n", "(not today)"},
    {"sends what has no end", ours, std::string(100'000, '{'), "(its shim does not answer)"},
    {"later", "{\"shim\":2,\"vm\":\"guest0\",\"pid\":77,\"mood\":\"mellow\"}\n", "",
     "which is of another version (2 and not 1)"},
    {"earlier", "{\"shim\":0,\"vm\":\"guest0\",\"pid\":77}\n", "",
     "which is of another version (0 and not 1)"}};

// A VM of its own, its shim's socket held by such a peer, and a shim that is started nevertheless.
class Encounter {
 public:
  explicit Encounter(const Peer& peer) {
    fs::create_directories(folder_ / "vm/guest0");
    const std::string directory = folder_ / "vm/guest0/";
    stranger_ = std::make_unique<Stranger>(
        [&] {
          holdKeeping(directory + "lock");
          socket_ = std::make_unique<ListeningSocket>(directory + "shim.sock", "control");
        },
        [this, peer] { act(peer); });
    shim_ = std::make_unique<fakes::ShimProcess>(
        VMAGENT_SHIM,
        fakes::agentArguments("guest0", folder_ / "guest0.monitor", folder_ / "none.img"),
        std::map<std::string, std::string>{{"VMAGENT_RUN_DIR", folder_.path()}});
  }
  int status() { return shim_->wait(); }
  std::string said() const { return shim_->errors(); }
  bool strangerLives() const { return stranger_->lives(); }

 private:
  void act(const Peer& peer) {
    if (rt::Descriptor client = socket_->accept()) {
      (void)!write(client.number(), peer.says.data(), peer.says.size());
      if (peer.repeats != "-") clients_.push_back(std::move(client));
    }
    for (const rt::Descriptor& client : clients_)
      (void)!send(client.number(), peer.repeats.data(), peer.repeats.size(), MSG_NOSIGNAL);
    (void)poll(nullptr, 0, 20);
  }

  const rt::fakes::TestFolder folder_;
  std::unique_ptr<ListeningSocket> socket_;  // the stranger's, and what follows
  rt::Descriptors clients_;
  std::unique_ptr<Stranger> stranger_;
  std::unique_ptr<fakes::ShimProcess> shim_;
};

TEST(ShimSocket, OfAStrangerIsToldOfSoonAndTheStrangerIsUnharmed) {
  std::vector<std::unique_ptr<Encounter>> encounters;
  encounters.reserve(peers.size());
  const Time before = now();
  for (const Peer& peer : peers) encounters.push_back(std::make_unique<Encounter>(peer));
  for (size_t i = 0; i < peers.size(); ++i) {
    SCOPED_TRACE(peers[i].name);
    EXPECT_EQ(exited(encounters[i]->status()), 1);
    EXPECT_THAT(encounters[i]->said(), HasSubstr("VM 'guest0' runs already, kept by process "));
    EXPECT_THAT(encounters[i]->said(), HasSubstr(peers[i].sentence));
    EXPECT_TRUE(encounters[i]->strangerLives());
  }
  EXPECT_LT(now() - before, std::chrono::seconds(15));
}

}  // namespace
}  // namespace shim
