// Where traces go, and what they say of a VM's change.
#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "host/base/Repeats.h"

namespace host {

// The way that messages take.
struct TraceRoad {
  // A message of the VM as it is sent; an empty name: of none.
  std::function<std::string(const rt::TraceRecord&, const rt::String& vm)> text;
  // Must not wait; false: there was no room for it now.
  std::function<bool(std::string_view)> send;
};

// The process's trace sink while it lives. Owned by main. Level 1, which is what failed, is always
// heard; it is passed on if it is among the levels asked for.
//
// Of levels 1 and 2, which are on for as long as a daemon runs, what comes again is counted, as
// Repeats says; who asks for more gets every message.
class TraceLog final : public rt::TraceSink {
 public:
  using Now = std::function<rt::Seconds()>;  // on any clock that goes forward only
  // So much waits for a road without room. What comes then is lost, and how many that were is told.
  static constexpr size_t mostWaiting = 256 * 1024;

  TraceLog(rt::TraceLevels levels, TraceRoad road, Now now = steadyTime);
  ~TraceLog() override;

  void write(const rt::TraceRecord& record) override;
  // Sends what waits, or was held back and is due. To be called now and then; returns whether all
  // is sent. (What is not due yet may stay.)
  bool pass();

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
  static rt::Seconds steadyTime();
  void put(rt::TraceRecord record, const rt::String& vm, const Repeats::Count& count);
  void send(std::string text);
  bool sendWaiting();

  const rt::TraceLevels levels_;
  const TraceRoad road_;
  const Now now_;
  mutable std::mutex mutex_;  // other threads trace, too
  Repeats repeats_;
  std::deque<std::string> waiting_;
  size_t waitingSize_ = 0;
  uint64_t lost_ = 0;       // for which there was no room
  rt::String vm_;           // whose change it is, if there is one
  std::thread::id thread_;  // that makes the change
  rt::String failure_;
};

// As a line, with the time of day.
std::string lineOf(const rt::TraceRecord& record, const rt::String& vm);

}  // namespace host
