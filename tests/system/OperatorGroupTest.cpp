// Who may use VmAgent without being root: members of the group of its directories, and nobody else.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <string_view>

#include "tests/system/GuestWorld.h"

namespace host::fakes {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

constexpr gid_t operators = 4242;
constexpr gid_t someGroup = 4343;
constexpr uid_t someUser = 4343;
// Copies that every user may run, wherever the build's directory is.
constexpr const char* programs = "/var/run/programs";

enum class Membership : uint8_t { member, outsider };

// In a child: to be nobody in particular, and in the group or not.
void dropPrivileges(Membership membership) {
  const gid_t group = operators;
  const bool isMember = membership == Membership::member;
  if (setgroups(isMember ? 1 : 0, &group) != 0 || setresgid(someGroup, someGroup, someGroup) != 0 ||
      setresuid(someUser, someUser, someUser) != 0)
    _exit(126);
}

[[noreturn]] void becomeVmctl(const std::vector<std::string>& words) {
  std::vector<char*> argv;
  argv.reserve(words.size() + 2);
  std::string program = std::string(programs) + "/vmctl";
  argv.push_back(program.data());
  for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  close_range(3, ~0U, 0);
  execv(argv[0], argv.data());
  _exit(127);
}

int statusOf(pid_t child) {
  int wait = 0;
  waitpid(child, &wait, 0);
  return WIFEXITED(wait) ? WEXITSTATUS(wait) : -WTERMSIG(wait);
}

// The error that somebody gets who does that, whose result is below 0 then; else 0.
int errorOf(Membership membership, const std::function<int()>& act) {
  const pid_t child = fork();
  if (child == 0) {
    dropPrivileges(membership);
    _exit(act() < 0 ? errno : 0);
  }
  return statusOf(child);
}

int errorOfOpening(Membership membership, const std::string& file, int flags = O_RDONLY) {
  return errorOf(membership, [&] { return open(file.c_str(), flags | O_NONBLOCK); });
}

// A connection to that socket, below 0 for none.
int connectedTo(const std::string& path) {
  const int viewer = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  const bool isConnected =
      connect(viewer, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  return isConnected ? viewer : -1;
}

std::string readExactly(int from, size_t size) {
  constexpr int patience = 20'000;  // milliseconds
  std::string got;
  pollfd look{from, POLLIN, 0};
  while (got.size() < size && poll(&look, 1, patience) == 1) {
    std::string part(size - got.size(), '\0');
    const ssize_t count = read(from, part.data(), part.size());
    if (count <= 0) break;
    got.append(part, 0, static_cast<size_t>(count));
  }
  return got;
}

// Shakes hands as a viewer does, and asks for the picture's first line.
bool seesTheScreenAt(const std::string& path) {
  using namespace std::string_literals;
  const int viewer = connectedTo(path);
  const auto say = [&](const std::string& words) {
    return write(viewer, words.data(), words.size()) == static_cast<ssize_t>(words.size());
  };
  const bool isWelcome = readExactly(viewer, 12) == "RFB 003.008\n" && say("RFB 003.008\n") &&
                         readExactly(viewer, 2) == "\1\1"s && say("\1") &&
                         readExactly(viewer, 4) == "\0\0\0\0"s && say("\1");
  const std::string screen = readExactly(viewer, 24);  // its width, its height, ...
  if (!isWelcome || screen.size() != 24 || readExactly(viewer, 11) != "QEMU (web1)") return false;
  const std::string firstLine = screen.substr(0, 2) + "\0\1"s;
  const bool isAsked = say("\3\0\0\0\0\0"s + firstLine);
  return isAsked && readExactly(viewer, 4).starts_with('\0');  // a picture
}

// The machine's listening TCP sockets, as the kernel shows them.
std::vector<std::string> listenersOnTheNetwork() {
  std::vector<std::string> found;
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::istringstream lines(contentOf(table));
    for (std::string line; std::getline(lines, line);)
      if (line.find(" 0A ") != std::string::npos) found.push_back(line);
  }
  return found;
}

// A person at a terminal.
class Person {
 public:
  Person(Membership membership, const std::vector<std::string>& words)
      : terminal_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
    std::array<char, 64> path{};
    if (grantpt(terminal_) != 0 || unlockpt(terminal_) != 0 ||
        ptsname_r(terminal_, path.data(), path.size()) != 0)
      std::abort();
    child_ = fork();
    if (child_ != 0) return;
    setsid();
    const int own = open(path.data(), O_RDWR);
    ioctl(own, TIOCSCTTY, 0);
    for (int i = 0; i < 3; ++i) dup2(own, i);
    dropPrivileges(membership);
    becomeVmctl(words);
  }
  Person(const Person&) = delete;
  ~Person() { close(terminal_); }

  void type(std::string_view text) const {
    EXPECT_EQ(write(terminal_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  // All that was on the terminal until `text` is, or nothing more comes.
  std::string sees(const std::string& text) {
    constexpr int patience = 20'000;  // milliseconds
    std::array<char, 1024> bytes{};
    pollfd look{terminal_, POLLIN, 0};
    while (seen_.find(text) == std::string::npos && poll(&look, 1, patience) == 1) {
      const ssize_t size = read(terminal_, bytes.data(), bytes.size());
      if (size <= 0) break;
      seen_.append(bytes.data(), static_cast<size_t>(size));
    }
    return seen_;
  }
  int exit() const { return statusOf(child_); }

 private:
  const int terminal_;
  pid_t child_ = 0;
  std::string seen_;
};

class OperatorsGroup : public testing::Test {
 protected:
  OperatorsGroup() {
    // This machine's groups, and one of operators.
    std::ofstream("/var/run/group") << "root:x:0:\nvmagent:x:" << operators << ":\n";
    EXPECT_EQ(mount("/var/run/group", "/etc/group", nullptr, MS_BIND, nullptr), 0);
    fs::create_directories(programs);
    fs::copy(VMCTL, fs::path(programs) / fs::path(VMCTL).filename(),
             fs::copy_options::overwrite_existing);
    setenv("VMAGENT_STATE_DIR", world.stateDir.c_str(), 1);
    setenv("VMAGENT_RUN_DIR", world.runDir.c_str(), 1);
    // As a machine is on which no daemon ever ran.
    fs::remove_all(world.stateDir);
    fs::copy_file(BOOTSECTOR, disk, fs::copy_options::overwrite_existing);
    world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg", "--stop-timeout", "0"});
  }
  ~OperatorsGroup() override {
    umount2("/etc/group", MNT_DETACH);
    for (const char* name : {"VMAGENT_STATE_DIR", "VMAGENT_RUN_DIR"}) unsetenv(name);
  }

  static Ended vmctl(Membership membership, const std::vector<std::string>& words) {
    const std::string out = "/var/run/answer.out";
    const std::string err = "/var/run/answer.err";
    const pid_t child = fork();
    if (child == 0) {
      const int flags = O_WRONLY | O_CREAT | O_TRUNC;
      dup2(open("/dev/null", O_RDONLY), 0);
      dup2(open(out.c_str(), flags, 0600), 1);
      dup2(open(err.c_str(), flags, 0600), 2);
      dropPrivileges(membership);
      becomeVmctl(words);
    }
    const int status = statusOf(child);
    return {status, contentOf(out), contentOf(err)};
  }
  void runGuest() const {
    const std::vector<std::string> add{"add", "web1",       "--disk", disk,       "--memory",
                                       "32",  "--vnc-port", "5901",   "--enabled"};
    world.ctl(add);
    ASSERT_TRUE(world.saysOnConsole("web1", "READY")) << world.log();
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "web1", "pty:"); })) << world.log();
  }
  // What a file's mode should be: a guest's are only read, and its sockets connected to.
  mode_t modeOf(const std::string& path, mode_t kind) const {
    const bool isGuests = path == world.runDir + "/vm" || path.starts_with(world.runDir + "/vm/");
    const bool isKept = path.starts_with(world.stateDir + "/kept");
    if (isKept) return S_ISDIR(kind) ? 0750 : 0640;
    if (S_ISDIR(kind)) return isGuests ? 02750 : 02770;
    for (const char* lock : {"/vmagentd.lock", "/web1/lock", "/vm/.users"})
      if (path.ends_with(lock)) return 0600;
    return isGuests && S_ISREG(kind) ? 0640 : 0660;
  }
  std::string ptyOfGuest() const {
    const std::string row = world.row("vmStatus", "web1");
    const size_t at = row.find("/dev/pts/");
    return row.substr(at, row.find('"', at) - at);
  }

  const std::string disk = "/var/run/web1.img";
  GuestWorld world;
};

TEST_F(OperatorsGroup, MayUseEveryVerbWithoutBeingRoot) {
  const std::vector<std::vector<std::string>> commands = {
      {"add", "web1", "--disk", disk, "--memory", "32"},
      {"nic", "add", "web1", "model=e1000,mac=52:54:00:12:34:56,intf=Ethernet1"},
      {"nic", "remove", "web1", "nic00"},
      {"interface", "set", "Vlan100", "--device", "eth9"},
      {"interface", "unset", "Vlan100"},
      {"enable", "web1", "--wait"},
      {"wait", "web1", "--for", "state=Running"},
      {"list"},
      {"top", "-n", "1", "--interval", "0.1"},
      {"show", "web1"},
      {"logs", "web1"},
      {"logs", "web1", "--shim"},
      {"interface", "list"},
      {"fdb", "list"},
      {"export"},
      {"metrics"},
      {"backup", world.runDir + "/backup.db"},
      {"restore", world.runDir + "/backup.db"},
      {"restart", "web1", "--wait"},
      {"set", "web1", "memory=33"},
      {"disable", "web1", "--wait"},
      {"remove", "web1", "--wait"}};
  for (const auto& words : commands) {
    const Ended ended = vmctl(Membership::member, words);
    EXPECT_EQ(ended.status, 0) << testing::PrintToString(words) << ended.err << world.log();
  }
}

TEST_F(OperatorsGroup, HasTheConsoles) {
  runGuest();
  EXPECT_THAT(vmctl(Membership::member, {"logs", "web1"}).out, HasSubstr("BOOTSECTOR READY"));
  Person person(Membership::member, {"console", "web1"});
  EXPECT_THAT(person.sees("BOOTSECTOR READY"), HasSubstr("BOOTSECTOR READY"));
  person.type("knock");
  EXPECT_THAT(person.sees("knock"), HasSubstr("knock"));
  person.type("\x1d");
  EXPECT_THAT(person.sees("web1: left"), HasSubstr("web1: left"));
  EXPECT_EQ(person.exit(), 0);
}

// QEMU's process is another user's, and not root's.
TEST_F(OperatorsGroup, SeesWhatAGuestTakes) {
  runGuest();
  const Ended ended = vmctl(Membership::member, {"top", "-n", "1", "-o", "json"});
  EXPECT_EQ(ended.status, 0) << ended.err;
  EXPECT_THAT(ended.out, testing::ContainsRegex(R"("pid":[0-9]+,)"));
  EXPECT_THAT(ended.out, testing::ContainsRegex(R"("usedUs":[0-9]+,)"));
  EXPECT_THAT(ended.out, testing::ContainsRegex(R"("bytes":[0-9]+,)"));
}

TEST_F(OperatorsGroup, KeepsOthersOutOfAllThereIs) {
  runGuest();
  for (const std::vector<std::string>& words : {std::vector<std::string>{"list"},
                                                {"show", "web1"},
                                                {"disable", "web1"},
                                                {"remove", "web1", "--force"}}) {
    const Ended ended = vmctl(Membership::outsider, words);
    EXPECT_EQ(ended.status, 6) << words[0];
    EXPECT_EQ(ended.out, "") << words[0];
    EXPECT_EQ(ended.err, "vmctl: no permission to use " + world.stateDir +
                             "/config.db: run as root, or as a member of the file's group\n");
  }
  const Ended logs = vmctl(Membership::outsider, {"logs", "web1"});
  EXPECT_EQ(logs.status, 1);
  EXPECT_THAT(logs.err, HasSubstr("Permission denied (errno 13): run vmctl as root, or as a member "
                                  "of the group vmagent\n"));
  Person person(Membership::outsider, {"console", "web1"});
  EXPECT_THAT(person.sees("group"), HasSubstr("no permission to use"));
  EXPECT_EQ(person.exit(), 6);
}

// Nor may a stranger: who can read a file can hold it locked.
TEST_F(OperatorsGroup, CannotHoldTheDaemonsLocksAndSeesThatItRuns) {
  for (const Membership each : {Membership::member, Membership::outsider})
    for (const std::string& lock :
         {world.runDir + "/vmagentd.lock", std::string("/var/run/vmagentd.lock")})
      EXPECT_EQ(errorOfOpening(each, lock), EACCES) << lock;
  const std::string absence = "vmagentd is not running";
  EXPECT_THAT(vmctl(Membership::member, {"list"}).err, Not(HasSubstr(absence)));
  world.end(SIGTERM);
  EXPECT_THAT(vmctl(Membership::member, {"list"}).err, HasSubstr(absence));
}

TEST_F(OperatorsGroup, HasTheScreensAndNobodyElseReachesThem) {
  runGuest();
  const std::string screen = world.runDir + "/vm/web1/vnc.sock";
  EXPECT_THAT(vmctl(Membership::member, {"show", "web1"}).out,
              HasSubstr("Display:  VNC, " + screen + "\n"));
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(errorOf(Membership::member, [&] { return seesTheScreenAt(screen) ? 0 : -1; }), 0);
  EXPECT_EQ(errorOf(Membership::outsider, [&] { return connectedTo(screen); }), EACCES);
  EXPECT_THAT(listenersOnTheNetwork(), testing::IsEmpty());
}

// What a daemon may: a shim makes the agent's socket wherever it is told to, and a guest ends by
// the row that it is of.
TEST_F(OperatorsGroup, MayNotTakeAGuestOverNorSayWhichRowItIsOf) {
  runGuest();
  world.end(SIGKILL);
  const std::string shim = world.runDir + "/vm/web1/shim.sock";
  const auto refusal = [&](const std::string& request) {
    const int own = connectedTo(shim);
    std::string heard;
    if (write(own, request.data(), request.size()) > 0)
      while (heard.find("\"error\"") == std::string::npos) {
        const std::string more = readExactly(own, 1);
        if (more.empty()) return -1;
        heard += more;
      }
    const std::string rest = readExactly(own, 45);
    return rest.find("only the user who keeps the guest") != std::string::npos ? 0 : -1;
  };
  for (const char* request : {R"({"adopt":{"pid":2,"daemon":2,"arguments":["-name","web1"]}})",
                              R"({"row":{"store":"a","sequence":1}})"})
    EXPECT_EQ(errorOf(Membership::member, [&] { return refusal(std::string(request) + "\n"); }), 0)
        << request;
}

TEST_F(OperatorsGroup, MayReadTheGuestsFilesAndChangeNothingThere) {
  runGuest();
  const std::string guests = world.runDir + "/vm";
  const std::string guest = guests + "/web1";
  for (const char* name : {"console.log", "shim.log"}) {
    EXPECT_EQ(errorOfOpening(Membership::member, guest + "/" + name), 0) << name;
    EXPECT_EQ(errorOfOpening(Membership::member, guest + "/" + name, O_WRONLY), EACCES) << name;
  }
  EXPECT_EQ(errorOfOpening(Membership::member, guest + "/lock"), EACCES);
  for (const std::string& directory : {guests, guest}) {
    const std::string made = directory + "/made";
    EXPECT_EQ(errorOf(Membership::member, [&] { return mkfifo(made.c_str(), 0666); }), EACCES);
    EXPECT_EQ(errorOf(Membership::member, [&] { return symlink("/", made.c_str()); }), EACCES);
  }
  const std::string elsewhere = world.runDir + "/elsewhere";
  const std::string log = guest + "/shim.log";
  EXPECT_EQ(errorOf(Membership::member, [&] { return rename(guest.c_str(), elsewhere.c_str()); }),
            EACCES);
  EXPECT_EQ(errorOf(Membership::member, [&] { return unlink(log.c_str()); }), EACCES);
}

// By the group's own doing, or a slip of one of its members.
TEST_F(OperatorsGroup, HasTheDaemonServeItWhateverStandsBesideTheDatabases) {
  runGuest();
  for (const std::string& bell :
       {world.stateDir + "/config.db-bell", world.runDir + "/status.db-bell"})
    EXPECT_EQ(errorOf(Membership::member,
                      [&] { return unlink(bell.c_str()) | mkfifo(bell.c_str(), 0660); }),
              0);
  const Ended ended = vmctl(Membership::member, {"disable", "web1", "--wait", "--timeout", "20"});
  EXPECT_EQ(ended.status, 0) << ended.err << world.log();
}

TEST_F(OperatorsGroup, HasAllFilesAndNobodyElseHasAny) {
  runGuest();
  ASSERT_EQ(vmctl(Membership::member, {"set", "web1", "memory=33"}).status, 0);
  std::vector<std::string> paths{world.stateDir, world.runDir, ptyOfGuest()};
  for (const std::string& top : {world.stateDir, world.runDir})
    for (const auto& entry : fs::recursive_directory_iterator(top))
      paths.push_back(entry.path().string());
  EXPECT_GT(paths.size(), 12U);
  for (const std::string& path : paths) {
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0) << path;
    EXPECT_EQ(status.st_gid, operators) << path;
    EXPECT_EQ(status.st_mode & 07777U, modeOf(path, status.st_mode)) << path;
  }
}

}  // namespace
}  // namespace host::fakes
