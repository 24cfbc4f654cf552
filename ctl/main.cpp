// The program vmctl: gives ctl::run the machine as it is.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iostream>
#include <limits>
#include <vector>

#include "ctl/OutputBuffer.h"
#include "ctl/Program.h"
#include "statedb/OwnerLock.h"
#include "statedb/sqlite/SqliteDb.h"

namespace {

statedb::StateDb openDb(const ctl::Directories& directories) {
  statedb::sqlite::DbOptions options;
  options.stateDir = directories.state;
  options.runDir = directories.run;
  return statedb::sqlite::openDb(options);
}

std::optional<rt::String> environment(const char* name) {
  const char* const value = std::getenv(name);
  return value ? std::optional<rt::String>(value) : std::nullopt;
}

rt::Seconds now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return rt::Seconds(static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9);
}

void waitReadable(std::span<const int> descriptors, rt::Seconds time) {
  std::vector<pollfd> looks;
  looks.reserve(descriptors.size());
  for (const int descriptor : descriptors) looks.push_back({descriptor, POLLIN, 0});
  const double most = std::numeric_limits<int>::max();
  const auto milliseconds = static_cast<int>(std::min(std::ceil(time.value() * 1000), most));
  (void)poll(looks.data(), looks.size(), milliseconds);
}

rt::String readFile(const rt::String& path) {
  const bool isInput = path == "-";
  const int descriptor = isInput ? STDIN_FILENO : open(path.charPtr(), O_RDONLY | O_CLOEXEC);
  rt::String text;
  char buffer[64 * 1024];
  ssize_t size = descriptor < 0 ? -1 : 1;
  while (size > 0) {
    size = read(descriptor, buffer, sizeof buffer);
    if (size < 0 && errno == EINTR)
      size = 1;
    else if (size > 0)
      text += std::string_view(buffer, static_cast<size_t>(size));
  }
  const int error = errno;
  if (descriptor >= 0 && !isInput) close(descriptor);
  if (size < 0) throw rt::ErrnoException(error, path + " cannot be read");
  return text;
}

size_t terminalColumns() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

int main(int argc, char** argv) {
  // A reader that goes away must not end us between two of several names.
  std::signal(SIGPIPE, SIG_IGN);
  ctl::OutputBuffer outBuffer(STDOUT_FILENO);
  std::ostream out(&outBuffer);
  ctl::World world{openDb,
                   statedb::ownerIsAlive,
                   environment,
                   now,
                   waitReadable,
                   edge::imageFacts,
                   readFile,
                   edge::machineLimits(),
                   out,
                   std::cerr,
                   isatty(STDOUT_FILENO) == 1,
                   isatty(STDERR_FILENO) == 1,
                   terminalColumns()};
  const std::vector<rt::String> arguments(argv + std::min(argc, 1), argv + argc);
  ctl::Exit exit = ctl::run(arguments, world);
  out.flush();
  // Who no longer reads needs no word of it.
  if (const int error = outBuffer.error(); error != 0) {
    if (error != EPIPE)
      std::cerr << "vmctl: standard output could not be written: " << std::strerror(error) << '\n';
    if (exit == ctl::Exit::done) exit = ctl::Exit::failed;
  }
  return static_cast<int>(exit);
}
