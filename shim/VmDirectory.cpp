#include "shim/VmDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "shim/Failure.h"

namespace shim {

namespace {

// Setgid: what is made in it is its group's, whatever group we have.
constexpr mode_t directoryMode = 02770;
constexpr mode_t fileMode = 0660;

void makeDirectory(const std::string& path, gid_t group) {
  if (mkdir(path.c_str(), directoryMode) == 0) {
    (void)!chown(path.c_str(), static_cast<uid_t>(-1), group);
    (void)chmod(path.c_str(), directoryMode);  // whatever the umask
  } else if (errno != EEXIST) {
    throw failureOf("directory " + path + " could not be made");
  }
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
    : path_(runDir + "/vm/" + name) {
  struct stat run {};
  if (stat(runDir.c_str(), &run) != 0)
    throw failureOf("directory " + runDir + " cannot be used: make it, or set VMAGENT_RUN_DIR");
  makeDirectory(runDir + "/vm", run.st_gid);
  makeDirectory(path_, run.st_gid);
}

void VmDirectory::lineIs(const char* name, const std::string& text) const {
  // A reader finds the whole of it or none.
  const std::string made = file(name) + ".new";
  (void)unlink(made.c_str());
  const Descriptor out(
      open(made.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, fileMode));
  if (!out) return;
  (void)fchmod(out.number(), fileMode);
  const std::string line = text + "\n";
  if (write(out.number(), line.data(), line.size()) == static_cast<ssize_t>(line.size()))
    (void)rename(made.c_str(), file(name).c_str());
}

void VmDirectory::problemIs(const std::string& text) const {
  if (text.empty())
    (void)unlink(file("problem").c_str());
  else
    lineIs("problem", text);
}

void VmDirectory::lastErrorDel() const { (void)unlink(file("last-error").c_str()); }

VmLock::VmLock(const std::string& path)
    : file_(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, fileMode)) {
  if (!file_) throw failureOf("lock file " + path + " could not be opened");
  (void)fchmod(file_.number(), fileMode);
}

bool VmLock::takeKeeping() {
  struct flock record = keeperRecord(F_WRLCK);
  return fcntl(file_.number(), F_SETLK, &record) == 0;
}

pid_t VmLock::keeper() const {
  struct flock record = keeperRecord(F_WRLCK);
  if (fcntl(file_.number(), F_GETLK, &record) != 0 || record.l_type == F_UNLCK) return 0;
  return record.l_pid;
}

void VmLock::endKeeping() {
  struct flock record = keeperRecord(F_UNLCK);
  (void)fcntl(file_.number(), F_SETLK, &record);
}

bool VmLock::takeVm() { return flock(file_.number(), LOCK_EX | LOCK_NB) == 0; }

}  // namespace shim
