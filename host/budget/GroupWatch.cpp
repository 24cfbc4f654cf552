#include "host/budget/GroupWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

namespace host {

GroupWatch::GroupWatch(std::function<void()> changed)
    : changed_(std::move(changed)), events_(*this, rt::make<rt::FileDescriptor>("guests' groups")) {
  handleInitialized();
}

void GroupWatch::handleInitialized() {
  if (initialized()) return;
  initializedIs(true);
  events_->descriptorIs(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  events_->notifyOnReadableIs(true);
}

void GroupWatch::watch(const rt::String& group) {
  (void)inotify_add_watch(events_->descriptor(), (group + "/cgroup.events").charPtr(), IN_MODIFY);
}

void GroupWatch::handleEvents() {
  alignas(inotify_event) char buffer[4096];
  while (read(events_->descriptor(), buffer, sizeof buffer) > 0) continue;
  changed_();
}

}  // namespace host
