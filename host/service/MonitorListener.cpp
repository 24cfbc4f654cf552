#include "host/service/MonitorListener.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"

namespace host {

namespace {

MonitorListener* current = nullptr;

// The agent alone, which is this process.
constexpr mode_t mode = 0600;
// Connections that nobody takes from a shim that stands still: one more than that, and the agent
// waits.
constexpr int mostWaiting = SOMAXCONN;

rt::Exception trouble(const rt::String& path, const char* what) {
  return rt::Exception("the monitor's socket " + path + " cannot be made: " + what);
}

// Anything else that stands there is removed.
void requireNoDirectory(const rt::String& path) {
  struct stat found {};
  if (lstat(path.charPtr(), &found) == 0 && S_ISDIR(found.st_mode))
    throw trouble(path, "a directory is in its place; remove it");
}

bool bindTo(int socket, const rt::String& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.str().copy(address.sun_path, sizeof address.sun_path - 1);
  return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
         chmod(path.charPtr(), mode) == 0 && listen(socket, mostWaiting) == 0;
}

}  // namespace

MonitorListener::MonitorListener(rt::String waitingPlace) : waitingPlace_(std::move(waitingPlace)) {
  // The system forgets no such handler, so it is told of them once.
  static const int watched = pthread_atfork(&handleFork, &handleForkInParent, &handleForkInChild);
  (void)watched;
  current = this;
}

MonitorListener::~MonitorListener() {
  current = nullptr;
  letGo();
}

void MonitorListener::removeLeftover() const { (void)unlink(waitingPlace_.charPtr()); }

void MonitorListener::open(const rt::String& path) {
  letGo();
  constexpr size_t longest = sizeof sockaddr_un{}.sun_path - 1;
  if (path.size() > longest || waitingPlace_.size() > longest)
    throw trouble(path, "its path is too long");
  requireNoDirectory(path);
  requireNoDirectory(waitingPlace_);
  removeLeftover();
  rt::Descriptor made(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!made || !bindTo(made.number(), waitingPlace_)) {
    const int error = errno;
    (void)unlink(waitingPlace_.charPtr());
    throw trouble(path, std::strerror(error));
  }
  socket_ = std::move(made);
  path_ = path;
  isInPlace_ = false;
  isHandedOver_ = false;
}

void MonitorListener::settle() {
  if (!socket_ || !isInPlace_) return letGo();
  kept_[path_] = std::move(socket_);
}

void MonitorListener::close(const rt::String& path) { kept_.erase(path); }

void MonitorListener::letGo() {
  if (!socket_) return;
  if (!isInPlace_) (void)unlink(waitingPlace_.charPtr());
  socket_.reset();
}

void MonitorListener::handleFork() {
  if (!current || !current->socket_ || current->isInPlace_) return;
  current->isInPlace_ =
      std::rename(current->waitingPlace_.charPtr(), current->path_.charPtr()) == 0;
}

void MonitorListener::handleForkInParent() {
  if (current) current->isHandedOver_ = current->isInPlace_;
}

// Does only what is safe in a forked child.
void MonitorListener::handleForkInChild() {
  if (current && current->isInPlace_ && !current->isHandedOver_)
    (void)fcntl(current->socket_.number(), F_SETFD, 0);
}

}  // namespace host
