// Where traces go, and what they say of a VM's change.
#pragma once

#include <functional>
#include <mutex>
#include <thread>

#include "runtime/base/Trace.h"

namespace host {

// The process's trace sink while it lives. Owned by main. Level 1, which is what failed, is always
// heard; it is passed on if it is among the levels asked for.
class TraceLog final : public rt::TraceSink {
 public:
  // Passes one message of the VM on; an empty name: of none.
  using Output = std::function<void(const rt::TraceRecord&, const rt::String& vm)>;

  TraceLog(rt::TraceLevels levels, Output output);
  ~TraceLog() override;

  void write(const rt::TraceRecord& record) override;

  // For the time of its life, what is traced on this thread is of a change to that VM.
  class Change {
   public:
    Change(TraceLog& log, const rt::String& vm);
    Change(const Change&) = delete;
    ~Change();
    // The last level-1 message so far; empty when there was none.
    rt::String failure() const;

   private:
    TraceLog& log_;
  };

 private:
  const rt::TraceLevels levels_;
  const Output output_;
  mutable std::mutex mutex_;  // other threads trace, too
  rt::String vm_;             // whose change it is, if there is one
  std::thread::id thread_;    // that makes the change
  rt::String failure_;
};

// A line on standard error.
void writeTraceLine(const rt::TraceRecord& record, const rt::String& vm);

}  // namespace host
