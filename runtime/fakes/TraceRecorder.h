// Remembers, in order, what is traced.
#pragma once

#include <string>
#include <vector>

#include "runtime/base/Trace.h"

namespace rt::fakes {

// For its lifetime, all levels of the agent's trace handle are on and its messages come here, each
// as "LEVEL MESSAGE".
class TraceRecorder final : public TraceSink {
 public:
  TraceRecorder();
  TraceRecorder(const TraceRecorder&) = delete;
  ~TraceRecorder() override;

  void write(const TraceRecord& record) override;

  // What was traced since the last call; with a level, only that level's messages, without it.
  std::vector<std::string> take();
  std::vector<std::string> take(unsigned level);

 private:
  TraceSink* const oldSink_;
  const TraceLevels oldLevels_;
  std::vector<std::pair<unsigned, std::string>> messages_;
};

}  // namespace rt::fakes
