// Starting QEMU, stopping it, and learning of its end.
#include <csignal>

#include "Vm/VmAgent/VmConfigSm.h"
#include "runtime/base/Trace.h"

namespace Vm {

int VmConfigSm::startQemu() {
  VM_TRACE(8) << "int Vm::VmConfigSm::startQemu()"
              << " for " << vmConfig()->name();
  if (vmConfig()->diskImage().empty()) return -1;
  if (qemuChildProcess()) {
    VM_TRACE(8) << "startQemu"
                << " qemuChildProcess with pid: <<" << qemuChildProcess()->pid()
                << " already exists";
    return -1;
  }
  doComposeQemuCommandLine();
  if (qemuCommandLine().empty()) return -1;
  if (void* const argv = allocArgvFromQemuCommandline()) {
    qemuChildProcessIs(runCmd(static_cast<char**>(argv)));
    freeArgv(argv);
  }
  if (qemuChildProcess()) return 0;
  VM_TRACE(1) << "startQemu"
              << " FAIL: cannot create qemu process, check args ";
  return -1;
}

void VmConfigSm::killQemu() {
  VM_TRACE(8) << "void Vm::VmConfigSm::killQemu()"
              << " for " << vmConfig()->name();
  if (!qemuChildProcess()) return;
  const int32_t pid = qemuChildProcess()->pid();
  VM_TRACE(8) << "killQemu"
              << " kill pid:" << pid;
  // After a failed fork there is no process, and -1 would be every one there is.
  if (pid > 0) kill(pid, SIGTERM);
  vmStatus()->consolePtyPathIs({});
}

void VmConfigSm::handleQemuChildProcessStatus() {
  VM_TRACE(8) << "void Vm::VmConfigSm::handleQemuChildProcessStatus()"
              << " for " << vmConfig()->name();
  const auto status = qemuChildProcess()->status();
  if (status == ChildProcess::StatusCode::none) return;
  VM_TRACE(8) << "handleQemuChildProcessStatus"
              << " qemu-kvm exited; statusCode=" << status;
  qemuChildProcessDel();
  vmStatus()->stateIs("Stopped");
}

void VmConfigSm::qemuChildProcessIs(const ChildProcess::Ptr& child) {
  if (child == qemuChildProcess()) return;
  qemuChildProcess_.notifierIs(child);
  tell<&VmConfigSm::qemuChildProcess>();
}

void VmConfigSm::qemuChildProcessDel() { qemuChildProcessIs(nullptr); }

}  // namespace Vm
