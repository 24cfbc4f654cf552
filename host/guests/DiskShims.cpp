#include "host/guests/DiskShims.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string_view>

#include "guest/ShimProtocol.h"
#include "guest/VmFiles.h"

namespace host {

namespace {

rt::String socketOf(const rt::String& runDir, const rt::String& vm) {
  return guest::fileOf(runDir, vm, guest::shimSocket);
}

// Connects without waiting; 0, or why it cannot be.
int connectTo(int shim, const rt::String& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  path.str().copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  return connect(shim, where, sizeof address) == 0 ? 0 : errno;
}

// It must not keep the loop waiting, whatever the shim does.
int unconnected() { return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

// What is said fits into any buffer, and stays there when we have gone.
bool say(const rt::String& runDir, const rt::String& vm, const rt::String& request) {
  const int shim = unconnected();
  const bool said = connectTo(shim, socketOf(runDir, vm)) == 0 &&
                    send(shim, request.charPtr(), request.size(), MSG_NOSIGNAL) ==
                        static_cast<ssize_t>(request.size());
  close(shim);
  return said;
}

}  // namespace

bool askShimToStop(const rt::String& runDir, const rt::String& vm, const rt::String& timeout) {
  return say(runDir, vm, guest::stopRequest(timeout));
}

bool shimIsStopping(const rt::String& runDir, const rt::String& vm) {
  constexpr int patience = 1'000;  // milliseconds
  char greeting[512] = "";
  const int shim = unconnected();
  pollfd said{shim, POLLIN, 0};
  const bool isHeard = connectTo(shim, socketOf(runDir, vm)) == 0 &&
                       poll(&said, 1, patience) == 1 &&
                       recv(shim, greeting, sizeof greeting - 1, 0) > 0;
  close(shim);
  return isHeard && guest::isStopping(greeting);
}

bool tellShimOfRow(const rt::String& runDir, const rt::String& vm, const statedb::Origin& row) {
  return say(runDir, vm, guest::rowRequest(row.history, row.created));
}

bool shimIsThere(const rt::String& runDir, const rt::String& vm) {
  const int shim = unconnected();
  const int error = connectTo(shim, socketOf(runDir, vm));
  close(shim);
  return error == 0 || error == EAGAIN;  // so many wait already
}

void removeDeadSockets(const rt::String& runDir, const rt::String& vm) {
  const rt::String paths[] = {socketOf(runDir, vm), guest::fileOf(runDir, vm, guest::consoleSocket),
                              guest::fileOf(runDir, vm, guest::screenSocket), guest::monitorOf(vm)};
  for (const rt::String& path : paths) {
    struct stat facts {};
    if (lstat(path.charPtr(), &facts) != 0 || !S_ISSOCK(facts.st_mode)) continue;
    const int client = unconnected();
    if (connectTo(client, path) == ECONNREFUSED) (void)unlink(path.charPtr());
    close(client);
  }
}

void removeDeadSocketsOfAllBut(const std::set<rt::String>& living, const rt::String& runDir) {
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator(guest::vmsDirectoryOf(runDir), error)) {
    const rt::String vm(entry.path().filename().string());
    if (!living.contains(vm)) removeDeadSockets(runDir, vm);
  }
}

void removeLastError(const rt::String& runDir, const rt::String& vm) {
  const rt::String path = guest::directoryOf(runDir, vm);
  const int directory = open(path.charPtr(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (directory < 0) return;
  (void)unlinkat(directory, guest::lastErrorFile, 0);
  close(directory);
}

}  // namespace host
