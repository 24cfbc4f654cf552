// Machines that remember what the loop tells them, and act on it as a test says.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"
#include "runtime/loop/FileDescriptor.h"

namespace rt::fakes {

// What was told to whom, in order; outlives those that write to it.
using Log = std::vector<std::string>;

// Writes its name when its clock reactor wakes it, then calls `onClock`.
class Sleeper final : public StateMachineOf<Sleeper> {
 public:
  Sleeper(std::string name, Log& log, rt::Ptr<Clock> clock)
      : name_(std::move(name)), log_(log), wakeUp_(*this, std::move(clock)) {}

  std::function<void()> onClock;

  const WakeUp& wakeUp() const { return wakeUp_; }
  void timeMinIs(Seconds time) { wakeUp_.timeMinIs(time); }
  void timeMinIs(double time) { wakeUp_.timeMinIs(Seconds(time)); }
  void clockIs(rt::Ptr<Clock> clock) { wakeUp_.notifierIs(std::move(clock)); }

  static constexpr std::string_view typeName = "rt::fakes::Sleeper";
  using Attributes = AttributeTable<Attribute<"initialized", &Sleeper::initialized>>;

 private:
  void handleClock() {
    log_.push_back(name_);
    if (onClock) onClock();
  }

  const std::string name_;
  Log& log_;
  ClockReactor<Sleeper, &Sleeper::handleClock> wakeUp_;
};

// Has a descriptor, watched for nothing at first. Writes "NAME readable" (writable, exception) when
// it is told so, then calls `onReadable` (…). What is there to be read stays there.
class Listener final : public StateMachineOf<Listener> {
 public:
  Listener(const std::string& name, Log& log)
      : name_(name), log_(log), descriptor_(*this, make<FileDescriptor>(String(name))) {}

  std::function<void()> onReadable;
  std::function<void()> onWritable;
  std::function<void()> onException;

  FileDescriptor& descriptor() const { return *descriptor_.notifier(); }

  static constexpr std::string_view typeName = "rt::fakes::Listener";
  using Attributes = AttributeTable<Attribute<"initialized", &Listener::initialized>>;

 private:
  void handleReadable() { note(" readable", onReadable); }
  void handleWritable() { note(" writable", onWritable); }
  void handleException() { note(" exception", onException); }
  void note(const char* what, const std::function<void()>& act) {
    log_.push_back(name_ + what);
    if (act) act();
  }

  const std::string name_;
  Log& log_;
  Reactor<Listener, FileDescriptor, On<&FileDescriptor::readable, &Listener::handleReadable>,
          On<&FileDescriptor::writable, &Listener::handleWritable>,
          On<&FileDescriptor::exception, &Listener::handleException>>
      descriptor_;
};

}  // namespace rt::fakes
