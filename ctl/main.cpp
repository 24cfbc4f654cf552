// The program vmctl: gives ctl::run the machine as it is.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <limits>
#include <random>
#include <vector>

#include "ctl/Program.h"
#include "ctl/machine/ConfigBackup.h"
#include "ctl/machine/HeadReader.h"
#include "ctl/machine/LinuxMachine.h"
#include "ctl/machine/OutputBuffer.h"
#include "ctl/machine/TemporaryFile.h"
#include "ctl/machine/TerminalScreen.h"
#include "ctl/verbs/Verbs.h"
#include "model/ImageLook.h"
#include "model/Tables.h"
#include "model/UserName.h"
#include "runtime/base/Descriptor.h"
#include "statedb/OwnerSign.h"
#include "statedb/sqlite/SqliteDb.h"

namespace {

// "vmctl nic add": the program, and what it was told to do.
rt::String programAndVerb(const std::vector<rt::String>& arguments) {
  for (size_t i = 0; i < arguments.size(); ++i) {
    const rt::String two = i + 1 < arguments.size() ? arguments[i] + " " + arguments[i + 1] : "";
    for (const rt::String& name : {two, arguments[i]})
      if (const ctl::Verb* const verb = ctl::verbNamed(name))
        return "vmctl " + rt::String(verb->name);
  }
  return "vmctl";
}

statedb::StateDb openDb(const ctl::Directories& directories, const statedb::Author& author) {
  statedb::sqlite::DbOptions options;
  options.author = author;
  options.stateDir = directories.state;
  options.runDir = directories.run;
  options.isStatus = model::isStatus;
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

uint64_t timeOfDayMs() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return static_cast<uint64_t>(time.tv_sec) * 1000 + static_cast<uint64_t>(time.tv_nsec) / 1000000;
}

// Only what happens without being asked for: that its reader is gone.
constexpr pollfd outLook{STDOUT_FILENO, 0, 0};

// As poll() takes it: never too early.
int millisecondsOf(rt::Seconds time) {
  if (time == rt::Seconds::infinity()) return -1;
  const double most = std::numeric_limits<int>::max();
  return static_cast<int>(std::min(std::ceil(time.value() * 1000), most));
}

void waitReadable(std::span<const int> descriptors, rt::Seconds time) {
  std::vector<pollfd> looks;
  looks.reserve(descriptors.size());
  for (const int descriptor : descriptors) looks.push_back({descriptor, POLLIN, 0});
  (void)poll(looks.data(), looks.size(), millisecondsOf(time));
}

// False: nobody reads standard output any more.
bool isReadWhileWaiting(std::span<const int> descriptors, rt::Seconds time) {
  std::vector<pollfd> looks{outLook};
  looks.reserve(descriptors.size() + 1);
  for (const int descriptor : descriptors) looks.push_back({descriptor, POLLIN, 0});
  return poll(looks.data(), looks.size(), millisecondsOf(time)) < 0 || looks[0].revents == 0;
}

// An image may lie on a file system that does not answer.
model::ImageFacts imageFacts(const rt::String& path) {
  return model::imageFactsWithin([&] { return model::imageFacts(path); }, model::imagePatience);
}

std::unique_ptr<ctl::EditedFile> makeEditedFile(const rt::String& name) {
  const rt::String directory = environment("TMPDIR").value_or("");
  return std::make_unique<ctl::TemporaryFile>(directory.empty() ? "/tmp" : directory, name);
}

rt::String workingDirectory() {
  char path[PATH_MAX];
  return getcwd(path, sizeof path) && path[0] == '/' ? path : "";
}

rt::String readFile(const rt::String& path) {
  const bool isInput = path == "-";
  const rt::Descriptor file(isInput ? -1 : open(path.charPtr(), O_RDONLY | O_CLOEXEC));
  const int descriptor = isInput ? STDIN_FILENO : file.number();
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
  if (size < 0) throw rt::ErrnoException(errno, path + " cannot be read");
  return text;
}

void writeFile(const rt::String& path, const rt::String& bytes) {
  constexpr int flags = O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY;
  const rt::Descriptor file(open(path.charPtr(), flags, 0666));
  std::string_view left = bytes;
  while (file && !left.empty()) {
    const ssize_t size = write(file.number(), left.data(), left.size());
    if (size < 0 && errno != EINTR) break;
    left.remove_prefix(static_cast<size_t>(std::max<ssize_t>(size, 0)));
  }
  if (!file || !left.empty()) throw rt::ErrnoException(errno, path + " cannot be written");
}

void putFile(const ctl::FilePlace& place, std::string_view bytes) {
  ctl::NewFile file(place);
  file.write(bytes);
  file.put();
}

// What root does, somebody did who logged in before: the kernel knows who, where a session is kept,
// and else sudo says so.
rt::String userName() {
  std::ifstream file("/proc/self/loginuid");
  uint32_t login = 0;
  const bool isKnown = (file >> login) && login != std::numeric_limits<uint32_t>::max();
  if (isKnown) return model::userName(login);
  rt::String sudo = environment("SUDO_USER").value_or("");
  if (geteuid() == 0 && !sudo.empty()) return sudo;
  return model::userName(geteuid());
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
  const auto waitWhileRead = [&](std::span<const int> descriptors, rt::Seconds time) {
    if (!isReadWhileWaiting(descriptors, time)) out.setstate(std::ios::badbit);
  };
  const auto holdConsole = [](const rt::String& pty) {
    return ctl::holdConsole(STDIN_FILENO, STDOUT_FILENO, pty);
  };
  const auto joinConsole = [](const rt::String& socket) {
    return ctl::joinConsole(STDIN_FILENO, STDOUT_FILENO, socket);
  };
  const auto viewConsole = [](const rt::String& socket) {
    return ctl::viewConsole(STDIN_FILENO, STDOUT_FILENO, socket);
  };
  const ctl::LinuxMachine machine;
  const std::vector<rt::String> arguments(argv + std::min(argc, 1), argv + argc);
  const auto open = [&](const ctl::Directories& directories) {
    return openDb(directories, {userName(), programAndVerb(arguments)});
  };
  ctl::World world{.openDb = open,
                   .ownerIsAlive = statedb::ownerIsAlive,
                   .environment = environment,
                   .now = now,
                   .timeOfDay = [] { return static_cast<uint64_t>(std::time(nullptr)); },
                   .timeOfDayMs = timeOfDayMs,
                   .chance = [] { return static_cast<uint32_t>(std::random_device()()); },
                   .waitReadable = waitReadable,
                   .waitWhileRead = waitWhileRead,
                   .imageFacts = imageFacts,
                   .workingDirectory = workingDirectory,
                   .readFile = readFile,
                   .makeEditedFile = makeEditedFile,
                   .holdConsole = holdConsole,
                   .joinConsole = joinConsole,
                   .viewConsole = viewConsole,
                   .takeScreen = [] { return ctl::takeScreen(STDIN_FILENO, STDOUT_FILENO); },
                   .askShim = ctl::askShim,
                   .userName = userName,
                   .writeFile = writeFile,
                   .putFile = putFile,
                   .readHead = [](rt::Seconds time) { return ctl::readHead(STDIN_FILENO, time); },
                   .backUpConfig = ctl::backUpConfig,
                   .readConfigBackup = ctl::readConfigBackup,
                   .pack = ctl::pack,
                   .machine = machine,
                   .limits = model::machineLimits(),
                   .out = out,
                   .err = std::cerr,
                   .inIsTerminal = isatty(STDIN_FILENO) == 1,
                   .outIsTerminal = isatty(STDOUT_FILENO) == 1,
                   .errIsTerminal = isatty(STDERR_FILENO) == 1,
                   .columns = terminalColumns()};
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
