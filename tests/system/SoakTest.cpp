// A life of trouble: everything that happens on a switch happens, in an order that a seed decides.
// Now and then all is let settle, and must be as it was told to be.
//
// VMAGENT_SOAK_SECONDS says how long (a moment, if it is not set), VMAGENT_SOAK_SEED in which
// order.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <random>
#include <regex>

#include "host/network/Taps.h"
#include "tests/system/FaultWorld.h"

namespace host::fakes {
namespace {

using Clock = std::chrono::steady_clock;

unsigned fromEnvironment(const char* name, unsigned otherwise) {
  const char* const text = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): one thread
  return text ? static_cast<unsigned>(std::stoul(text)) : otherwise;
}

struct Guest {
  std::string vm;
  std::string port;  // the interface of its card
  std::string mac;
  bool on = true;
  bool plugged = true;
  pid_t qemu = 0;  // that nobody has told to end; 0: none that we know of
};

class Soak : public testing::Test {
 protected:
  Soak() {
    for (const char* const digit : {"1", "2", "3"})
      guests_.push_back({std::string("web") + digit, std::string("Ethernet") + digit,
                         std::string("52:54:00:00:00:0") + digit});
  }
  ~Soak() override {
    for (Guest& guest : guests_)
      if (guest.plugged) unplug(guest);
  }

  void run(Clock::time_point end) {
    start();
    for (Guest& guest : guests_) {
      plug(guest);
      add(guest);
    }
    while (Clock::now() < end && !HasFatalFailure()) {
      for (int i = 0; i < actionsBetween; ++i) act();
      settle();
    }
  }

 private:
  static constexpr int actionsBetween = 12;
  using Action = void (Soak::*)(Guest&);

  unsigned upTo(unsigned bound) { return static_cast<unsigned>(random_() % bound); }
  void pause(unsigned milliseconds) {
    waitUntil([] { return false; }, upTo(milliseconds) / 1000.0);
  }
  void start() { world.start({"--trace", "1,8"}); }
  static void plug(Guest& guest) {
    ip("link add " + guest.port + " type veth peer name peer-" + guest.port);
    ip("link set " + guest.port + " up");
    ip("link set peer-" + guest.port + " up");
    guest.plugged = true;
  }
  static void unplug(Guest& guest) {
    ip("link del " + guest.port);
    guest.plugged = false;
  }
  void add(Guest& guest) const {
    const Ended ended =
        world.addGuest(guest.vm, {"--nic", "model=e1000,mac=" + guest.mac + ",intf=" + guest.port});
    ASSERT_EQ(ended.status, 0) << ended.err;
    guest.on = true;
    guest.qemu = 0;
  }
  // After what ended its guest: nobody starts it again by himself.
  void restart(Guest& guest) {
    pause(300);
    guest.qemu = 0;
    if (guest.on) world.ctl({"restart", guest.vm});
  }

  // What happens.
  void switchOnOrOff(Guest& guest) {
    guest.on = !guest.on;
    guest.qemu = 0;
    world.ctl({guest.on ? "enable" : "disable", guest.vm});
  }
  void restartIt(Guest& guest) { restart(guest); }
  void plugOrUnplug(Guest& guest) { guest.plugged ? unplug(guest) : plug(guest); }
  void flap(Guest& guest) {
    if (!guest.plugged) return;
    for (int i = 0; i < 5; ++i) {
      unplug(guest);
      plug(guest);
    }
  }
  void killDaemon(Guest& /*guest*/) {
    world.end(SIGKILL);
    pause(300);
    start();
  }
  void upgradeDaemon(Guest& /*guest*/) {
    world.end(SIGTERM);
    start();
  }
  void killQemu(Guest& guest) {
    if (const pid_t qemu = FaultWorld::qemu(guest.vm)) FaultWorld::signal(qemu, SIGKILL);
    restart(guest);
  }
  void killShim(Guest& guest) {
    if (const pid_t shim = world.keeper(guest.vm)) FaultWorld::signal(shim, SIGKILL);
    restart(guest);
  }
  void holdQemu(Guest& guest) {
    const pid_t qemu = FaultWorld::qemu(guest.vm);
    if (!qemu) return;
    FaultWorld::signal(qemu, SIGSTOP);
    pause(6'000);
    FaultWorld::signal(qemu, SIGCONT);
  }
  void holdShim(Guest& guest) {
    const pid_t shim = world.keeper(guest.vm);
    if (!shim) return;
    FaultWorld::signal(shim, SIGSTOP);
    pause(8'000);
    FaultWorld::signal(shim, SIGCONT);
  }
  void deleteDevice(Guest& guest) {
    for (const Tap& tap : taps())
      if (tap.mac.text() == guest.mac) ip("link del " + tap.name.str());
  }
  void powerOff(Guest& guest) {
    std::smatch path;
    const std::string status = world.row("vmStatus", guest.vm);
    if (!std::regex_search(status, path, std::regex(R"(pty:(/dev/pts/\d+))"))) return;
    const int terminal = open(path[1].str().c_str(), O_WRONLY | O_NOCTTY | O_CLOEXEC);
    (void)!write(terminal, "\x04", 1);
    close(terminal);
    restart(guest);
  }
  void addAnew(Guest& guest) {
    world.ctl({"remove", guest.vm, "--force"});
    pause(100);
    add(guest);
  }
  // A foreign program writes what cannot be understood, and takes it back.
  void spoil(Guest& guest) {
    const std::string document = world.row("vmConfig", guest.vm);
    world.write("vmConfig", guest.vm, R"({"enabled":true,"memory":"much"})");
    pause(200);
    world.write("vmConfig", guest.vm, document);
  }

  void act() {
    static const std::pair<const char*, Action> actions[] = {{"switch", &Soak::switchOnOrOff},
                                                             {"restart", &Soak::restartIt},
                                                             {"plug", &Soak::plugOrUnplug},
                                                             {"plug", &Soak::plugOrUnplug},
                                                             {"flap", &Soak::flap},
                                                             {"kill the daemon", &Soak::killDaemon},
                                                             {"upgrade", &Soak::upgradeDaemon},
                                                             {"kill QEMU", &Soak::killQemu},
                                                             {"kill the shim", &Soak::killShim},
                                                             {"hold QEMU", &Soak::holdQemu},
                                                             {"hold the shim", &Soak::holdShim},
                                                             {"no device", &Soak::deleteDevice},
                                                             {"power off", &Soak::powerOff},
                                                             {"add anew", &Soak::addAnew},
                                                             {"spoil", &Soak::spoil}};
    Guest& guest = guests_[upTo(static_cast<unsigned>(guests_.size()))];
    const auto& [name, action] = actions[upTo(std::size(actions))];
    std::printf("%5d %s %s\n", ++actionsDone_, guest.vm.c_str(), name);
    std::fflush(stdout);
    (this->*action)(guest);
    pause(150);
  }

  // Until the daemon has heard all that was asked for, and has carried out what is no state.
  void awaitHearing(const Guest& guest) const {
    const std::string enabled = guest.on ? "true" : "false";
    world.ctl({"wait", guest.vm, "--for", "enabled=" + enabled, "--timeout", "60"});
    std::smatch number;
    const std::string intent = world.row("vmIntent", guest.vm);
    if (!guest.on || !std::regex_search(intent, number, std::regex(R"("restart":(\d+))"))) return;
    const std::string done = "\"restarts\":" + number[1].str() + ",";
    ASSERT_TRUE(waitUntil([&] { return world.hasRow("vmProcess", guest.vm, done); }, 60))
        << intent << world.row("vmProcess", guest.vm);
  }
  void settle() {
    for (const Guest& guest : guests_) awaitHearing(guest);
    std::vector<Expected> all;
    all.reserve(guests_.size());
    for (const Guest& guest : guests_)
      all.push_back({guest.vm, guest.on, guest.qemu, guest.plugged ? 1 : 0});
    ASSERT_TRUE(world.settles(all, 3 * FaultWorld::truth))
        << "after action " << actionsDone_ << shimLogs();
    for (Guest& guest : guests_) {
      if (guest.on) guest.qemu = FaultWorld::qemu(guest.vm);
      const std::string problem = guest.on && !guest.plugged ? "there is no " + guest.port : "";
      EXPECT_TRUE(waitUntil([&] { return hasNoOther(guest, problem); }, 3 * FaultWorld::truth))
          << "after action " << actionsDone_ << ": " << world.row("vmProblem", guest.vm);
    }
    if (upTo(8) == 0) ASSERT_TRUE(world.rests(all)) << "after action " << actionsDone_;
    expectNoGrowth();
  }
  bool hasNoOther(const Guest& guest, const std::string& problem) const {
    const std::string row = world.row("vmProblem", guest.vm);
    return problem.empty() ? row.empty() : row.find(problem) != std::string::npos;
  }
  std::string shimLogs() const {
    std::string text;
    for (const Guest& guest : guests_)
      text.append("\n").append(guest.vm).append(":\n").append(world.shimLog(guest.vm));
    return text;
  }
  // A daemon in the same state has as many descriptors as the first one that was in it.
  void expectNoGrowth() {
    std::string state;
    for (const Guest& guest : guests_) state += guest.on ? (guest.plugged ? "c" : "o") : "-";
    const size_t open = FaultWorld::descriptors(world.daemon());
    const auto first = descriptors_.try_emplace(state, open).first->second;
    constexpr size_t heldForAWhile = 3;
    EXPECT_LE(open, first + heldForAWhile) << state << " after action " << actionsDone_;
  }

 protected:
  FaultWorld world;
  const unsigned seed_ = fromEnvironment("VMAGENT_SOAK_SEED", 1);

 private:
  std::mt19937 random_{seed_};
  std::vector<Guest> guests_;
  std::map<std::string, size_t> descriptors_;  // of the daemon, by what runs
  int actionsDone_ = 0;
};

TEST_F(Soak, EndsEachTimeAsItWasToldTo) {
  constexpr unsigned aMoment = 20;
  const unsigned seconds = fromEnvironment("VMAGENT_SOAK_SECONDS", aMoment);
  std::printf("the seed is %u\n", seed_);
  run(Clock::now() + std::chrono::seconds(seconds));
}

}  // namespace
}  // namespace host::fakes
