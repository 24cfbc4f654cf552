// What the guests' shims find wrong with guests that run.
#pragma once

#include <functional>
#include <map>

#include "runtime/entity/Reactor.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

// Follows the file "problem" in each VM's directory: a line while something is wrong, else not
// there.
class GuestProblems final : public rt::StateMachineOf<GuestProblems> {
 public:
  // Is told of a VM whose file may be another now.
  using Sink = std::function<void(const rt::String& vm)>;

  // `directory`: of all VMs' directories; must be there. ErrnoException when it cannot be watched.
  // All there is was told when this returns.
  GuestProblems(const rt::String& directory, Sink sink);

  static constexpr std::string_view typeName = "host::GuestProblems";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &GuestProblems::initialized>>;

 private:
  void handleInitialized();
  void handleEvents();
  void lookAtAll();
  void follow(const rt::String& vm);

  const rt::String directory_;
  const Sink sink_;
  int all_ = -1;                   // the watch of the directory
  std::map<int, rt::String> vms_;  // by the watch of the VM's directory
  bool complained_ = false;        // of a directory that cannot be watched

  rt::Reactor<GuestProblems, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &GuestProblems::handleEvents>>
      events_;
};

}  // namespace host
