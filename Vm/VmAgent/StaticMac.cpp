// The cards' static MAC entries in the bridging configuration: the switch forwards a guest's frames
// to the control plane.
#include <cstdio>

#include "Vm/VmAgent/VmConfigSm.h"
#include "runtime/base/Trace.h"

namespace Vm {

namespace {

constexpr uint8_t entryTypeConfigured = 4;
constexpr uint32_t sourceVmAgent = 0x100000;

// Reads the VLAN number out of an interface's name, "VlanN". Returns what sscanf() returns.
int scanVlan(const rt::String& kernelDev, int& vlanId) {
  return std::sscanf(kernelDev.charPtr(), "Vlan%d", &vlanId);
}

}  // namespace

void VmConfigSm::populateStaticMacAddress(const rt::String& macAddr, const rt::String& kernelDev) {
  constexpr const char* signature =
      "void Vm::VmConfigSm::populateStaticMacAddress(const String&, const String&)";
  VM_TRACE(8) << signature << " macAddr " << macAddr << " kernelDev " << kernelDev << " for "
              << vmConfig()->name();
  const rt::EthAddr mac(macAddr);
  if (!mac.isUnicast()) {
    VM_TRACE(1) << "populateStaticMacAddress"
                << " FAIL: Invalid mac address: " << macAddr;
    return;
  }
  int vlan = 0;
  const int ret = scanVlan(kernelDev, vlan);
  VM_TRACE(8) << signature << " kernelDev " << kernelDev << " vlanId " << vlan << " ret " << ret;
  if (ret < 1) return;  // only VLAN interfaces get static entries
  const Bridging::VlanId vlanId(vlan);
  const auto fdb = bridgingInputConfig()->fdbConfigIs(vlanId);
  if (fdb->configuredHostHas(mac)) return;
  fdb->configuredHostIs(
      {mac, rt::IntfId("Cpu"), entryTypeConfigured, sourceVmAgent, /*aging=*/false});
  VM_TRACE(8) << signature << ": added static macAddr=" << macAddr << ", vlandId=" << vlanId;
}

void VmConfigSm::unpopulateStaticMacAddress(const rt::String& macAddr,
                                            const rt::String& kernelDev) {
  VM_TRACE(8) << "void Vm::VmConfigSm::unpopulateStaticMacAddress(const String&, const String&)"
              << " macAddr = " << macAddr << " kernelDev = " << kernelDev << " for "
              << vmConfig()->name();
  const rt::EthAddr mac(macAddr);
  int vlan = 0;
  if (scanVlan(kernelDev, vlan) != 1) return;
  const Bridging::VlanId vlanId(vlan);
  const auto fdb = bridgingInputConfig()->fdbConfig(vlanId);
  if (!fdb) return;
  if (fdb->configuredHostHas(mac)) {
    fdb->configuredHostDel(mac);
    VM_TRACE(8) << "unpopulateStaticMacAddress"
                << ": removed macAddr =" << macAddr << " vlanId=" << vlanId;
  }
  if (fdb->configuredHosts().empty()) bridgingInputConfig()->fdbConfigDel(vlanId);
}

void VmConfigSm::unpopulateAllStaticMacs() {
  VM_TRACE(8) << "void Vm::VmConfigSm::unpopulateAllStaticMacs()"
              << " for " << vmConfig()->name();
  for (const auto& [nicId, vnic] : vnic_)
    unpopulateStaticMacAddress(vnic->macAddr().text(), vnic->backendDev());
}

}  // namespace Vm
