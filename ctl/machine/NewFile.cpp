#include "ctl/machine/NewFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>

#include "ctl/machine/HeldTerminal.h"
#include "runtime/base/Exception.h"

namespace ctl {

namespace {

// With the stroke at its end; empty: the working directory.
std::string directoryOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

}  // namespace

NewFile::NewFile(FilePlace place) : place_(std::move(place)) {
  const std::string& target = place_.path.str();
  const std::string directory = directoryOf(target);
  // What reads all files of a kind there must not take it for one.
  std::string path = directory + "." + target.substr(directory.size()) + "-XXXXXX";
  descriptor_.reset(mkostemps(path.data(), 0, O_CLOEXEC));
  if (!descriptor_) fail(errno);
  path_ = path;
  if (fchmod(descriptor_.number(), place_.mode) != 0) fail(errno);
}

NewFile::~NewFile() {
  if (!path_.empty()) (void)unlink(path_.charPtr());
}

void NewFile::write(std::string_view bytes) {
  if (!writeAll(descriptor_.number(), bytes)) fail(errno);
}

void NewFile::put() {
  const bool lasts = place_.life == FilePlace::Life::lasting;
  if (lasts && fsync(descriptor_.number()) != 0) fail(errno);
  const char* const target = place_.path.charPtr();
  if (place_.standing == FilePlace::Standing::isReplaced) {
    if (rename(path_.charPtr(), target) != 0) fail(errno);
    path_ = {};
  } else if (link(path_.charPtr(), target) != 0) {
    fail(errno);
  }
  const std::string directory = directoryOf(place_.path.str());
  const rt::Descriptor folder(
      lasts ? open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_CLOEXEC) : -1);
  if (lasts && (!folder || fsync(folder.number()) != 0)) fail(errno);
}

void NewFile::fail(int error) const {
  if (error == EEXIST)
    throw rt::Exception(place_.path + " is there already: --force writes over it");
  throw rt::ErrnoException(error, place_.path + " cannot be written");
}

}  // namespace ctl
