#include "host/guests/DiskShims.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <string_view>

#include "guest/ShimProtocol.h"
#include "guest/VmFiles.h"
#include "host/guests/GuestFiles.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/OwnFile.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

// Connects without waiting; 0, or why it cannot be.
int connectTo(const rt::Descriptor& client, const rt::String& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  path.str().copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  return connect(client.number(), where, sizeof address) == 0 ? 0 : errno;
}

// It must not keep the loop waiting, whatever the shim does.
rt::Descriptor unconnected() {
  return rt::Descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

rt::Descriptor openDirectory(const rt::String& path) {
  return rt::Descriptor(open(path.charPtr(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

}  // namespace

rt::String DiskShims::socketOf(const rt::String& vm) const {
  return guest::fileOf(runDir_, vm, guest::shimSocket);
}

// What is said fits into any buffer, and stays there when we have gone.
bool DiskShims::say(const rt::String& vm, const rt::String& request) const {
  const rt::Descriptor shim = unconnected();
  return connectTo(shim, socketOf(vm)) == 0 &&
         send(shim.number(), request.charPtr(), request.size(), MSG_NOSIGNAL) ==
             static_cast<ssize_t>(request.size());
}

bool DiskShims::askToStop(const rt::String& vm, std::optional<rt::Seconds> time) {
  return say(vm, guest::stopRequest(time ? rt::toText(*time) : stopTimeout_, asker_));
}

bool DiskShims::isStopping(const rt::String& vm) const {
  constexpr int patience = 1'000;  // milliseconds
  char greeting[512] = "";
  const rt::Descriptor shim = unconnected();
  pollfd said{shim.number(), POLLIN, 0};
  const bool isHeard = connectTo(shim, socketOf(vm)) == 0 && poll(&said, 1, patience) == 1 &&
                       recv(shim.number(), greeting, sizeof greeting - 1, 0) > 0;
  return isHeard && guest::isStopping(greeting);
}

void DiskShims::rowIs(const rt::String& vm, const statedb::Origin& row) {
  (void)say(vm, guest::rowRequest(row.history, row.created));
}

bool DiskShims::lineIs(const rt::String& vm, rt::EthAddr card, bool isUp) {
  return say(vm, guest::lineRequest(card.text().str(), isUp));
}

bool DiskShims::isThere(const rt::String& vm) const {
  const int error = connectTo(unconnected(), socketOf(vm));
  return error == 0 || error == EAGAIN;  // so many wait already
}

// The first line of the file, cut at 512 bytes. Empty when it is not there, or is no file of our
// own user's: what stands there may be anybody's, and reading it, however it is done, could keep us
// waiting, or show what is not meant to be shown.
rt::String DiskShims::firstLine(const rt::String& vm, const char* file) const {
  constexpr int harmless = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const rt::Descriptor directory = openDirectory(guest::directoryOf(runDir_, vm));
  const rt::Descriptor in(openat(directory.number(), file, O_RDONLY | harmless));
  std::array<char, 512> bytes{};
  const ssize_t size =
      rt::isOwnFile(in.number()) ? read(in.number(), bytes.data(), bytes.size()) : 0;
  const std::string_view text(bytes.data(), size > 0 ? static_cast<size_t>(size) : 0);
  return rt::String(text.substr(0, text.find('\n')));
}

rt::String DiskShims::lastError(const rt::String& vm) const {
  return firstLine(vm, guest::lastErrorFile);
}

rt::String DiskShims::problem(const rt::String& vm) const {
  return firstLine(vm, guest::problemFile);
}

void DiskShims::lastErrorDel(const rt::String& vm) {
  const rt::Descriptor directory = openDirectory(guest::directoryOf(runDir_, vm));
  if (directory) (void)unlinkat(directory.number(), guest::lastErrorFile, 0);
}

rt::Ptr<const rt::Entity> DiskShims::follow(Sinks sinks) {
  sinks_ = std::move(sinks);
  return rt::make<GuestFiles>(
      guest::vmsDirectoryOf(runDir_),
      GuestFiles::Sinks{[this](const rt::String& vm) { sinks_.problem(vm, problem(vm)); },
                        [this](const rt::String& vm) { catchUp(vm); }});
}

void DiskShims::catchUp(const rt::String& vm) {
  for (const GuestEvent::Ptr& event : events_.read(vm)) sinks_.event(*event);
}

void DiskShims::removeDeadSockets(const rt::String& vm) {
  const rt::String paths[] = {socketOf(vm), guest::fileOf(runDir_, vm, guest::consoleSocket),
                              guest::fileOf(runDir_, vm, guest::screenSocket),
                              guest::monitorOf(vm)};
  for (const rt::String& path : paths) {
    struct stat facts {};
    if (lstat(path.charPtr(), &facts) != 0 || !S_ISSOCK(facts.st_mode)) continue;
    if (connectTo(unconnected(), path) == ECONNREFUSED) (void)unlink(path.charPtr());
  }
}

void DiskShims::removeDeadSocketsOfAllBut(const std::set<rt::String>& living) {
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator(guest::vmsDirectoryOf(runDir_), error)) {
    const rt::String vm(entry.path().filename().string());
    if (!living.contains(vm)) removeDeadSockets(vm);
  }
}

}  // namespace host
