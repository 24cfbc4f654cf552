// Tracing: what the agent says of its own doings, by level.
#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "runtime/base/Text.h"

namespace rt {

using TraceLevels = uint32_t;  // bit N set: level N is on

// The levels that "none", "all" or a list such as "1,2,7" (levels 0 to 31) stands for.
std::optional<TraceLevels> traceLevelsFromText(std::string_view text);

// A named source of messages with levels of its own, which may change while the process runs.
class TraceHandle {
 public:
  static constexpr TraceLevels defaultLevels = 1U << 1 | 1U << 2;

  constexpr explicit TraceHandle(const char* name) : name_(name) {}
  TraceHandle(const TraceHandle&) = delete;

  const char* name() const { return name_; }
  bool enabled(unsigned level) const {
    return (levels_.load(std::memory_order_relaxed) >> level & 1U) != 0;
  }
  TraceLevels levels() const { return levels_.load(std::memory_order_relaxed); }
  void levelsIs(TraceLevels levels) { levels_.store(levels, std::memory_order_relaxed); }

 private:
  const char* name_;
  std::atomic<TraceLevels> levels_ = defaultLevels;
};

extern TraceHandle vmTraceHandle;
// The one handle of the agent, "Vm".
inline TraceHandle& vmTrace() { return vmTraceHandle; }

// One finished message; everything in it lives as long as the call that hands it over.
struct TraceRecord {
  const TraceHandle& handle;
  unsigned level;
  const char* file;
  unsigned line;
  const char* function;
  std::string_view message;
};

// Where messages go. Called on any thread that traces.
class TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};

// The process's sink. Null (the default) writes a line "TIME LEVEL FILE:LINE MESSAGE" to standard
// error, unbuffered, the message as visibleText(). The caller keeps ownership.
TraceSink* traceSink();
void traceSinkIs(TraceSink* sink);
// That line, with its line feed; `microseconds` since 1970, UTC.
String traceLine(const TraceRecord& record, int64_t microseconds);

// Builds one message out of the pieces streamed into it and emits it when it ends.
class TraceHelper {
 public:
  TraceHelper(const TraceHandle& handle, unsigned level, const char* file, unsigned line,
              const char* function)
      : handle_(handle), level_(level), file_(file), line_(line), function_(function) {}
  TraceHelper(const TraceHelper&) = delete;
  ~TraceHelper();

  TraceHelper& operator<<(std::string_view text) {
    message_ += text;
    return *this;
  }
  TraceHelper& operator<<(const char* text) { return *this << std::string_view(text); }
  TraceHelper& operator<<(const String& text) { return *this << std::string_view(text); }
  TraceHelper& operator<<(const std::string& text) { return *this << std::string_view(text); }
  template <class T>
  requires requires(const T& value) { toText(value); }
  TraceHelper& operator<<(const T& value) { return *this << std::string_view(toText(value)); }
  // An address, as hexadecimal digits after "0x".
  TraceHelper& operator<<(const void* address);

 private:
  const TraceHandle& handle_;
  unsigned level_;
  const char* file_;
  unsigned line_;
  const char* function_;
  std::string message_;
};

}  // namespace rt

// Starts a message of the agent, `VM_TRACE(8) << "doTryEnable" << " " << path << " removed";`. Only
// a macro can leave the pieces unevaluated when the level is off, which then costs one bit test.
#define VM_TRACE(level)                                                         \
  for (bool traceOn = ::rt::vmTrace().enabled(level); traceOn; traceOn = false) \
  ::rt::TraceHelper(::rt::vmTrace(), level, __FILE__, __LINE__, __func__)
