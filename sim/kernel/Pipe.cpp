#include "sim/kernel/Pipe.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>

#include "sim/kernel/Machine.h"

namespace sim {

PipeEnd::PipeEnd(std::shared_ptr<PipeState> pipe, Kind kind, InodePtr node)
    : pipe_(std::move(pipe)), kind_(kind), node_(std::move(node)) {
  ++(kind == Kind::reads ? pipe_->readers : pipe_->writers);
  flags = kind == Kind::reads ? O_RDONLY : O_WRONLY;
}

PipeEnd::~PipeEnd() {
  --(kind_ == Kind::reads ? pipe_->readers : pipe_->writers);
  pipe_->changed.wake();
}

Result PipeEnd::read(char* to, size_t size) {
  if (kind_ != Kind::reads) return -EBADF;
  if (pipe_->bytes.empty()) return pipe_->writers == 0 || size == 0 ? 0 : -EAGAIN;
  const size_t count = std::min(size, pipe_->bytes.size());
  std::memcpy(to, pipe_->bytes.data(), count);
  pipe_->bytes.erase(0, count);
  pipe_->changed.wake();
  return static_cast<Result>(count);
}

Result PipeEnd::write(const char* from, size_t size) {
  if (kind_ != Kind::writes) return -EBADF;
  if (pipe_->readers == 0) return -EPIPE;
  const size_t room = PipeState::capacity - pipe_->bytes.size();
  if (room < std::min(size, PipeState::atomicSize)) return -EAGAIN;
  const size_t count = std::min(size, room);
  pipe_->bytes.append(from, count);
  pipe_->changed.wake();
  return static_cast<Result>(count);
}

short PipeEnd::ready() const {
  int events = 0;
  if (kind_ == Kind::reads) {
    if (!pipe_->bytes.empty()) events |= POLLIN;
    if (pipe_->writers == 0) events |= POLLHUP;
  } else {
    if (PipeState::capacity - pipe_->bytes.size() >= PipeState::atomicSize) events |= POLLOUT;
    if (pipe_->readers == 0) events |= POLLERR;
  }
  return static_cast<short>(events);
}

unsigned PipeEnd::mode() const { return S_IFIFO | S_IRUSR | S_IWUSR; }

std::pair<FilePtr, FilePtr> makePipe() {
  const auto pipe = std::make_shared<PipeState>();
  pipe->number = machine().files.nextInodeNumber();
  return {std::make_shared<PipeEnd>(pipe, PipeEnd::Kind::reads),
          std::make_shared<PipeEnd>(pipe, PipeEnd::Kind::writes)};
}

}  // namespace sim
