// The agent as a host runs it: the module, loaded by dlopen, on the seven entities that a host
// hands over. Knows nothing but the records' and the root's headers.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Vm/VmAgent/VmRoot.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::fakes {

// A new root of the module's, or null, after a test failure, when the module cannot be loaded. The
// module stays loaded: its types are registered for good.
Root::Ptr loadRoot(const char* name);

// The path of a file of a VM's scripted QEMU.
std::string besideMonitor(const std::string& vmName, const char* suffix);

// The requests that a VM's scripted QEMU took.
struct TakenRequest {
  double time = 0;   // CLOCK_MONOTONIC, seconds
  std::string text;  // with the number of descriptors before it
};
std::vector<TakenRequest> requestsOf(const std::string& vmName);

// In private mounts: what the agent started is killed with this, and all files in /var/run are
// removed.
class ModuleWorld {
 public:
  explicit ModuleWorld(rt::Ptr<rt::Clock> clock);
  ModuleWorld(const ModuleWorld&) = delete;
  ~ModuleWorld();

  rt::ActivityManager manager;
  const Config::Ptr config = rt::make<Config>();
  const Status::Ptr status = rt::make<Status>();
  const Interface::AllIntfStatusLocalDir::Ptr allIntfStatusLocalDir =
      rt::make<Interface::AllIntfStatusLocalDir>();
  const KernelNetInfo::Status::Ptr kniStatus = rt::make<KernelNetInfo::Status>();
  const Root::Ptr root = loadRoot("vm");

  // Hands the seven to the agent.
  void start();
  // A configured VM, disabled, whose QEMU will act by `script`; its machine has had its first look
  // at the clock.
  VmConfig::Ptr addVm(const std::string& name, const std::string& script = "");
  VmConfigSm::Ptr vm(const std::string& name) const {
    return root->agent()->vmSm()->vmConfigSm(name);
  }
  VmStatus::Ptr vmStatus(const std::string& name) const { return status->vmStatus(name); }

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
