#include "runtime/base/OwnFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/base/Descriptor.h"

namespace rt {

namespace {

// Somebody may put a thing of his there as often as we remove it.
constexpr int mostTries = 3;

bool isEmpty(int directory) {
  const int own = openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  DIR* const entries = own < 0 ? nullptr : fdopendir(own);
  if (!entries) return false;
  size_t count = 0;
  while (readdir(entries)) ++count;
  closedir(entries);
  return count <= 2;  // itself and its parent
}

// The directory, with that mode and group; -1 when it is another's, or one of ours that others may
// see less of: who may write beside it may have put it there, and nobody is shown what is in it.
int shared(int directory, mode_t mode, gid_t group) {
  constexpr mode_t others = S_IRWXG | S_IRWXO;
  struct stat facts {};
  if (fstat(directory, &facts) == 0 && facts.st_uid == geteuid() &&
      ((mode & others & ~facts.st_mode) == 0 || isEmpty(directory))) {
    if (facts.st_gid != group) (void)!fchown(directory, static_cast<uid_t>(-1), group);
    if ((facts.st_mode & 07777) != mode) (void)fchmod(directory, mode);
    return directory;
  }
  Descriptor(directory).reset();
  errno = EPERM;
  return -1;
}

}  // namespace

bool isOwnFile(int descriptor) {
  struct stat facts {};
  return fstat(descriptor, &facts) == 0 && S_ISREG(facts.st_mode) && facts.st_uid == geteuid() &&
         facts.st_nlink == 1;
}

int openOwnFile(int directory, const char* name, int flags, mode_t mode) {
  flags |= O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  for (int tries = 0; tries < mostTries; ++tries) {
    Descriptor file(openat(directory, name, flags, mode));
    // A link, or a pipe or socket that nobody reads.
    if (!file && errno != ELOOP && errno != ENXIO) return -1;
    if (file && isOwnFile(file.number())) {
      (void)fchmod(file.number(), mode);
      return file.release();
    }
    if (unlinkat(directory, name, 0) != 0 && errno != ENOENT) return -1;
  }
  errno = EBUSY;
  return -1;
}

int openOwnDirectory(int directory, const char* name, mode_t mode, gid_t group) {
  for (int tries = 0; tries < mostTries; ++tries) {
    if (mkdirat(directory, name, S_IRWXU) != 0 && errno != EEXIST) return -1;
    const int opened = openat(directory, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (opened >= 0) return shared(opened, mode, group);
    if (errno != ELOOP && errno != ENOTDIR && errno != ENOENT) return -1;
    if (unlinkat(directory, name, 0) != 0 && errno != ENOENT) return -1;
  }
  errno = EBUSY;
  return -1;
}

}  // namespace rt
