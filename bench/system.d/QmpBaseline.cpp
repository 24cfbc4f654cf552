// A bare QMP client: what it costs to ask QEMUs for their state without an agent.
//
//   qmp_baseline trips SOCKET REQUEST     for each number N on its input asks N times, one after
//       the other, and writes how many microseconds each took
//   qmp_baseline poll SECONDS APART SOCKET...   asks each every SECONDS, the first time APART
//       milliseconds after the one before, until it is killed
//   qmp_baseline relay LISTEN CONNECT     stands between one client and that server, and passes on
//       what comes, as it comes: what it costs that somebody stands there at all
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

void writeAll(int socket, std::string_view text) {
  if (write(socket, text.data(), text.size()) != static_cast<ssize_t>(text.size())) fail("write");
}

// What is read is thrown away: until a line has ended that holds `text`.
void readUntil(int socket, std::string_view text) {
  std::string line;
  char bytes[4096];
  while (true) {
    const ssize_t count = read(socket, bytes, sizeof bytes);
    if (count <= 0) fail("read");
    line.append(bytes, static_cast<size_t>(count));
    if (line.back() == '\n' && line.find(text) != std::string::npos) return;
  }
}

int socketAt(const char* path, int (*take)(int, const sockaddr*, socklen_t)) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
  if (take(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail(path);
  return socket;
}

int session(const char* path) {
  const int socket = socketAt(path, connect);
  readUntil(socket, "\"QMP\"");
  writeAll(socket, "{\"execute\":\"qmp_capabilities\",\"id\":\"enter\"}\n");
  readUntil(socket, "\"return\"");
  writeAll(socket, "{\"execute\":\"cont\",\"id\":\"cont\"}\n");
  readUntil(socket, "\"return\"");
  return socket;
}

int trips(const char* path, const std::string& request) {
  const int socket = session(path);
  std::vector<double> taken;
  for (size_t count = 0; std::cin >> count;) {
    taken.clear();
    taken.reserve(count);
    while (taken.size() < count) {
      const auto begin = Clock::now();
      writeAll(socket, request);
      readUntil(socket, "\"return\"");
      taken.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
    }
    for (const double each : taken) std::printf("%.2f ", each);
    std::printf("\n");
    std::fflush(stdout);
  }
  return 0;
}

// Each socket has a time of its own, `apart` after the one before.
int poll(Clock::duration interval, Clock::duration apart, const std::vector<const char*>& paths) {
  const int epoll = epoll_create1(EPOLL_CLOEXEC);
  std::vector<std::pair<int, Clock::time_point>> guests;
  guests.reserve(paths.size());
  for (const char* const path : paths) {
    const int socket = session(path);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket;
    epoll_ctl(epoll, EPOLL_CTL_ADD, socket, &event);
    guests.emplace_back(socket, Clock::now() + apart * static_cast<Clock::rep>(guests.size()));
  }
  while (true) {
    auto next = Clock::time_point::max();
    for (auto& [socket, due] : guests) {
      if (due <= Clock::now()) {
        writeAll(socket, "{\"execute\":\"query-status\"}\n");
        due += interval;
      }
      next = std::min(next, due);
    }
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - Clock::now()).count();
    epoll_event events[64];
    const int ready = epoll_wait(epoll, events, 64, std::max(0, static_cast<int>(left)));
    char bytes[4096];
    for (int i = 0; i < ready; ++i)
      if (read(events[i].data.fd, bytes, sizeof bytes) <= 0) fail("read");
  }
}

int relay(const char* listening, const char* server) {
  const int listener = socketAt(listening, bind);
  if (listen(listener, 1) != 0) fail("listen");
  const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  pollfd ends[] = {{client, POLLIN, 0}, {socketAt(server, connect), POLLIN, 0}};
  char bytes[16384];
  while (true) {
    if (::poll(ends, 2, -1) < 0) fail("poll");
    for (size_t i = 0; i < 2; ++i) {
      if (ends[i].revents == 0) continue;
      const ssize_t count = read(ends[i].fd, bytes, sizeof bytes);
      if (count <= 0) return 0;
      writeAll(ends[1 - i].fd, {bytes, static_cast<size_t>(count)});
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view verb = argc > 3 ? argv[1] : "";
  if (verb == "trips") return trips(argv[2], std::string(argv[3]) + "\n");
  if (verb == "poll" && argc > 4)
    return poll(std::chrono::seconds(std::atoi(argv[2])),
                std::chrono::milliseconds(std::atoi(argv[3])), {argv + 4, argv + argc});
  if (verb == "relay") return relay(argv[2], argv[3]);
  std::fputs(
      "Usage: qmp_baseline trips SOCKET REQUEST | poll SECONDS APART SOCKET... | "
      "relay LISTEN CONNECT\n",
      stderr);
  return 2;
}
