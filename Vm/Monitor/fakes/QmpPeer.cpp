#include "Vm/Monitor/fakes/QmpPeer.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <utility>

#include "runtime/base/Exception.h"

namespace Vm::fakes {

namespace {

// The kernel's answer, which is an error only where a test asks for too much.
template <class Number>
Number must(Number answer, const char* call) {
  if (answer < 0) throw rt::ErrnoException(errno, call);
  return answer;
}

// The text of a string member of a request; its last one of that name is the request's own.
std::string memberOf(const std::string& request, const std::string& name) {
  const std::string start = "\"" + name + "\": \"";
  const auto at = request.rfind(start);
  if (at == std::string::npos) return {};
  const auto from = at + start.size();
  return request.substr(from, request.find('"', from) - from);
}

std::vector<OwnedDescriptor> descriptorsOf(msghdr& message) {
  std::vector<OwnedDescriptor> descriptors;
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header; header = CMSG_NXTHDR(&message, header)) {
    if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(header) + i * sizeof number, sizeof number);
      descriptors.emplace_back(number);
    }
  }
  return descriptors;
}

}  // namespace

void OwnedDescriptor::close() {
  if (const int number = release(); number >= 0) ::close(number);
}

OwnedDescriptor fileWith(std::string_view text) {
  std::array<int, 2> ends{};
  must(pipe2(ends.data(), O_CLOEXEC), "pipe2");
  const OwnedDescriptor writing(ends[1]);
  OwnedDescriptor reading(ends[0]);
  must(::write(writing, text.data(), text.size()), "write");
  return reading;
}

OwnedDescriptor endWithoutReader() {
  std::array<int, 2> ends{};
  must(pipe2(ends.data(), O_CLOEXEC), "pipe2");
  ::close(ends[0]);
  return OwnedDescriptor(ends[1]);
}

bool isSameFile(int a, int b) {
  struct stat first {};
  struct stat second {};
  return fstat(a, &first) == 0 && fstat(b, &second) == 0 && first.st_dev == second.st_dev &&
         first.st_ino == second.st_ino;
}

bool isOpen(int number) { return fcntl(number, F_GETFD) >= 0; }

std::string greeting() {
  return "{\"QMP\": {\"version\": {\"qemu\": {\"micro\": 11, \"minor\": 2, \"major\": 7}, "
         "\"package\": \"Debian 1:7.2+dfsg-7\"}, \"capabilities\": [\"oob\"]}}\r\n";
}

std::string returnOf(std::string_view id, std::string_view value) {
  return "{\"return\": " + std::string(value) + ", \"id\": \"" + std::string(id) + "\"}\r\n";
}

std::string errorOf(std::string_view id, std::string_view description) {
  return "{\"id\": \"" + std::string(id) +
         "\", \"error\": {\"class\": \"GenericError\", \"desc\": \"" + std::string(description) +
         "\"}}\r\n";
}

std::string eventOf(std::string_view name) {
  return "{\"timestamp\": {\"seconds\": 1700000000, \"microseconds\": 123456}, \"event\": \"" +
         std::string(name) + "\"}\r\n";
}

QmpPeer::QmpPeer() {
  std::signal(SIGPIPE, SIG_IGN);
  std::array<int, 2> ends{};
  must(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), "socketpair");
  own_ = OwnedDescriptor(ends[0]);
  taken_ = OwnedDescriptor(ends[1]);
  sessionEnd_ = ends[1];
  valueIs("query-status", "{\"status\": \"running\", \"singlestep\": false, \"running\": true}");
  valueIs("query-chardev",
          "[{\"frontend-open\": true, \"filename\": \"unix:monitor,server=on\", "
          "\"label\": \"compat_monitor0\"}, {\"frontend-open\": true, "
          "\"filename\": \"pty:/dev/pts/3\", \"label\": \"serial0\"}]");
}

void QmpPeer::send(std::string_view bytes) {
  while (!bytes.empty())
    bytes.remove_prefix(static_cast<size_t>(
        must(::send(own_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL), "send")));
}

Received QmpPeer::receive() {
  std::array<char, 65536> bytes{};
  alignas(cmsghdr) std::array<char, CMSG_SPACE(16 * sizeof(int))> control{};
  iovec place{bytes.data(), bytes.size()};
  msghdr message{};
  message.msg_iov = &place;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t length = recvmsg(own_, &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
  if (length < 0) {
    if (errno == EAGAIN || errno == ECONNRESET) return {};
    throw rt::ErrnoException(errno, "recvmsg");
  }
  return {std::string(bytes.data(), static_cast<size_t>(length)), descriptorsOf(message)};
}

std::vector<Received> QmpPeer::take() {
  std::vector<Received> requests;
  for (Received read = receive(); !read.text.empty(); read = receive()) {
    unfinished_.text += read.text;
    for (auto& descriptor : read.descriptors)
      unfinished_.descriptors.push_back(std::move(descriptor));
    for (size_t end = unfinished_.text.find('\n'); end != std::string::npos;
         end = unfinished_.text.find('\n')) {
      Received rest{unfinished_.text.substr(end + 1), {}};
      unfinished_.text.resize(end + 1);
      requests.push_back(std::exchange(unfinished_, std::move(rest)));
    }
  }
  return requests;
}

std::vector<std::string> QmpPeer::takeTexts() {
  std::vector<std::string> texts;
  for (auto& request : take()) texts.push_back(std::move(request.text));
  return texts;
}

bool QmpPeer::sessionHasClosed() const {
  char byte = 0;
  return recv(own_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) == 0;
}

std::vector<std::string> QmpPeer::answer() {
  std::vector<std::string> requests = takeTexts();
  for (const std::string& request : requests) {
    const auto found = answers_.find(memberOf(request, "execute"));
    const Answer answer = found == answers_.end() ? Answer{} : found->second;
    const std::string id = memberOf(request, "id");
    if (answer.kind == Answer::Kind::value) send(returnOf(id, answer.value));
    if (answer.kind == Answer::Kind::refusal) send(errorOf(id));
  }
  return requests;
}

void QmpPeer::valueIs(const std::string& command, std::string value) {
  answers_[command] = {Answer::Kind::value, std::move(value)};
}

void QmpPeer::refusalIs(const std::string& command) {
  answers_[command] = {Answer::Kind::refusal, {}};
}

void QmpPeer::silenceIs(const std::string& command) {
  answers_[command] = {Answer::Kind::silence, {}};
}

void QmpPeer::close() {
  take();
  own_.close();
}

void QmpPeer::shutDown() { must(shutdown(own_, SHUT_WR), "shutdown"); }

void QmpPeer::reset() {
  must(::send(sessionEnd_, "x", 1, MSG_DONTWAIT | MSG_NOSIGNAL), "send");
  own_.close();
}

void QmpPeer::block() {
  const std::string bytes(4096, '\n');
  while (::send(sessionEnd_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL) > 0) {
  }
}

}  // namespace Vm::fakes
