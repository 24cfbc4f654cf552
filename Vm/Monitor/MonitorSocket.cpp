// The session's side of the socket: writing requests, with descriptors, and reading what comes.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Vm/Monitor/MonitorSm.h"
#include "runtime/base/Exception.h"
#include "runtime/base/Trace.h"

namespace Vm {

namespace {

constexpr int maxWriteRetries = 10;
constexpr size_t readSize = 4096;

// Room for one descriptor, aligned as the kernel wants it.
union ControlBuffer {
  cmsghdr alignment;
  char bytes[CMSG_SPACE(sizeof(int))];
};

void attachDescriptor(msghdr& message, ControlBuffer& control, int descriptor) {
  message.msg_control = control.bytes;
  message.msg_controllen = sizeof control.bytes;
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof descriptor);
  std::memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
}

}  // namespace

void MonitorSm::doIssueQmpRequest(const rt::String& text, uint32_t fd) {
  const auto descriptor = static_cast<int32_t>(fd);
  VM_TRACE(8) << "void Vm::MonitorSm::doIssueQmpRequest(const String&, uint32_t)"
              << " for " << text << " with fd " << descriptor;
  iovec bytes{const_cast<char*>(text.charPtr()), text.size()};
  msghdr message{};
  message.msg_iov = &bytes;
  message.msg_iovlen = 1;
  ControlBuffer control{};
  if (descriptor > 0) attachDescriptor(message, control, descriptor);

  int retries = 0;
  auto left = static_cast<ssize_t>(text.size());
  while (left > 0) {
    // After a partial write the whole message goes again: a local socket takes small messages
    // whole.
    const ssize_t written = sendmsg(monFd()->descriptor(), &message, 0);
    const int error = errno;
    VM_TRACE(9) << "doIssueQmpRequest"
                << " written: " << written;
    if (written >= 0) {
      left -= written;
      continue;
    }
    VM_TRACE(9) << "written < 0 " << written;
    if ((error == EINTR || error == EAGAIN) && retries++ < maxWriteRetries) continue;
    VM_TRACE(1) << "doIssueQmpRequest"
                << " FAIL: cannot write to qemu monitor, errno: " << error;
    throw rt::InternalException("qemu monitor write failed ");
  }
}

void MonitorSm::handleMonFdReadable() {
  VM_TRACE(8) << "void Vm::MonitorSm::handleMonFdReadable()";
  std::string accumulated;
  char buffer[readSize + 1];
  while (true) {
    VM_TRACE(9) << " calling read ";
    const ssize_t count = read(monFd()->descriptor(), buffer, readSize);
    const int error = errno;
    if (count > 0) {
      buffer[count] = '\0';
      VM_TRACE(8) << "handleMonFdReadable"
                  << " response: " << buffer << " bytesRead:" << count;
      accumulated.append(buffer, static_cast<size_t>(count));
      continue;
    }
    if (count == 0) return handlePeerClosed();
    VM_TRACE(2) << "handleMonFdReadable"
                << " read error returns " << count << " with errno " << error;
    if (error == ECONNRESET) return handlePeerClosed();
    if (error != EAGAIN) throw rt::ErrnoException(error, "read");
    VM_TRACE(8) << "max tries reached : " << 1 << " bytes read " << count;
    VM_TRACE(8) << accumulated;
    if (!accumulated.empty()) handleQmpResponse(std::move(accumulated));
    return;
  }
}

void MonitorSm::handlePeerClosed() {
  VM_TRACE(2) << "handleMonFdReadable"
              << " qemu monitor has forcibly closed conn ";
  monitorStatus_->stateIs(MonitorStatus::MonitorState::disconnected);
}

}  // namespace Vm
