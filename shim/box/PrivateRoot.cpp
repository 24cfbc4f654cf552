#include "shim/box/PrivateRoot.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "runtime/base/Descriptor.h"
#include "shim/base/Failure.h"

namespace shim {

namespace {

// Where the new root is put together: it is there on each machine, and nothing of it is needed any
// more.
constexpr char draft[] = "/proc";
constexpr mode_t directoryMode = 0755;
constexpr unsigned memoryMajor = 1;
constexpr unsigned nullMinor = 3;
constexpr unsigned urandomMinor = 9;

void require(bool done, const std::string& what) {
  if (!done) throw failureOf("QEMU's files could not be put together: " + what);
}

// From the new root, which is our working directory.
std::string relative(const std::string& path) { return path.substr(1); }

void makeDirectories(const std::string& path) {
  for (size_t end = 0; end != std::string::npos;) {
    end = path.find('/', end + 1);
    const std::string directory = path.substr(0, end);
    require(mkdir(directory.c_str(), directoryMode) == 0 || errno == EEXIST, directory);
  }
}

// "/lib", which is a link to "usr/lib" where Debian's directories are merged. What it leads to is
// there.
void copyLink(const char* path) {
  char target[PATH_MAX];
  const ssize_t size = readlink(path, target, sizeof target - 1);
  if (size <= 0) return;
  target[size] = '\0';
  require(symlink(target, relative(path).c_str()) == 0, path);
  makeDirectories(target[0] == '/' ? relative(target) : target);
}

void bindToRead(const std::string& path) {
  const std::string place = relative(path);
  require(mount(path.c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0, path);
  // A bind has the flags of what it is of, at first.
  require(mount(nullptr, place.c_str(), nullptr,
                MS_REMOUNT | MS_BIND | MS_RDONLY | MS_NOSUID | MS_NODEV, nullptr) == 0,
          path);
}

void show(const std::string& path) {
  struct stat facts {};
  const std::string place = relative(path);
  if (lstat(place.c_str(), &facts) == 0 && S_ISLNK(facts.st_mode)) return;  // to what is shown
  if (stat(path.c_str(), &facts) != 0) return;
  if (S_ISDIR(facts.st_mode)) {
    makeDirectories(place);
  } else {
    if (access(place.c_str(), F_OK) == 0) return;  // in a directory that is shown
    if (const size_t slash = place.rfind('/'); slash != std::string::npos)
      makeDirectories(place.substr(0, slash));
    require(mknod(place.c_str(), S_IFREG | 0444, 0) == 0, path);
  }
  bindToRead(path);
}

bool isBelow(const std::string& path, const std::string& directory) {
  return path.size() > directory.size() && path.starts_with(directory) &&
         path[directory.size()] == '/';
}

// Each once, and none that another has in it.
std::vector<std::string> outermost(std::vector<std::string> paths) {
  std::sort(paths.begin(), paths.end());
  std::vector<std::string> kept;
  for (const std::string& each : paths)
    if (kept.empty() || (each != kept.back() && !isBelow(each, kept.back()))) kept.push_back(each);
  return kept;
}

void makeDevices(const std::optional<PrivateRoot::Kvm>& kvm) {
  require(mkdir("dev", directoryMode) == 0, "/dev");
  require(mknod("dev/null", S_IFCHR | 0666, makedev(memoryMajor, nullMinor)) == 0, "/dev/null");
  require(mknod("dev/urandom", S_IFCHR | 0444, makedev(memoryMajor, urandomMinor)) == 0,
          "/dev/urandom");
  if (!kvm) return;
  require(mknod("dev/kvm", S_IFCHR | 0600, kvm->device) == 0 &&
              chown("dev/kvm", kvm->user, kvm->user) == 0,
          "/dev/kvm");
}

// The old root comes to lie on the new one, and is taken away. Of a machine that lives in its first
// memory file system that one stays, below the new, and nobody leads there.
void enterDraft() {
  if (syscall(SYS_pivot_root, ".", ".") == 0)
    require(umount2(".", MNT_DETACH) == 0, "the old root");
  else
    require(errno == EINVAL && mount(".", "/", nullptr, MS_MOVE, nullptr) == 0 && chroot(".") == 0,
            "the new root");
  require(chdir("/") == 0, "the new root");
}

}  // namespace

std::vector<std::string> qemusFiles() {
  return {"/lib", "/lib64", "/usr/lib", "/usr/lib64", "/usr/share/qemu", "/usr/share/seabios"};
}

void enterPrivateRoot(const PrivateRoot& root) {
  // What is unmounted outside goes here, too, and nothing of ours is seen there.
  require(mount(nullptr, "/", nullptr, MS_SLAVE | MS_REC, nullptr) == 0, "/");
  constexpr unsigned long flags = MS_NOSUID | MS_NOEXEC;
  require(mount("tmpfs", draft, "tmpfs", flags, "size=64k,nr_inodes=256,mode=755") == 0, draft);
  require(chdir(draft) == 0, draft);
  umask(0);
  for (const char* const link : {"/bin", "/lib", "/lib64", "/sbin"}) copyLink(link);
  for (const std::string& path : outermost(root.readable)) show(path);
  show(root.program);
  makeDevices(root.kvm);
  require(mount(nullptr, draft, nullptr, MS_REMOUNT | MS_RDONLY | flags, nullptr) == 0, draft);
  enterDraft();
}

}  // namespace shim
