// Everything around the agent, as a test wants it.
#pragma once

#include <string>

#include "Vm/Monitor/fakes/QmpPeer.h"
#include "Vm/VmAgent/VmRoot.h"
#include "Vm/VmAgent/fakes/FakeKernel.h"
#include "Vm/VmAgent/fakes/FakeProcesses.h"
#include "runtime/fakes/ManualClock.h"
#include "runtime/fakes/TraceRecorder.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm::fakes {

// A disk image in memory. It goes with the process, however that ends; a death test's child leaves
// nothing.
class DiskImage {
 public:
  enum class Kind { cdRom, hardDisk, tooShort };
  explicit DiskImage(Kind kind);
  const std::string& path() const { return path_; }

 private:
  const OwnedDescriptor file_;
  const std::string path_;
};

// The seven entities that a host hands over, a clock that stands at 1000 s, fake processes, a fake
// kernel, and records of traces and effects. No agent runs until start() is called.
class AgentWorld {
 public:
  const rt::Ptr<rt::fakes::ManualClock> clock = rt::make<rt::fakes::ManualClock>();
  rt::ActivityManager manager{clock};
  rt::fakes::TraceRecorder traces;
  EffectLog effects;
  FakeProcesses processes{effects};
  FakeKernel kernel{effects};
  const DiskImage disk{DiskImage::Kind::hardDisk};

  const Config::Ptr config = rt::make<Config>();
  const Status::Ptr status = rt::make<Status>();
  const Interface::AllIntfStatusDir::Ptr allIntfStatusDir = rt::make<Interface::AllIntfStatusDir>();
  const Interface::AllIntfStatusLocalDir::Ptr allIntfStatusLocalDir =
      rt::make<Interface::AllIntfStatusLocalDir>();
  const Interface::DeviceIntfStatusDir::Ptr deviceIntfStatusDir =
      rt::make<Interface::DeviceIntfStatusDir>();
  const KernelNetInfo::Status::Ptr kniStatus = rt::make<KernelNetInfo::Status>();
  const Bridging::Input::Config::Ptr bridging = rt::make<Bridging::Input::Config>();

  const Root::Ptr root = rootFactory("vm");

  // Hands the seven to the agent.
  AgentCreator::Ptr start();
  VmSm::Ptr vmSm() const { return root->agent()->vmSm(); }
  VmConfigSm::Ptr vm(const std::string& name) const { return vmSm()->vmConfigSm(name); }
  VmStatus::Ptr vmStatus(const std::string& name) const { return status->vmStatus(name); }

  // A configured VM, disabled, with the world's disk and 256 MiB.
  VmConfig::Ptr addVm(const std::string& name);
  // A card of that VM, "virtio-net-pci" unless said otherwise.
  static VnicConfig::Ptr addCard(const VmConfig::Ptr& vm, const std::string& key,
                                 const std::string& mac, const std::string& intfName);

  // The kernel has, or no longer has, the device of the interface `intfName`, whose device has the
  // same name.
  void interfaceIs(const std::string& intfName, uint32_t ifIndex);
  void interfaceDel(const std::string& intfName, uint32_t ifIndex);

  // One turn of the loop: what is ready and what is due.
  void turn() { manager.turn(rt::Seconds(0)); }
  // Lets time pass, with all wake-ups on the way.
  void advance(double seconds) { clock->advance(rt::Seconds(seconds)); }
  // The VM's QEMU greets and answers all that it is asked, until nothing more is asked. The texts
  // of the requests.
  std::vector<std::string> converse(const std::string& vmName);
};

}  // namespace Vm::fakes
