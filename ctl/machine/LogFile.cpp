#include "ctl/machine/LogFile.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include "runtime/base/Exception.h"
#include "runtime/base/OwnFile.h"
#include "runtime/base/VisibleText.h"

namespace ctl {

namespace {

// None: it is not there. Members of the group may put links and others' files there, and root must
// read none for them.
rt::Descriptor openIfThere(const rt::String& path) {
  rt::Descriptor descriptor(open(path.charPtr(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
  if (!descriptor && errno != ENOENT) throw rt::ErrnoException(errno, path + " cannot be read");
  if (descriptor && geteuid() == 0 && !rt::isOwnFile(descriptor.number()))
    throw rt::Exception(path + " cannot be read: it is no file of root's own");
  return descriptor;
}

bool sameFile(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

rt::String directoryOf(const rt::String& path) { return path.substr(0, path.str().rfind('/')); }

}  // namespace

LogFile::LogFile(const rt::String& path) : path_(path), current_(openIfThere(path)) {
  // Opened after the current one, it may be that one, which has just been set aside.
  older_ = openIfThere(path + ".1");
  struct stat current {};
  struct stat older {};
  if (older_ && current_ && fstat(current_.number(), &current) == 0 &&
      fstat(older_.number(), &older) == 0 && sameFile(current, older))
    older_.reset();
}

void LogFile::readOpen(const Sink& sink) {
  char bytes[64 * 1024];
  for (const rt::Descriptor* const file : {&older_, &current_}) {
    while (*file) {
      const ssize_t size = ::read(file->number(), bytes, sizeof bytes);
      if (size < 0 && errno == EINTR) continue;
      if (size < 0) throw rt::ErrnoException(errno, path_ + " cannot be read");
      if (size == 0) break;
      sink({bytes, static_cast<size_t>(size)});
    }
  }
  older_.reset();
}

bool LogFile::isReplaced() const {
  if (!current_) return true;
  struct stat current {};
  struct stat named {};
  return stat(path_.charPtr(), &named) == 0 && fstat(current_.number(), &current) == 0 &&
         !sameFile(current, named);
}

void LogFile::read(const Sink& sink) {
  readOpen(sink);
  if (!isReplaced()) return;
  rt::Descriptor next = openIfThere(path_);
  if (!next) return;
  readOpen(sink);  // what was written to it before it was set aside
  current_ = std::move(next);
  readOpen(sink);
}

int LogFile::follow() {
  inotify_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  const rt::String directory = directoryOf(path_);
  constexpr uint32_t additions = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_ONLYDIR;
  if (!inotify_ || inotify_add_watch(inotify_.number(), directory.charPtr(), additions) < 0)
    throw rt::ErrnoException(errno, path_ + " cannot be followed");
  // The directory itself does not tell its end as long as a file of it is open.
  (void)inotify_add_watch(inotify_.number(), directoryOf(directory).charPtr(),
                          IN_DELETE | IN_MOVED_FROM);
  return inotify_.number();
}

bool LogFile::takeNews() {
  char bytes[4096];
  while (::read(inotify_.number(), bytes, sizeof bytes) > 0) {
  }
  return access(directoryOf(path_).charPtr(), F_OK) == 0;
}

rt::String TerminalText::of(std::string_view chunk) {
  std::string text = std::exchange(pending_, {});
  std::copy_if(chunk.begin(), chunk.end(), std::back_inserter(text),
               [](char c) { return c != '\r'; });
  const size_t whole = text.size() - rt::unfinishedLength(text);
  pending_ = text.substr(whole);
  return rt::visibleText(std::string_view(text).substr(0, whole), "\n\t");
}

}  // namespace ctl
