#include "ctl/machine/TemporaryFile.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"
#include "runtime/base/Text.h"

extern char** environ;

namespace ctl {

namespace {

// The shell takes the command apart; the file is its $1. Signals from the terminal are the
// editor's meanwhile. Returns what waitpid() tells.
int runEditor(const rt::String& command, const rt::String& file) {
  const rt::String script = command + " \"$1\"";
  const char* const words[] = {"sh", "-c", script.charPtr(), "sh", file.charPtr(), nullptr};
  struct sigaction ignored {};
  struct sigaction before[2] = {};
  ignored.sa_handler = SIG_IGN;
  sigaction(SIGINT, &ignored, &before[0]);
  sigaction(SIGQUIT, &ignored, &before[1]);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) sigaddset(&defaults, signal);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t pid = 0;
  const int error =
      posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char* const*>(words), environ);
  posix_spawnattr_destroy(&attributes);
  int status = 0;
  while (error == 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  sigaction(SIGINT, &before[0], nullptr);
  sigaction(SIGQUIT, &before[1], nullptr);
  if (error != 0) throw rt::ErrnoException(error, "the editor '" + command + "' cannot be run");
  return status;
}

}  // namespace

TemporaryFile::TemporaryFile(const rt::String& directory, const rt::String& name) {
  // The ending tells editors what is in it.
  constexpr std::string_view ending = ".json";
  std::string path = directory.str() + "/" + name.str() + "-XXXXXX" + std::string(ending);
  const rt::Descriptor descriptor(
      mkostemps(path.data(), static_cast<int>(ending.size()), O_CLOEXEC));
  if (!descriptor)
    throw rt::ErrnoException(errno, "a file for the editor cannot be made in " + directory);
  path_ = path;
}

TemporaryFile::~TemporaryFile() {
  if (!isKept_) (void)unlink(path_.charPtr());
}

rt::String TemporaryFile::edit(const rt::String& editor, const rt::String& text) {
  write(text);
  const int status = runEditor(editor, path_);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw rt::Exception(
        "the editor '" + editor + "' failed" +
        (WIFEXITED(status) ? ", with exit " + rt::toText(WEXITSTATUS(status)) : rt::String()) +
        ": nothing was written; $VISUAL or $EDITOR names another one");
  return read();
}

rt::String TemporaryFile::keep(const rt::String& text) {
  write(text);
  isKept_ = true;
  return path_;
}

void TemporaryFile::write(const rt::String& text) const {
  std::ofstream file(path_.str(), std::ios::trunc);
  file << text;
  if (!file.flush()) throw rt::ErrnoException(errno, path_ + " cannot be written");
}

// By its name: editors like to put a new file in its place.
rt::String TemporaryFile::read() const {
  std::ifstream file(path_.str());
  if (!file) throw rt::ErrnoException(errno, path_ + " cannot be read");
  return std::string(std::istreambuf_iterator<char>(file), {});
}

}  // namespace ctl
