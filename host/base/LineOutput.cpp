#include "host/base/LineOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>

namespace host {

namespace {

// Of a pipe or a terminal: what is opened by its name in /proc is the same with flags of its own.
rt::Descriptor openedAnew(int descriptor) {
  const std::string name = "/proc/self/fd/" + std::to_string(descriptor);
  return rt::Descriptor(open(name.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

// A pipe that has any room takes so much without waiting.
ssize_t writeIfReady(int descriptor, std::string_view text) {
  pollfd polled{descriptor, POLLOUT, 0};
  if (poll(&polled, 1, 0) != 1) return -1;
  return ::write(descriptor, text.data(), std::min<size_t>(text.size(), PIPE_BUF));
}

}  // namespace

LineOutput::LineOutput(int descriptor)
    : descriptor_(descriptor),
      kind_(kindOf(descriptor)),
      own_(kind_ == Kind::stream ? openedAnew(descriptor) : rt::Descriptor()) {}

LineOutput::Kind LineOutput::kindOf(int descriptor) {
  struct stat facts {};
  if (fstat(descriptor, &facts) != 0) return Kind::file;  // a write will fail
  if (S_ISSOCK(facts.st_mode)) return Kind::socket;
  return S_ISFIFO(facts.st_mode) || S_ISCHR(facts.st_mode) ? Kind::stream : Kind::file;
}

bool LineOutput::write(std::string_view line) {
  const std::lock_guard held(mutex_);
  if (!writeRest()) return false;
  rest_ = line;
  (void)writeRest();
  const bool isBegun = rest_.size() < line.size();
  if (!isBegun) rest_.clear();
  return isBegun;
}

bool LineOutput::writeRest() {
  while (!rest_.empty()) {
    const ssize_t written = kind_ == Kind::socket ? send(descriptor_, rest_.data(), rest_.size(),
                                                         MSG_DONTWAIT | MSG_NOSIGNAL)
                            : kind_ == Kind::file ? ::write(descriptor_, rest_.data(), rest_.size())
                            : own_ ? ::write(own_.number(), rest_.data(), rest_.size())
                                   : writeIfReady(descriptor_, rest_);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    rest_.erase(0, static_cast<size_t>(written));
  }
  return true;
}

}  // namespace host
