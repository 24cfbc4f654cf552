// The files that QEMU sees.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace shim {

struct PrivateRoot {
  std::string program;  // QEMU, at its own path
  // What it reads: directories and files, each at its own path; those that are not there are left
  // out.
  std::vector<std::string> readable;
  // /dev/kvm, as which device and for whom; none: there is none.
  struct Kvm {
    dev_t device;
    unsigned user;
  };
  std::optional<Kvm> kvm;
};

// Libraries and firmware, as Debian has them.
std::vector<std::string> qemusFiles();

// In a mount namespace of its own: gives this process a root of its own, in which nothing but that
// is, and nothing can be written. /dev has null and urandom. Throws Failure.
void enterPrivateRoot(const PrivateRoot& root);

}  // namespace shim
