// Descriptors, and the locks on what they stand for.
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdarg>

#include "sim/kernel/calls/FileCalls.h"
#include "sim/seam/Name.h"

using namespace sim;

extern "C" {

int simControl(int number, int command, ...) asm("fcntl");
int simControl(int number, int command, ...) {
  static constinit Name name("fcntl");
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  if (!inWorld()) return name.library(&simControl)(number, command, argument);
  const bool isAddress = command == F_GETLK || command == F_SETLK || command == F_SETLKW;
  // Who wants an int may have left anything above it.
  const bool hasNone = command == F_GETFD || command == F_GETFL;
  const long given = isAddress ? argument : hasNone ? 0 : static_cast<int>(argument);
  return static_cast<int>(name.call([&] { return sys::control(number, command, given); }, number,
                                    command, isAddress ? 0 : given));
}
int simControl64(int number, int command, ...) asm("fcntl64");
int simControl64(int number, int command, ...) {
  va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  return simControl(number, command, argument);
}

int simFileLock(int number, int operation) asm("flock");
int simFileLock(int number, int operation) {
  static constinit Name name("flock");
  if (!inWorld()) return name.library(&simFileLock)(number, operation);
  return static_cast<int>(
      name.call([&] { return sys::lock(number, operation); }, number, operation));
}

int simDuplicate(int number) asm("dup");
int simDuplicate(int number) {
  static constinit Name name("dup");
  if (!inWorld()) return name.library(&simDuplicate)(number);
  return static_cast<int>(name.call([&] { return sys::control(number, F_DUPFD, 0); }, number));
}
int simDuplicateAs(int number, int as) asm("dup2");
int simDuplicateAs(int number, int as) {
  static constinit Name name("dup2");
  if (!inWorld()) return name.library(&simDuplicateAs)(number, as);
  return static_cast<int>(name.call([&] { return sys::duplicate(number, as); }, number, as));
}

int simCloseRange(unsigned first, unsigned last, int flags) asm("close_range");
int simCloseRange(unsigned first, unsigned last, int flags) {
  static constinit Name name("close_range");
  if (!inWorld()) return name.library(&simCloseRange)(first, last, flags);
  return static_cast<int>(
      name.call([&] { return sys::closeRange(first, last, flags); }, first, last, flags));
}

}  // extern "C"
