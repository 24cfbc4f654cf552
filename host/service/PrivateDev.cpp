#include "host/service/PrivateDev.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "runtime/base/Exception.h"

namespace host {

namespace {

namespace fs = std::filesystem;

void require(bool done, const char* what) {
  if (!done)
    throw rt::Exception(rt::String("the daemon runs in a network namespace of its own and needs "
                                   "device nodes of its own there, but cannot ") +
                        what + ": " + std::strerror(errno) + "; run it as root");
}

bool isTap(const std::string& name) {
  return name.starts_with("tap") && name.size() > 3 &&
         name.find_first_not_of("0123456789", 3) == std::string::npos;
}

// Of nodes a copy, of directories the same directory.
void copyEntry(const fs::path& from, const fs::path& to) {
  struct stat info {};
  if (lstat(from.c_str(), &info) != 0) return;
  if (S_ISLNK(info.st_mode)) {
    std::error_code error;
    fs::copy_symlink(from, to, error);
  } else if (S_ISDIR(info.st_mode)) {
    require(mkdir(to.c_str(), 0755) == 0, "make a directory in the new /dev");
    require(mount(from.c_str(), to.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
            "mount a directory of /dev");
  } else if (S_ISCHR(info.st_mode) || S_ISBLK(info.st_mode)) {
    require(mknod(to.c_str(), info.st_mode, info.st_rdev) == 0, "make a device node");
    (void)!chown(to.c_str(), info.st_uid, info.st_gid);
    chmod(to.c_str(), info.st_mode & 07777U);
  }
}

}  // namespace

// The first process tells nothing: its namespaces can be out of sight even for root, and in a
// container it is the container's. But the kernel shows the settings that all networks share in the
// machine's own only; this is one of them.
bool needsPrivateDev() { return access("/proc/sys/net/core/dev_weight", F_OK) != 0; }

void enterPrivateDev() {
  require(unshare(CLONE_NEWNS) == 0, "make a mount namespace");
  require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "keep mounts private");
  // Where the new one is put together; hidden by it at the end.
  const fs::path draft = "/sys";
  require(mount("tmpfs", draft.c_str(), "tmpfs", MS_NOSUID, "mode=755") == 0, "mount a tmpfs");
  for (const auto& entry : fs::directory_iterator("/dev"))
    if (!isTap(entry.path().filename().string()))
      copyEntry(entry.path(), draft / entry.path().filename());
  require(mount(draft.c_str(), "/dev", nullptr, MS_MOVE, nullptr) == 0, "mount the new /dev");
  // Busy: it is there already.
  require(mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) == 0 ||
              errno == EBUSY,
          "mount /sys for its network");
}

}  // namespace host
