#include "host/base/KeptDirectory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/base/Report.h"
#include "runtime/base/OwnFile.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr mode_t readByGroup = 0750;

rt::Descriptor opened(const rt::String& stateDir, const rt::String& path) {
  const rt::Descriptor state(open(stateDir.charPtr(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct stat facts {};
  rt::Descriptor made(state && fstat(state.number(), &facts) == 0
                          ? rt::openOwnDirectory(state.number(), "kept", readByGroup, facts.st_gid)
                          : -1);
  const int error = errno;
  if (!made)
    report("nothing is kept in " + path + ": it " +
           (error == EPERM ? rt::String("is another user's: remove it")
                           : rt::String("cannot be made: ") + std::strerror(error)));
  return made;
}

// Whole, if it is of that size at most.
std::optional<std::string> contentOf(int file, size_t atMost) {
  struct stat facts {};
  if (fstat(file, &facts) != 0 || static_cast<size_t>(facts.st_size) > atMost) return std::nullopt;
  std::string text(static_cast<size_t>(facts.st_size) + 1, '\0');
  size_t size = 0;
  while (size < text.size()) {
    const ssize_t count = ::read(file, text.data() + size, text.size() - size);
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    size += static_cast<size_t>(count);
  }
  if (size == text.size()) return std::nullopt;  // it has grown meanwhile
  text.resize(size);
  return text;
}

}  // namespace

KeptDirectory::KeptDirectory(const rt::String& stateDir)
    : path_(stateDir + "/kept"), directory_(opened(stateDir, path_)) {}

std::optional<std::string> KeptDirectory::read(const char* name, size_t atMost) const {
  if (!directory_) return std::nullopt;
  constexpr int harmless = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const rt::Descriptor file(openat(directory_.number(), name, O_RDONLY | harmless));
  if (!file && errno == ENOENT) return std::nullopt;
  auto text = rt::isOwnFile(file.number()) ? contentOf(file.number(), atMost) : std::nullopt;
  if (!text)
    putAside(name,
             "it is no file of ours that can be read, of " + rt::toText(atMost) + " bytes at most");
  return text;
}

void KeptDirectory::putAside(const char* name, const rt::String& why) const {
  const rt::String aside = rt::String(name) + ".bad";
  const rt::String file = path_ + "/" + name;
  if (renameat(directory_.number(), name, directory_.number(), aside.charPtr()) == 0)
    return report(file + ": " + why + ": it is put aside as " + aside);
  const bool isGone = unlinkat(directory_.number(), name, 0) == 0;
  report(file + ": " + why + (isGone ? ": it is removed" : ": it will be replaced"));
}

}  // namespace host
