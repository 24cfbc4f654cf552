#include "ctl/machine/ConsoleSession.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <string_view>

#include "ctl/machine/HeldTerminal.h"
#include "runtime/base/Descriptor.h"
#include "runtime/base/Exception.h"

namespace ctl {

namespace {

constexpr std::string_view leave = "\x1d";          // Ctrl-]
constexpr std::string_view leaveView = "\x1d\x03";  // and Ctrl-C
// Typed and not yet taken by the guest; what is more is lost, so that Ctrl-] is always heard.
constexpr size_t mostTyped = 4096;

class Session {
 public:
  // One that only looks keeps what is typed to itself.
  enum class Typing { forTheGuest, forNobody };
  Session(int input, int output, int guest, Typing typing)
      : input_(input), output_(output), guest_(guest), typing_(typing) {}

  ConsoleEnd run(HeldSignals& signals) {
    while (true) {
      const auto wanted = static_cast<short>(typed_.empty() ? POLLIN : POLLIN | POLLOUT);
      pollfd looks[] = {
          {guest_, wanted, 0}, {input_, POLLIN, 0}, {signals.descriptor(), POLLIN, 0}};
      if (poll(looks, 3, -1) < 0) continue;
      if (looks[2].revents != 0) {
        signals.take();
        return ConsoleEnd::signal;
      }
      // The guest's last words before its end is noticed.
      if ((looks[0].revents & ~POLLOUT) != 0)
        if (const auto end = show()) return *end;
      if ((looks[0].revents & POLLOUT) != 0) send();
      if (looks[1].revents != 0 && !type()) {
        send();
        return ConsoleEnd::left;
      }
    }
  }

 private:
  std::optional<ConsoleEnd> show() {
    char bytes[16 * 1024];
    const ssize_t size = read(guest_, bytes, sizeof bytes);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return std::nullopt;
    if (size <= 0) return ConsoleEnd::guestEnd;
    if (!writeAll(output_, {bytes, static_cast<size_t>(size)})) return ConsoleEnd::left;
    return std::nullopt;
  }

  // False: it was the last.
  bool type() {
    char bytes[1024];
    const ssize_t size = read(input_, bytes, sizeof bytes);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return true;
    if (size <= 0) return false;
    const std::string_view text(bytes, static_cast<size_t>(size));
    if (typing_ == Typing::forNobody)
      return text.find_first_of(leaveView) == std::string_view::npos;
    const std::string_view forGuest = text.substr(0, text.find_first_of(leave));
    typed_ += forGuest.substr(0, mostTyped - typed_.size());
    return forGuest.size() == text.size();
  }

  void send() {
    const ssize_t size = write(guest_, typed_.data(), typed_.size());
    if (size > 0) typed_.erase(0, static_cast<size_t>(size));
  }

  const int input_;
  const int output_;
  const int guest_;
  const Typing typing_;
  std::string typed_;
};

// A line that tells the guest's keeper that this one will never type.
constexpr std::string_view viewRequest = "view\n";

rt::Descriptor connectTo(const rt::String& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) throw rt::ErrnoException(ENAMETOOLONG, path);
  path.str().copy(address.sun_path, sizeof address.sun_path - 1);
  rt::Descriptor connection(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (connect(connection.number(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0)
    throw rt::ErrnoException(errno, path + " cannot be reached");
  return connection;
}

// The path is what a guest's QEMU was asked for, who may have been taken over; to open a device can
// do something.
void requirePty(const rt::String& path) {
  constexpr unsigned firstMajor = 136;  // of Unix98 terminals' slaves
  constexpr unsigned lastMajor = 143;
  const rt::Descriptor place(open(path.charPtr(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
  struct stat facts {};
  if (!place || fstat(place.number(), &facts) != 0)
    throw rt::ErrnoException(errno, path + " cannot be opened");
  const unsigned kind = major(facts.st_rdev);
  if (!S_ISCHR(facts.st_mode) || kind < firstMajor || kind > lastMajor)
    throw rt::Exception(path + " is no pseudo-terminal: it is not opened");
}

}  // namespace

ConsoleEnd viewConsole(int input, int output, const rt::String& socket) {
  const rt::Descriptor guest = connectTo(socket);
  if (!writeAll(guest.number(), viewRequest)) return ConsoleEnd::guestEnd;
  HeldSignals signals;
  const RawTerminal terminal(input);
  return Session(input, output, guest.number(), Session::Typing::forNobody).run(signals);
}

ConsoleEnd joinConsole(int input, int output, const rt::String& socket) {
  const rt::Descriptor guest = connectTo(socket);
  HeldSignals signals;
  const RawTerminal terminal(input);
  return Session(input, output, guest.number(), Session::Typing::forTheGuest).run(signals);
}

ConsoleEnd holdConsole(int input, int output, const rt::String& pty) {
  requirePty(pty);
  const rt::Descriptor guest(open(pty.charPtr(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (guest.number() < 0) throw rt::ErrnoException(errno, pty + " cannot be opened");
  // Of two readers each would get a part.
  if (flock(guest.number(), LOCK_EX | LOCK_NB) != 0) return ConsoleEnd::taken;
  HeldSignals signals;
  const RawTerminal terminal(input);
  return Session(input, output, guest.number(), Session::Typing::forTheGuest).run(signals);
}

}  // namespace ctl
