// Configuration, as it comes from the database.
#pragma once

#include <functional>

#include "runtime/entity/Reactor.h"
#include "runtime/loop/Clock.h"
#include "runtime/loop/FileDescriptor.h"
#include "statedb/Follower.h"

namespace host {

// Hands each change of the configuration on, at once. While the database cannot be read, it tries
// again every second and reports why once; what was handed on stays in force.
class ConfigFeed final : public rt::StateMachineOf<ConfigFeed> {
 public:
  // The changes, and the moment that is reached with them.
  using Sink = std::function<void(const std::vector<statedb::Change>&, const statedb::Cursor&)>;

  // All there is was handed on when this returns; throws statedb::Error when it cannot be read.
  ConfigFeed(statedb::StateDb& db, std::vector<rt::String> tables, Sink sink, rt::Clock::Ptr clock);

  static constexpr rt::Seconds retryInterval{1};

  static constexpr std::string_view typeName = "host::ConfigFeed";
  using Attributes = rt::AttributeTable<rt::Attribute<"initialized", &ConfigFeed::initialized>>;

 private:
  void handleInitialized();
  void handleWakeUp();
  void handleClock();
  void listen();
  void look();
  std::vector<statedb::Change> read();
  void handOn(const std::vector<statedb::Change>& news) { sink_(news, *follower_.cursor()); }
  void wait(const statedb::Error& error);

  statedb::Follower follower_;
  const Sink sink_;
  rt::String trouble_;  // the last that was reported; empty when all is well
  bool reopen_ = false;

  rt::Reactor<ConfigFeed, rt::FileDescriptor,
              rt::On<&rt::FileDescriptor::readable, &ConfigFeed::handleWakeUp>>
      wakeUp_;
  rt::ClockReactor<ConfigFeed, &ConfigFeed::handleClock> clock_;
};

}  // namespace host
