#include "host/DaemonParts.h"

#include "host/StatusOfBefore.h"
#include "host/base/Times.h"
#include "model/Tables.h"

namespace host {

namespace {

// What is shown of all there is, and in which tables.
std::vector<StatusFeed::Source> statusOf(const LoadedAgent& agent, const HostStatus::Ptr& host) {
  return {{agent.status, model::table::vmStatus}, {host, model::table::daemon},
          {host, model::table::vmProcess},        {host, model::table::vmProblem},
          {host, model::table::interfaceStatus},  {host, model::table::fdb}};
}

}  // namespace

DaemonParts::DaemonParts(const Options& options, statedb::StateDb& db, Shims& shims,
                         AroundStart& start, TraceLog& traces, rt::ActivityManager& manager)
    : DaemonParts(options, db, shims, start, traces, manager, statusOfBefore(db)) {}

DaemonParts::DaemonParts(const Options& options, statedb::StateDb& db, Shims& shims,
                         AroundStart& start, TraceLog& traces, rt::ActivityManager& manager,
                         const StatusOfBefore& before)
    : signals_(rt::make<Signals>([this] { stopped_ = true; })),
      problems_(hostStatus_, timeOfDay),
      configuration_(model::machineLimits(), before.configuration),
      ground_({.options = options,
               .db = db,
               .shims = shims,
               .start = start,
               .traces = traces,
               .clock = manager.clock(),
               .agent = agent_,
               .hostStatus = hostStatus_,
               .problems = problems_,
               .configuration = configuration_,
               .limits = limits_,
               .waiting = waiting_}),
      heartbeat_(rt::make<Heartbeat>(ground_.clock)),
      statusFeed_(rt::make<StatusFeed>(db, statusOf(agent_, hostStatus_), ground_.clock)),
      network_(ground_),
      guests_(ground_, before, network_.cards()),
      configFeed_(rt::make<ConfigFeed>(
          db,
          std::vector<rt::String>{model::table::interface, model::table::vmImage,
                                  model::table::vmLimits, model::table::vmIntent,
                                  model::table::vmConfig},
          [this](const auto& changes, const auto& reached) { handleConfig(changes, reached); },
          ground_.clock)) {
  guests_.begin();
  network_.begin();
}

bool DaemonParts::pass() {
  const bool more = guests_.pass();
  return network_.pass() || more;
}

void DaemonParts::handleConfig(const std::vector<statedb::Change>& changes,
                               const statedb::Cursor& reached) {
  daemonStatus_->configStoreIs(reached.storeId);
  daemonStatus_->configSequenceIs(reached.sequence);
  daemonStatus_->configHistoryIs(reached.history);
  configuration_.take(changes, reached, *this);
}

void DaemonParts::interfaceIs(const rt::String& id, const std::optional<rt::String>& doc) {
  network_.interfaceIs(id, doc);
}

void DaemonParts::restartIs(const rt::String& vm, uint64_t number) {
  guests_.restartIs(vm, number);
}

void DaemonParts::stopIs(const rt::String& vm, uint64_t number, int32_t within) {
  guests_.stopIs(vm, number, within);
}

void DaemonParts::restartIsPast(const rt::String& vm, uint64_t number) {
  guests_.restartIsPast(vm, number);
}

void DaemonParts::imageIs(const rt::String& vm, const std::optional<statedb::Record>& row) {
  guests_.imageIs(vm, row);
}

void DaemonParts::imageIsLost(const rt::String& vm) { guests_.imageIsLost(vm); }

void DaemonParts::limitsAre(const rt::String& vm, const std::optional<statedb::Record>& row) {
  limits_.rowIs(vm, row);
  guests_.limitsAre(vm);
  network_.limitsAre();
}

void DaemonParts::rowIs(const rt::String& vm, const VmRow* row) { guests_.rowIs(vm, row); }

void DaemonParts::givenUpIs(const rt::String& vm, const rt::String& guest) {
  guests_.givenUpIs(vm, guest);
}

}  // namespace host
