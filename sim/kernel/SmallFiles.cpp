#include "sim/kernel/SmallFiles.h"

#include <sys/signalfd.h>

#include <cstring>
#include <utility>

#include "sim/kernel/Machine.h"

namespace sim {

Result EventFile::read(char* to, size_t size) {
  if (size < sizeof count_) return -EINVAL;
  if (count_ == 0) return -EAGAIN;
  const uint64_t all = std::exchange(count_, 0);
  std::memcpy(to, &all, sizeof all);
  changed.wake();
  return sizeof all;
}

Result EventFile::write(const char* from, size_t size) {
  uint64_t more = 0;
  if (size < sizeof more) return -EINVAL;
  std::memcpy(&more, from, sizeof more);
  count_ += more;
  changed.wake();
  return sizeof more;
}

short EventFile::ready() const { return static_cast<short>(POLLOUT | (count_ > 0 ? POLLIN : 0)); }

Result SignalFile::read(char* to, size_t size) {
  signalfd_siginfo told{};
  if (size < sizeof told) return -EINVAL;
  size_t used = 0;
  while (used + sizeof told <= size) {
    const auto info = machine().scheduler.current()->signals.take(set_);
    if (!info) break;
    told = {};
    told.ssi_signo = static_cast<uint32_t>(info->number);
    told.ssi_pid = static_cast<uint32_t>(info->sender);
    told.ssi_status = info->status;
    std::memcpy(to + used, &told, sizeof told);
    used += sizeof told;
  }
  return used == 0 ? -EAGAIN : static_cast<Result>(used);
}

short SignalFile::ready() const {
  const Process* const reader = machine().scheduler.current();
  return reader && reader->signals.anyOf(set_) ? short{POLLIN} : short{0};
}

void SignalFile::queues(std::vector<WaitQueue*>& all) {
  all.push_back(&changed);
  if (Process* const reader = machine().scheduler.current()) all.push_back(&reader->signals.came);
}

short ProcessFile::ready() const {
  return process_->state == Process::State::zombie ? short{POLLIN} : short{0};
}

}  // namespace sim
