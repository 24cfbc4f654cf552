#include "host/service/Directories.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"
#include "runtime/base/OwnFile.h"

namespace host {

namespace {

constexpr mode_t sharedMode = 02770;
constexpr mode_t guestsMode = 02750;

}  // namespace

// From its file: the C library's look-up would load libraries for the groups of networks, and keep
// them.
std::optional<gid_t> groupOf(std::string_view name) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/etc/group", "re"), std::fclose);
  while (file) {
    const group* const entry = fgetgrent(file.get());  // NOLINT(concurrency-mt-unsafe): no threads
    if (!entry) break;
    if (name == entry->gr_name) return entry->gr_gid;
  }
  return std::nullopt;
}

void makeSharedDirectory(const rt::String& path, std::optional<gid_t> group) {
  if (mkdir(path.charPtr(), sharedMode) != 0) {
    if (errno == EEXIST) return;
    throw rt::Exception("the directory " + path + " cannot be made: " + std::strerror(errno));
  }
  if (group) (void)!chown(path.charPtr(), static_cast<uid_t>(-1), *group);
  chmod(path.charPtr(), sharedMode);
}

void makeGuestsDirectory(const rt::String& runDir) {
  const rt::Descriptor run(open(runDir.charPtr(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat facts {};
  const rt::Descriptor made(run && fstat(run.number(), &facts) == 0
                                ? rt::openOwnDirectory(run.number(), "vm", guestsMode, facts.st_gid)
                                : -1);
  const int error = errno;
  if (made) return;
  throw rt::Exception("the directory " + runDir + "/vm " +
                      (error == EPERM ? rt::String("is another user's: remove it")
                                      : rt::String("cannot be made: ") + std::strerror(error)));
}

}  // namespace host
