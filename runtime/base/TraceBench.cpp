// Traces: what a message costs whose level is off, and one that is made.
#include <benchmark/benchmark.h>

#include "runtime/base/Trace.h"

namespace rt::traceBench {

constexpr unsigned levelOff = 9;
constexpr unsigned levelOn = 1;

void emptyLoop(benchmark::State& state) {
  uint32_t value = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(++value);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(emptyLoop)->Name("trace/emptyLoop");

void disabledTrace(benchmark::State& state) {
  uint32_t value = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(++value);
    VM_TRACE(levelOff) << "disabledTrace"
                       << " " << value << " of many";
    benchmark::ClobberMemory();
  }
}
BENCHMARK(disabledTrace)->Name("trace/disabled");

class NullSink final : public TraceSink {
 public:
  void write(const TraceRecord& record) override { benchmark::DoNotOptimize(record.message); }
};

// Without the writing of it.
void enabledTrace(benchmark::State& state) {
  NullSink sink;
  TraceSink* const old = traceSink();
  traceSinkIs(&sink);
  uint32_t value = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(++value);
    VM_TRACE(levelOn) << "enabledTrace"
                      << " " << value << " of many";
    benchmark::ClobberMemory();
  }
  traceSinkIs(old);
}
BENCHMARK(enabledTrace)->Name("trace/enabled");

}  // namespace rt::traceBench
