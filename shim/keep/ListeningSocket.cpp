#include "shim/keep/ListeningSocket.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "shim/base/Failure.h"

namespace shim {

namespace {

// Each of our sockets is full control over a guest.
constexpr mode_t outsidersMask = 0117;
constexpr mode_t othersMask = 0177;
constexpr int mostWaiting = 16;

bool isThere(const Place& place, struct stat& found) {
  return fstatat(place.directory, place.name.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
}

bool isSame(const struct stat& one, const struct stat& other) {
  return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

void removeStale(const Place& place, const std::string& what) {
  struct stat found {};
  if (!isThere(place, found)) return;
  if (!S_ISSOCK(found.st_mode))
    throw Failure(what + " path " + place.path + " is taken by what is no socket: remove it");
  (void)unlinkat(place.directory, place.name.c_str(), 0);
}

// A socket's address is a path. This one leads through the open directory.
std::string addressOf(const Place& place) {
  if (place.directory == AT_FDCWD) return place.name;
  return "/proc/self/fd/" + std::to_string(place.directory) + "/" + place.name;
}

// The path must fit.
sockaddr_un addressFrom(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  return address;
}

bool fits(const std::string& path) { return path.size() < sizeof sockaddr_un{}.sun_path; }

}  // namespace

ListeningSocket::ListeningSocket(Place place, const std::string& what, Users users)
    : place_(std::move(place)),
      socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)),
      isOwn_(true) {
  // By which others connect.
  if (!fits(place_.path))
    throw Failure(what + " path " + place_.path + " is too long: it must have at most " +
                  std::to_string(sizeof sockaddr_un{}.sun_path - 1) + " characters");
  const sockaddr_un address = addressFrom(addressOf(place_));
  removeStale(place_, what);
  const mode_t before = umask(users == Users::ours ? othersMask : outsidersMask);
  const bool bound = socket_ && bind(socket_.number(), reinterpret_cast<const sockaddr*>(&address),
                                     sizeof address) == 0;
  umask(before);
  if (!bound || listen(socket_.number(), mostWaiting) != 0 || !isThere(place_, own_))
    throw failureOf(what + " socket " + place_.path + " could not be made");
}

ListeningSocket::ListeningSocket(Place place, rt::Descriptor listening)
    : place_(std::move(place)), socket_(std::move(listening)), isOwn_(false) {
  (void)fcntl(socket_.number(), F_SETFL, O_NONBLOCK);
  (void)isThere(place_, own_);
}

rt::Descriptor ListeningSocket::accept() {
  rt::Descriptor connection(
      accept4(socket_.number(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  isExhausted_ =
      !connection && (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM);
  return connection;
}

void ListeningSocket::remove() const {
  struct stat found {};
  if (isThere(place_, found) && isSame(found, own_))
    (void)unlinkat(place_.directory, place_.name.c_str(), 0);
}

void ListeningSocket::giveWayTo(const ListeningSocket& next) {
  if (isSame(own_, next.own_)) own_ = {};
  remove();
}

bool listens(int number) {
  int value = 0;
  socklen_t size = sizeof value;
  return getsockopt(number, SOL_SOCKET, SO_ACCEPTCONN, &value, &size) == 0 && value != 0;
}

rt::Descriptor takeListener(int number, std::vector<int>& inherited) {
  const auto found = std::find(inherited.begin(), inherited.end(), number);
  if (found == inherited.end() || !listens(number)) return rt::Descriptor();
  inherited.erase(found);
  (void)fcntl(number, F_SETFD, FD_CLOEXEC);
  return rt::Descriptor(number);
}

void hangUpAt(const rt::Descriptor& listener) {
  (void)fcntl(listener.number(), F_SETFL, O_NONBLOCK);
  while (rt::Descriptor(accept4(listener.number(), nullptr, nullptr, SOCK_CLOEXEC))) {
  }
}

std::unique_ptr<ListeningSocket> monitorSocket(const std::string& path, rt::Descriptor listener) {
  if (listener) return std::make_unique<ListeningSocket>(path, std::move(listener));
  return std::make_unique<ListeningSocket>(path, "monitor", ListeningSocket::Users::ours);
}

std::unique_ptr<ListeningSocket> screenAt(const std::string& address, unsigned screen) {
  constexpr unsigned firstPort = 5900;
  const std::string port = std::to_string(firstPort + screen);
  const auto failure = [&](const std::string& reason) {
    return Failure("the screen cannot be served at port " + port + " of " + address + ": " +
                   reason);
  };
  addrinfo wanted{};
  wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo* first = nullptr;
  const bool isBracketed = address.starts_with('[') && address.ends_with(']');
  const std::string host = isBracketed ? address.substr(1, address.size() - 2) : address;
  const int error = getaddrinfo(host.c_str(), port.c_str(), &wanted, &first);
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> found(first, freeaddrinfo);
  if (error != 0) throw failure(gai_strerror(error));
  rt::Descriptor listening(socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!listening && errno == EAFNOSUPPORT)
    throw failure("the daemon's service may use no such address: vmagentd(8), --vnc-listen");
  const int one = 1;
  (void)setsockopt(listening.number(), SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (bind(listening.number(), found->ai_addr, found->ai_addrlen) != 0 ||
      listen(listening.number(), mostWaiting) != 0)
    throw failure(std::strerror(errno));  // NOLINT(concurrency-mt-unsafe): the shim has one thread
  const Place noFile(-1, "", host + ":" + port);
  return std::make_unique<ListeningSocket>(noFile, std::move(listening));
}

rt::Descriptor connectionTo(const std::string& path) {
  rt::Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!connection || !fits(path)) return rt::Descriptor();
  const sockaddr_un address = addressFrom(path);
  if (connect(connection.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0)
    return rt::Descriptor();
  return connection;
}

}  // namespace shim
