// The database in SQLite files: commits, their way to a watcher, and what a command line does.
#include <benchmark/benchmark.h>
#include <poll.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <vector>

#include "runtime/base/fakes/TestFolder.h"
#include "statedb/fakes/StatusTables.h"
#include "statedb/sqlite/SqliteDb.h"

namespace statedb {
namespace {

using Clock = std::chrono::steady_clock;

// 374 bytes, as a machine with two cards has.
rt::String document(int64_t n) {
  rt::String doc("{\"enabled\":true,\"memory\":" + std::to_string(n) + ",\"diskImage\":\"");
  doc += std::string(374 - doc.size() - 2, 'x');
  return doc + "\"}";
}

// Both halves on the disk: configuration as it is used, status slower than on a tmpfs.
struct Files {
  StateDb open(sqlite::Role role) const {
    const rt::String dir(folder.path());
    return sqlite::openDb({dir, dir, fakes::isStatus, role});
  }
  const rt::fakes::TestFolder folder;
};

const char* tableOf(const benchmark::State& state) {
  return state.range(0) == 0 ? "vmConfig" : "vmStatus";
}

void fill(StateDb& db, const char* table, int64_t count) {
  Transaction all;
  for (int64_t i = 0; i < count; ++i)
    all.put(table, rt::String("vm" + std::to_string(i)), document(i));
  db.commit(all);
}

void commit(benchmark::State& state) {
  const Files files;
  StateDb db = files.open(sqlite::Role::owner);
  fill(db, tableOf(state), 500);
  int64_t n = 0;
  for ([[maybe_unused]] auto _ : state) {
    ++n;
    db.commit(
        Transaction().put(tableOf(state), rt::String("vm" + std::to_string(n % 500)), document(n)));
  }
}
BENCHMARK(commit)->Name("commit/config")->Arg(0)->UseRealTime();
BENCHMARK(commit)->Name("commit/status")->Arg(1)->UseRealTime();

void unchanged(benchmark::State& state) {
  const Files files;
  StateDb db = files.open(sqlite::Role::owner);
  fill(db, tableOf(state), 500);
  const Transaction same = Transaction().put(tableOf(state), "vm7", document(7));
  for ([[maybe_unused]] auto _ : state) db.commit(same);
}
BENCHMARK(unchanged)->Name("commit/unchanged")->Arg(0)->UseRealTime();

// From the return of a client's commit until a watcher on another thread, which sleeps until it is
// told, has the change: below 0 when it had it before, for it is told within the commit. The
// counters are of single commits, also from their begin on.
void watch(benchmark::State& state) {
  const Files files;
  StateDb db = files.open(sqlite::Role::owner);
  StateDb client = files.open(sqlite::Role::client);
  fill(client, tableOf(state), 500);
  std::atomic<int64_t> seen = 0;
  std::atomic<Clock::time_point> seenAt = Clock::now();
  std::atomic<bool> ready = false;
  std::atomic<bool> ended = false;
  std::thread watcher([&] {
    Store& store = db.store(tableOf(state));
    const int wakeUp = store.wakeUp();
    Cursor cursor = store.snapshot({}).cursor;
    ready = true;
    while (!ended) {
      pollfd look{wakeUp, POLLIN, 0};
      poll(&look, 1, -1);
      const Changes changes = store.changes(cursor);
      cursor = changes.cursor;
      if (changes.changes.empty()) continue;
      seenAt = Clock::now();
      ++seen;
    }
    close(wakeUp);
  });
  while (!ready) std::this_thread::yield();
  std::vector<double> fromReturn;
  std::vector<double> fromBegin;
  int64_t n = 0;
  const auto put = [&] {
    ++n;
    client.commit(Transaction().put(tableOf(state), rt::String("vm" + std::to_string(n % 500)),
                                    document(n + 1000)));
  };
  for ([[maybe_unused]] auto _ : state) {
    const auto begun = Clock::now();
    put();
    const auto committed = Clock::now();
    while (seen < n) std::this_thread::yield();
    const std::chrono::duration<double> took = seenAt.load() - committed;
    state.SetIterationTime(std::max(took.count(), 0.0));
    fromReturn.push_back(took.count() * 1e6);
    fromBegin.push_back(std::chrono::duration<double>(seenAt.load() - begun).count() * 1e6);
  }
  ended = true;
  put();
  watcher.join();
  const auto percentile = [](std::vector<double>& times, size_t percent) {
    std::sort(times.begin(), times.end());
    return times[times.size() * percent / 100];
  };
  state.counters["p50_us"] = percentile(fromReturn, 50);
  state.counters["p99_us"] = percentile(fromReturn, 99);
  state.counters["begin_p50_us"] = percentile(fromBegin, 50);
  state.counters["begin_p99_us"] = percentile(fromBegin, 99);
}
BENCHMARK(watch)->Name("watch/config")->Arg(0)->UseManualTime()->Iterations(1000);
BENCHMARK(watch)->Name("watch/status")->Arg(1)->UseManualTime()->Iterations(1000);

void snapshot(benchmark::State& state) {
  const Files files;
  StateDb db = files.open(sqlite::Role::owner);
  fill(db, "vmConfig", state.range(0));
  for ([[maybe_unused]] auto _ : state) benchmark::DoNotOptimize(db.snapshot({"vmConfig"}));
}
BENCHMARK(snapshot)->Name("snapshot")->Arg(10)->Arg(10'000)->Unit(benchmark::kMicrosecond);

// As the command line lists machines while the daemon runs: both halves opened, read and closed.
void list(benchmark::State& state) {
  const Files files;
  StateDb daemon = files.open(sqlite::Role::owner);
  for (const char* table : {"vmConfig", "vmStatus"}) fill(daemon, table, state.range(0));
  for ([[maybe_unused]] auto _ : state) {
    StateDb client = files.open(sqlite::Role::client);
    benchmark::DoNotOptimize(client.snapshot({"vmConfig"}));
    benchmark::DoNotOptimize(client.snapshot({"vmStatus", "vmProblem"}));
  }
}
BENCHMARK(list)->Name("list")->Arg(10)->Unit(benchmark::kMicrosecond);

void changesOfOne(benchmark::State& state) {
  const Files files;
  StateDb db = files.open(sqlite::Role::owner);
  fill(db, "vmConfig", state.range(0));
  const Cursor before = db.snapshot({"vmConfig"}).cursor;
  db.commit(Transaction().put("vmConfig", "vm1", "{}"));
  for ([[maybe_unused]] auto _ : state)
    benchmark::DoNotOptimize(db.store(Half::config).changes(before));
}
BENCHMARK(changesOfOne)->Name("changes/one_of")->Arg(10)->Arg(10'000);

}  // namespace
}  // namespace statedb
