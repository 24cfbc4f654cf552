#include "shim/keep/Environment.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "guest/Emulation.h"
#include "runtime/base/Descriptor.h"

namespace shim {

namespace {

namespace variable = guest::variable;

std::string valueOf(const std::function<const char*(const char*)>& get, const char* name,
                    const std::string& fallback) {
  const char* const value = get(name);
  return value && *value ? value : fallback;
}

ArgumentError refused(const char* name, const std::string& value, const char* right) {
  return ArgumentError(std::string(name) + ": '" + value + "' is refused: it " + right);
}

Duration secondsFrom(const std::string& text) {
  int seconds = -1;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, seconds);
  if (error != std::errc() || at != end || seconds < 0 || seconds > guest::longestStopTimeout)
    throw refused(variable::stopTimeout, text, guest::stopTimeoutRight);
  return Duration(1000) * seconds;
}

int descriptorFrom(const std::string& text) {
  int number = -1;
  const char* const end = text.data() + text.size();
  const auto [at, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || (error == std::errc() && at == end && number >= 0)) return number;
  throw refused(variable::listener, text, "must be a descriptor's number");
}

guest::Acceleration accelerationFrom(const std::string& text) {
  if (const auto value = guest::accelerationFrom(text)) return *value;
  throw refused(variable::accel, text, guest::accelerationRight);
}

std::optional<guest::ImageFormat> imageFormatFrom(const std::string& text) {
  if (text.empty()) return std::nullopt;
  if (const auto format = guest::imageFormatFrom(text)) return format;
  throw refused(variable::imageFormat, text, "must be raw or qcow2");
}

std::vector<std::string> pathsFrom(const std::string& text) {
  std::vector<std::string> paths;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find(':', begin), text.size());
    paths.push_back(text.substr(begin, end - begin));
    if (!paths.back().starts_with('/'))
      throw refused(variable::qemuReads, text, "must be absolute paths with ':' between them");
    begin = end + 1;
  }
  return paths;
}

guest::UserRange usersFrom(const std::string& text) {
  if (text.empty()) return {};
  if (const auto range = guest::userRangeFrom(text)) return *range;
  throw refused(variable::guestUsers, text, "must be FIRST-LAST, numbers of users from 1 on");
}

// The first bytes of a file, at most `size`; none when it cannot be read.
std::string headOf(const std::string& path, size_t size) {
  const rt::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  std::string head(size, '\0');
  size_t got = 0;
  while (file && got < size) {
    const ssize_t count = read(file.number(), head.data() + got, size - got);
    if (count <= 0) break;
    got += static_cast<size_t>(count);
  }
  head.resize(got);
  return head;
}

}  // namespace

Environment environmentFrom(const std::function<const char*(const char*)>& get) {
  Environment environment;
  environment.qemu = valueOf(get, variable::qemu, environment.qemu);
  environment.runDir = valueOf(get, variable::runDir, environment.runDir);
  environment.screenAddress = valueOf(get, variable::vncListen, "");
  environment.qemuReads = pathsFrom(valueOf(get, variable::qemuReads, ""));
  environment.guestUsers = usersFrom(valueOf(get, variable::guestUsers, ""));
  environment.policy.acceleration =
      accelerationFrom(valueOf(get, variable::accel, guest::defaultAcceleration));
  environment.group = valueOf(get, variable::group, "");
  environment.imageFormat = imageFormatFrom(valueOf(get, variable::imageFormat, ""));
  environment.stopTimeout =
      secondsFrom(valueOf(get, variable::stopTimeout, guest::defaultStopTimeout));
  environment.listener = descriptorFrom(valueOf(get, variable::listener, ""));
  return environment;
}

bool isKvmUsable() {
  // The flags of the first CPU; the others' are the same.
  constexpr size_t cpuinfoSize = 16 * 1024;
  const rt::Descriptor kvm(open("/dev/kvm", O_RDWR | O_CLOEXEC));
  return kvm && guest::canRunGuests(headOf("/proc/cpuinfo", cpuinfoSize));
}

std::optional<dev_t> kvmDevice() {
  struct stat facts {};
  if (stat("/dev/kvm", &facts) != 0 || !S_ISCHR(facts.st_mode)) return std::nullopt;
  return facts.st_rdev;
}

}  // namespace shim
