#include "shim/keep/Wire.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace shim {

namespace {

constexpr size_t readSize = 16 * 1024;
// The kernel closes what does not fit.
constexpr size_t mostDescriptors = 4;

union ControlBuffer {
  cmsghdr alignment;
  char bytes[CMSG_SPACE(sizeof(int) * mostDescriptors)];
};

rt::Descriptors descriptorsOf(msghdr& message) {
  rt::Descriptors received;
  for (cmsghdr* part = CMSG_FIRSTHDR(&message); part; part = CMSG_NXTHDR(&message, part)) {
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS) continue;
    const size_t count = (part->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count; ++i) {
      int number = -1;
      std::memcpy(&number, CMSG_DATA(part) + i * sizeof number, sizeof number);
      received.emplace_back(number);
    }
  }
  return received;
}

void attach(msghdr& message, ControlBuffer& control, const rt::Descriptors& descriptors) {
  const size_t count = std::min(descriptors.size(), mostDescriptors);
  message.msg_control = control.bytes;
  message.msg_controllen = CMSG_SPACE(sizeof(int) * count);
  cmsghdr* const part = CMSG_FIRSTHDR(&message);
  part->cmsg_level = SOL_SOCKET;
  part->cmsg_type = SCM_RIGHTS;
  part->cmsg_len = CMSG_LEN(sizeof(int) * count);
  for (size_t i = 0; i < count; ++i) {
    const int number = descriptors[i].number();
    std::memcpy(CMSG_DATA(part) + i * sizeof number, &number, sizeof number);
  }
}

// A kernel that has no memory now may have some soon; what is lost is never answered.
bool isForLater(int error) {
  return error == EAGAIN || error == EINTR || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

std::vector<Message> Wire::receive() {
  char bytes[readSize];
  iovec buffer{bytes, sizeof bytes};
  ControlBuffer control{};
  msghdr message{};
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  message.msg_control = control.bytes;
  message.msg_controllen = sizeof control.bytes;
  const ssize_t count = recvmsg(socket_.number(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
  if (count > 0) return stream_.take({bytes, static_cast<size_t>(count)}, descriptorsOf(message));
  if (count == 0 || !isForLater(errno)) closed_ = true;
  return {};
}

void Wire::send(Message message) {
  if (closed_ || message.text.empty()) return;
  unsentBytes_ += message.text.size();
  unsent_.push_back(std::move(message));
  if (unsent_.size() == 1) flush();
}

void Wire::flush() {
  while (!unsent_.empty() && sendFront()) {
  }
}

bool Wire::sendFront() {
  Message& front = unsent_.front();
  iovec buffer{front.text.data(), front.text.size()};
  ControlBuffer control{};
  msghdr message{};
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  if (!front.descriptors.empty()) attach(message, control, front.descriptors);
  const ssize_t count = sendmsg(socket_.number(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (count < 0) {
    if (isForLater(errno)) return false;
    // Nobody reads any more; what it sent may still be read.
    unsent_.clear();
    unsentBytes_ = 0;
    return false;
  }
  front.descriptors.clear();  // they went with the first byte
  unsentBytes_ -= static_cast<size_t>(count);
  front.text.erase(0, static_cast<size_t>(count));
  if (front.text.empty()) unsent_.pop_front();
  return true;
}

}  // namespace shim
