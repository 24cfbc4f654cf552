#include "host/base/TraceLog.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include "runtime/base/Text.h"

namespace host {

namespace {

constexpr rt::TraceLevels alwaysOn = 1U << 1 | 1U << 2;

}  // namespace

TraceLog::TraceLog(rt::TraceLevels levels, TraceRoad road, Now now)
    : levels_(levels), road_(std::move(road)), now_(std::move(now)) {
  rt::vmTrace().levelsIs(levels_ | 1U << 1);
  rt::traceSinkIs(this);
}

TraceLog::~TraceLog() {
  rt::traceSinkIs(nullptr);
  rt::vmTrace().levelsIs(levels_);
}

rt::Seconds TraceLog::steadyTime() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return rt::Seconds(std::chrono::duration<double>(now).count());
}

void TraceLog::write(const rt::TraceRecord& record) {
  const int error = errno;  // a trace between a call and a look at its errno does no harm
  const std::lock_guard held(mutex_);
  const bool ofChange = !vm_.empty() && thread_ == std::this_thread::get_id();
  if (record.level == 1 && ofChange) failure_ = rt::String(record.message);
  if ((levels_ >> record.level & 1U) != 0) {
    const rt::String vm = ofChange ? vm_ : rt::String();
    const bool counts = (levels_ & ~alwaysOn) == 0;
    put(record, vm, counts ? repeats_.heard(record, vm, now_()) : Repeats::Count());
  }
  errno = error;
}

bool TraceLog::pass() {
  const std::lock_guard held(mutex_);
  for (const auto& each : repeats_.due(now_())) {
    rt::TraceRecord record = each.record;
    record.message = each.text;
    put(record, each.vm, each.count);
  }
  return sendWaiting();
}

void TraceLog::put(rt::TraceRecord record, const rt::String& vm, const Repeats::Count& count) {
  if (count.times == 0) return;
  const std::string text = counted(record.message, count);
  record.message = text;
  (void)sendWaiting();
  send(road_.text(record, vm));
}

void TraceLog::send(std::string text) {
  if (waiting_.empty() && road_.send(text)) return;
  if (waitingSize_ + text.size() > mostWaiting) {
    ++lost_;
    return;
  }
  waitingSize_ += text.size();
  waiting_.push_back(std::move(text));
}

// In their order, and the number of the lost where they are missing.
bool TraceLog::sendWaiting() {
  for (; !waiting_.empty(); waiting_.pop_front()) {
    if (!road_.send(waiting_.front())) return false;
    waitingSize_ -= waiting_.front().size();
  }
  if (const uint64_t lost = std::exchange(lost_, 0); lost > 0) {
    const std::string text =
        "vmagentd: " + rt::toText(lost).str() + " messages were lost here: nobody read them";
    send(road_.text({rt::vmTrace(), 1, __FILE__, __LINE__, __func__, text}, {}));
  }
  return waiting_.empty();
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

std::string lineOf(const rt::TraceRecord& record, const rt::String& /*vm*/) {
  using namespace std::chrono;
  const auto now = system_clock::now().time_since_epoch();
  return rt::traceLine(record, duration_cast<microseconds>(now).count()).str();
}

}  // namespace host
