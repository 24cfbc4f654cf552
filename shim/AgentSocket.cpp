#include "shim/AgentSocket.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "shim/Failure.h"

namespace shim {

namespace {

// A monitor is full control over a guest.
constexpr mode_t outsidersMask = 0117;
constexpr int waitingAgents = 4;

void removeStale(const std::string& path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) return;
  if (!S_ISSOCK(found.st_mode))
    throw Failure("monitor path " + path + " is taken by what is no socket: remove it");
  (void)unlink(path.c_str());
}

}  // namespace

AgentSocket::AgentSocket(std::string path)
    : path_(std::move(path)),
      socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path)
    throw Failure("monitor path " + path_ + " is too long: it must have at most " +
                  std::to_string(sizeof address.sun_path - 1) + " characters");
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  removeStale(path_);
  const mode_t before = umask(outsidersMask);
  const bool bound = socket_ && bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address),
                                     sizeof address) == 0;
  umask(before);
  if (!bound || listen(socket_.number(), waitingAgents) != 0 || lstat(path_.c_str(), &own_) != 0)
    throw failureOf("monitor socket " + path_ + " could not be made");
}

Descriptor AgentSocket::accept() const {
  return Descriptor(accept4(socket_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

void AgentSocket::remove() const {
  struct stat found {};
  if (lstat(path_.c_str(), &found) == 0 && found.st_dev == own_.st_dev &&
      found.st_ino == own_.st_ino)
    (void)unlink(path_.c_str());
}

}  // namespace shim
