#include "sim/kernel/calls/SocketCalls.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <sys/un.h>

#include <algorithm>
#include <cstring>

#include "sim/kernel/Netlink.h"
#include "sim/kernel/UnixDatagram.h"
#include "sim/kernel/UnixSocket.h"
#include "sim/kernel/calls/Common.h"

namespace sim::sys {

namespace {

constexpr size_t mostFiles = 253;  // in one message

// One on which only devices are asked about.
class ControlSocket final : public File {
 public:
  std::string text() const override { return "socket:[control]"; }
};

std::shared_ptr<UnixSocket> unixSocket(int number) {
  return std::dynamic_pointer_cast<UnixSocket>(fileOf(number));
}

std::shared_ptr<NetlinkSocket> netlinkSocket(int number) {
  return std::dynamic_pointer_cast<NetlinkSocket>(fileOf(number));
}

std::shared_ptr<UnixDatagram> datagramSocket(int number) {
  return std::dynamic_pointer_cast<UnixDatagram>(fileOf(number));
}

Result missing(int number) { return fileOf(number) ? -ENOTSOCK : -EBADF; }

int openFlags(int type) {
  return O_RDWR | ((type & SOCK_NONBLOCK) != 0 ? O_NONBLOCK : 0) |
         ((type & SOCK_CLOEXEC) != 0 ? O_CLOEXEC : 0);
}

Result addSocket(const FilePtr& socket, int flags) {
  socket->flags = flags & ~O_CLOEXEC;
  return addDescriptor(socket, flags);
}

// The path of a local socket's address; empty: it has none.
std::string pathOf(const sockaddr* address, socklen_t length) {
  const auto* const local = reinterpret_cast<const sockaddr_un*>(address);
  const size_t most = length - offsetof(sockaddr_un, sun_path);
  return {local->sun_path, strnlen(local->sun_path, most)};
}

Result requireLocal(const sockaddr* address, socklen_t length) {
  if (length > sizeof(sockaddr_un) || length <= offsetof(sockaddr_un, sun_path)) return -EINVAL;
  return address->sa_family == AF_UNIX ? 0 : -EINVAL;
}

std::vector<FilePtr> filesIn(const msghdr& message, Result& error) {
  std::vector<FilePtr> files;
  auto* const all = const_cast<msghdr*>(&message);
  for (cmsghdr* part = CMSG_FIRSTHDR(all); part; part = CMSG_NXTHDR(all, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
      const FilePtr file = fileOf(number);
      if (!file) error = -EBADF;
      files.push_back(file);
    }
  }
  if (files.size() > mostFiles) error = -EINVAL;
  return files;
}

// Descriptors for them, as many as there is room for; the others are closed.
void handOver(const std::vector<FilePtr>& files, msghdr& message, int flags) {
  size_t room = 0;
  if (message.msg_control && message.msg_controllen >= CMSG_LEN(0))
    room = (message.msg_controllen - CMSG_LEN(0)) / sizeof(int);
  const bool closedByExec = (flags & MSG_CMSG_CLOEXEC) != 0;
  std::vector<int> numbers;
  for (const FilePtr& file : files) {
    if (numbers.size() == room) break;
    const int number = self().descriptors.add(file, closedByExec);
    if (number < 0) break;
    numbers.push_back(number);
  }
  if (numbers.size() < files.size()) message.msg_flags |= MSG_CTRUNC;
  if (numbers.empty()) {
    message.msg_controllen = 0;
    return;
  }
  const size_t size = numbers.size() * sizeof(int);
  auto* const part = static_cast<cmsghdr*>(message.msg_control);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(size);
  std::memcpy(CMSG_DATA(part), numbers.data(), size);
  message.msg_controllen = std::min<size_t>(message.msg_controllen, CMSG_SPACE(size));
}

size_t sizeOf(const msghdr& message) {
  size_t size = 0;
  for (size_t i = 0; i < message.msg_iovlen; ++i) size += message.msg_iov[i].iov_len;
  return size;
}

std::string bytesOf(const msghdr& message) {
  std::string bytes;
  for (size_t i = 0; i < message.msg_iovlen; ++i)
    bytes.append(static_cast<const char*>(message.msg_iov[i].iov_base), message.msg_iov[i].iov_len);
  return bytes;
}

void scatter(const std::string& bytes, const msghdr& message) {
  size_t at = 0;
  for (size_t i = 0; i < message.msg_iovlen && at < bytes.size(); ++i) {
    const size_t part = std::min(message.msg_iov[i].iov_len, bytes.size() - at);
    std::memcpy(message.msg_iov[i].iov_base, bytes.data() + at, part);
    at += part;
  }
}

Result receiveNews(const std::shared_ptr<NetlinkSocket>& socket, msghdr& message, int flags) {
  std::string bytes(sizeOf(message), '\0');
  const bool waits = !socket->nonBlocking() && (flags & MSG_DONTWAIT) == 0;
  const Result count = untilDone(
      socket, waits, "recvmsg", [&] { return socket->receive(bytes.data(), bytes.size(), flags); });
  if (count < 0) return count;
  message.msg_flags = static_cast<size_t>(count) > bytes.size() ? MSG_TRUNC : 0;
  bytes.resize(std::min(bytes.size(), static_cast<size_t>(count)));
  scatter(bytes, message);
  if (message.msg_name && message.msg_namelen >= sizeof(sockaddr_nl)) {
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    std::memcpy(message.msg_name, &kernel, sizeof kernel);
    message.msg_namelen = sizeof kernel;
  }
  message.msg_controllen = 0;
  return count;
}

}  // namespace

Result socket(int family, int type, int protocol) {
  constexpr int kindMask = 0xf;
  const int kind = type & kindMask;
  if (family == AF_UNIX && kind == SOCK_STREAM) {
    const auto made = std::make_shared<UnixSocket>();
    made->owner = self().pid;
    return addSocket(made, openFlags(type));
  }
  if (family == AF_NETLINK && protocol == NETLINK_ROUTE)
    return addSocket(std::make_shared<NetlinkSocket>(), openFlags(type));
  if (family == AF_UNIX && kind == SOCK_DGRAM)
    return addSocket(std::make_shared<UnixDatagram>(), openFlags(type));
  if (kind == SOCK_DGRAM && (family == AF_PACKET || family == AF_INET))
    return addSocket(std::make_shared<ControlSocket>(), openFlags(type));
  machine().fail("unknown call", "socket", "family " + std::to_string(family));
  return -EAFNOSUPPORT;
}

Result socketPair(int family, int type, int (&numbers)[2]) {
  if (family != AF_UNIX) return -EOPNOTSUPP;
  const auto [a, b] = UnixSocket::pair();
  const Result first = addSocket(a, openFlags(type));
  if (first < 0) return first;
  const Result second = addSocket(b, openFlags(type));
  if (second < 0) {
    closeDescriptor(self(), static_cast<int>(first));
    return second;
  }
  numbers[0] = static_cast<int>(first);
  numbers[1] = static_cast<int>(second);
  return 0;
}

Result bind(int number, const sockaddr* address, socklen_t length) {
  if (const auto netlink = netlinkSocket(number)) {
    sockaddr_nl wanted{};
    std::memcpy(&wanted, address, std::min<size_t>(length, sizeof wanted));
    netlink->portIs(wanted.nl_pid);
    constexpr uint32_t linkGroup = 1;
    return (wanted.nl_groups & linkGroup) != 0 ? netlink->join(1) : 0;
  }
  const auto socket = unixSocket(number);
  const auto datagrams = datagramSocket(number);
  if (!socket && !datagrams) return missing(number);
  if (const Result error = requireLocal(address, length)) return error;
  const std::string path = pathOf(address, length);
  FileSystem& files = machine().files;
  const Found found = files.find(path, self().directory, LastLink::kept);
  if (!found.error && !found.inode && socket && socket->isBound()) return -EINVAL;
  InodePtr node;
  const Result error = files.make(found, S_IFSOCK | (0777U & ~self().umask), &node);
  if (error) return error == -EEXIST ? -EADDRINUSE : error;
  return socket ? socket->bind(node, path) : datagrams->bind(node, path);
}

Result listen(int number, int backlog) {
  const auto socket = unixSocket(number);
  return socket ? socket->listen(backlog) : missing(number);
}

Result connect(int number, const sockaddr* address, socklen_t length) {
  const auto socket = unixSocket(number);
  const auto datagrams = datagramSocket(number);
  if (!socket && !datagrams) return missing(number);
  if (const Result error = requireLocal(address, length)) return error;
  const Found found = machine().files.find(pathOf(address, length), self().directory);
  if (found.error) return found.error;
  if (!found.inode) return -ENOENT;
  if (datagrams) return datagrams->connect(found.inode);
  while (true) {
    const Result result = socket->connect(found.inode);
    if (result != -EAGAIN || socket->nonBlocking()) return result;
    const auto listener = found.inode->listener.lock();
    if (sleepOn({listener.get()}, never, "connect") == Sleep::End::interrupted) return -EINTR;
  }
}

Result accept(int number, int flags) {
  const auto socket = unixSocket(number);
  if (!socket) return missing(number);
  if (!socket->isListening()) return -EINVAL;
  std::shared_ptr<UnixSocket> accepted;
  const Result result = untilDone(socket, !socket->nonBlocking(), "accept", [&]() -> Result {
    accepted = socket->accept();
    return accepted ? 0 : -EAGAIN;
  });
  if (result < 0) return result;
  accepted->owner = self().pid;
  return addSocket(accepted, openFlags(flags));
}

Result shutdown(int number, int how) {
  if (datagramSocket(number)) return 0;
  const auto socket = unixSocket(number);
  return socket ? socket->shutdown(how) : missing(number);
}

Result receive(int number, msghdr& message, int flags) {
  if (const auto netlink = netlinkSocket(number)) return receiveNews(netlink, message, flags);
  const auto socket = unixSocket(number);
  if (!socket) return missing(number);
  std::string bytes(sizeOf(message), '\0');
  std::vector<FilePtr> files;
  const bool waits = !socket->nonBlocking() && (flags & MSG_DONTWAIT) == 0;
  const Result count = untilDone(socket, waits, "recvmsg", [&] {
    return socket->receive(bytes.data(), bytes.size(), files, flags);
  });
  if (count < 0) return count;
  bytes.resize(static_cast<size_t>(count));
  scatter(bytes, message);
  message.msg_flags = 0;
  message.msg_namelen = 0;
  handOver(files, message, flags);
  return count;
}

Result send(int number, const msghdr& message, int flags) {
  const std::string bytes = bytesOf(message);
  if (const auto netlink = netlinkSocket(number)) return netlink->write(bytes.data(), bytes.size());
  const auto socket = unixSocket(number);
  if (!socket) return missing(number);
  Result error = 0;
  std::vector<FilePtr> files = filesIn(message, error);
  if (error) return error;
  const bool waits = !socket->nonBlocking() && (flags & MSG_DONTWAIT) == 0;
  size_t sent = 0;
  while (sent < bytes.size()) {
    const Result count = untilDone(socket, waits, "sendmsg", [&] {
      return socket->send(bytes.data() + sent, bytes.size() - sent, files);
    });
    if (count < 0)
      return sent > 0 ? static_cast<Result>(sent) : brokenPipe(count, (flags & MSG_NOSIGNAL) != 0);
    files.clear();
    sent += static_cast<size_t>(count);
    if (!waits) break;
  }
  return static_cast<Result>(sent);
}

Result ownAddress(int number, sockaddr* address, socklen_t* length) {
  if (const auto netlink = netlinkSocket(number)) {
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    own.nl_pid = netlink->port();
    std::memcpy(address, &own, std::min<size_t>(*length, sizeof own));
    *length = sizeof own;
    return 0;
  }
  const auto socket = unixSocket(number);
  if (!socket) return missing(number);
  sockaddr_un own{};
  own.sun_family = AF_UNIX;
  socket->path().copy(own.sun_path, sizeof own.sun_path - 1);
  std::memcpy(address, &own, std::min<size_t>(*length, sizeof own));
  *length = sizeof own;
  return 0;
}

Result option(int number, int level, int name, const void* value, socklen_t length) {
  int given = 0;
  if (value) std::memcpy(&given, value, std::min<size_t>(length, sizeof given));
  const auto netlink = netlinkSocket(number);
  if (!netlink) return fileOf(number) ? 0 : -EBADF;
  if (level == SOL_NETLINK && name == NETLINK_ADD_MEMBERSHIP) return netlink->join(given);
  // The kernel doubles what it is asked for.
  if (level == SOL_SOCKET && (name == SO_RCVBUF || name == SO_RCVBUFFORCE))
    netlink->roomIs(static_cast<size_t>(given) * 2);
  return 0;
}

Result optionOf(int number, int level, int name, void* value, socklen_t* length) {
  if (!fileOf(number)) return -EBADF;
  constexpr int usualRoom = 212'992;
  const bool isRoom = level == SOL_SOCKET && (name == SO_RCVBUF || name == SO_SNDBUF);
  const auto local = unixSocket(number);
  const bool listens =
      level == SOL_SOCKET && name == SO_ACCEPTCONN && local && local->isListening();
  const int given = isRoom ? usualRoom : static_cast<int>(listens);
  std::memcpy(value, &given, std::min<size_t>(*length, sizeof given));
  *length = sizeof given;
  return 0;
}

}  // namespace sim::sys
