// A real guest with an operating system: Linux, seen from its console and from its wire.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <regex>

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

// Asks five times a second, in the background, for a minute at most.
class Pinging {
 public:
  static constexpr int aSecond = 5;

  explicit Pinging(const std::string& address)
      // NOLINTNEXTLINE(cert-env33-c): a fixed program
      : output_(popen((std::string(ping) + " -i 0.2 -w 60 " + address).c_str(), "re")) {}
  Pinging(const Pinging&) = delete;
  ~Pinging() { pclose(output_); }

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
  std::FILE* const output_;
  int answered_ = 0;
  int lastAnswered_ = 0;
};

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
    ASSERT_TRUE(world.saysOnConsole("demo", "GUEST READY", 0, 90))
        << world.console("demo") << world.log();
    world.ctl({"wait", "demo", "--for", "state=Running", "--timeout", "40"});
    ASSERT_THAT(world.qemus("demo"), SizeIs(1));
  }
  bool seesCarrier(const std::string& carrier) const {
    return world.answersOnConsole("demo", "echo carrier=$(cat /sys/class/net/eth0/carrier)",
                                  "carrier=" + carrier);
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

// Cards.

class LinuxGuestsCard : public LinuxGuest, public testing::WithParamInterface<const char*> {};

TEST_P(LinuxGuestsCard, AnswersOnItsWireAndFollowsItsInterfaceAsItGoesAndComes) {
  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  runGuest({card(GetParam(), "56", "Ethernet1")});
  const auto before = world.qemus("demo");
  EXPECT_TRUE(answersPing("10.77.0.86")) << whatIsSo();
  EXPECT_TRUE(seesCarrier("1"));

  ip("link del Ethernet1");
  EXPECT_TRUE(seesCarrier("0")) << world.console("demo");

  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  EXPECT_TRUE(seesCarrier("1")) << world.console("demo");
  EXPECT_TRUE(answersPing("10.77.0.86")) << world.console("demo");
  EXPECT_EQ(world.qemus("demo"), before);
}

INSTANTIATE_TEST_SUITE_P(OfEachModel, LinuxGuestsCard,
                         testing::Values("virtio-net-pci", "e1000", "rtl8139"),
                         [](const auto& instance) {
                           std::string name = instance.param;
                           name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                           return name;
                         });

TEST_F(LinuxGuest, HasEachOfItsCardsOnItsInterfaceAndTwoOnOne) {
  addPort("Ethernet1", "wire1", {"10.77.0.1/24", "10.77.1.1/24"});
  addPort("Ethernet2", "wire2", {"10.77.2.1/24"});
  runGuest({card("virtio-net-pci", "10", "Ethernet1"), card("virtio-net-pci", "20", "Ethernet1"),
            card("e1000", "30", "Ethernet2")});
  // Linux answers for an address at any of its cards: that each hears for itself is only seen when
  // nobody has to ask which one it is.
  ip("neigh replace 10.77.0.16 lladdr 52:54:00:12:34:10 dev wire1 nud permanent");
  ip("neigh replace 10.77.1.32 lladdr 52:54:00:12:34:20 dev wire1 nud permanent");
  EXPECT_TRUE(answersPing("10.77.0.16")) << world.console("demo");
  EXPECT_TRUE(answersPing("10.77.1.32")) << world.console("demo");
  EXPECT_TRUE(answersPing("10.77.2.48")) << world.console("demo");

  ip("link del Ethernet1");
  EXPECT_TRUE(answersPing("10.77.2.48")) << "its own interface is still there";
  EXPECT_TRUE(seesCarrier("0"));
}

// The daemon's end.

TEST_F(LinuxGuest, AnswersWhileItsDaemonIsGoneAndWithTheNext) {
  addPort("Ethernet1", "wire", {"10.77.0.1/24"});
  runGuest({card("virtio-net-pci", "56", "Ethernet1")});
  const auto before = world.qemus("demo");
  ASSERT_TRUE(answersPing("10.77.0.86"));
  Pinging pinging("10.77.0.86");
  EXPECT_TRUE(pinging.hasAnswers(1));
  world.end(SIGKILL);
  EXPECT_TRUE(pinging.hasAnswers(Pinging::aSecond));
  EXPECT_EQ(pinging.lost(), 0) << "nobody takes the card away";
  start();
  world.ctl({"wait", "demo", "--for", "state=Running", "--timeout", "20"});
  EXPECT_EQ(world.qemus("demo"), before);
  EXPECT_TRUE(pinging.hasAnswers(5 * Pinging::aSecond));
  EXPECT_LT(pinging.lost(), 2 * Pinging::aSecond) << "its card is given up and attached again";
  EXPECT_TRUE(seesCarrier("1"));
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
