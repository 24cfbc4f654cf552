#include "Vm/VmAgent/ChildProcess.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "runtime/base/Check.h"
#include "runtime/base/Format.h"
#include "runtime/base/Trace.h"

namespace Vm {

rt::FileDescriptor::Ptr ChildProcess::pipeFdIs(const rt::String& name) {
  if (pipeFd_) {
    if (pipeFd_->name() != name) throw rt::ReinstantiationException(typeName, "pipeFd");
    return pipeFd_;
  }
  pipeFd_ = rt::make<rt::FileDescriptor>(name);
  pipeFd_->parentIs(this);
  tell<&ChildProcess::pipeFd>();
  return pipeFd_;
}

void ChildProcess::pipeFdDel() {
  if (pipeFd_) pipeFd_->parentIs(nullptr);
  drop<&ChildProcess::pipeFd>(pipeFd_);
}

ChildProcessSm::Ptr ChildProcess::childSm() const { return childSm_; }

ChildProcessSm::Ptr ChildProcess::childSmIs(const ChildProcess::Ptr& child,
                                            const rt::FileDescriptor::Ptr& pipeFd) {
  if (childSm_) {
    if (childSm_->child() != child || childSm_->pipeFd() != pipeFd)
      throw rt::ReinstantiationException(typeName, "childSm");
    return childSm_;
  }
  childSm_ = rt::make<ChildProcessSm>(child, pipeFd);
  tell<&ChildProcess::childSm>();
  return childSm_;
}

void ChildProcess::childSmDel() { drop<&ChildProcess::childSm>(childSm_); }

ChildProcessSm::ChildProcessSm(ChildProcess::Ptr child, rt::FileDescriptor::Ptr pipeFd)
    : child_(std::move(child)), pipeFd_(*this, std::move(pipeFd)) {
  handleInitialized();
}

void ChildProcessSm::handleInitialized() {
  if (!initialized()) initializedIs(true);
}

void ChildProcessSm::handlePipeFd() {
  VM_TRACE(8) << "void Vm::ChildProcessSm::handlePipeFd()";
  if (!child_ || child_->pid() == 0) return;
  rt::check(pipeFd() != nullptr, "pipeFd()");
  if (!pipeFd()->readable()) return;
  int status = 0;
  // After a failed fork there is nobody to reap, and -1 would be any child of ours.
  if (child_->pid() > 0) waitpid(child_->pid(), &status, 0);
  pipeFd()->descriptorIs(-1);
  const int signal = status & 0x7F;
  if (signal == 0) {
    child_->exitStatusIs(static_cast<uint8_t>(status >> 8 & 0xFF));
    child_->statusIs(ChildProcess::StatusCode::exited);
  } else {
    rt::check(signal != 0x7F, "0");  // stopped, which was not asked for
    child_->exitSignalIs(static_cast<uint8_t>(signal));
    child_->statusIs(ChildProcess::StatusCode::signaled);
  }
  child_->childSmDel();
  child_->pipeFdDel();
}

ChildProcess::Ptr runCmd(char** argv) {
  VM_TRACE(8) << "Vm::ChildProcess::Ptr Vm::runCmd(char**)"
              << " cmd " << static_cast<const void*>(argv);
  int ends[2];
  if (pipe(ends) < 0) {
    const int error = errno;
    VM_TRACE(1) << "runCmd"
                << " FAIL: cannot open a pipe, err: " << error;
    return nullptr;
  }
  // No other guest may hold it. The write end is inherited: its closing tells of the child's end.
  fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  const pid_t pid = fork();
  if (pid == 0) {
    close(ends[0]);
    execvp(argv[0], argv);
    exit(127);
  }
  close(ends[1]);
  auto child = rt::make<ChildProcess>(rt::format("ChildProcess-%d", pid), pid);
  const auto pipeFd = child->pipeFdIs(rt::format("Child%dPipe", pid));
  pipeFd->descriptorIs(ends[0]);
  pipeFd->nonBlockingIs(true);
  pipeFd->notifyOnReadableIs(true);
  pipeFd->notifyOnWritableIs(false);
  pipeFd->notifyOnExceptionIs(false);
  child->childSmIs(child, pipeFd);
  return child;
}

}  // namespace Vm
