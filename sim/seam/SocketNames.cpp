// Sockets, pipes, and what is asked of devices through them.
#include <fcntl.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>

#include "sim/kernel/Pipe.h"
#include "sim/kernel/calls/Common.h"
#include "sim/kernel/calls/SocketCalls.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

msghdr messageOf(iovec& bytes) {
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  return message;
}

Result addPipe(int (&ends)[2], int flags) {
  auto [reading, writing] = makePipe();
  reading->flags |= flags & O_NONBLOCK;
  writing->flags |= flags & O_NONBLOCK;
  const Result first = sys::addDescriptor(reading, flags);
  if (first < 0) return first;
  const Result second = sys::addDescriptor(writing, flags);
  if (second < 0) {
    closeDescriptor(sys::self(), static_cast<int>(first));
    return second;
  }
  ends[0] = static_cast<int>(first);
  ends[1] = static_cast<int>(second);
  return 0;
}

}  // namespace

extern "C" {

int simPipe(int* ends) asm("pipe");
int simPipe(int* ends) {
  static constinit Name name("pipe");
  if (!inWorld()) return name.library(&simPipe)(ends);
  return static_cast<int>(
      name.call([&] { return addPipe(*reinterpret_cast<int(*)[2]>(ends), 0); }));
}
int simPipe2(int* ends, int flags) asm("pipe2");
int simPipe2(int* ends, int flags) {
  static constinit Name name("pipe2");
  if (!inWorld()) return name.library(&simPipe2)(ends, flags);
  return static_cast<int>(
      name.call([&] { return addPipe(*reinterpret_cast<int(*)[2]>(ends), flags); }, flags));
}

int simSocket(int family, int type, int protocol) asm("socket");
int simSocket(int family, int type, int protocol) {
  static constinit Name name("socket");
  if (!inWorld()) return name.library(&simSocket)(family, type, protocol);
  return static_cast<int>(
      name.call([&] { return sys::socket(family, type, protocol); }, family, type, protocol));
}
int simSocketPair(int family, int type, int protocol, int* numbers) asm("socketpair");
int simSocketPair(int family, int type, int protocol, int* numbers) {
  static constinit Name name("socketpair");
  if (!inWorld()) return name.library(&simSocketPair)(family, type, protocol, numbers);
  return static_cast<int>(name.call(
      [&] { return sys::socketPair(family, type, *reinterpret_cast<int(*)[2]>(numbers)); }, family,
      type));
}
int simBind(int number, const sockaddr* address, socklen_t length) asm("bind");
int simBind(int number, const sockaddr* address, socklen_t length) {
  static constinit Name name("bind");
  if (!inWorld()) return name.library(&simBind)(number, address, length);
  return static_cast<int>(
      name.call([&] { return sys::bind(number, address, length); }, number, length));
}
int simListen(int number, int backlog) asm("listen");
int simListen(int number, int backlog) {
  static constinit Name name("listen");
  if (!inWorld()) return name.library(&simListen)(number, backlog);
  return static_cast<int>(name.call([&] { return sys::listen(number, backlog); }, number, backlog));
}
int simConnect(int number, const sockaddr* address, socklen_t length) asm("connect");
int simConnect(int number, const sockaddr* address, socklen_t length) {
  static constinit Name name("connect");
  if (!inWorld()) return name.library(&simConnect)(number, address, length);
  return static_cast<int>(
      name.call([&] { return sys::connect(number, address, length); }, number, length));
}
int simAccept4(int number, sockaddr* address, socklen_t* length, int flags) asm("accept4");
int simAccept4(int number, sockaddr* address, socklen_t* length, int flags) {
  static constinit Name name("accept4");
  if (!inWorld()) return name.library(&simAccept4)(number, address, length, flags);
  return static_cast<int>(name.call([&] { return sys::accept(number, flags); }, number, flags));
}
int simAccept(int number, sockaddr* address, socklen_t* length) asm("accept");
int simAccept(int number, sockaddr* address, socklen_t* length) {
  static constinit Name name("accept");
  if (!inWorld()) return name.library(&simAccept)(number, address, length);
  return static_cast<int>(name.call([&] { return sys::accept(number, 0); }, number));
}
int simShutdown(int number, int how) asm("shutdown");
int simShutdown(int number, int how) {
  static constinit Name name("shutdown");
  if (!inWorld()) return name.library(&simShutdown)(number, how);
  return static_cast<int>(name.call([&] { return sys::shutdown(number, how); }, number, how));
}

ssize_t simReceiveMessage(int number, msghdr* message, int flags) asm("recvmsg");
ssize_t simReceiveMessage(int number, msghdr* message, int flags) {
  static constinit Name name("recvmsg");
  if (!inWorld()) return name.library(&simReceiveMessage)(number, message, flags);
  return name.call([&] { return sys::receive(number, *message, flags); }, number, flags);
}
ssize_t simSendMessage(int number, const msghdr* message, int flags) asm("sendmsg");
ssize_t simSendMessage(int number, const msghdr* message, int flags) {
  static constinit Name name("sendmsg");
  if (!inWorld()) return name.library(&simSendMessage)(number, message, flags);
  return name.call([&] { return sys::send(number, *message, flags); }, number, flags);
}
ssize_t simReceive(int number, void* to, size_t size, int flags) asm("recv");
ssize_t simReceive(int number, void* to, size_t size, int flags) {
  static constinit Name name("recv");
  if (!inWorld()) return name.library(&simReceive)(number, to, size, flags);
  iovec bytes{to, size};
  msghdr message = messageOf(bytes);
  return name.call([&] { return sys::receive(number, message, flags); }, number, size, flags);
}
ssize_t simSend(int number, const void* from, size_t size, int flags) asm("send");
ssize_t simSend(int number, const void* from, size_t size, int flags) {
  static constinit Name name("send");
  if (!inWorld()) return name.library(&simSend)(number, from, size, flags);
  iovec bytes{const_cast<void*>(from), size};
  const msghdr message = messageOf(bytes);
  return name.call([&] { return sys::send(number, message, flags); }, number, size, flags);
}
ssize_t simSendTo(int number, const void* from, size_t size, int flags, const sockaddr* to,
                  socklen_t length) asm("sendto");
ssize_t simSendTo(int number, const void* from, size_t size, int flags, const sockaddr* to,
                  socklen_t length) {
  static constinit Name name("sendto");
  if (!inWorld()) return name.library(&simSendTo)(number, from, size, flags, to, length);
  return simSend(number, from, size, flags);
}

int simOwnAddress(int number, sockaddr* address, socklen_t* length) asm("getsockname");
int simOwnAddress(int number, sockaddr* address, socklen_t* length) {
  static constinit Name name("getsockname");
  if (!inWorld()) return name.library(&simOwnAddress)(number, address, length);
  return static_cast<int>(
      name.call([&] { return sys::ownAddress(number, address, length); }, number));
}
int simSetOption(int number, int level, int option, const void* value,
                 socklen_t length) asm("setsockopt");
int simSetOption(int number, int level, int option, const void* value, socklen_t length) {
  static constinit Name name("setsockopt");
  if (!inWorld()) return name.library(&simSetOption)(number, level, option, value, length);
  return static_cast<int>(name.call(
      [&] { return sys::option(number, level, option, value, length); }, number, level, option));
}
int simOption(int number, int level, int option, void* value, socklen_t* length) asm("getsockopt");
int simOption(int number, int level, int option, void* value, socklen_t* length) {
  static constinit Name name("getsockopt");
  if (!inWorld()) return name.library(&simOption)(number, level, option, value, length);
  return static_cast<int>(name.call(
      [&] { return sys::optionOf(number, level, option, value, length); }, number, level, option));
}

int simDeviceControl(int number, unsigned long request, ...) asm("ioctl");
int simDeviceControl(int number, unsigned long request, ...) {
  static constinit Name name("ioctl");
  va_list arguments;
  va_start(arguments, request);
  void* const argument = va_arg(arguments, void*);
  va_end(arguments);
  if (!inWorld()) return name.library(&simDeviceControl)(number, request, argument);
  return static_cast<int>(
      name.call([&] { return sys::deviceControl(number, request, argument); }, number, request));
}

unsigned simInterfaceIndex(const char* interface) asm("if_nametoindex");
unsigned simInterfaceIndex(const char* interface) {
  static constinit Name name("if_nametoindex");
  if (!inWorld()) return name.library(&simInterfaceIndex)(interface);
  const long result = name.call(
      [&]() -> Result {
        const Link* const link = machine().network.find(std::string(interface));
        return link ? static_cast<Result>(link->index) : -ENODEV;
      },
      interface);
  return result < 0 ? 0 : static_cast<unsigned>(result);
}

}  // extern "C"
