#include "host/Daemon.h"

#include <mutex>

#include "host/DaemonParts.h"
#include "host/base/Report.h"
#include "host/database/Locks.h"
#include "host/guests/DiskShims.h"
#include "host/service/Directories.h"
#include "host/service/PrivateDev.h"
#include "host/service/Supervision.h"
#include "model/Tables.h"
#include "runtime/loop/ActivityManager.h"
#include "statedb/sqlite/SqliteDb.h"

namespace host {

namespace {

// Until those are tried again who did not read what they are told.
constexpr rt::Seconds readersPause{0.1};

// Also makes the directory that they share; `shim` is "off" where guests have none.
std::unique_ptr<Shims> shimsOf(const Options& options) {
  if (options.shim == "off") return std::make_unique<NoShims>();
  makeGuestsDirectory(options.runDir);
  return std::make_unique<DiskShims>(options.runDir, options.stopTimeout);
}

// Makes the directories, and takes the locks of those that a daemon has for itself.
Locks locksOf(const Options& options) {
  const auto operators = groupOf("vmagent");
  makeSharedDirectory(options.stateDir, operators);
  makeSharedDirectory(options.runDir, operators);
  return Locks(options.runDir);
}

}  // namespace

// What the parts stand on: it can be had without a handler. The order of the members is that of
// their life.
class Daemon::House {
 public:
  House(const Options& options, TraceLog& traces, AroundStart& start);
  void run(const std::function<bool()>& tellReady);

 private:
  // Ends the parts as they lived.
  struct UnderLock {
    rt::ActivityManager& manager;
    void operator()(DaemonParts* parts) const {
      const std::lock_guard held(manager.lock());
      delete parts;
    }
  };

  std::unique_ptr<DaemonParts, UnderLock> parts(AroundStart& start);
  void turn(rt::Seconds atMost);

  const Options options_;
  TraceLog& traces_;
  Locks locks_;
  const std::unique_ptr<Shims> shims_;
  const std::unique_ptr<TapNodeMaker> tapNodes_;  // null: the machine's own are right
  statedb::StateDb db_;
  rt::ActivityManager manager_;
  const std::unique_ptr<DaemonParts, UnderLock> parts_;
};

Daemon::House::House(const Options& options, TraceLog& traces, AroundStart& start)
    : options_(options),
      traces_(traces),
      locks_(locksOf(options)),
      shims_(shimsOf(options)),
      tapNodes_(needsPrivateDev() ? std::make_unique<TapNodeMaker>() : nullptr),
      db_(statedb::sqlite::openDb({.stateDir = options.stateDir,
                                   .runDir = options.runDir,
                                   .isStatus = model::isStatus,
                                   .role = statedb::sqlite::Role::owner,
                                   .author = {"", "vmagentd"}})),
      parts_(parts(start)) {}

std::unique_ptr<DaemonParts, Daemon::House::UnderLock> Daemon::House::parts(AroundStart& start) {
  // After the database, which says better what is wrong with its directory.
  locks_.take(options_.stateDir);
  const std::lock_guard held(manager_.lock());
  return {new DaemonParts(options_, db_, *shims_, start, traces_, manager_), UnderLock{manager_}};
}

void Daemon::House::turn(rt::Seconds atMost) {
  const rt::String failure = failureOf([&] { manager_.turn(atMost); });
  if (!failure.empty()) report("a handler failed: " + failure);
}

void Daemon::House::run(const std::function<bool()>& tellReady) {
  {
    const std::lock_guard held(manager_.lock());
    parts_->showStatus();
  }
  bool isHeard = tellReady();
  while (!parts_->isStopped()) {
    bool more = false;
    bool allIsTold = false;
    {
      const std::lock_guard held(manager_.lock());
      more = parts_->pass();
      parts_->showStatus();
      isHeard = isHeard || tellReady();
      allIsTold = traces_.pass() && isHeard;
    }
    turn(more ? rt::Seconds(0) : allIsTold ? rt::Seconds::infinity() : readersPause);
  }
  notifyStopping();
  const std::lock_guard held(manager_.lock());
  parts_->tellEnd();
  parts_->showStatus();
}

Daemon::Daemon(const Options& options, TraceLog& traces, AroundStart& start)
    : house_(std::make_unique<House>(options, traces, start)) {}

Daemon::~Daemon() = default;

void Daemon::run(const std::function<bool()>& tellReady) { house_->run(tellReady); }

}  // namespace host
