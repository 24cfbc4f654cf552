// Guests' starts and their cards, on the real system with a scripted QEMU, beside the bare system
// calls that they cannot do without. Needs root.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <mutex>

#include "Vm/Monitor/fakes/QmpPeer.h"
#include "netlink/Macvtap.h"
#include "runtime/base/Check.h"
#include "runtime/fakes/TraceRecorder.h"
#include "tests/system/KernelSandbox.h"
#include "tests/system/PrivateMounts.h"
#include "tests/system/RealWorld.h"

namespace {

// The agent sleeps so long for a tap node to be made; the node is made then instead, so that what
// udevd takes is no part of a measurement.
constexpr useconds_t tapPause = 100'000;
constexpr const char* tapDevice = "macvtap0";

}  // namespace

// Linked in the place of usleep().
extern "C" {
int __real_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds);
int __wrap_usleep(useconds_t microseconds) {
  if (microseconds != tapPause) return __real_usleep(microseconds);
  Vm::fakes::makeTapNode(tapDevice);
  return 0;
}
}

namespace Vm {

namespace {

using Time = std::chrono::steady_clock;
using fakes::OwnedDescriptor;

constexpr useconds_t connectPause = 200'000;
constexpr const char* lowerDevice = "low0";
constexpr unsigned char mac[] = {0x52, 0x54, 0, 0, 0, 1};

// Runs `action` as one iteration's measured part.
template <class Action>
void measure(benchmark::State& state, Action action) {
  const auto start = Time::now();
  action();
  state.SetIterationTime(std::chrono::duration<double>(Time::now() - start).count());
}

// A switch with one interface, whose device stays, and a VM with one card on it.
class Switch : public fakes::RealWorld {
 public:
  Switch() : RealWorld(rootFactory) {
    start();
    web1 = addVm("web1");
    rt::vmTrace().levelsIs(rt::TraceHandle::defaultLevels);
    traces.take();
    const auto card = web1->vnicConfigIs("nic00");
    card->modelIs("virtio-net-pci");
    card->macAddrIs(rt::EthAddr(rt::String("52:54:00:00:00:01")));
    card->intfNameIs("Vlan100");
    manager.turn(rt::Seconds(0));
  }

  void switchOn() {
    const std::lock_guard held(rt::activityLock());
    web1->enabledIs(true);
  }
  void switchOff() {
    {
      const std::lock_guard held(rt::activityLock());
      web1->enabledIs(false);
    }
    rt::check(waitForEnd("web1"), "the guest does not end");
    traces.take();
  }
  void attach() {
    const std::lock_guard held(rt::activityLock());
    root->agent()->allIntfStatusDir()->intfStatusIs(vlan)->deviceNameIs(lowerDevice);
    root->agent()->deviceIntfStatusDir()->intfStatusAndDeviceNameIs(vlan, {lowerDevice, 7});
  }
  void detach() {
    const std::lock_guard held(rt::activityLock());
    root->agent()->deviceIntfStatusDir()->intfStatusAndDeviceNameDel(vlan);
    root->agent()->allIntfStatusDir()->intfStatusDel(vlan);
  }
  void mustBe(Vnic::LinkStatus wanted) {
    rt::check(waitForAnswers("web1") && vm("web1")->vnic("net0")->status() == wanted,
              "the card is not as it should be");
    traces.take();
  }

  rt::fakes::TraceRecorder traces;
  VmConfig::Ptr web1;
  const rt::IntfId vlan{"Vlan100"};
};

void startByAgent(benchmark::State& state) {
  Switch world;
  for (auto _ : state) {
    measure(state, [&] { world.switchOn(); });
    rt::check(world.vm("web1")->monSm() != nullptr, "the monitor is not connected");
    world.switchOff();
  }
}

OwnedDescriptor connectTo(const std::string& path) {
  OwnedDescriptor sock(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  while (connect(sock, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    usleep(connectPause);
  return sock;
}

// The same program with the same words, and the same pauses.
void startBare(benchmark::State& state) {
  Switch world;
  world.vm("web1")->doComposeQemuCommandLine();
  auto** const argv = static_cast<char**>(world.vm("web1")->allocArgvFromQemuCommandline());
  const std::string path = "/var/run/web1.monitor";
  for (auto _ : state) {
    pid_t pid = -1;
    OwnedDescriptor monitor;
    measure(state, [&] {
      unlink(path.c_str());
      pid = fork();
      if (pid == 0) {
        execv(argv[0], argv);
        _exit(127);
      }
      monitor = connectTo(path);
    });
    kill(pid, SIGTERM);
    waitpid(pid, nullptr, 0);
  }
  world.vm("web1")->freeArgv(argv);
}

// A running guest; the measured part is what the agent does when the interface comes.
void attachByAgent(benchmark::State& state) {
  Switch world;
  world.switchOn();
  world.mustBe(Vnic::linkDown);
  for (auto _ : state) {
    measure(state, [&] { world.attach(); });
    world.mustBe(Vnic::linkUp);
    world.detach();
    world.mustBe(Vnic::linkDown);
    netlink::deviceRemove(tapDevice);
  }
}

// The same when it goes, and the removal of the device, which is done when the VM is switched off.
void detachByAgent(benchmark::State& state) {
  Switch world;
  world.switchOn();
  world.mustBe(Vnic::linkDown);
  for (auto _ : state) {
    world.attach();
    world.mustBe(Vnic::linkUp);
    measure(state, [&] {
      world.detach();
      netlink::deviceRemove(tapDevice);
    });
    world.mustBe(Vnic::linkDown);
  }
}

// The kernel's interfaces for devices, without a detour. `family`: of the socket that a device is
// set up by.
class BareKernel {
 public:
  explicit BareKernel(int family) : family_(family) {
    rt::check(nl_connect(route_.get(), NETLINK_ROUTE) == 0, "nl_connect");
  }

  OwnedDescriptor attach() const {
    create();
    setUp();
    const std::string node = "/dev/tap" + std::to_string(if_nametoindex(tapDevice));
    OwnedDescriptor tap(open(node.c_str(), O_RDWR | O_CLOEXEC));
    if (tap < 0) {
      fakes::makeTapNode(tapDevice);
      tap = OwnedDescriptor(open(node.c_str(), O_RDWR | O_CLOEXEC));
    }
    rt::check(tap >= 0, "no tap");
    return tap;
  }

  void remove() const {
    nl_msg* const message = nlmsg_alloc_simple(RTM_DELLINK, 0);
    ifinfomsg link{};
    nlmsg_append(message, &link, sizeof link, NLMSG_ALIGNTO);
    nla_put_string(message, IFLA_IFNAME, tapDevice);
    rt::check(nl_send_sync(route_.get(), message) == 0, "RTM_DELLINK");
  }

 private:
  void create() const {
    nl_msg* const message = nlmsg_alloc_simple(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    ifinfomsg link{};
    nlmsg_append(message, &link, sizeof link, NLMSG_ALIGNTO);
    nla_put_string(message, IFLA_IFNAME, tapDevice);
    nla_put_u32(message, IFLA_LINK, if_nametoindex(lowerDevice));
    nla_put(message, IFLA_ADDRESS, sizeof mac, mac);
    nlattr* const info = nla_nest_start(message, IFLA_LINKINFO);
    nla_put_string(message, IFLA_INFO_KIND, "macvtap");
    nlattr* const data = nla_nest_start(message, IFLA_INFO_DATA);
    nla_put_u32(message, IFLA_MACVLAN_MODE, netlink::macvlanModeBridge);
    nla_nest_end(message, data);
    nla_nest_end(message, info);
    rt::check(nl_send_sync(route_.get(), message) == 0, "RTM_NEWLINK");
  }

  void setUp() const {
    const OwnedDescriptor control(socket(family_, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request{};
    std::strcpy(request.ifr_name, tapDevice);
    request.ifr_flags = IFF_UP;
    rt::check(ioctl(control, SIOCSIFFLAGS, &request) == 0, "SIOCSIFFLAGS");
  }

  const int family_;
  const std::unique_ptr<nl_sock, void (*)(nl_sock*)> route_{nl_socket_alloc(), nl_socket_free};
};

void attachBare(benchmark::State& state, int family) {
  const BareKernel kernel(family);
  for (auto _ : state) {
    OwnedDescriptor tap;
    measure(state, [&] { tap = kernel.attach(); });
    tap.close();
    kernel.remove();
  }
}

void detachBare(benchmark::State& state) {
  const BareKernel kernel(AF_PACKET);
  for (auto _ : state) {
    OwnedDescriptor tap = kernel.attach();
    measure(state, [&] {
      tap.close();
      kernel.remove();
    });
  }
}

BENCHMARK(startByAgent)->Name("start/agent")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(startBare)->Name("start/bare")->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(attachByAgent)->Name("attach/agent")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(attachBare, packet, AF_PACKET)
    ->Name("attach/bare")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(attachBare, inet, AF_INET)
    ->Name("attach/bareInet")
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(detachByAgent)->Name("detach/agent")->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(detachBare)->Name("detach/bare")->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

}  // namespace Vm

int main(int argc, char** argv) {
  auto needs = Vm::fakes::enterPrivateMounts(SCRIPTED_QEMU);
  if (needs.empty()) needs = Vm::fakes::enterKernelSandbox();
  if (!needs.empty()) return Vm::fakes::leaveOut("guest_bench", needs);
  std::signal(SIGPIPE, SIG_IGN);
  Vm::fakes::ip(std::string("link add ") + Vm::lowerDevice + " type veth peer name peer0");
  Vm::fakes::ip(std::string("link set ") + Vm::lowerDevice + " up");
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
