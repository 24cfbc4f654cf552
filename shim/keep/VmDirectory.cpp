#include "shim/keep/VmDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "guest/Variables.h"
#include "runtime/base/OwnFile.h"
#include "shim/base/Failure.h"

namespace shim {

namespace {

// Setgid: what is made in it is its group's, whatever group we have.
constexpr mode_t directoryMode = 02750;
constexpr mode_t fileMode = 0640;
constexpr mode_t lockMode = 0600;

rt::Descriptor ownDirectory(const rt::Descriptor& in, const char* name, const std::string& path,
                            gid_t group) {
  rt::Descriptor made(rt::openOwnDirectory(in.number(), name, directoryMode, group));
  if (!made && errno == EPERM) throw Failure("directory " + path + " is another user's: remove it");
  if (!made) throw failureOf("directory " + path + " could not be made");
  return made;
}

struct flock keeperRecord(short type) {
  struct flock record {};
  record.l_type = type;
  record.l_whence = SEEK_SET;
  record.l_len = 1;
  return record;
}

}  // namespace

VmDirectory::VmDirectory(const std::string& runDir, const std::string& name)
    : path_(guest::directoryOf(runDir, name)) {
  const rt::Descriptor run(open(runDir.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat facts {};
  if (!run || fstat(run.number(), &facts) != 0)
    throw failureOf("directory " + runDir + " cannot be used: make it, or set " +
                    guest::variable::runDir);
  const rt::Descriptor all =
      ownDirectory(run, guest::vmsDirectory, guest::vmsDirectoryOf(runDir), facts.st_gid);
  directory_ = ownDirectory(all, name.c_str(), path_, facts.st_gid);
}

void VmDirectory::lineIs(const char* name, const std::string& text) const {
  // A reader finds the whole of it or none.
  const std::string made = std::string(name) + ".new";
  const int directory = directory_.number();
  (void)unlinkat(directory, made.c_str(), 0);
  const rt::Descriptor out(rt::openOwnFile(directory, made.c_str(), O_WRONLY | O_EXCL, fileMode));
  const std::string line = text + "\n";
  if (out && write(out.number(), line.data(), line.size()) == static_cast<ssize_t>(line.size()))
    (void)renameat(directory, made.c_str(), directory, name);
}

void VmDirectory::problemIs(const std::string& text) const {
  if (text.empty())
    fileDel(guest::problemFile);
  else
    lineIs(guest::problemFile, text);
}

void VmDirectory::fileDel(const char* name) const { (void)unlinkat(directory_.number(), name, 0); }

VmLock::VmLock(const Place& place)
    : keepers_(rt::openOwnFile(place.directory, place.name.c_str(), O_RDWR, lockMode)) {
  // By whatever name it has by now.
  const std::string again = "/proc/self/fd/" + std::to_string(keepers_.number());
  if (keepers_) vms_.reset(open(again.c_str(), O_RDONLY | O_CLOEXEC));
  if (!vms_) throw failureOf("lock file " + place.path + " could not be opened");
}

bool VmLock::takeKeeping() {
  struct flock record = keeperRecord(F_WRLCK);
  return fcntl(keepers_.number(), F_SETLK, &record) == 0;
}

pid_t VmLock::keeper() const {
  struct flock record = keeperRecord(F_WRLCK);
  if (fcntl(keepers_.number(), F_GETLK, &record) != 0 || record.l_type == F_UNLCK) return 0;
  return record.l_pid;
}

void VmLock::endKeeping() {
  struct flock record = keeperRecord(F_UNLCK);
  (void)fcntl(keepers_.number(), F_SETLK, &record);
}

bool VmLock::takeVm() { return flock(vms_.number(), LOCK_EX | LOCK_NB) == 0; }

}  // namespace shim
