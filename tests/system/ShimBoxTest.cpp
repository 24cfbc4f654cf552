// What QEMU is shut in, and what one that its guest has taken over can do: docs/security.md says
// it, and these hold it to its words.
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "guest/GuestUsers.h"
#include "shim/fakes/ShimWorld.h"

namespace shim {
namespace {

namespace fs = std::filesystem;

using fakes::AgentClient;
using fakes::exited;
using fakes::ShimProcess;
using rt::fakes::contentOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::Not;
using testing::UnorderedElementsAre;

// "0" of a line "CapEff:\t0".
std::string statusOf(pid_t process, const std::string& name) {
  std::istringstream lines(contentOf("/proc/" + std::to_string(process) + "/status"));
  for (std::string line; std::getline(lines, line);)
    if (line.starts_with(name + ":\t")) return line.substr(name.size() + 2);
  return "";
}

unsigned userOf(pid_t process) {
  return static_cast<unsigned>(std::stoul("0" + statusOf(process, "Uid")));
}

std::string directoryOf(pid_t process) { return "/proc/" + std::to_string(process); }

std::vector<std::string> entriesOf(const std::string& directory) {
  std::vector<std::string> entries;
  for (const auto& entry : fs::directory_iterator(directory))
    entries.push_back(entry.path().filename().string());
  return entries;
}

class ShimBox : public fakes::ShimWorld {
 protected:
  // Two guests; of each its shim and its agent.
  struct Guest {
    std::unique_ptr<ShimProcess> shim;
    std::unique_ptr<AgentClient> agent;

    pid_t qemu() const { return shim->qemu(); }
  };
  Guest startGuest(const std::string& name) const {
    fs::copy_file(BOOTSECTOR, folder / (name + ".img"), fs::copy_options::overwrite_existing);
    const std::string path = folder / (name + ".monitor");
    Guest guest;
    guest.shim = std::make_unique<ShimProcess>(
        VMAGENT_SHIM, fakes::agentArguments(name, path, folder / (name + ".img")), environment());
    guest.agent = std::make_unique<AgentClient>(path);
    guest.agent->bringUp();
    return guest;
  }
};

TEST_F(ShimBox, HasAQemuOfAUserOfItsOwnWithoutAnyRight) {
  const Guest guest = startGuest("guest0");
  const pid_t qemu = guest.qemu();
  const std::string user = std::to_string(userOf(qemu));
  EXPECT_GE(userOf(qemu), guest::UserRange().first);
  EXPECT_LE(userOf(qemu), guest::UserRange().last);
  EXPECT_EQ(statusOf(qemu, "Uid"), user + "\t" + user + "\t" + user + "\t" + user);
  EXPECT_EQ(statusOf(qemu, "Gid"), statusOf(qemu, "Uid"));
  EXPECT_EQ(statusOf(qemu, "Groups"), " ");
  for (const char* rights : {"CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"})
    EXPECT_EQ(statusOf(qemu, rights), "0000000000000000") << rights;
  EXPECT_EQ(statusOf(qemu, "NoNewPrivs"), "1");
}

// A process may show a filter that some of its threads have not.
TEST_F(ShimBox, HasAQemuWhoseThreadsAllHaveBothFilters) {
  const Guest guest = startGuest("guest0");
  const std::string threads = directoryOf(guest.qemu()) + "/task";
  EXPECT_GT(entriesOf(threads).size(), 2);
  for (const std::string& thread : entriesOf(threads)) {
    const std::string status = contentOf(threads + "/" + thread + "/status");
    EXPECT_THAT(status, HasSubstr("\nSeccomp:\t2\n")) << thread;
    EXPECT_THAT(status, HasSubstr("\nSeccomp_filters:\t2\n")) << thread;
  }
}

TEST_F(ShimBox, HasNamespacesOfItsOwnWithNothingInThem) {
  const Guest guest = startGuest("guest0");
  const std::string process = directoryOf(guest.qemu());
  for (const char* kind : {"net", "mnt", "ipc", "uts"})
    EXPECT_NE(fs::read_symlink(process + "/ns/" + kind),
              fs::read_symlink("/proc/self/ns/" + std::string(kind)))
        << kind;
  // Two lines of titles, and the loopback device.
  const std::string devices = contentOf(process + "/net/dev");
  EXPECT_EQ(std::count(devices.begin(), devices.end(), '\n'), 3) << devices;
  EXPECT_EQ(statusOf(guest.shim->pid(), "Uid"), "0\t0\t0\t0");
}

TEST_F(ShimBox, HasFilesThatQemuReadsAndNoOthers) {
  const Guest guest = startGuest("guest0");
  const std::string root = directoryOf(guest.qemu()) + "/root";
  std::vector<std::string> top = entriesOf(root);
  std::erase_if(top, [&](const std::string& entry) { return fs::is_symlink(root + "/" + entry); });
  EXPECT_THAT(top, UnorderedElementsAre("dev", "usr"));
  EXPECT_THAT(entriesOf(root + "/dev"), UnorderedElementsAre("null", "urandom"));
  EXPECT_THAT(entriesOf(root + "/usr/share"), Each(testing::AnyOf("qemu", "seabios")));
  EXPECT_THAT(entriesOf(root + "/usr/bin"), ElementsAre("qemu-system-x86_64"));
  std::istringstream mounts(contentOf(directoryOf(guest.qemu()) + "/mounts"));
  for (std::string line; std::getline(mounts, line);)
    EXPECT_THAT(line, MatchesRegex("[^ ]+ [^ ]+ [^ ]+ ro,nosuid,.*")) << "can be written";
}

TEST_F(ShimBox, KeepsGuestsFromEachOtherByTheirUsers) {
  const Guest first = startGuest("guest0");
  const Guest second = startGuest("guest1");
  EXPECT_NE(userOf(first.qemu()), userOf(second.qemu()));
}

TEST_F(ShimBox, IsOfNoUserWhoHasAProcess) {
  constexpr guest::UserRange one{60003, 60003};
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t stranger = fork();
  if (stranger == 0) {
    char ready = setresuid(one.first, one.first, one.first) == 0 ? 'y' : 'n';
    (void)!write(ends[1], &ready, 1);
    pause();
    _exit(0);
  }
  char ready = 0;
  ASSERT_EQ(read(ends[0], &ready, 1), 1);
  ASSERT_EQ(ready, 'y');
  auto told = environment();
  told["VMAGENT_GUEST_USERS"] = guest::textOf(one);
  ShimProcess refused(VMAGENT_SHIM, arguments(), told);
  EXPECT_EQ(exited(refused.wait()), 1);
  EXPECT_THAT(refused.errors(), HasSubstr("no user is left to run QEMU as: all of 60003-60003"));
  fakes::signalProcess(stranger, SIGKILL);
  EXPECT_EQ(waitpid(stranger, nullptr, 0), stranger);
  const ShimProcess shim(VMAGENT_SHIM, arguments(), told);
  AgentClient(monitor()).bringUp();
  EXPECT_EQ(userOf(shim.qemu()), one.first);
}

// Wherever on the way: no user stays taken, no mount, no lock.
TEST_F(ShimBox, ThatIsNeverEnteredLeavesNothing) {
  const std::string mounts = contentOf("/proc/self/mountinfo");
  auto told = environment();
  told["VMAGENT_GUEST_USERS"] = "60004-60004";
  constexpr int moments = 40;
  constexpr useconds_t between = 60;  // microseconds
  int killed = 0;
  for (int i = 0; i < moments; ++i) {
    ShimProcess shim(VMAGENT_SHIM, arguments(), told);
    pid_t child = 0;
    while ((child = shim.qemu()) == 0 && !fakes::becomesReadable(shim.pipe().number(), 0)) continue;
    usleep(static_cast<useconds_t>(i) * between);
    if (child > 1 && fakes::signalProcess(child, SIGKILL)) ++killed;
    EXPECT_EQ(fakes::signaled(shim.wait()), SIGKILL) << contentOf(file("shim.log"));
  }
  EXPECT_EQ(killed, moments);
  const ShimProcess shim(VMAGENT_SHIM, arguments(), told);
  AgentClient(monitor()).bringUp();
  EXPECT_EQ(userOf(shim.qemu()), 60004);
  EXPECT_EQ(contentOf("/proc/self/mountinfo"), mounts);
}

// As a file server refuses what root asks of it.
TEST_F(ShimBox, SaysThatRootMayNotHaveTheImage) {
  ASSERT_EQ(chown((folder / "disk.img").c_str(), 60005, 60005), 0);
  ASSERT_EQ(chmod((folder / "disk.img").c_str(), 0600), 0);
  std::vector<std::string> words = {"--bounding-set", "-dac_override,-dac_read_search",
                                    VMAGENT_SHIM};
  const auto shims = arguments();
  words.insert(words.end(), shims.begin(), shims.end());
  ShimProcess shim("/usr/bin/setpriv", words, environment());
  EXPECT_EQ(exited(shim.wait()), 1);
  EXPECT_THAT(shim.errors(),
              HasSubstr("' cannot be opened for writing: Permission denied (to root: "
                        "if it is another machine's file, that must let root"));
}

TEST_F(ShimBox, HasItsLimits) {
  const Guest guest = startGuest("guest0");
  const auto limit = [&](__rlimit_resource resource) {
    rlimit now{};
    prlimit(guest.qemu(), resource, nullptr, &now);
    return now.rlim_max;
  };
  EXPECT_LE(limit(RLIMIT_NOFILE), 1024);
  EXPECT_LE(limit(RLIMIT_NPROC), 512);
  EXPECT_LE(limit(RLIMIT_CORE), 1);  // to raise it to 1 takes a right that root may lack here
  EXPECT_EQ(limit(RLIMIT_MSGQUEUE), 0);
  EXPECT_EQ(limit(RLIMIT_RTPRIO), 0);
}

TEST_F(ShimBox, LeavesItsShimTheRightToEndItAlone) {
  const Guest guest = startGuest("guest0");
  constexpr const char* toKill = "0000000000000020";
  for (const char* rights : {"CapPrm", "CapEff", "CapBnd"})
    EXPECT_EQ(statusOf(guest.shim->pid(), rights), toKill) << rights;
  EXPECT_EQ(statusOf(guest.shim->pid(), "NoNewPrivs"), "1");
}

// The names of what it has open, as docs/security.md lists them: | `NAME` | ... |, a regular
// expression each.
std::vector<std::string> listedDescriptors() {
  std::istringstream lines(contentOf(SECURITY_PAGE));
  std::vector<std::string> listed;
  bool isList = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("#")) isList = line == "## What QEMU has open";
    std::smatch row;
    if (isList && std::regex_match(line, row, std::regex(R"(\| [^|]*\| `([^`]+)` \|.*)")))
      listed.push_back(row[1]);
  }
  return listed;
}

TEST_F(ShimBox, HasNothingOpenButWhatIsListed) {
  const Guest guest = startGuest("guest0");
  const std::vector<std::string> listed = listedDescriptors();
  ASSERT_THAT(listed, Not(IsEmpty()));
  for (const std::string& number : entriesOf(directoryOf(guest.qemu()) + "/fd")) {
    const std::string name = fs::read_symlink(directoryOf(guest.qemu()) + "/fd/" + number).string();
    const bool isListed = std::any_of(listed.begin(), listed.end(), [&](const std::string& each) {
      return std::regex_match(name, std::regex(each));
    });
    EXPECT_TRUE(isListed) << number << " is " << name;
  }
}

// A listener that no file leads to.
rt::Descriptor listenerOfName(const std::string& name) {
  rt::Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::copy(name.begin(), name.end(), address.sun_path + 1);
  const auto size = static_cast<socklen_t>(sizeof(sa_family_t) + 1 + name.size());
  EXPECT_EQ(bind(made.number(), reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(listen(made.number(), 1), 0);
  return made;
}

using Answers = std::map<std::string, std::string>;

// docs/security.md's table: | what | `ATTACK`, `ATTACK` | `ANSWER` | why |.
Answers listedAnswers() {
  std::istringstream lines(contentOf(SECURITY_PAGE));
  Answers listed;
  const std::regex rowOfTable(R"(\| [^|]*\| ((?:`[^`]+`(?:, )?)+) \| `([A-Za-z]+)` \|.*)");
  const std::regex word("`([^`]+)`");
  for (std::string line; std::getline(lines, line);) {
    std::smatch row;
    if (!std::regex_match(line, row, rowOfTable)) continue;
    const std::string names = row[1];
    for (std::sregex_iterator each(names.begin(), names.end(), word), end; each != end; ++each)
      listed[(*each)[1]] = row[2];
  }
  return listed;
}

Answers answersIn(const std::string& log) {
  Answers given;
  const std::regex said(R"(qemu: attack ([^:]+): (\w+))");
  for (std::sregex_iterator each(log.begin(), log.end(), said), end; each != end; ++each)
    given[(*each)[1]] = (*each)[2];
  return given;
}

TEST_F(ShimBox, GivesATakenOverQemuTheAnswersThatAreListed) {
  const Guest other = startGuest("guest1");
  const rt::Descriptor listener = listenerOfName("outside");
  std::vector<std::string> words = arguments();
  words.push_back("--victim=" + std::to_string(other.qemu()));
  words.push_back("--image=" + (folder / "guest1.img"));
  words.emplace_back("--socket=outside");
  std::map<std::string, std::string> told = environment();
  told["VMAGENT_QEMU"] = CAPTIVE;
  ShimProcess shim(VMAGENT_SHIM, words, told);
  EXPECT_EQ(exited(shim.wait()), 0) << contentOf(file("shim.log"));
  Answers given = answersIn(contentOf(file("shim.log")));
  Answers listed = listedAnswers();
  std::set<std::string> attacks;
  for (const Answers& each : {given, listed})
    for (const auto& [attack, answer] : each) attacks.insert(attack);
  EXPECT_GT(given.size(), 90);
  for (const std::string& attack : attacks) EXPECT_EQ(given[attack], listed[attack]) << attack;
  EXPECT_THAT(other.agent->ask(fakes::queryStatus), HasSubstr(R"("running": true)"));
}

}  // namespace
}  // namespace shim
