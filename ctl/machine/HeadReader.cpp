#include "ctl/machine/HeadReader.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace ctl {

namespace {

constexpr size_t longestHead = 8 * 1024;

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

bool isWhole(std::string_view text) {
  return text.find("\r\n\r\n") != std::string_view::npos ||
         text.find("\n\n") != std::string_view::npos;
}

}  // namespace

rt::String readHead(int descriptor, rt::Seconds time) {
  const double end = now() + time.value();
  std::string text;
  while (!isWhole(text) && text.size() < longestHead) {
    pollfd look{descriptor, POLLIN, 0};
    const double left = end - now();
    if (left <= 0 || poll(&look, 1, static_cast<int>(left * 1000) + 1) == 0) break;
    char bytes[1024];
    const ssize_t size = read(descriptor, bytes, sizeof bytes);
    if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (size <= 0) break;
    text.append(bytes, static_cast<size_t>(size));
  }
  return text;
}

}  // namespace ctl
