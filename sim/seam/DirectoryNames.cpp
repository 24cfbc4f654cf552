// Directories that are read.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>

#include "sim/kernel/calls/FileCalls.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

// What a DIR* of the world points to.
struct OpenDirectory {
  int number;
  dirent entry;
};

DIR* handleOf(int number) { return reinterpret_cast<DIR*>(new OpenDirectory{number, {}}); }
OpenDirectory& from(DIR* directory) { return *reinterpret_cast<OpenDirectory*>(directory); }

}  // namespace

extern "C" {

DIR* simOpenDirectory(const char* path) asm("opendir");
DIR* simOpenDirectory(const char* path) {
  static constinit Name name("opendir");
  if (!inWorld()) return name.library(&simOpenDirectory)(path);
  const long number = name.call(
      [&] { return sys::open(AT_FDCWD, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC, 0); }, path);
  return number < 0 ? nullptr : handleOf(static_cast<int>(number));
}
DIR* simOpenedDirectory(int number) asm("fdopendir");
DIR* simOpenedDirectory(int number) {
  static constinit Name name("fdopendir");
  if (!inWorld()) return name.library(&simOpenedDirectory)(number);
  return handleOf(number);
}

dirent* simReadDirectory(DIR* directory) asm("readdir");
dirent* simReadDirectory(DIR* directory) {
  static constinit Name name("readdir");
  if (!inWorld()) return name.library(&simReadDirectory)(directory);
  OpenDirectory& open = from(directory);
  std::string entry;
  struct stat facts {};
  const int before = errno;
  if (name.call([&] { return sys::nextEntry(open.number, entry, facts); }, open.number) < 0) {
    if (errno == ENOENT) errno = before;  // only its end
    return nullptr;
  }
  open.entry.d_ino = facts.st_ino;
  open.entry.d_type = static_cast<unsigned char>(IFTODT(facts.st_mode));
  std::memcpy(open.entry.d_name, entry.c_str(), entry.size() + 1);
  return &open.entry;
}
dirent* simReadDirectory64(DIR* directory) asm("readdir64");
dirent* simReadDirectory64(DIR* directory) { return simReadDirectory(directory); }

int simDirectoryNumber(DIR* directory) asm("dirfd");
int simDirectoryNumber(DIR* directory) {
  static constinit Name name("dirfd");
  return inWorld() ? from(directory).number : name.library(&simDirectoryNumber)(directory);
}

int simCloseDirectory(DIR* directory) asm("closedir");
int simCloseDirectory(DIR* directory) {
  static constinit Name name("closedir");
  if (!inWorld()) return name.library(&simCloseDirectory)(directory);
  const std::unique_ptr<OpenDirectory> open(&from(directory));
  return static_cast<int>(name.call([&] { return sys::close(open->number); }, open->number));
}

}  // extern "C"
