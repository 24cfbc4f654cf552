#include "shim/ListeningSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "shim/Failure.h"

namespace shim {

namespace {

// Each of our sockets is full control over a guest.
constexpr mode_t outsidersMask = 0117;
constexpr int mostWaiting = 16;

void removeStale(const std::string& path, const std::string& what) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) return;
  if (!S_ISSOCK(found.st_mode))
    throw Failure(what + " path " + path + " is taken by what is no socket: remove it");
  (void)unlink(path.c_str());
}

// The path must fit.
sockaddr_un addressOf(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

bool fits(const std::string& path) { return path.size() < sizeof sockaddr_un{}.sun_path; }

}  // namespace

ListeningSocket::ListeningSocket(std::string path, const std::string& what)
    : path_(std::move(path)),
      socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  if (!fits(path_))
    throw Failure(what + " path " + path_ + " is too long: it must have at most " +
                  std::to_string(sizeof sockaddr_un{}.sun_path - 1) + " characters");
  const sockaddr_un address = addressOf(path_);
  removeStale(path_, what);
  const mode_t before = umask(outsidersMask);
  const bool bound = socket_ && bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address),
                                     sizeof address) == 0;
  umask(before);
  if (!bound || listen(socket_.number(), mostWaiting) != 0 || lstat(path_.c_str(), &own_) != 0)
    throw failureOf(what + " socket " + path_ + " could not be made");
}

Descriptor ListeningSocket::accept() const {
  return Descriptor(accept4(socket_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
}

void ListeningSocket::remove() const {
  struct stat found {};
  if (lstat(path_.c_str(), &found) == 0 && found.st_dev == own_.st_dev &&
      found.st_ino == own_.st_ino)
    (void)unlink(path_.c_str());
}

Descriptor connectionTo(const std::string& path) {
  Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!connection || !fits(path)) return Descriptor();
  const sockaddr_un address = addressOf(path);
  if (connect(connection.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0)
    return Descriptor();
  return connection;
}

}  // namespace shim
