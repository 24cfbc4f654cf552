// The files in which shims leave word of their guests, followed.
#pragma once

#include <functional>
#include <map>
#include <string_view>

#include "runtime/entity/Reactor.h"
#include "runtime/loop/FileDescriptor.h"

namespace host {

// In each VM's directory: "problem", a line while something is wrong, else not there; and "events",
// which grows, and then becomes the older one. Tells nothing of any other file, and does not wake
// for what is written to one: what a guest writes on its console is not the daemon's affair.
class GuestFiles final : public rt::StateMachineOf<GuestFiles> {
 public:
  // Are told of a VM whose file may say something else now.
  struct Sinks {
    std::function<void(const rt::String& vm)> problem;
    std::function<void(const rt::String& vm)> events;
  };

  // `directory`: of all VMs' directories; must be there. ErrnoException when it cannot be watched.
  // All there is was told when this returns.
  GuestFiles(const rt::String& directory, Sinks sinks);

  static constexpr std::string_view typeName = "host::GuestFiles";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &GuestFiles::initialized>>;

 private:
  void handleInitialized();
  void handleEvents();
  void lookAtAll();
  void follow(const rt::String& vm);
  void followEvents(const rt::String& vm);
  void handleChange(const rt::String& vm, std::string_view file);

  const rt::String directory_;
  const Sinks sinks_;
  int all_ = -1;                     // the watch of the directory
  std::map<int, rt::String> vms_;    // by the watch of the VM's directory
  std::map<int, rt::String> files_;  // by the watch of its file of events, the older one perhaps
  bool complained_ = false;          // of a directory that cannot be watched

  rt::Reactor<GuestFiles, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &GuestFiles::handleEvents>>
      events_;
};

}  // namespace host
