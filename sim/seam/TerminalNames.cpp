// Terminals.
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "sim/kernel/Pty.h"
#include "sim/kernel/calls/Common.h"
#include "sim/seam/Name.h"

namespace {

using namespace sim;

std::shared_ptr<PtyState> ptyOf(int number) {
  const auto end = std::dynamic_pointer_cast<PtyEnd>(sys::fileOf(number));
  return end ? end->pty() : nullptr;
}

Result withPty(int number, const std::function<void(PtyState&)>& act) {
  if (!sys::fileOf(number)) return -EBADF;
  const auto pty = ptyOf(number);
  if (!pty) return -ENOTTY;
  act(*pty);
  return 0;
}

}  // namespace

extern "C" {

int simOpenPty(int flags) asm("posix_openpt");
int simOpenPty(int flags) {
  static constinit Name name("posix_openpt");
  if (!inWorld()) return name.library(&simOpenPty)(flags);
  return static_cast<int>(name.call(
      [&] {
        const auto master = makePty();
        master->flags = flags & ~(O_CLOEXEC | O_NOCTTY);
        return sys::addDescriptor(master, flags);
      },
      flags));
}
int simGrantPty(int number) asm("grantpt");
int simGrantPty(int number) {
  static constinit Name name("grantpt");
  if (!inWorld()) return name.library(&simGrantPty)(number);
  return static_cast<int>(name.call([&] { return withPty(number, [](PtyState&) {}); }, number));
}
int simUnlockPty(int number) asm("unlockpt");
int simUnlockPty(int number) {
  static constinit Name name("unlockpt");
  if (!inWorld()) return name.library(&simUnlockPty)(number);
  return static_cast<int>(name.call(
      [&] { return withPty(number, [](PtyState& pty) { pty.locked = false; }); }, number));
}
int simPtyName(int number, char* to, size_t size) asm("ptsname_r");
int simPtyName(int number, char* to, size_t size) {
  static constinit Name name("ptsname_r");
  if (!inWorld()) return name.library(&simPtyName)(number, to, size);
  const auto pty = ptyOf(number);
  if (!pty) return ENOTTY;
  const std::string path = "/dev/pts/" + std::to_string(pty->number);
  if (path.size() >= size) return ERANGE;
  std::memcpy(to, path.c_str(), path.size() + 1);
  return 0;
}

int simSettings(int number, termios* settings) asm("tcgetattr");
int simSettings(int number, termios* settings) {
  static constinit Name name("tcgetattr");
  if (!inWorld()) return name.library(&simSettings)(number, settings);
  return static_cast<int>(name.call(
      [&] { return withPty(number, [&](PtyState& pty) { *settings = pty.settings; }); }, number));
}
int simSettingsAre(int number, int when, const termios* settings) asm("tcsetattr");
int simSettingsAre(int number, int when, const termios* settings) {
  static constinit Name name("tcsetattr");
  if (!inWorld()) return name.library(&simSettingsAre)(number, when, settings);
  return static_cast<int>(name.call(
      [&] { return withPty(number, [&](PtyState& pty) { pty.settings = *settings; }); }, number));
}
int simIsTerminal(int number) asm("isatty");
int simIsTerminal(int number) {
  static constinit Name name("isatty");
  if (!inWorld()) return name.library(&simIsTerminal)(number);
  return ptyOf(number) ? 1 : 0;
}

}  // extern "C"
