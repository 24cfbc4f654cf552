#include "host/guests/GuestFiles.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "guest/VmFiles.h"
#include "host/base/Report.h"
#include "runtime/base/Exception.h"

namespace host {

GuestFiles::GuestFiles(const rt::String& directory, Sinks sinks)
    : directory_(directory),
      sinks_(std::move(sinks)),
      events_(*this, rt::make<rt::FileDescriptor>("guests' files")) {
  handleInitialized();
}

void GuestFiles::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  events_->descriptorIs(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  all_ = inotify_add_watch(events_->descriptor(), directory_.charPtr(),
                           IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
  if (all_ < 0) throw rt::ErrnoException(errno, "directory " + directory_ + " cannot be watched");
  events_->notifyOnReadableIs(true);
  lookAtAll();
}

void GuestFiles::lookAtAll() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory_.str(), error))
    follow(rt::String(entry.path().filename().string()));
}

// A shim puts a new file in the place of the old one, so only names come and go. Watched before it
// is read, so that nothing is missed in between.
void GuestFiles::follow(const rt::String& vm) {
  const rt::String path = directory_ + "/" + vm;
  const int watch =
      inotify_add_watch(events_->descriptor(), path.charPtr(),
                        IN_CREATE | IN_MOVED_TO | IN_DELETE | IN_ONLYDIR | IN_DONT_FOLLOW);
  if (watch >= 0) {
    vms_[watch] = vm;
  } else if (errno != ENOTDIR && errno != ENOENT && !complained_) {
    complained_ = true;  // one is like the other
    report("what shims tell of guests cannot be followed: directory " + path + ": " +
           std::strerror(errno));
  }
  sinks_.problem(vm);
  followEvents(vm);
}

void GuestFiles::followEvents(const rt::String& vm) {
  const rt::String path = directory_ + "/" + vm + "/" + guest::eventsFile;
  const int watch =
      inotify_add_watch(events_->descriptor(), path.charPtr(), IN_MODIFY | IN_DONT_FOLLOW);
  if (watch >= 0) files_[watch] = vm;
  sinks_.events(vm);
}

void GuestFiles::handleChange(const rt::String& vm, std::string_view file) {
  if (file == guest::problemFile) sinks_.problem(vm);
  if (file == guest::eventsFile) followEvents(vm);
}

void GuestFiles::handleEvents() {
  alignas(inotify_event) char buffer[4096];
  const ssize_t size = read(events_->descriptor(), buffer, sizeof buffer);
  for (const char* at = buffer; at < buffer + size;) {
    const auto& event = *reinterpret_cast<const inotify_event*>(at);
    at += sizeof event + event.len;
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
      lookAtAll();
    } else if ((event.mask & IN_IGNORED) != 0) {
      vms_.erase(event.wd);
      files_.erase(event.wd);
    } else if (event.wd == all_) {
      follow(event.name);
    } else if (const auto file = files_.find(event.wd); file != files_.end()) {
      sinks_.events(rt::String(file->second));
    } else if (const auto vm = vms_.find(event.wd); vm != vms_.end() && event.len > 0) {
      handleChange(rt::String(vm->second), event.name);
    }
  }
}

}  // namespace host
