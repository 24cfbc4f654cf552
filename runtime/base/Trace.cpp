#include "runtime/base/Trace.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>

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
  const std::time_t seconds = microseconds / 1'000'000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char time[32];
  std::strftime(time, sizeof time, "%Y-%m-%dT%H:%M:%S", &utc);
  String line = format("%s.%06dZ %u %s:%u ", time, static_cast<int>(microseconds % 1'000'000),
                       record.level, record.file, record.line);
  for (const char c : record.message) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n')
      line += "\\n";
    else if (c == '\r')
      line += "\\r";
    else if (byte < 0x20 || byte == 0x7f)
      line += format("\\x%02x", byte);
    else
      line += c;
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
