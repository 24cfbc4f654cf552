// A child process, and the machine that learns of its end.
#pragma once

#include "runtime/entity/Reactor.h"
#include "runtime/loop/FileDescriptor.h"

namespace Vm {

class ChildProcessSm;

// A process we started, and how it ended. Until it is reaped it and its machine hold each other, so
// it is reaped even when nobody else wants to know any more.
class ChildProcess final : public rt::EntityOf<ChildProcess> {
 public:
  enum class StatusCode : uint8_t {
    none,      // not ended
    exited,    // by exit: exitStatus
    signaled,  // by a signal: exitSignal
  };
  friend constexpr rt::EnumNames<3> enumNames(StatusCode) { return {"none", "exited", "signaled"}; }

  ChildProcess(rt::String name, int32_t pid) : name_(std::move(name)), pid_(pid) {}

  const rt::String& name() const { return name_; }
  // -1 after a failed fork, which is a child that has ended already.
  int32_t pid() const { return pid_; }

  // The read end of a pipe whose write end the process holds: at its end, the process has ended.
  // Present until then. Asked for again it must be under the same name.
  const rt::FileDescriptor::Ptr& pipeFd() const { return pipeFd_; }
  rt::FileDescriptor::Ptr pipeFdIs(const rt::String& name);
  void pipeFdDel();

  // Present until the process is reaped.
  rt::Ptr<ChildProcessSm> childSm() const;
  rt::Ptr<ChildProcessSm> childSmIs(const ChildProcess::Ptr& child,
                                    const rt::FileDescriptor::Ptr& pipeFd);
  void childSmDel();

  // Written by the machine; exitStatus or exitSignal before status.
  uint8_t exitStatus() const { return exitStatus_; }
  void exitStatusIs(uint8_t code) { assign<&ChildProcess::exitStatus>(exitStatus_, code); }
  uint8_t exitSignal() const { return exitSignal_; }
  void exitSignalIs(uint8_t signal) { assign<&ChildProcess::exitSignal>(exitSignal_, signal); }
  StatusCode status() const { return status_; }
  void statusIs(StatusCode status) { assign<&ChildProcess::status>(status_, status); }

  static constexpr std::string_view typeName = "Vm::ChildProcess";
  using Attributes = rt::AttributeTable<
      rt::Attribute<"name", &ChildProcess::name>, rt::Attribute<"pid", &ChildProcess::pid>,
      rt::Attribute<"pipeFd", &ChildProcess::pipeFd>,
      rt::Attribute<"childSm", &ChildProcess::childSm>,
      rt::Attribute<"exitStatus", &ChildProcess::exitStatus, &ChildProcess::exitStatusIs>,
      rt::Attribute<"exitSignal", &ChildProcess::exitSignal, &ChildProcess::exitSignalIs>,
      rt::Attribute<"status", &ChildProcess::status, &ChildProcess::statusIs>>;

 private:
  const rt::String name_;
  const int32_t pid_;
  rt::FileDescriptor::Ptr pipeFd_;
  rt::Ptr<ChildProcessSm> childSm_;
  uint8_t exitStatus_ = 0;
  uint8_t exitSignal_ = 0;
  StatusCode status_ = StatusCode::none;
};

// Reaps the child.
//
//   child's status | event             | it does
//   none           | pipe at its end   | reaps; exited or signaled; removes itself and the pipe
//
// The process never writes, so a readable pipe is one at its end.
class ChildProcessSm final : public rt::StateMachineOf<ChildProcessSm> {
 public:
  ChildProcessSm(ChildProcess::Ptr child, rt::FileDescriptor::Ptr pipeFd);

  const ChildProcess::Ptr& child() const { return child_; }
  const rt::FileDescriptor::Ptr& pipeFd() const { return pipeFd_.notifier(); }

  static constexpr std::string_view typeName = "Vm::ChildProcessSm";
  using Attributes = rt::AttributeTable<rt::Attribute<"child", &ChildProcessSm::child>,
                                        rt::Attribute<"pipeFd", &ChildProcessSm::pipeFd>,
                                        rt::Attribute<"initialized", &ChildProcessSm::initialized>>;

 private:
  void handleInitialized();
  void handlePipeFd();

  const ChildProcess::Ptr child_;

  rt::Reactor<ChildProcessSm, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &ChildProcessSm::handlePipeFd>>
      pipeFd_;
};

// Runs the program argv[0] with the null-terminated `argv`. Null, after a trace, when there is no
// pipe. A failed fork gives a child with pid -1; a failed exec one that exits with 127.
ChildProcess::Ptr runCmd(char** argv);

}  // namespace Vm
