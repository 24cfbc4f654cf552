#include "statedb/OwnerSign.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "runtime/base/Format.h"
#include "statedb/Error.h"

namespace statedb {

namespace {

constexpr const char* fileName = "vmagentd.alive";
// To connect to a socket one must be able to write it.
constexpr mode_t outsidersMask = 0117;

int openDirectory(const rt::String& path) {
  return open(path.charPtr(), O_PATH | O_DIRECTORY | O_CLOEXEC);
}

int makeSocket() { return socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

// By way of the open directory: a socket's address has no room for a long path.
sockaddr_un addressIn(int directory) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const rt::String path = rt::format("/proc/self/fd/%d/%s", directory, fileName);
  std::memcpy(address.sun_path, path.charPtr(), path.size() + 1);
  return address;
}

bool bindIn(int directory, int socket) {
  const sockaddr_un address = addressIn(directory);
  const mode_t before = umask(outsidersMask);
  const bool isBound =
      bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  umask(before);
  return isBound;
}

void giveToGroupOf(int directory) {
  struct stat facts {};
  if (fstat(directory, &facts) == 0)
    (void)!fchownat(directory, fileName, static_cast<uid_t>(-1), facts.st_gid, AT_SYMLINK_NOFOLLOW);
}

}  // namespace

OwnerSign::OwnerSign(const rt::String& runDir)
    : directory_(openDirectory(runDir)), socket_(makeSocket()) {
  (void)unlinkat(directory_.number(), fileName, 0);  // of one that was killed
  if (!bindIn(directory_.number(), socket_.number())) {
    const rt::String reason = std::strerror(errno);
    throw Error(Trouble::failed,
                "cannot make the socket " + runDir + "/" + fileName + ": " + reason);
  }
  giveToGroupOf(directory_.number());
  (void)shutdown(socket_.number(), SHUT_RD);  // what is sent to it would be kept
}

OwnerSign::~OwnerSign() { (void)unlinkat(directory_.number(), fileName, 0); }

bool ownerIsAlive(const rt::String& runDir) {
  const rt::Descriptor directory(openDirectory(runDir));
  const rt::Descriptor client(makeSocket());
  const sockaddr_un address = addressIn(directory.number());
  return directory &&
         connect(client.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace statedb
