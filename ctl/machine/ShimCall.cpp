#include "ctl/machine/ShimCall.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <string>

#include "guest/ShimProtocol.h"
#include "runtime/base/Descriptor.h"

namespace ctl {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = ShimAnswer::Kind;

constexpr size_t longestLine = 64 * 1024;

// 0, or why not.
int connectTo(const rt::Descriptor& client, const rt::String& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
  path.str().copy(address.sun_path, sizeof address.sun_path - 1);
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  return connect(client.number(), where, sizeof address) == 0 ? 0 : errno;
}

rt::String readAll(const rt::Descriptor& file) {
  std::string bytes;
  char buffer[64 * 1024];
  while (file && bytes.size() < mostPicture) {
    const ssize_t size = read(file.number(), buffer, sizeof buffer);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0) break;
    bytes.append(buffer, static_cast<size_t>(size));
  }
  return bytes;
}

// Whether a line of a shim's is that: {"NAME":…
bool isOf(const std::string& line, const char* name) {
  return line.starts_with("{\"" + std::string(name) + "\":");
}

class Call {
 public:
  explicit Call(const ShimCall& call)
      : end_(Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                std::chrono::duration<double>(call.patience.value()))),
        socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {}

  // So many may wait already that there is no room for one more: then nobody is heard.
  std::optional<ShimAnswer> connect(const rt::String& path) {
    const int error = connectTo(socket_, path);
    if (error == 0) return std::nullopt;
    if (error == EAGAIN) return ShimAnswer{Kind::silent, {}, {}};
    if (error == EACCES || error == EPERM) return ShimAnswer{Kind::denied, {}, {}};
    return ShimAnswer{Kind::absent, {}, {}};
  }
  void say(const rt::String& request) {
    const rt::String line = request + "\n";
    (void)send(socket_.number(), line.charPtr(), line.size(), MSG_NOSIGNAL);
  }
  // Nothing: none came in time, or the shim is gone.
  std::optional<std::string> line() {
    for (;;) {
      if (const size_t at = unread_.find('\n'); at != std::string::npos) {
        std::string text = unread_.substr(0, at);
        unread_.erase(0, at + 1);
        return text;
      }
      if (unread_.size() > longestLine || !receive()) return std::nullopt;
    }
  }
  bool isGone() const { return isGone_; }
  rt::Descriptor takeDescriptor() { return std::move(descriptor_); }

 private:
  bool receive() {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now());
    pollfd look{socket_.number(), POLLIN, 0};
    if (poll(&look, 1, static_cast<int>(std::max<int64_t>(0, left.count()))) != 1) return false;
    char bytes[4096];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    iovec part{bytes, sizeof bytes};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(socket_.number(), &message, MSG_CMSG_CLOEXEC);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) return true;
    isGone_ = size <= 0;
    if (isGone_) return false;
    unread_.append(bytes, static_cast<size_t>(size));
    const cmsghdr* const head = CMSG_FIRSTHDR(&message);
    if (head && head->cmsg_level == SOL_SOCKET && head->cmsg_type == SCM_RIGHTS) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(head), sizeof number);
      descriptor_.reset(number);
    }
    return true;
  }

  const Clock::time_point end_;
  const rt::Descriptor socket_;
  rt::Descriptor descriptor_;
  std::string unread_;
  bool isGone_ = false;
};

}  // namespace

ShimAnswer askShim(const ShimCall& call) {
  namespace word = guest::word;
  Call shim(call);
  if (const auto failure = shim.connect(call.socket)) return *failure;
  shim.say(call.request);
  for (;;) {
    const auto line = shim.line();
    if (!line) return {shim.isGone() ? Kind::ended : Kind::silent, {}, {}};
    if (isOf(*line, word::end)) return {Kind::ended, {}, {}};
    if (isOf(*line, word::error)) return {Kind::refused, *line, {}};
    if (isOf(*line, word::done) && !call.untilEnd)
      return {Kind::done, {}, readAll(shim.takeDescriptor())};
  }
}

}  // namespace ctl
