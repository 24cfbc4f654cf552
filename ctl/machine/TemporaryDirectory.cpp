#include "ctl/machine/TemporaryDirectory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "ctl/machine/LinuxMachine.h"
#include "runtime/base/Exception.h"

namespace ctl {

namespace {

void clear(const rt::String& directory) {
  for (const rt::String& name : LinuxMachine().names(directory)) {
    const rt::String path = directory + "/" + name;
    if (unlink(path.charPtr()) != 0) (void)rmdir(path.charPtr());
  }
}

}  // namespace

TemporaryDirectory::TemporaryDirectory() {
  const char* const place = std::getenv("TMPDIR");
  std::string path = std::string(place && *place != '\0' ? place : "/tmp") + "/vmctl-XXXXXX";
  if (!mkdtemp(path.data())) throw rt::ErrnoException(errno, path + " cannot be made");
  path_ = path;
}

TemporaryDirectory::~TemporaryDirectory() {
  for (const rt::String& name : LinuxMachine().names(path_)) clear(path_ + "/" + name);
  clear(path_);
  (void)rmdir(path_.charPtr());
}

}  // namespace ctl
