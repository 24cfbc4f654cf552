#include "runtime/fakes/LoopFixture.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <iterator>

#include "runtime/base/Check.h"

namespace rt::fakes {

namespace {

// The kernel's answer, which is an error only where the test machine is broken.
int must(int answer, const char* call) {
  if (answer < 0) throw ErrnoException(errno, call);
  return answer;
}

}  // namespace

Ends pipeEnds() {
  std::array<int, 2> ends{};
  must(pipe2(ends.data(), O_CLOEXEC), "pipe2");
  return {ends[0], ends[1]};
}

Ends writingPipeEnds() {
  const Ends ends = pipeEnds();
  return {ends.peer, ends.own};
}

Ends streamEnds() {
  std::array<int, 2> ends{};
  must(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
  return {ends[0], ends[1]};
}

Ends tcpEnds() {
  const Closer server(must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const name = reinterpret_cast<sockaddr*>(&address);
  must(bind(server, name, length), "bind");
  must(listen(server, 1), "listen");
  must(getsockname(server, name, &length), "getsockname");
  const int client = must(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
  must(connect(client, name, length), "connect");
  return {must(accept4(server, nullptr, nullptr, SOCK_CLOEXEC), "accept"), client};
}

void Closer::close() {
  if (const int number = std::exchange(number_, -1); number >= 0) ::close(number);
}

bool isOpen(int number) { return fcntl(number, F_GETFD) >= 0; }

void write(int number, std::string_view text) {
  const auto written = ::write(number, text.data(), text.size());
  check(written == static_cast<ssize_t>(text.size()), "a test's write fails");
}

std::string readAll(int number) {
  std::string text(65536, '\0');
  const auto length = ::read(number, text.data(), text.size());
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

void fill(int number) {
  const std::string block(65536, 'x');
  const int flags = must(fcntl(number, F_GETFL), "F_GETFL");
  must(fcntl(number, F_SETFL, flags | O_NONBLOCK), "F_SETFL");
  while (::write(number, block.data(), block.size()) > 0) {
  }
  must(fcntl(number, F_SETFL, flags), "F_SETFL");
}

int threadId() { return static_cast<int>(syscall(SYS_gettid)); }

bool isAsleep(int thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string stat{std::istreambuf_iterator<char>(file), {}};
  const auto nameEnd = stat.rfind(") ");
  return nameEnd != std::string::npos && stat[nameEnd + 2] == 'S';
}

Ptr<Sleeper> LoopTest::sleeper(const std::string& name, double time) {
  auto made = make<Sleeper>(name, log, clock);
  made->timeMinIs(time);
  return made;
}

Ptr<Listener> LoopTest::reader(const std::string& name, int own) {
  auto made = make<Listener>(name, log);
  made->descriptor().descriptorIs(own);
  made->descriptor().notifyOnReadableIs(true);
  return made;
}

}  // namespace rt::fakes
