#include "runtime/loop/FileDescriptor.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>

#include "runtime/base/Raised.h"
#include "runtime/loop/ActivityManager.h"

namespace rt {

FileDescriptor::~FileDescriptor() {
  unwatch();
  if (descriptor_ >= 0) ::close(descriptor_);
}

void FileDescriptor::descriptorIs(int descriptor) {
  if (descriptor == descriptor_) return;
  unwatch();
  // Forgotten before it is closed, so that whatever happens in between it is closed once.
  const int old = std::exchange(descriptor_, descriptor);
  if (old >= 0) ::close(old);
  if (descriptor >= 0 && nonBlocking_) applyNonBlocking();
  watch();
  tell<&FileDescriptor::descriptor>();
}

void FileDescriptor::nonBlockingIs(bool nonBlocking) {
  if (nonBlocking == nonBlocking_) return;
  nonBlocking_ = nonBlocking;
  if (descriptor_ >= 0) applyNonBlocking();
  tell<&FileDescriptor::nonBlocking>();
}

void FileDescriptor::applyNonBlocking() const {
  const int flags = fcntl(descriptor_, F_GETFL);
  const int wanted = nonBlocking_ ? flags | O_NONBLOCK : flags & ~O_NONBLOCK;
  if (flags < 0 || fcntl(descriptor_, F_SETFL, wanted) < 0)
    throw ErrnoException(errno, "set O_NONBLOCK on " + name_);
}

void FileDescriptor::notifyOnReadableIs(bool notify) {
  assign<&FileDescriptor::notifyOnReadable>(notifyOnReadable_, notify);
  watch();
}

void FileDescriptor::notifyOnWritableIs(bool notify) {
  assign<&FileDescriptor::notifyOnWritable>(notifyOnWritable_, notify);
  watch();
}

void FileDescriptor::notifyOnExceptionIs(bool notify) {
  assign<&FileDescriptor::notifyOnException>(notifyOnException_, notify);
  watch();
}

void FileDescriptor::hasNotificationActiveIs(bool active) {
  Entity::hasNotificationActiveIs(active);
  watch();
}

uint32_t FileDescriptor::interest() const {
  if (descriptor_ < 0 || !hasNotificationActive()) return 0;
  uint32_t events = 0;
  if (notifyOnReadable_) events |= EPOLLIN | EPOLLRDHUP;
  if (notifyOnWritable_) events |= EPOLLOUT;
  if (notifyOnException_) events |= EPOLLPRI;
  return events;
}

void FileDescriptor::watch() {
  if (interest() == 0)
    unwatch();
  else
    (watcher_ ? *watcher_ : activityManager().descriptors()).watch(*this, interest());
}

void FileDescriptor::unwatch() {
  if (watcher_) watcher_->unwatch(*this);
}

void FileDescriptor::handleEvents(uint32_t events) {
  const Ptr alive(this);
  // Nobody hears it: watched any further it would make the loop spin.
  if (!hasReactors() || deletionMark()) return unwatch();
  const bool ended = (events & (EPOLLHUP | EPOLLERR)) != 0;
  // Each is looked at anew: the handler before may have lost interest, or have closed what the
  // events are of and bound something else.
  const uint64_t id = watchId_;
  const auto asked = [&](uint32_t event) { return watchId_ == id && (interest() & event) != 0; };
  if ((events & (EPOLLIN | EPOLLRDHUP) || ended) && asked(EPOLLIN)) {
    const Raised now(readable_);
    tell<&FileDescriptor::readable>();
  }
  if ((events & EPOLLOUT || ended) && asked(EPOLLOUT)) {
    const Raised now(writable_);
    tell<&FileDescriptor::writable>();
  }
  if ((events & EPOLLPRI || ended) && asked(EPOLLPRI)) {
    const Raised now(exception_);
    tell<&FileDescriptor::exception>();
  }
}

TraceHelper& operator<<(TraceHelper& message, const FileDescriptor& descriptor) {
  return message << descriptor.name() << " (descriptor " << descriptor.descriptor() << ")";
}

}  // namespace rt
