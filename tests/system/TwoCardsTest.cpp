// A guest with two cards on real macvtap devices, from its start to its removal: what its QEMU is
// asked in each phase, byte by byte, and what the kernel has after it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "tests/system/KernelSandbox.h"
#include "tests/system/ModuleWorld.h"
#include "tests/system/PrivateMounts.h"
#include "tests/system/TapNodeMaker.h"

namespace Vm {

namespace {

using fakes::ip;
using fakes::kernelDevice;

constexpr const char* firstMac = "52:54:00:00:00:01";
constexpr const char* secondMac = "52:54:00:00:00:02";

class TwoCards : public testing::Test, public fakes::ModuleWorld {
 protected:
  // The clock stands still, so a poll comes when it is told to.
  TwoCards() : ModuleWorld(rt::make<rt::fakes::ManualClock>()) {
    start();
    interfaceIs("Vlan100", "low0");
    interfaceIs("Vlan200", "low1");
  }
  ~TwoCards() override {
    for (const char* lower : {"low0", "low1"})
      if (kernelDevice(lower)) ip(std::string("link del ") + lower);
  }

  // The interface's device comes, and the host says so.
  void interfaceIs(const std::string& intfName, const std::string& device) {
    ip("link add " + device + " type veth peer name peer-" + device);
    ip("link set " + device + " up");
    allIntfStatusLocalDir->intfStatusLocalIs(rt::IntfId(intfName), {device, {}});
    kniStatus->interfaceIs(keyOf(device), device);
  }
  // It goes, and all macvtaps on it.
  void interfaceDel(const std::string& device) {
    const auto key = keyOf(device);
    ip("link del " + device);
    kniStatus->interfaceDel(key);
  }
  static KernelNetInfo::InterfaceKey keyOf(const std::string& device) {
    return {rt::NamespaceName(), kernelDevice(device)->index};
  }
  VmConfig::Ptr addWithCards() {
    auto added = addVm("web1");
    for (const auto& [key, mac, intf] :
         {std::tuple("nic00", firstMac, "Vlan100"), {"nic01", secondMac, "Vlan200"}}) {
      const auto card = added->vnicConfigIs(key);
      card->modelIs("virtio-net-pci");
      card->macAddrIs(rt::EthAddr(rt::String(mac)));
      card->intfNameIs(intf);
    }
    return added;
  }
  void poll() {
    auto& clock = static_cast<rt::fakes::ManualClock&>(*manager.clock());
    clock.advance(rt::Seconds(5));
  }

  // Ends a phase: what its QEMU was asked since the phase before goes under that name.
  void phaseIs(const std::string& name) {
    const auto all = fakes::requestsOf("web1");
    lines_.push_back("== " + name);
    for (; logged_ < all.size(); ++logged_) lines_.push_back(all[logged_].text);
  }
  void answeredPhaseIs(const std::string& name) {
    EXPECT_TRUE(waitForAnswers("web1")) << name;
    phaseIs(name);
  }
  void endGuest() {
    fakes::signalProcess(vm("web1")->qemuChildProcess()->pid(), SIGTERM);
    EXPECT_TRUE(waitForEnd("web1"));
    EXPECT_TRUE(waitFor([&] { return vm("web1")->monSm() == nullptr; }));
    EXPECT_EQ(vmStatus("web1")->state(), "Stopped");
  }
  void remove() {
    const auto child = vm("web1")->qemuChildProcess();
    config->vmConfigDel("web1");
    EXPECT_TRUE(waitFor([&] { return child->status() != ChildProcess::StatusCode::none; }));
    EXPECT_EQ(vmStatus("web1"), nullptr);
  }
  // The addresses of the cards' devices, each on its card's interface; "none" for no device.
  static void expectMacvtaps(const char* first, const char* second) {
    EXPECT_EQ(macvtap("macvtap0", "low0"), first);
    EXPECT_EQ(macvtap("macvtap1", "low1"), second);
  }
  // The MAC address of a macvtap that is up on `lower`; or what is wrong with it.
  static std::string macvtap(const std::string& name, const std::string& lower) {
    const auto device = kernelDevice(name);
    if (!device) return "none";
    if (device->kind != "macvtap" || !device->up) return "no macvtap that is up";
    const auto below = kernelDevice(lower);
    return below && below->index == device->lower ? device->mac : "not on " + lower;
  }

  void expectGolden() const {
    std::ifstream file(GOLDEN_REQUESTS);
    std::vector<std::string> golden;
    for (std::string line; std::getline(file, line);)
      if (!line.starts_with('#')) golden.push_back(line);
    if (lines_ == golden) return;
    std::ofstream actual("two-cards.requests.actual");
    std::copy(lines_.begin(), lines_.end(), std::ostream_iterator<std::string>(actual, "\n"));
    EXPECT_EQ(lines_, golden) << "it is in "
                              << std::filesystem::current_path() / "two-cards.requests.actual";
  }

  const rt::fakes::TraceRecorder quiet_;
  const fakes::TapNodeMaker nodeMaker_;
  std::vector<std::string> lines_;
  size_t logged_ = 0;
};

TEST_F(TwoCards, AreAskedForAsTheGoldenRequestsSay) {
  const auto web1 = addWithCards();
  web1->enabledIs(true);
  answeredPhaseIs("start");
  expectMacvtaps(firstMac, secondMac);
  EXPECT_EQ(vmStatus("web1")->state(), "Stopped");  // it was asked before the guest was let run

  poll();
  answeredPhaseIs("poll");
  EXPECT_EQ(vmStatus("web1")->state(), "Running");

  interfaceDel("low0");
  answeredPhaseIs("loss of the first card's interface");
  expectMacvtaps("none", secondMac);
  interfaceIs("Vlan100", "low0");
  answeredPhaseIs("its return");
  expectMacvtaps(firstMac, secondMac);

  endGuest();
  phaseIs("end of the guest");
  expectMacvtaps(firstMac, secondMac);
  web1->enabledIs(false);
  phaseIs("disabled");
  expectMacvtaps("none", "none");

  web1->enabledIs(true);
  answeredPhaseIs("start again");
  expectMacvtaps(firstMac, secondMac);
  remove();
  phaseIs("removed");
  expectMacvtaps("none", "none");

  expectGolden();
}

}  // namespace

}  // namespace Vm

int main(int argc, char** argv) {
  testing::InitGoogleMock(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests)) {
    // What whoever started us left open would reach QEMU too.
    close_range(3, ~0U, 0);
    auto needs = Vm::fakes::enterPrivateMounts(SCRIPTED_QEMU);
    if (needs.empty()) needs = Vm::fakes::enterKernelSandbox();
    if (!needs.empty()) return Vm::fakes::leaveOut("two_cards_test", needs);
  }
  return RUN_ALL_TESTS();
}
