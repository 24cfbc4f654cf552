#include "Vm/VmAgent/fakes/AgentWorld.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "runtime/base/Check.h"

namespace Vm::fakes {

namespace {

// What the disk probe reads, and where.
constexpr off_t probeOffset = 32769;
constexpr off_t probeEnd = probeOffset + 5;

// Above the numbers that tests count on.
int memoryFile() {
  constexpr int firstNumber = 500;
  const OwnedDescriptor file(memfd_create("disk", MFD_CLOEXEC));
  return fcntl(file, F_DUPFD_CLOEXEC, firstNumber);
}

}  // namespace

DiskImage::DiskImage(Kind kind)
    : file_(memoryFile()), path_("/proc/self/fd/" + std::to_string(file_)) {
  rt::check(ftruncate(file_, kind == Kind::tooShort ? probeEnd - 1 : probeEnd) == 0, "ftruncate");
  if (kind == Kind::cdRom) rt::check(pwrite(file_, "CD001", 5, probeOffset) == 5, "pwrite");
}

AgentCreator::Ptr AgentWorld::start() {
  return root->agentIs(config, status, allIntfStatusDir, allIntfStatusLocalDir, deviceIntfStatusDir,
                       kniStatus, bridging);
}

VmConfig::Ptr AgentWorld::addVm(const std::string& name) {
  auto vm = rt::make<VmConfig>(name);
  vm->diskImageIs(disk.path());
  vm->memoryIs(256);
  config->vmConfigMount(vm);
  return vm;
}

VnicConfig::Ptr AgentWorld::addCard(const VmConfig::Ptr& vm, const std::string& key,
                                    const std::string& mac, const std::string& intfName) {
  auto card = vm->vnicConfigIs(key);
  card->modelIs("virtio-net-pci");
  card->macAddrIs(rt::EthAddr(rt::String(mac)));
  card->intfNameIs(intfName);
  return card;
}

void AgentWorld::interfaceIs(const std::string& intfName, uint32_t ifIndex) {
  kernel.deviceIs(intfName, ifIndex);
  allIntfStatusLocalDir->intfStatusLocalIs(rt::IntfId(intfName), {intfName, {}});
  kniStatus->interfaceIs({rt::NamespaceName(), ifIndex}, intfName);
}

void AgentWorld::interfaceDel(const std::string& intfName, uint32_t ifIndex) {
  kernel.deviceDel(intfName);
  kniStatus->interfaceDel({rt::NamespaceName(), ifIndex});
}

std::vector<std::string> AgentWorld::converse(const std::string& vmName) {
  QmpPeer& qemu = processes.monitor(vmName);
  if (!vm(vmName)->monSm()->helloMessage()) qemu.send(greeting());
  std::vector<std::string> requests;
  while (true) {
    turn();
    const auto asked = qemu.answer();
    if (asked.empty()) return requests;
    requests.insert(requests.end(), asked.begin(), asked.end());
  }
}

}  // namespace Vm::fakes
