// The agent on real processes, sockets and time, and a scripted QEMU.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Vm/VmAgent/VmRoot.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::fakes {

// What a scripted QEMU says of its start.
struct QemuStart {
  int pid = 0;
  std::vector<std::string> args;
  std::map<int, std::string> descriptors;  // what each open one is
  std::string blocked;                     // signals
  std::string ignored;
};

// In private mounts, the seven entities that a host hands over, and an agent that runs on them.
// What it started is killed with it.
class RealWorld {
 public:
  RealWorld();
  RealWorld(const RealWorld&) = delete;
  ~RealWorld();

  rt::ActivityManager manager;
  rt::fakes::TraceRecorder traces;
  const Config::Ptr config = rt::make<Config>();
  const Status::Ptr status = rt::make<Status>();
  const Root::Ptr root = rootFactory("vm");

  // A configured VM, disabled, whose QEMU will act by `script`.
  VmConfig::Ptr addVm(const std::string& name, const std::string& script = "");
  VmConfigSm::Ptr vm(const std::string& name) const {
    return root->agent()->vmSm()->vmConfigSm(name);
  }
  VmStatus::Ptr vmStatus(const std::string& name) const { return status->vmStatus(name); }
  // How its QEMU was started, once it says so.
  QemuStart startOf(const std::string& name);
  // The disk that all VMs have.
  static const char* disk() { return "/var/run/disk.img"; }

  // Runs the loop until that is so; whether it became so within 20 s.
  bool waitFor(const std::function<bool()>& condition);
  // Until its QEMU has greeted and answered all that it was asked.
  bool waitForAnswers(const std::string& name);
  // Until the end of its QEMU was seen.
  bool waitForEnd(const std::string& name) {
    return waitFor([&] { return vm(name)->qemuChildProcess() == nullptr; });
  }
};

}  // namespace Vm::fakes
