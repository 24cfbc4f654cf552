// A daemon that runs one shim, as an agent runs its QEMU, and that can be killed.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "runtime/base/Descriptor.h"

namespace shim::fakes {

// Whether a daemon hands its shim the socket at which the agent looks for the monitor. One that was
// built before that was known does not.
enum class Listener { handedOver, none };

// A process of its own; what it starts is its child and not ours. Killed with this, but not so what
// it started.
class DaemonProcess {
 public:
  // Removes the monitor's path, as an agent does, and then starts the shim.
  DaemonProcess(const std::string& program, const std::vector<std::string>& arguments,
                const std::map<std::string, std::string>& environment,
                const std::string& monitorPath, Listener listener = Listener::handedOver);
  DaemonProcess(const DaemonProcess&) = delete;
  ~DaemonProcess() { kill(); }

  pid_t pid() const { return pid_; }
  // The shim that it started.
  pid_t shim() const { return shim_; }
  // How that shim ended, as its parent sees it: a wait status; -1 when that takes too long.
  int shimStatus();
  void kill();

 private:
  pid_t pid_ = 0;
  pid_t shim_ = 0;
  rt::Descriptor reports_;
};

// The processes that run QEMU and have a file open whose path has that text.
std::vector<pid_t> qemusWith(const std::string& text);
// Whether there come to be so many of them in time.
bool comeToBe(size_t count, const std::string& text);

}  // namespace shim::fakes
