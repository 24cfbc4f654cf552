#include "host/DaemonParts.h"

#include <unistd.h>

#include "host/StatusOfBefore.h"
#include "host/base/Times.h"
#include "model/Tables.h"
#include "runtime/base/FirstException.h"
#include "statedb/EntityDocument.h"

namespace host {

namespace {

// What is shown of all there is, and in which tables.
std::vector<StatusFeed::Source> statusOf(const LoadedAgent& agent, const HostStatus::Ptr& host) {
  return {{agent.status, model::table::vmStatus},
          {host, model::table::daemon},
          {host, model::table::vmProcess},
          {host, model::table::vmProblem},
          {host, model::table::vmCard},
          {host, model::table::interfaceStatus},
          {host, model::table::fdb}};
}

// Of each file on disk, when the daemon ends.
constexpr rt::Seconds diskPatience{2};

}  // namespace

DaemonParts::DaemonParts(const Options& options, statedb::StateDb& db, Shims& shims,
                         AroundStart& start, TraceLog& traces, rt::ActivityManager& manager)
    : DaemonParts(options, db, shims, start, traces, manager, statusOfBefore(db)) {}

DaemonParts::DaemonParts(const Options& options, statedb::StateDb& db, Shims& shims,
                         AroundStart& start, TraceLog& traces, rt::ActivityManager& manager,
                         const StatusOfBefore& before)
    : signals_(rt::make<Signals>([this] { stopped_ = true; })),
      problems_(hostStatus_, timeOfDay),
      statusFeed_(rt::make<StatusFeed>(db, statusOf(agent_, hostStatus_),
                                       std::vector<rt::String>{model::table::event},
                                       manager.clock())),
      kept_(options.stateDir),
      historyOnDisk_(options.keepsHistory ? std::make_unique<HistoryOnDisk>(kept_, manager.clock())
                                          : nullptr),
      ends_(kept_, manager.clock()),
      history_(eventSink()),
      chronicle_(takenUp(before), timeOfDayInMilliseconds),
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
               .history = history_,
               .chronicle = chronicle_,
               .ends = ends_,
               .configuration = configuration_,
               .own = own_,
               .waiting = waiting_}),
      heartbeat_(rt::make<Heartbeat>(ground_.clock)),
      network_(ground_, before,
               [this](const rt::String& vm, const CardTrouble& card) { guests_.cardIs(vm, card); }),
      guests_(ground_, before, network_.cards()),
      configFeed_(rt::make<ConfigFeed>(
          db,
          std::vector<rt::String>{model::table::interface, model::table::vmImage,
                                  model::table::vmLimits, model::table::vmPolicy,
                                  model::table::vmIntent, model::table::vmConfig},
          [this](const auto& changes, const auto& reached) { handleConfig(changes, reached); },
          ground_.clock)) {
  beginHistory(db, before);
  guests_.begin();
  network_.begin();
}

History::Sink DaemonParts::eventSink() {
  return {.rowIs =
              [this](const rt::String& key, const rt::String& doc) {
                statusFeed_->rowIs(model::table::event, key, doc);
                if (historyOnDisk_) historyOnDisk_->rowIs(key, doc);
              },
          .rowDel =
              [this](const rt::String& key) {
                statusFeed_->rowDel(model::table::event, key);
                if (historyOnDisk_) historyOnDisk_->rowDel(key);
              },
          .droppedIs =
              [this](uint64_t count, uint64_t seq) {
                daemonStatus_->eventsDroppedIs(count);
                daemonStatus_->eventsLostToIs(seq);
                if (historyOnDisk_) historyOnDisk_->droppedIs(count, seq);
              }};
}

// Before anything is told. What is not kept on disk counts in this store only.
History& DaemonParts::takenUp(const StatusOfBefore& before) {
  EventsBefore events = before.events;
  if (historyOnDisk_)
    events = historyOnDisk_->takeUp(std::move(events));
  else
    events.numbers = before.store;
  daemonStatus_->eventsStoreIs(events.numbers);
  history_.rowsAre(events.rows, events.dropped, events.lostTo);
  return history_;
}

void DaemonParts::tellEnd() {
  chronicle_.daemonEnds();
  ends_.finish(diskPatience);
  if (historyOnDisk_) historyOnDisk_->finish(diskPatience);
}

// What stood before is taken up before anything is told, and what was changed while no daemon ran
// is told then.
void DaemonParts::beginHistory(statedb::StateDb& db, const StatusOfBefore& before) {
  hasBegun_ = true;
  daemonStatus_->pidIs(getpid());
  daemonStatus_->versionIs(version());
  daemonStatus_->startedAtIs(timeOfDay());
  chronicle_.daemonBegins(version(), getpid());
  for (const rt::String& vm : ends_.news()) history_.add(eventOf(vm, *ends_.book().end(vm), 0));
  if (before.configuration.storeId.empty()) return;
  const auto missed = db.store(statedb::Half::config).changes(before.configuration);
  if (missed.resume == statedb::Resume::resumed) chronicle_.configWasChanged(missed.changes);
}

// Who waits for what he wrote must not take what was so before for what came of it.
void DaemonParts::showConfig() {
  const auto shown = shownConfig_.shown(guests_.turnsHad());
  if (!shown) return;
  daemonStatus_->configStoreIs(shown->storeId);
  daemonStatus_->configSequenceIs(shown->sequence);
  daemonStatus_->configHistoryIs(shown->history);
}

bool DaemonParts::pass() {
  const bool more = guests_.pass();
  showConfig();
  return network_.pass() || more;
}

void DaemonParts::handleConfig(const std::vector<statedb::Change>& changes,
                               const statedb::Cursor& reached) {
  if (hasBegun_) chronicle_.configChanges(changes, configuration_.rows(), own_);
  tellWhoAsked(changes);
  rt::FirstException failures;
  failures.run([&] { configuration_.take(changes, reached, *this); });
  shownConfig_.taken(reached, guests_.turnsAsked());
  if (hasBegun_) chronicle_.configChanged(changes, configuration_.rows(), own_);
  failures.rethrow();
}

// A row says more than what a VM's power is to be: who changed only the rest asked for none of it.
void DaemonParts::tellWhoAsked(const std::vector<statedb::Change>& changes) {
  for (const statedb::Change& change : changes) {
    const bool isIntent = change.record.table == model::table::vmIntent;
    if (!isIntent && change.record.table != model::table::vmConfig) continue;
    const VmRow* const row = configuration_.rows().row(change.record.key);
    const bool wasEnabled = row && row->valid && row->valid->enabled();
    const auto now = rt::make<Vm::VmConfig>(change.record.key);
    if (!isIntent && change.op == statedb::Op::put) statedb::fillKnown(*now, change.record.doc);
    if (isIntent || wasEnabled != now->enabled())
      guests_.askedBy(change.record.key, change.author.who);
  }
}

void DaemonParts::interfaceIs(const rt::String& id, const std::optional<rt::String>& doc) {
  network_.interfaceIs(id, doc);
}

void DaemonParts::restartIs(const rt::String& vm, uint64_t number, bool ifEnded) {
  guests_.restartIs(vm, number, ifEnded);
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

void DaemonParts::ownRowIs(const rt::String& table, const rt::String& vm,
                           const std::optional<statedb::Record>& row) {
  own_.rowIs(table, vm, row);
  guests_.ownRowIs(vm);
  if (table == model::table::vmLimits) network_.limitsAre();
  if (table == model::table::vmPolicy) network_.policyIs(vm);
}

void DaemonParts::rowIs(const rt::String& vm, const VmRow* row) {
  guests_.rowIs(vm, row);
  network_.rowIs(vm);
}

void DaemonParts::givenUpIs(const rt::String& vm, const rt::String& guest) {
  guests_.givenUpIs(vm, guest);
}

}  // namespace host
