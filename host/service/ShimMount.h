// The shim in QEMU's place.
#pragma once

#include <sys/stat.h>

#include "runtime/base/String.h"

namespace host {

// The agent runs QEMU at a fixed path. In a mount namespace of the daemon's own, the shim stands
// there, and QEMU at the path that the shim looks for it; nobody else on the machine sees it.

// The shim that is installed with this program; empty when there is none.
rt::String installedShim();

// Owned by main(), for the length of its run.
class ShimMount {
 public:
  // To be made before there are threads. Does nothing where the shim stands there already: a
  // service manager may have mounted it. Throws Exception, which says what is missing.
  explicit ShimMount(const rt::String& shim);

  // Before a start: mounts again what is not there any more. When QEMU's file is replaced by
  // another, as by an upgrade of its package, the kernel takes away what is mounted on it, in all
  // namespaces, and the agent would run QEMU itself. Throws Exception when it cannot; it may be
  // tried again.
  void restore();

 private:
  bool stands() const;
  void mountBoth();
  void remember(const struct stat& shim);

  const rt::String shim_;
  // Mounts are in a namespace of ours, or in one that a service manager made for us.
  bool isMount_ = true;
  // The file that is mounted; another may have its path by now.
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

}  // namespace host
