// The monitor session of one VM: connecting it, commanding it, reacting to its state.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Vm/VmAgent/QemuCommandLine.h"
#include "Vm/VmAgent/VmConfigSm.h"
#include "runtime/base/Check.h"
#include "runtime/base/Format.h"
#include "runtime/base/Trace.h"
#include "runtime/loop/ActivityManager.h"

namespace Vm {

namespace {

constexpr int maxConnectAttempts = 52;
constexpr useconds_t connectPauseMicroseconds = 200'000;

// A socket address for `path` and its length. A path that is too long has an address as long, which
// connect() refuses.
std::vector<char> socketAddress(const rt::String& path) {
  const size_t length = path.size() + sizeof(sa_family_t);
  std::vector<char> room(std::max(length, sizeof(sockaddr_un)));
  auto* const address = reinterpret_cast<sockaddr_un*>(room.data());
  address->sun_family = AF_UNIX;
  std::memcpy(address->sun_path, path.charPtr(), std::min(path.size(), sizeof address->sun_path));
  room.resize(length);
  return room;
}

// With a pause after each failed attempt but the last: QEMU has ten seconds to make its socket.
bool connectInTime(int sock, const std::vector<char>& address) {
  for (int attempt = 1; attempt <= maxConnectAttempts; ++attempt) {
    if (connect(sock, reinterpret_cast<const sockaddr*>(address.data()),
                static_cast<socklen_t>(address.size())) == 0)
      return true;
    if (attempt < maxConnectAttempts) usleep(connectPauseMicroseconds);
  }
  return false;
}

}  // namespace

int VmConfigSm::setupMonitor() {
  const rt::String path = monitorPath(vmConfig());
  VM_TRACE(8) << "int Vm::VmConfigSm::setupMonitor()"
              << " for " << vmConfig()->name();
  rt::check(monSm() == nullptr, "monSm() == 0");
  const int sock = connectMonitor(path);
  if (sock < 0) {
    VM_TRACE(1) << "setupMonitor"
                << " FAIL: cannot connect to qemu monitor ";
    return -1;
  }
  const auto fd = monFdIs(rt::format("%s-monitor", vmConfig()->name().charPtr()));
  fd->descriptorIs(sock);
  fd->nonBlockingIs(true);
  fd->notifyOnReadableIs(true);
  fd->notifyOnWritableIs(false);
  fd->notifyOnExceptionIs(false);
  VM_TRACE(8) << "monFd is" << *fd;

  monitorInputIs(rt::make<MonitorInput>(0U));
  monitorOutputIs(rt::make<MonitorOutput>(0U));
  monitorStatusIs(rt::make<MonitorStatus>(MonitorStatus::MonitorState::uninitialized));
  monSmIs(monitorInput(), monitorOutput(), monitorStatus(), monFd(), rt::activityManager().clock());
  return 0;
}

int VmConfigSm::connectMonitor(const rt::String& path) const {
  VM_TRACE(8) << "connectMonitor"
              << " Trying to connect to " << path;
  const int sock = socket(AF_UNIX, SOCK_STREAM, 0);
  if (sock < 0) {
    VM_TRACE(1) << "connectMonitor"
                << " FAIL: cannot open socket";
    return -1;
  }
  fcntl(sock, F_SETFD, FD_CLOEXEC);
  if (!connectInTime(sock, socketAddress(path))) {
    VM_TRACE(1) << "connectMonitor"
                << " FAIL: cannot connect to " << path;
    close(sock);
    return -1;
  }
  VM_TRACE(8) << "connectMonitor"
              << " connected to " << path;
  return sock;
}

void VmConfigSm::destroyMonitor() {
  VM_TRACE(8) << "void Vm::VmConfigSm::destroyMonitor()"
              << " for " << vmConfig()->name();
  if (monSm()) {
    VM_TRACE(8) << "destroyMonitor"
                << " deleting monSm ";
    // First, so that no late reaction runs.
    monitorOutputIs(nullptr);
    monitorStatusIs(nullptr);
    monSmDel();
  }
  if (!monFd()) return;
  monFd()->close();
  monFd()->descriptorIs(-1);
  drop<&VmConfigSm::monFd>(monFd_);
}

uint32_t VmConfigSm::sendMonitorCommand(MonitorCommand cmd,
                                        const MonitorCommandArgs::PtrConst& args) {
  VM_TRACE(8) << "uint32_t Vm::VmConfigSm::sendMonitorCommand(MonitorCommand, const "
                 "MonitorCommandArgs::PtrConst&)"
              << " cmd: " << cmd;
  rt::check(monitorInput() != nullptr, "monitorInput()");
  // Held here: the session reacts within the last call, and may be replaced by it.
  const MonitorInput::Ptr input = monitorInput();
  input->cmdIs(cmd);
  input->cmdArgsIs(args);
  input->counterInc(1);
  return input->counter();
}

void VmConfigSm::handleMonitorStatus() {
  using enum MonitorStatus::MonitorState;
  if (!monitorStatus()) return;
  const auto state = monitorStatus()->state();
  VM_TRACE(8) << "void Vm::VmConfigSm::handleMonitorStatus()"
              << " for " << vmConfig()->name() << " monitor state " << state << " Vm state "
              << vmStatus()->state();
  if (state == disconnected) handleDisconnected();
  if (state == connected) handleConnected();
}

void VmConfigSm::handleDisconnected() {
  destroyMonitor();
  if (!qemuChildProcess()) {
    VM_TRACE(8) << "handleMonitorStatus"
                << " qemu process has disappeared ";
    vmStatus()->consolePtyPathIs({});
    return;
  }
  if (setupMonitor() >= 0) return;
  VM_TRACE(1) << "handleMonitorStatus"
              << " FAIL: cannot reconnect to monitor ";
  killQemu();
}

void VmConfigSm::handleConnected() {
  VM_TRACE(8) << "handleMonitorStatus"
              << " monitor connected, starting VM ";
  if (!qemuChildProcess()) return;
  if (vmStatus()->state() == "Starting") {
    for (const auto& [nicId, vnic] : vnic_) setupNetworkDevice(vnic);
    sendMonitorCommand(MonitorCommand::startVm, nullptr);
  }
  doScheduleMonitoring();
}

rt::FileDescriptor::Ptr VmConfigSm::monFdIs(const rt::String& name) {
  auto fd = rt::make<rt::FileDescriptor>(name);
  fd->hasNotificationActiveIs(true);
  assign<&VmConfigSm::monFd>(monFd_, fd);
  return fd;
}

void VmConfigSm::monSmIs(const MonitorInput::Ptr& input, const MonitorOutput::Ptr& output,
                         const MonitorStatus::Ptr& status, const rt::FileDescriptor::Ptr& monFd,
                         const rt::Clock::Ptr& clock) {
  assign<&VmConfigSm::monSm>(monSm_, rt::make<MonitorSm>(input, output, status, monFd, clock));
}

void VmConfigSm::monSmDel() { drop<&VmConfigSm::monSm>(monSm_); }

void VmConfigSm::monitorInputIs(const MonitorInput::Ptr& input) {
  assign<&VmConfigSm::monitorInput>(monitorInput_, input);
}

void VmConfigSm::monitorOutputIs(const MonitorOutput::Ptr& output) {
  if (output == monitorOutput()) return;
  monitorOutput_.notifierIs(output);
  tell<&VmConfigSm::monitorOutput>();
}

void VmConfigSm::monitorStatusIs(const MonitorStatus::Ptr& status) {
  if (status == monitorStatus()) return;
  monitorStatus_.notifierIs(status);
  tell<&VmConfigSm::monitorStatus>();
}

}  // namespace Vm
