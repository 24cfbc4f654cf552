// The calls about sockets. Results are as the kernel's: -errno.
#pragma once

#include <sys/socket.h>

#include "sim/kernel/File.h"

namespace sim::sys {

Result socket(int family, int type, int protocol);
Result socketPair(int family, int type, int (&numbers)[2]);
Result bind(int number, const sockaddr* address, socklen_t length);
Result listen(int number, int backlog);
Result connect(int number, const sockaddr* address, socklen_t length);
Result accept(int number, int flags);
Result shutdown(int number, int how);
Result receive(int number, msghdr& message, int flags);
Result send(int number, const msghdr& message, int flags);
Result ownAddress(int number, sockaddr* address, socklen_t* length);
Result option(int number, int level, int name, const void* value, socklen_t length);
Result optionOf(int number, int level, int name, void* value, socklen_t* length);
// Of network devices, as SIOCGIFFLAGS, and of terminals.
Result deviceControl(int number, unsigned long request, void* argument);

}  // namespace sim::sys
