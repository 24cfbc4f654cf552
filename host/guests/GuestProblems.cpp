#include "host/guests/GuestProblems.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "guest/VmFiles.h"
#include "host/base/Report.h"
#include "runtime/base/Exception.h"

namespace host {

GuestProblems::GuestProblems(const rt::String& directory, Sink sink)
    : directory_(directory),
      sink_(std::move(sink)),
      events_(*this, rt::make<rt::FileDescriptor>("guests' problems")) {
  handleInitialized();
}

void GuestProblems::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  events_->descriptorIs(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  all_ = inotify_add_watch(events_->descriptor(), directory_.charPtr(),
                           IN_CREATE | IN_MOVED_TO | IN_ONLYDIR);
  if (all_ < 0) throw rt::ErrnoException(errno, "directory " + directory_ + " cannot be watched");
  events_->notifyOnReadableIs(true);
  lookAtAll();
}

void GuestProblems::lookAtAll() {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(directory_.str(), error))
    follow(rt::String(entry.path().filename().string()));
}

// A shim puts a new file in the place of the old one, so only names come and go. Watched before it
// is read, so that nothing is missed in between.
void GuestProblems::follow(const rt::String& vm) {
  const rt::String path = directory_ + "/" + vm;
  const int watch = inotify_add_watch(events_->descriptor(), path.charPtr(),
                                      IN_MOVED_TO | IN_DELETE | IN_ONLYDIR | IN_DONT_FOLLOW);
  if (watch >= 0) {
    vms_[watch] = vm;
  } else if (errno != ENOTDIR && errno != ENOENT && !complained_) {
    complained_ = true;  // one is like the other
    report("what is wrong with guests cannot be followed: directory " + path + ": " +
           std::strerror(errno));
  }
  sink_(vm);
}

void GuestProblems::handleEvents() {
  alignas(inotify_event) char buffer[4096];
  const ssize_t size = read(events_->descriptor(), buffer, sizeof buffer);
  for (const char* at = buffer; at < buffer + size;) {
    const auto& event = *reinterpret_cast<const inotify_event*>(at);
    at += sizeof event + event.len;
    if ((event.mask & IN_Q_OVERFLOW) != 0) {
      lookAtAll();
    } else if ((event.mask & IN_IGNORED) != 0) {
      vms_.erase(event.wd);
    } else if (event.wd == all_) {
      follow(event.name);
    } else if (const auto found = vms_.find(event.wd);
               found != vms_.end() && std::strcmp(event.name, guest::problemFile) == 0) {
      sink_(found->second);
    }
  }
}

}  // namespace host
