// The shims of this machine, by what they have below the run directory.
#pragma once

#include "guest/VmFiles.h"
#include "host/guests/EventReader.h"
#include "host/guests/Shims.h"

namespace host {

// Each has a directory of its own, RUN/vm/NAME, with its socket and the files in which it leaves
// word.
class DiskShims : public Shims {
 public:
  // `stopTimeout`: what a guest is given to shut itself down, as text of whole seconds. `asker`:
  // who asks guests to end, for a shim that does not know; printable ASCII.
  DiskShims(rt::String runDir, rt::String stopTimeout, rt::String asker = {})
      : runDir_(std::move(runDir)),
        stopTimeout_(std::move(stopTimeout)),
        asker_(std::move(asker)),
        events_(guest::vmsDirectoryOf(runDir_)) {}

  bool tellFormats() const override { return true; }
  bool askToStop(const rt::String& vm, std::optional<rt::Seconds> time) override;
  void rowIs(const rt::String& vm, const statedb::Origin& row) override;
  bool lineIs(const rt::String& vm, rt::EthAddr card, bool isUp) override;
  bool isThere(const rt::String& vm) const override;
  rt::String lastError(const rt::String& vm) const override;
  void lastErrorDel(const rt::String& vm) override;
  rt::String problem(const rt::String& vm) const override;
  rt::Ptr<const rt::Entity> follow(Sinks sinks) override;
  void catchUp(const rt::String& vm) override;
  void removeDeadSockets(const rt::String& vm) override;
  void removeDeadSocketsOfAllBut(const std::set<rt::String>& living) override;

  // Whether the VM's shim has been asked to stop already, or ends its guest by itself. Waits for
  // its answer, a second at most: not for the daemon.
  bool isStopping(const rt::String& vm) const;

 private:
  rt::String socketOf(const rt::String& vm) const;
  bool say(const rt::String& vm, const rt::String& request) const;
  rt::String firstLine(const rt::String& vm, const char* file) const;

  const rt::String runDir_;
  const rt::String stopTimeout_;
  const rt::String asker_;
  EventReader events_;
  Sinks sinks_;
};

}  // namespace host
