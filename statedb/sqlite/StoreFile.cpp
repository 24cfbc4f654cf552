#include "statedb/sqlite/StoreFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/base/Descriptor.h"
#include "statedb/sqlite/Sentences.h"

namespace statedb::sqlite {

namespace {

constexpr mode_t sharedMode = 0660;

// Never opens a file that exists: closing it would drop the locks that a connection of this process
// has on it.
void create(const rt::String& file) {
  const rt::Descriptor made(
      open(file.charPtr(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, sharedMode));
  if (!made && errno == EEXIST) return;
  if (!made) throw fromErrno(file, errno, "it could not be made");
  fchmod(made.number(),
         sharedMode);  // whatever the umask; SQLite gives its own files the same mode
}

}  // namespace

void requireFile(const rt::String& file, Role role) {
  struct stat found {};
  const rt::String directory = directoryOf(file);
  if (stat(directory.charPtr(), &found) != 0 && errno == ENOENT) throw missingDirectory(directory);
  if (lstat(file.charPtr(), &found) == 0) {
    // By a link the owner would set up, or write into, whatever file it leads to.
    if (S_ISLNK(found.st_mode)) throw failed(file, "it is a link: put the file itself there");
    return;
  }
  if (errno != ENOENT) throw fromErrno(file, errno, "it could not be found");
  if (role == Role::reopener) throw removed(file);
  if (role == Role::client) throw missingFile(file);
  create(file);
}

FileId idOf(const rt::String& file) {
  struct stat found {};
  if (stat(file.charPtr(), &found) != 0) {
    if (errno == ENOENT) throw removed(file);
    throw fromErrno(file, errno, "it could not be found");
  }
  return {found.st_dev, found.st_ino};
}

void requireSame(const rt::String& file, const FileId& id) {
  if (idOf(file) != id) throw replaced(file);
}

void shareCompanions(const rt::String& file) {
  struct stat database {};
  if (stat(file.charPtr(), &database) != 0) return;
  for (const char* ending : {"-wal", "-shm", "-bell"}) {
    const rt::String name = file + ending;
    struct stat companion {};
    if (lstat(name.charPtr(), &companion) != 0 || companion.st_gid == database.st_gid) continue;
    // Refused to those whose file it is not, for whom there is nothing to mend.
    (void)!lchown(name.charPtr(), static_cast<uid_t>(-1), database.st_gid);
  }
}

}  // namespace statedb::sqlite
