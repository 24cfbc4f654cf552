// The daemon's parts, put together.
#pragma once

#include "host/Chronicle.h"
#include "host/Ground.h"
#include "host/GuestSide.h"
#include "host/HistoryOnDisk.h"
#include "host/NetworkSide.h"
#include "host/StatusOfBefore.h"
#include "host/database/ConfigFeed.h"
#include "host/database/ShownConfig.h"
#include "host/database/StatusFeed.h"
#include "host/service/Heartbeat.h"
#include "host/service/Signals.h"
#include "model/Tables.h"
#include "runtime/loop/ActivityManager.h"

namespace host {

// All that has handlers, from the agent to the configuration that is handed to it. The order of the
// members is that of their life: each stands on those above it, and goes before them. To be made,
// used and ended under the activity lock.
class DaemonParts : private ConfigurationTaker {
 public:
  // What is named outlives it. Throws Exception, or statedb::Error, when something that it needs is
  // not there.
  DaemonParts(const Options& options, statedb::StateDb& db, Shims& shims, AroundStart& start,
              TraceLog& traces, rt::ActivityManager& manager);
  DaemonParts(const DaemonParts&) = delete;

  // Once a pass of the loop; returns whether there is more to do at once.
  bool pass();
  // Writes what there is of status to the database.
  void showStatus() { statusFeed_->pass(); }
  // The daemon ends in order. Takes some seconds at most, where the disk stands still.
  void tellEnd();
  bool isStopped() const { return stopped_; }

 private:
  DaemonParts(const Options& options, statedb::StateDb& db, Shims& shims, AroundStart& start,
              TraceLog& traces, rt::ActivityManager& manager, const StatusOfBefore& before);

  void interfaceIs(const rt::String& id, const std::optional<rt::String>& doc) override;
  void restartIs(const rt::String& vm, uint64_t number, bool ifEnded) override;
  void stopIs(const rt::String& vm, uint64_t number, int32_t within) override;
  void restartIsPast(const rt::String& vm, uint64_t number) override;
  void imageIs(const rt::String& vm, const std::optional<statedb::Record>& row) override;
  void imageIsLost(const rt::String& vm) override;
  void ownRowIs(const rt::String& table, const rt::String& vm,
                const std::optional<statedb::Record>& row) override;
  void rowIs(const rt::String& vm, const VmRow* row) override;
  void givenUpIs(const rt::String& vm, const rt::String& guest) override;
  void handleConfig(const std::vector<statedb::Change>& changes, const statedb::Cursor& reached);

  void showConfig();
  History::Sink eventSink();
  History& takenUp(const StatusOfBefore& before);
  void beginHistory(statedb::StateDb& db, const StatusOfBefore& before);
  void tellWhoAsked(const std::vector<statedb::Change>& changes);

  bool stopped_ = false;
  bool hasBegun_ = false;
  const Signals::Ptr signals_;
  const LoadedAgent agent_;
  const HostStatus::Ptr hostStatus_ = rt::make<HostStatus>();
  const model::DaemonStatus::Ptr daemonStatus_ = hostStatus_->daemonIs(model::daemonKey);
  Problems problems_;
  const StatusFeed::Ptr statusFeed_;
  const KeptDirectory kept_;
  const std::unique_ptr<HistoryOnDisk> historyOnDisk_;  // null: it is not kept
  EndsOnDisk ends_;
  History history_;
  Chronicle chronicle_;
  Configuration configuration_;
  ShownConfig shownConfig_;
  OwnRows own_{model::machineLimits()};
  WaitingGuests waiting_;
  const Ground ground_;
  const Heartbeat::Ptr heartbeat_;
  NetworkSide network_;
  GuestSide guests_;
  const ConfigFeed::Ptr configFeed_;
};

}  // namespace host
