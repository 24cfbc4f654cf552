#include "runtime/fakes/TraceRecorder.h"

namespace rt::fakes {

TraceRecorder::TraceRecorder() : oldSink_(traceSink()), oldLevels_(vmTrace().levels()) {
  traceSinkIs(this);
  vmTrace().levelsIs(~TraceLevels(0));
}

TraceRecorder::~TraceRecorder() {
  vmTrace().levelsIs(oldLevels_);
  traceSinkIs(oldSink_);
}

void TraceRecorder::write(const TraceRecord& record) {
  messages_.emplace_back(record.level, std::string(record.message));
}

std::vector<std::string> TraceRecorder::take() {
  std::vector<std::string> lines;
  for (const auto& [level, message] : std::exchange(messages_, {}))
    lines.push_back(std::to_string(level) + " " + message);
  return lines;
}

std::vector<std::string> TraceRecorder::take(unsigned level) {
  std::vector<std::string> lines;
  for (auto& [itsLevel, message] : std::exchange(messages_, {}))
    if (itsLevel == level) lines.push_back(std::move(message));
  return lines;
}

}  // namespace rt::fakes
