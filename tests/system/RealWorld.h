// The agent on real processes and sockets, and a scripted QEMU.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "Vm/VmAgent/VmRoot.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::fakes {

// The path of a file of a VM's scripted QEMU.
std::string besideMonitor(const std::string& vmName, const char* suffix);

// The requests that a VM's scripted QEMU took.
struct TakenRequest {
  double time = 0;   // CLOCK_MONOTONIC, seconds
  std::string text;  // with the number of descriptors before it
};
std::vector<TakenRequest> requestsOf(const std::string& vmName);

// What a scripted QEMU says of its start.
struct QemuStart {
  int pid = 0;
  std::vector<std::string> args;
  std::map<int, std::string> descriptors;  // what each open one is
  std::string blocked;                     // signals
  std::string ignored;
};

// In private mounts: what the agent started is killed with this, and all files in /var/run are
// removed. No agent runs until start() is called.
class RealWorld {
 public:
  // `newRoot` makes the root by the agent's code, linked with the program or loaded.
  explicit RealWorld(Root::Ptr (*newRoot)(const rt::String&),
                     rt::Ptr<rt::Clock> clock = rt::make<rt::SteadyClock>());
  RealWorld(const RealWorld&) = delete;
  ~RealWorld();

  rt::ActivityManager manager;
  const Config::Ptr config = rt::make<Config>();
  const Status::Ptr status = rt::make<Status>();
  const Interface::AllIntfStatusLocalDir::Ptr allIntfStatusLocalDir =
      rt::make<Interface::AllIntfStatusLocalDir>();
  const KernelNetInfo::Status::Ptr kniStatus = rt::make<KernelNetInfo::Status>();
  const Root::Ptr root;

  // Hands the seven to the agent.
  void start();
  // A configured VM, disabled, whose QEMU will act by `script`; its machine has had its first look
  // at the clock.
  VmConfig::Ptr addVm(const std::string& name, const std::string& script = "");
  VmConfigSm::Ptr vm(const std::string& name) const {
    return root->agent()->vmSm()->vmConfigSm(name);
  }
  VmStatus::Ptr vmStatus(const std::string& name) const { return status->vmStatus(name); }
  // How its QEMU was started, once it says so.
  QemuStart startOf(const std::string& name);
  // The disk that all VMs have.
  static const char* disk() { return "/var/run/disk.img"; }

  // Turns the loop until that is so; whether it became so within 30 s of real time.
  bool waitFor(const std::function<bool()>& condition);
  // Until its QEMU has greeted and answered all that it was asked.
  bool waitForAnswers(const std::string& name);
  // Until its QEMU has ended and the agent knows it.
  bool waitForEnd(const std::string& name) {
    return waitFor([&] { return vm(name)->qemuChildProcess() == nullptr; });
  }
  // The longest that one turn of waitFor() kept the loop, in seconds, and forgets it.
  double takeLongestTurn() { return std::exchange(longestTurn_, 0); }

 private:
  void endGuests();

  double longestTurn_ = 0;
};

}  // namespace Vm::fakes
