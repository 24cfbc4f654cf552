#include "sim/kernel/Pty.h"

#include <fcntl.h>

#include <algorithm>
#include <cstring>

#include "sim/kernel/Machine.h"

namespace sim {

PtyEnd::PtyEnd(std::shared_ptr<PtyState> pty, Kind kind) : pty_(std::move(pty)), kind_(kind) {
  flags = O_RDWR;
  if (!isMaster()) ++pty_->slaves;
}

PtyEnd::~PtyEnd() {
  if (isMaster()) {
    pty_->hasMaster = false;
    machine().files.removeAt("/dev/pts/" + std::to_string(pty_->number));
  } else {
    --pty_->slaves;
  }
  pty_->changed.wake();
}

Result PtyEnd::read(char* to, size_t size) {
  std::string& from = isMaster() ? pty_->toMaster : pty_->toSlave;
  if (from.empty()) {
    if (isMaster()) return pty_->slaves == 0 ? -EIO : -EAGAIN;
    return pty_->hasMaster ? -EAGAIN : 0;
  }
  const size_t count = std::min(size, from.size());
  std::memcpy(to, from.data(), count);
  from.erase(0, count);
  pty_->changed.wake();
  return static_cast<Result>(count);
}

Result PtyEnd::write(const char* from, size_t size) {
  if (!isMaster() && !pty_->hasMaster) return -EIO;
  std::string& to = isMaster() ? pty_->toSlave : pty_->toMaster;
  const size_t count = std::min(size, PtyState::capacity - to.size());
  if (count == 0) return -EAGAIN;
  to.append(from, count);
  pty_->changed.wake();
  return static_cast<Result>(count);
}

short PtyEnd::ready() const {
  int events = 0;
  if (!(isMaster() ? pty_->toMaster : pty_->toSlave).empty()) events |= POLLIN;
  if ((isMaster() ? pty_->toSlave : pty_->toMaster).size() < PtyState::capacity) events |= POLLOUT;
  if (isMaster() ? pty_->slaves == 0 : !pty_->hasMaster) events |= POLLHUP;
  return static_cast<short>(events);
}

std::string PtyEnd::text() const {
  return isMaster() ? "/dev/ptmx" : "/dev/pts/" + std::to_string(pty_->number);
}

unsigned PtyEnd::mode() const { return pty_->node->mode; }

std::shared_ptr<PtyEnd> makePty() {
  FileSystem& files = machine().files;
  const auto pty = std::make_shared<PtyState>();
  while (files.at("/dev/pts/" + std::to_string(pty->number))) ++pty->number;
  pty->node = std::make_shared<Inode>(S_IFCHR | 0620U, files.at("/dev")->device);
  const std::weak_ptr<PtyState> weak = pty;
  pty->node->open = [weak]() -> FilePtr {
    const auto found = weak.lock();
    if (!found || !found->hasMaster) return nullptr;
    return std::make_shared<PtyEnd>(found, PtyEnd::Kind::slave);
  };
  files.put("/dev/pts/" + std::to_string(pty->number), pty->node);
  return std::make_shared<PtyEnd>(pty, PtyEnd::Kind::master);
}

}  // namespace sim
