// A real guest with an operating system: Linux, seen from its console and from its wire.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <regex>

#include "runtime/base/Check.h"
#include "tests/system/GuestWorld.h"
#include "tests/system/PrivateMounts.h"

namespace host::fakes {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* ping = "/usr/bin/ping";

// A switch's interface whose other end is ours, with an address in each of the guest's networks.
void addPort(const std::string& port, const std::string& wire,
             const std::vector<std::string>& addresses) {
  ip("link add " + port + " type veth peer name " + wire);
  ip("link set " + port + " up");
  for (const auto& address : addresses)
    ip(std::string("addr add dev ").append(wire).append(" ").append(address));
  ip("link set " + wire + " up");
}

bool answersPing(const std::string& address, double seconds = 20) {
  return waitUntil(
      [&] {
        return run({ping, "-q", "-c", "1", "-W", "1", address}).status == 0;
      },
      seconds);
}

// Pings in the background. `options`: how often, and whom.
class Pinging {
 public:
  explicit Pinging(std::vector<std::string> options) {
    int ends[2];
    rt::check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    options.insert(options.begin(), ping);
    std::vector<char*> argv;
    argv.reserve(options.size() + 1);
    for (auto& option : options) argv.push_back(option.data());
    argv.push_back(nullptr);
    if (pid_ = fork(); pid_ == 0) {
      dup2(ends[1], 1);
      execv(ping, argv.data());
      _exit(127);
    }
    close(ends[1]);
    output_ = fdopen(ends[0], "re");
  }
  Pinging(const Pinging&) = delete;
  ~Pinging() {
    Vm::fakes::signalProcess(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    std::fclose(output_);
  }

  // Reads that many answers, and waits for those that are not there yet; whether they came.
  bool hasAnswers(int count) {
    static const std::regex answer("icmp_seq=(\\d+) .*time=");
    std::array<char, 256> line{};
    for (int seen = 0; seen < count;) {
      if (std::fgets(line.data(), line.size(), output_) == nullptr) return false;
      std::cmatch part;
      if (!std::regex_search(line.data(), part, answer)) continue;
      lastAnswered_ = std::stoi(part[1]);
      ++answered_;
      ++seen;
    }
    return true;
  }
  // The questions so far that were not answered, though a later one was.
  int lost() const { return lastAnswered_ - answered_; }

 private:
  pid_t pid_ = 0;
  std::FILE* output_ = nullptr;
  int answered_ = 0;
  int lastAnswered_ = 0;
};

// A hundred frames a second to whoever is there.
std::vector<std::string> flood(const std::string& network) {
  return {"-q", "-b", "-i", "0.01", network};
}

class LinuxGuest : public testing::Test {
 protected:
  void start() { world.start({"--shim", VMAGENT_SHIM, "--accel", "tcg"}); }
  // One that is up. `cards`: model, last byte of the address, and interface.
  void runGuest(const std::vector<std::string>& cards) {
    start();
    std::filesystem::copy_file(LINUX_GUEST, "/var/run/linux.iso");
    std::vector<std::string> words = {"add",      "demo", "--disk",   "/var/run/linux.iso",
                                      "--memory", "128",  "--enabled"};
    for (const auto& card : cards) words.insert(words.end(), {"--nic", card});
    world.ctl(words);
    ASSERT_TRUE(world.saysOnConsole("demo", "GUEST READY", 0, 150)) << whatIsSo();
    world.ctl({"wait", "demo", "--for", "state=Running", "--timeout", "40"});
    ASSERT_THAT(world.qemus("demo"), SizeIs(1));
  }
  // One digit a card.
  bool seesCarriers(const std::string& carriers) const {
    return world.answersOnConsole("demo",
                                  "echo carriers=$(cat /sys/class/net/eth*/carrier | tr -d '\\n')!",
                                  "carriers=" + carriers + "!");
  }
  bool hasSeenCarrierChanges(int count) const {
    const std::string changes = std::to_string(count);
    return world.answersOnConsole("demo",
                                  "echo changes=$(cat /sys/class/net/eth0/carrier_changes)!",
                                  "changes=" + changes + "!");
  }
  // Whether vmctl comes to say that of it.
  bool says(const std::string& verb, const std::string& text) const {
    return waitUntil([&] {
      return world.vmctl({verb, "demo"}).out.find(text) != std::string::npos;
    });
  }
  std::string whatIsSo() const {
    return run({"/bin/cat", world.runDir + "/vm/demo/shim.log"}).out +
           run({"/sbin/ip", "-s", "link"}).out + run({"/sbin/ip", "neigh"}).out +
           world.console("demo") + world.row("vmProblem", "demo") + "\n" + world.log();
  }
  static std::string card(const std::string& model, const std::string& lastByte,
                          const std::string& interface) {
    return "model=" + model + ",mac=52:54:00:12:34:" + lastByte + ",intf=" + interface;
  }

  GuestWorld world;
};

// Cards. Linux counts them by model, in this order.

TEST_F(LinuxGuest, HasACardOfEachModelThatAnswersAndFollowsItsInterfaceAsItGoesAndComes) {
  const auto addPorts = [] {
    for (const char* const i : {"0", "1", "2"})
      addPort(std::string("Ethernet") + i, std::string("wire") + i,
              {std::string("10.77.") + i + ".1/24"});
  };
  const auto expectAnswers = [this] {
    EXPECT_TRUE(answersPing("10.77.0.16")) << "virtio-net-pci\n" << whatIsSo();
    EXPECT_TRUE(answersPing("10.77.1.32")) << "e1000\n" << whatIsSo();
    EXPECT_TRUE(answersPing("10.77.2.48")) << "rtl8139\n" << whatIsSo();
  };
  addPorts();
  {
    // What comes before a guest takes it must not keep from it what comes later.
    const Pinging early[] = {Pinging(flood("10.77.0.255")), Pinging(flood("10.77.1.255")),
                             Pinging(flood("10.77.2.255"))};
    runGuest({card("virtio-net-pci", "10", "Ethernet0"), card("e1000", "20", "Ethernet1"),
              card("rtl8139", "30", "Ethernet2")});
  }
  const auto before = world.qemus("demo");
  expectAnswers();
  EXPECT_TRUE(seesCarriers("111")) << world.console("demo");

  for (const char* const i : {"0", "1", "2"}) ip(std::string("link del Ethernet") + i);
  EXPECT_TRUE(seesCarriers("000")) << world.console("demo");

  addPorts();
  EXPECT_TRUE(seesCarriers("111")) << world.console("demo");
  expectAnswers();
  EXPECT_EQ(world.qemus("demo"), before);
}

TEST_F(LinuxGuest, HasEachOfItsCardsOnItsInterfaceAndTwoOnOne) {
  addPort("Ethernet1", "wire1", {"10.77.0.1/24", "10.77.1.1/24"});
  addPort("Ethernet2", "wire2", {"10.77.2.1/24"});
  runGuest({card("virtio-net-pci", "10", "Ethernet1"), card("virtio-net-pci", "20", "Ethernet1"),
            card("e1000", "30", "Ethernet2")});
  // Linux answers for an address at any of its cards: that each hears for itself is only seen when
  // nobody has to ask which one it is.
  ip("neigh replace 10.77.0.16 lladdr 52:54:00:12:34:10 dev wire1 nud permanent");
  ip("neigh replace 10.77.1.32 lladdr 52:54:00:12:34:20 dev wire1 nud permanent");
  EXPECT_TRUE(answersPing("10.77.0.16")) << whatIsSo();
  EXPECT_TRUE(answersPing("10.77.1.32")) << whatIsSo();
  EXPECT_TRUE(answersPing("10.77.2.48")) << whatIsSo();

  ip("link del Ethernet1");
  EXPECT_TRUE(seesCarriers("001")) << world.console("demo");
  EXPECT_TRUE(answersPing("10.77.2.48")) << "its own interface is still there";
}

TEST_F(LinuxGuest, AnswersAgainWhenSomebodyDeletedTheDeviceOfItsCardAndNoOtherIsDisturbed) {
  addPort("Ethernet1", "wire1", {"10.77.0.1/24"});
  addPort("Ethernet2", "wire2", {"10.77.1.1/24"});
  runGuest({card("virtio-net-pci", "10", "Ethernet1"), card("virtio-net-pci", "20", "Ethernet2")});
  ASSERT_TRUE(answersPing("10.77.0.16")) << whatIsSo();
  ASSERT_TRUE(answersPing("10.77.1.32")) << whatIsSo();
  Pinging other({"-i", "0.2", "10.77.1.32"});
  EXPECT_TRUE(other.hasAnswers(1));
  ip("link del macvtap0");
  EXPECT_TRUE(answersPing("10.77.0.16", 10)) << whatIsSo();
  EXPECT_TRUE(other.hasAnswers(5));
  EXPECT_EQ(other.lost(), 0);
}

// Both ports lead to one hub, as two of a switch do.
TEST_F(LinuxGuest, GoesOnOnAnotherPortThatItsCardIsMovedTo) {
  ip("link add hub type bridge ageing_time 0");
  ip("addr add dev hub 10.77.0.1/24");
  ip("link set hub up");
  for (const char* const i : {"1", "2"}) {
    addPort(std::string("Ethernet") + i, std::string("wire") + i, {});
    ip(std::string("link set master hub dev wire") + i);
  }
  runGuest({card("virtio-net-pci", "10", "Ethernet1")});
  const auto before = world.qemus("demo");
  ASSERT_TRUE(answersPing("10.77.0.16")) << whatIsSo();
  Pinging pinging({"-i", "0.02", "10.77.0.16"});
  EXPECT_TRUE(pinging.hasAnswers(1));
  world.ctl({"nic", "set", "demo", "nic00", "intf=Ethernet2"});
  EXPECT_TRUE(waitUntil([] {
    return run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out.find("@Ethernet2") !=
           std::string::npos;
  })) << whatIsSo();
  ip("link del Ethernet1");
  EXPECT_TRUE(pinging.hasAnswers(100)) << whatIsSo();
  RecordProperty("lost", pinging.lost());
  EXPECT_TRUE(hasSeenCarrierChanges(4)) << "its line went and came: " << world.console("demo");
  EXPECT_EQ(world.qemus("demo"), before);
  EXPECT_EQ(world.row("vmProblem", "demo"), "");
}

TEST_F(LinuxGuest, SeesTheLineOfItsInterfaceGoAndComeWhicheverDaemonThereIs) {
  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  runGuest({card("virtio-net-pci", "56", "Ethernet1")});
  EXPECT_TRUE(seesCarriers("1")) << world.console("demo");
  ip("link set wire down");
  EXPECT_TRUE(seesCarriers("0")) << whatIsSo();
  EXPECT_TRUE(says("why", "nic00: Ethernet1 has no carrier, for ")) << whatIsSo();
  EXPECT_TRUE(says("show", "yes      noCarrier")) << whatIsSo();
  EXPECT_TRUE(says("history", "nic00: Ethernet1 has no carrier")) << whatIsSo();
  world.end(SIGKILL);
  start();
  world.ctl({"wait", "demo", "--for", "state=Running", "--timeout", "40"});
  ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmStatus", "demo", "pty:"); })) << whatIsSo();
  EXPECT_TRUE(seesCarriers("0")) << "the next daemon's agent has attached it anew\n" << whatIsSo();
  ip("link set wire up");
  EXPECT_TRUE(seesCarriers("1")) << whatIsSo();
  EXPECT_TRUE(waitUntil([&] { return world.row("vmProblem", "demo").empty(); })) << whatIsSo();
  EXPECT_TRUE(answersPing("10.77.0.86")) << whatIsSo();
}

TEST_F(LinuxGuest, SeesNothingOfItsInterfacesLineWhereItsPolicySaysSo) {
  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  runGuest({card("virtio-net-pci", "56", "Ethernet1")});
  ip("link set wire down");
  EXPECT_TRUE(seesCarriers("0")) << whatIsSo();
  world.ctl({"set", "demo", "link=up"});
  EXPECT_TRUE(seesCarriers("1")) << whatIsSo();
  EXPECT_TRUE(world.hasRow("vmCard", "demo/nic00", "noCarrier")) << whatIsSo();
}

// The daemon's end.

TEST_F(LinuxGuest, AnswersWhileItsDaemonIsGoneAndWithTheNextAndItsLineStaysUp) {
  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  runGuest({card("virtio-net-pci", "56", "Ethernet1")});
  const auto before = world.qemus("demo");
  ASSERT_TRUE(answersPing("10.77.0.86")) << whatIsSo();
  Pinging pinging({"-i", "0.2", "10.77.0.86"});
  EXPECT_TRUE(pinging.hasAnswers(1));
  world.end(SIGKILL);
  EXPECT_TRUE(pinging.hasAnswers(5));
  EXPECT_EQ(pinging.lost(), 0) << "nobody takes the card away";
  EXPECT_TRUE(hasSeenCarrierChanges(2)) << "down before it was let run, and up";
  {
    // Its card is attached anew each time, whatever it sends just then.
    const Pinging traffic({"-q", "-i", "0.002", "10.77.0.86"});
    for (int i = 0; i < 6; ++i) {
      start();
      world.ctl({"wait", "demo", "--for", "state=Running", "--timeout", "40"});
      ASSERT_TRUE(answersPing("10.77.0.86")) << i << "\n" << whatIsSo();
      if (i < 5) world.end(SIGKILL);
    }
  }
  EXPECT_EQ(world.qemus("demo"), before);
  EXPECT_TRUE(hasSeenCarrierChanges(2)) << world.console("demo");
  EXPECT_TRUE(seesCarriers("1"));
}

// Its end.

TEST_F(LinuxGuest, ThatIsDisabledIsAskedToShutDownAndEndsByItself) {
  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  runGuest({card("virtio-net-pci", "56", "Ethernet1")});
  world.ctl({"disable", "demo", "--wait", "--timeout", "30"});
  EXPECT_TRUE(world.saysOnConsole("demo", "GUEST POWERS OFF", 0, 1)) << world.console("demo");
  EXPECT_THAT(world.qemus("demo"), IsEmpty());
  EXPECT_THAT(world.guests("demo"), IsEmpty());
  EXPECT_EQ(world.row("vmProblem", "demo"), "");
  EXPECT_EQ(run({"/sbin/ip", "-o", "link", "show", "type", "macvtap"}).out, "");
}

}  // namespace
}  // namespace host::fakes

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (testing::GTEST_FLAG(list_tests)) return RUN_ALL_TESTS();
  const std::pair<const char*, const char*> needed[] = {
      {"/usr/bin/qemu-system-x86_64", "QEMU"},
      {host::fakes::ping, "ping"},
      {LINUX_GUEST, "a Linux guest, which is made where Debian's packages can be downloaded"}};
  for (const auto& [file, what] : needed)
    if (access(file, R_OK) != 0) return Vm::fakes::leaveOut(basename(argv[0]), what);
  if (const auto needs = host::fakes::enterDaemonWorld(host::fakes::machinesQemu); !needs.empty())
    return Vm::fakes::leaveOut(basename(argv[0]), needs);
  return RUN_ALL_TESTS();
}
