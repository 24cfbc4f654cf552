#include "host/base/TraceLog.h"

#include <unistd.h>

#include <chrono>

#include "runtime/base/String.h"

namespace host {

TraceLog::TraceLog(rt::TraceLevels levels, Output output)
    : levels_(levels), output_(std::move(output)) {
  rt::vmTrace().levelsIs(levels_ | 1U << 1);
  rt::traceSinkIs(this);
}

TraceLog::~TraceLog() {
  rt::traceSinkIs(nullptr);
  rt::vmTrace().levelsIs(levels_);
}

void TraceLog::write(const rt::TraceRecord& record) {
  const std::lock_guard held(mutex_);
  const bool ofChange = !vm_.empty() && thread_ == std::this_thread::get_id();
  if (record.level == 1 && ofChange) failure_ = rt::String(record.message);
  if ((levels_ >> record.level & 1U) != 0) output_(record, ofChange ? vm_ : rt::String());
}

TraceLog::Change::Change(TraceLog& log, const rt::String& vm) : log_(log) {
  const std::lock_guard held(log_.mutex_);
  log_.vm_ = vm;
  log_.thread_ = std::this_thread::get_id();
  log_.failure_ = {};
}

TraceLog::Change::~Change() {
  const std::lock_guard held(log_.mutex_);
  log_.vm_ = {};
}

rt::String TraceLog::Change::failure() const {
  const std::lock_guard held(log_.mutex_);
  return log_.failure_;
}

void writeTraceLine(const rt::TraceRecord& record, const rt::String& /*vm*/) {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const rt::String line =
      rt::traceLine(record, std::chrono::duration_cast<std::chrono::microseconds>(now).count());
  (void)!::write(STDERR_FILENO, line.charPtr(), line.size());
}

}  // namespace host
