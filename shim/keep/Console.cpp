#include "shim/keep/Console.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>

#include "shim/base/Failure.h"

namespace shim {

namespace {

constexpr size_t logSize = 1024 * 1024;
constexpr size_t readSize = 16 * 1024;
// Among what is polled: behind the line and the pty.
constexpr size_t firstViewer = 2;
constexpr size_t typedSize = 1024;
constexpr mode_t sharedMode = 0660;
// What QEMU can have left on its line: the kernel's buffer, several times over.
constexpr int mostDrains = 256;

rt::Descriptor openMaster() {
  rt::Descriptor master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  if (!master || grantpt(master.number()) != 0 || unlockpt(master.number()) != 0)
    throw failureOf("a pty for the console could not be made");
  return master;
}

std::string nameOf(const rt::Descriptor& master) {
  char name[64];
  if (ptsname_r(master.number(), name, sizeof name) != 0)
    throw failureOf("the console's pty has no name");
  return name;
}

// Raw: bytes pass as they are, and what the guest writes does not come back to it as an echo.
rt::Descriptor openSlave(const std::string& path) {
  rt::Descriptor slave(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
  termios settings{};
  if (!slave || tcgetattr(slave.number(), &settings) != 0)
    throw failureOf("the console's pty " + path + " could not be opened");
  cfmakeraw(&settings);
  (void)tcsetattr(slave.number(), TCSANOW, &settings);
  return slave;
}

// Who may use a file's directory may use the terminal. A terminal belongs to a group of its own at
// first, whose members may write to it only.
void shareWithUsersOf(const Place& file, const rt::Descriptor& terminal) {
  struct stat directory {};
  const std::string way = file.name.substr(0, file.name.rfind('/') + 1);
  if (fstatat(file.directory, way.c_str(), &directory, AT_EMPTY_PATH) != 0) return;
  (void)!fchown(terminal.number(), static_cast<uid_t>(-1), directory.st_gid);
  (void)fchmod(terminal.number(), sharedMode);
}

// Throws away what nobody has read.
void empty(const rt::Descriptor& terminal) {
  char bytes[4096];
  while (read(terminal.number(), bytes, sizeof bytes) > 0) {
  }
}

}  // namespace

Console::Console(rt::Descriptor line, Place log, const Place& socket)
    : line_(std::move(line)),
      log_(std::move(log), logSize),
      master_(openMaster()),
      slave_(openSlave(nameOf(master_))),
      terminal_(nameOf(master_)),
      viewers_(socket) {
  shareWithUsersOf(socket, slave_);
}

void Console::addTo(std::vector<pollfd>& polled) {
  const auto out = [](bool wanted) { return static_cast<short>(wanted ? POLLOUT : 0); };
  polled.push_back({line_.number(), static_cast<short>(POLLIN | out(!typed_.empty())), 0});
  polled.push_back(
      {master_.number(),
       static_cast<short>((typed_.empty() ? POLLIN : 0) | out(!backlog_.waiting().empty())), 0});
  viewers_.addTo(polled, typed_.empty() ? Viewers::Typing::taken : Viewers::Typing::notNow);
}

void Console::ready(const pollfd* polled) {
  if (polled[0].revents & POLLOUT) flushTyped();
  if (polled[0].revents & ~POLLOUT) receive();
  if (polled[1].revents & POLLOUT) flushToTerminal();
  if (polled[1].revents & POLLIN) receiveTyped();
  typed_ += viewers_.ready(polled + firstViewer);
  if (!typed_.empty()) flushTyped();
}

void Console::drain() {
  for (int i = 0; i < mostDrains && line_ && receive(); ++i) {
  }
}

bool Console::receive() {
  char bytes[readSize];
  const ssize_t count = read(line_.number(), bytes, sizeof bytes);
  if (count > 0) {
    show({bytes, static_cast<size_t>(count)});
    return true;
  }
  if (count == 0 || (errno != EAGAIN && errno != EINTR)) line_.reset();
  return false;
}

void Console::show(std::string_view bytes) {
  log_.write(bytes);
  viewers_.show(bytes);
  if (!backlog_.add(bytes)) empty(slave_);
  flushToTerminal();
}

void Console::flushToTerminal() {
  while (!backlog_.waiting().empty()) {
    const std::string_view waiting = backlog_.waiting();
    const ssize_t count = write(master_.number(), waiting.data(), waiting.size());
    if (count <= 0) return;
    backlog_.take(static_cast<size_t>(count));
  }
}

void Console::receiveTyped() {
  char bytes[typedSize];
  const ssize_t count = read(master_.number(), bytes, sizeof bytes);
  if (count <= 0) return;
  typed_.append(bytes, static_cast<size_t>(count));
  flushTyped();
}

void Console::flushTyped() {
  if (!line_) return typed_.clear();
  const ssize_t count = send(line_.number(), typed_.data(), typed_.size(), MSG_NOSIGNAL);
  if (count > 0) typed_.erase(0, static_cast<size_t>(count));
}

}  // namespace shim
