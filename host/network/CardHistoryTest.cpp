// Whatever happens to interfaces, devices and answers, in any order, the agent is never led into a
// state that it cannot be in, and at last each card is on its interface.
#include <sys/socket.h>

#include <random>

#include "host/fakes/HostCardsWorld.h"
#include "netlink/InterfaceFlags.h"

namespace Vm::fakes {

namespace {

class CardHistory : public testing::TestWithParam<unsigned>, protected HostCardsWorld {
 protected:
  unsigned below(unsigned bound) {
    return std::uniform_int_distribution<unsigned>(0, bound - 1)(random_);
  }

  // An interface, and the VM on it.
  struct Place {
    const char* vm;
    const char* interface;
    uint32_t index;
  };
  const Place& place() {
    static constexpr Place places[] = {{"web1", "Ethernet1", firstPort},
                                       {"web2", "Ethernet2", secondPort}};
    return places[below(2)];
  }
  // What a handler throws is the loop's to report.
  template <class Action>
  void handled(Action action) {
    try {
      locked(action);
    } catch (const rt::Exception&) {
      ++thrown_;
    }
  }

  void change(const Place& at) {
    const auto machine = vm(at.vm);
    QmpPeer& qemu = processes.monitor(at.vm);
    switch (below(12)) {
      case 0:
        return handled([&] { interfaceDel(at.interface, at.index); });
      case 1:
        return handled([&] { interfaceIs(at.interface, at.index); });
      case 2:  // made anew, and nobody told
        kernel.deviceDel(at.interface);
        kernel.deviceIs(at.interface, at.index);
        return handled([&] { healer->devicesChanged(); });
      case 3:
        if (const auto own = card(at.vm)) kernel.deviceDel(own->macvtapDev().str());
        return handled([&] { healer->devicesChanged(); });
      case 4:
        if (const auto own = card(at.vm))
          netlink::ifUp(own->macvtapDev().charPtr(), netlink::AdminState::down);
        return handled([&] { healer->devicesChanged(); });
      case 5:
        return qemu.silenceIs(std::array{"getfd", "set_link", "netdev_del", "closefd"}[below(4)]);
      case 6:
        return qemu.refusalIs(std::array{"getfd", "set_link", "netdev_del"}[below(3)]);
      case 7:
        return answerAll(qemu);
      case 8:
        return kernel.fail(below(2) == 0 ? KernelCall::buildRequest : KernelCall::setFlags, 12);
      case 9:  // QEMU reads nothing while its interface flaps
        return stall(at, machine);
      case 10:
        return configure(config->vmConfig(at.vm), place().interface);
      default:  // QEMU is asked anew
        if (machine->monSm() && status->vmStatus(at.vm)->state() == "running") qemu.close();
        return;
    }
  }
  void stall(const Place& at, const VmConfigSm::Ptr& machine) {
    if (!machine->monSm()) return;
    const int socket = machine->monFd()->descriptor();
    while (send(socket, "\n", 1, MSG_DONTWAIT | MSG_NOSIGNAL) > 0) continue;
    handled([&] { interfaceDel(at.interface, at.index); });
    handled([&] { interfaceIs(at.interface, at.index); });
    while (!processes.monitor(at.vm).receive().text.empty()) continue;
  }
  static void answerAll(QmpPeer& qemu) {
    for (const char* const command : {"getfd", "set_link", "netdev_del", "closefd"})
      qemu.valueIs(command, "{}");
  }
  std::string whatIsSo(const std::string& vmName) const {
    const auto own = host::cardsOf(*vm(vmName)).front();
    return (own.status + " " + own.tap + (own.hasDescriptor ? " open" : "") +
            (host::isSettled(*vm(vmName)) ? " settled " : " not settled ") +
            problem(vmName.c_str()))
        .str();
  }

 private:
  std::mt19937 random_{GetParam()};
  int thrown_ = 0;
};

TEST_P(CardHistory, EndsWithEachCardOnItsInterface) {
  run(web1);
  run(web2);
  pass(5.5);  // until they are running
  for (int step = 0; step < 60; ++step) {
    change(place());
    pass(std::array{0.0, 0.1, 0.3, 2.0, 7.0}[below(5)]);
  }
  for (const char* const name : {"web1", "web2"}) answerAll(processes.monitor(name));
  handled([&] { interfaceIs("Ethernet1", firstPort); });
  handled([&] { interfaceIs("Ethernet2", secondPort); });
  pass(700, 1);
  for (const auto& [name, machine] : config->vmConfigs())
    EXPECT_EQ(card(name.str())->backendDev(), machine->vnicConfig("nic00")->intfName());
  EXPECT_TRUE(isAttached("web1")) << whatIsSo("web1");
  EXPECT_TRUE(isAttached("web2")) << whatIsSo("web2");
  EXPECT_EQ(problem("web1"), "");
  EXPECT_EQ(problem("web2"), "");
  EXPECT_EQ(kernel.openTaps(), 2U);
  EXPECT_EQ(kernel.macvtaps().size(), 2U);
  EXPECT_EQ(kernel.badCloses(), 0);
}

INSTANTIATE_TEST_SUITE_P(Seeds, CardHistory, testing::Range(0U, 60U));

}  // namespace

}  // namespace Vm::fakes
