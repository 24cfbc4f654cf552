// The daemon: what it must have to itself, and its loop.
#pragma once

#include <functional>
#include <memory>

#include "host/Options.h"
#include "host/base/TraceLog.h"
#include "host/guests/VmStart.h"

namespace host {

// Owned by main(), for the length of its run. Throws Exception, or statedb::Error, when something
// that it needs is not there.
class Daemon {
 public:
  // Takes the locks, opens the database and starts the agent on an empty configuration.
  // `traces` and `start` outlive it.
  Daemon(const Options& options, TraceLog& traces, AroundStart& start);
  Daemon(const Daemon&) = delete;
  ~Daemon();

  // Hands the configuration over and keeps to it, until SIGTERM or SIGINT. Guests stay. `tellReady`
  // is called when it begins, and says whether all have heard it; else it is called again.
  void run(const std::function<bool()>& tellReady);

 private:
  class House;
  const std::unique_ptr<House> house_;
};

}  // namespace host
