#include "runtime/base/Trace.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "runtime/base/VisibleText.h"

namespace rt {

constinit TraceHandle vmTraceHandle("Vm");

namespace {

std::atomic<TraceSink*> currentSink = nullptr;

void writeToStandardError(const TraceRecord& record) {
  const int error = errno;  // a trace between a call and a look at its errno does no harm
  using namespace std::chrono;
  const auto now = duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
  const String line = traceLine(record, now);
  // One call a line, so that lines of several threads or processes do not mix. Where standard
  // error is closed or full there is nobody left to tell.
  [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.charPtr(), line.size());
  errno = error;
}

}  // namespace

std::optional<TraceLevels> traceLevelsFromText(std::string_view text) {
  if (text == "none") return 0;
  if (text == "all") return ~TraceLevels(0);
  TraceLevels levels = 0;
  while (true) {
    const auto comma = text.find(',');
    const auto level = fromText<uint8_t>(text.substr(0, comma));
    if (!level || *level > 31) return std::nullopt;
    levels |= TraceLevels(1) << *level;
    if (comma == std::string_view::npos) return levels;
    text.remove_prefix(comma + 1);
  }
}

TraceSink* traceSink() { return currentSink.load(); }
void traceSinkIs(TraceSink* sink) { currentSink.store(sink); }

String traceLine(const TraceRecord& record, int64_t microseconds) {
  using namespace std::chrono;
  const sys_time<std::chrono::microseconds> when{std::chrono::microseconds(microseconds)};
  const auto day = floor<days>(when);
  const year_month_day date(day);
  const hh_mm_ss time(when - day);
  String line =
      format("%04d-%02u-%02uT%02d:%02d:%02d.%06dZ %u %s:%u ", static_cast<int>(date.year()),
             static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
             static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
             static_cast<int>(time.seconds().count()), static_cast<int>(time.subseconds().count()),
             record.level, record.file, record.line);
  for (std::string_view rest = record.message; !rest.empty();) {
    const size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
    line += visibleText(rest.substr(0, end));
    if (end < rest.size()) line += rest[end] == '\n' ? "\\n" : "\\r";
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return line += '\n';
}

TraceHelper::~TraceHelper() {
  const TraceRecord record{handle_, level_, file_, line_, function_, message_};
  if (TraceSink* sink = traceSink())
    sink->write(record);
  else
    writeToStandardError(record);
}

TraceHelper& TraceHelper::operator<<(const void* address) {
  char digits[2 * sizeof address];
  const auto end =
      std::to_chars(digits, digits + sizeof digits, reinterpret_cast<uintptr_t>(address), 16).ptr;
  return *this << "0x" << std::string_view(digits, static_cast<size_t>(end - digits));
}

}  // namespace rt
