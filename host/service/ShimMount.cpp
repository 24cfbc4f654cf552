#include "host/service/ShimMount.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "guest/VmFiles.h"
#include "host/base/Report.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"

namespace host {

namespace {

namespace fs = std::filesystem;

void require(bool done, const char* what) {
  if (!done)
    throw rt::Exception(rt::String("the shim cannot be put in QEMU's place: cannot ") + what +
                        ": " + std::strerror(errno) +
                        "; run the daemon as root, or with --shim off");
}

bool isMountPoint(const char* path) {
  struct statx facts {};
  return statx(AT_FDCWD, path, 0, STATX_BASIC_STATS, &facts) == 0 &&
         (facts.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
}

void bind(const fs::path& what, const fs::path& where) {
  require(mount(what.c_str(), where.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0,
          "mount a file or directory");
}

void makeFile(const fs::path& path) {
  const rt::Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0755));
  require(file.number() >= 0, "make a file to mount on");
}

// Gives QEMU's second path a file to be mounted on, in a copy of its directory that is ours alone.
void makePlace(const fs::path& place) {
  if (access(place.c_str(), F_OK) == 0) return;
  const fs::path directory = place.parent_path();
  if (!fs::is_directory(directory))
    throw rt::Exception("the shim cannot be put in QEMU's place: the directory " +
                        rt::String(directory.string()) + " is missing; make it");
  // Where the copy is put together; uncovered at the end.
  const fs::path draft = "/mnt";
  require(mount("tmpfs", draft.c_str(), "tmpfs", MS_NOSUID, "mode=755") == 0, "mount a tmpfs");
  for (const auto& entry : fs::directory_iterator(directory)) {
    const fs::path copy = draft / entry.path().filename();
    if (entry.is_symlink()) {
      fs::copy_symlink(entry.path(), copy);
      continue;
    }
    if (entry.is_directory())
      fs::create_directory(copy);
    else
      makeFile(copy);
    bind(entry.path(), copy);
  }
  makeFile(draft / place.filename());
  require(mount(draft.c_str(), directory.c_str(), nullptr, MS_MOVE, nullptr) == 0,
          "mount the copy of a directory");
}

}  // namespace

rt::String installedShim() {
  std::error_code error;
  const fs::path here = fs::read_symlink("/proc/self/exe", error).parent_path();
  // Installed, in one directory, in the build's.
  const std::array<fs::path, 3> places = {here / "../lib/vmagent/vmagent-shim",
                                          here / "vmagent-shim", here / "../shim/vmagent-shim"};
  for (const auto& place : places)
    if (access(place.c_str(), X_OK) == 0) return rt::String(fs::canonical(place, error).string());
  return {};
}

ShimMount::ShimMount(const rt::String& shim) : shim_(shim) {
  struct stat facts {};
  if (access(shim.charPtr(), X_OK) != 0 || stat(shim.charPtr(), &facts) != 0)
    throw rt::Exception("the shim " + shim + " cannot be executed: " + std::strerror(errno) +
                        "; name another one with --shim");
  remember(facts);
  if (access(guest::qemuPath, X_OK) != 0)
    throw rt::Exception(rt::String("there is no QEMU at ") + guest::qemuPath +
                        ": install the package qemu-system-x86");
  if (stands()) {
    isMount_ = isMountPoint(guest::qemuPath);
    return;
  }
  require(unshare(CLONE_NEWNS) == 0, "make a mount namespace");
  require(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0, "keep mounts private");
  makePlace(guest::realQemuPath);
  mountBoth();
}

void ShimMount::restore() {
  // Where there is no QEMU now, its start says so.
  if (stands() || access(guest::qemuPath, X_OK) != 0) return;
  if (!isMount_)
    throw rt::Exception(rt::String("the shim was a file at ") + guest::qemuPath +
                        " and is not any more; put it there again, or restart the daemon");
  // What stands in the shim's place is the new QEMU, and in QEMU's the old one.
  (void)umount2(guest::realQemuPath, MNT_DETACH);
  mountBoth();
  report(rt::String(guest::qemuPath) +
         " was replaced: guests that are started from now on run the new");
}

bool ShimMount::stands() const {
  struct stat facts {};
  return stat(guest::qemuPath, &facts) == 0 && facts.st_dev == device_ && facts.st_ino == inode_;
}

void ShimMount::mountBoth() {
  bind(guest::qemuPath, guest::realQemuPath);
  bind(shim_.charPtr(), guest::qemuPath);
  struct stat facts {};
  require(stat(guest::qemuPath, &facts) == 0, "look at it");
  remember(facts);
}

void ShimMount::remember(const struct stat& shim) {
  device_ = shim.st_dev;
  inode_ = shim.st_ino;
}

}  // namespace host
