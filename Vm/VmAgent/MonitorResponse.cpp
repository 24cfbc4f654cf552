// What the monitor session answers.
#include "Vm/VmAgent/VmSm.h"
#include "runtime/base/Check.h"
#include "runtime/base/Trace.h"

namespace Vm {

void VmConfigSm::handleMonitorResponse() {
  const MonitorOutput::Ptr output = monitorOutput();
  if (!output || output->counter() == 0) return;
  VM_TRACE(8) << "void Vm::VmConfigSm::handleMonitorResponse()"
              << " for " << vmConfig()->name() << " cmd: " << output->cmd()
              << " val: " << output->val();
  // Whatever its status: a failure comes with the command of the result before it.
  switch (output->cmd()) {
    case MonitorCommand::queryChardev:
      VM_TRACE(8) << "handleMonitorResponse"
                  << ": setting pty " << output->val();
      vmStatus()->consolePtyPathIs(output->val());
      return;
    case MonitorCommand::queryStatus:
      VM_TRACE(8) << "handleMonitorResponse"
                  << ": setting state " << output->val();
      vmStatus()->stateIs(output->val());
      return;
    case MonitorCommand::backendAdd:
      return handleBackendAdded();
    case MonitorCommand::backendDel:
      return handleBackendDeleted();
    case MonitorCommand::enterCmdMode:
    case MonitorCommand::startVm:
      return;
  }
}

Vnic::Ptr VmConfigSm::answeredVnic(const char* request) const {
  const uint32_t cmdId = monitorOutput()->cmdId();
  Vnic::Ptr vnic = pendingVnic(cmdId);
  if (!vnic) {
    VM_TRACE(1) << "handleMonitorResponse"
                << " FAIL: no vnic pending for cmdId " << cmdId;
    return nullptr;
  }
  VM_TRACE(7) << "handleMonitorResponse"
              << " for " << vmConfig()->name() << request << " vnic status: " << vnic->status()
              << " netid: " << vnic->backendId();
  return vnic;
}

void VmConfigSm::handleBackendAdded() {
  const uint32_t cmdId = monitorOutput()->cmdId();
  const Vnic::Ptr vnic = answeredVnic(" netdev_add ");
  if (!vnic) return;
  rt::check(vnic->status() == Vnic::linkGoingUp, "vnic->status() == Vnic::linkGoingUp()");
  vnic->statusIs(Vnic::linkUp);
  if (vnic->linkDownPending()) destroyNetworkDevice(vnic);
  pendingVnicDel(cmdId);
}

void VmConfigSm::handleBackendDeleted() {
  const uint32_t cmdId = monitorOutput()->cmdId();
  const Vnic::Ptr vnic = answeredVnic(" netdev_del ");
  if (!vnic) return;
  rt::check(vnic->status() == Vnic::linkGoingDown, "vnic->status() == Vnic::linkGoingDown()");
  vnic->statusIs(Vnic::linkDown);
  const auto set = vmSm();
  if (set && set->kisd()->intfStatusAndDeviceNameHas(rt::IntfId(vnic->backendDev())))
    setupNetworkDevice(vnic);
  pendingVnicDel(cmdId);
}

}  // namespace Vm
