#include "host/Daemon.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>
#include <string>

#include "host/Plugin.h"
#include "host/base/Report.h"
#include "host/database/ConfigFeed.h"
#include "host/database/Configuration.h"
#include "host/database/Locks.h"
#include "host/database/StatusFeed.h"
#include "host/guests/DiskShims.h"
#include "host/guests/EarlierGuests.h"
#include "host/guests/GuestMark.h"
#include "host/guests/ImageLooks.h"
#include "host/guests/Images.h"
#include "host/guests/Prompter.h"
#include "host/guests/Survivors.h"
#include "host/guests/VmSupervisor.h"
#include "host/network/BridgeFdb.h"
#include "host/network/CardHealer.h"
#include "host/network/FdbStatus.h"
#include "host/network/Janitor.h"
#include "host/network/KernelLinks.h"
#include "host/service/Directories.h"
#include "host/service/Heartbeat.h"
#include "host/service/PrivateDev.h"
#include "host/service/Signals.h"
#include "host/service/Supervision.h"
#include "model/Tables.h"
#include "netlink/Macvtap.h"
#include "runtime/loop/ActivityManager.h"
#include "statedb/EntityDocument.h"
#include "statedb/sqlite/SqliteDb.h"

namespace host {

namespace {

// Until those are tried again who did not read what they are told.
constexpr rt::Seconds readersPause{0.1};

uint64_t timeOfDay() {
  using std::chrono::system_clock;
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::seconds>(system_clock::now().time_since_epoch())
          .count());
}

// The seven records that the agent works on.
struct AgentRecords {
  Vm::Config::Ptr config = rt::make<Vm::Config>();
  Vm::Status::Ptr status = rt::make<Vm::Status>();
  Interface::AllIntfStatusDir::Ptr allIntfStatusDir = rt::make<Interface::AllIntfStatusDir>();
  Interface::AllIntfStatusLocalDir::Ptr localDir = rt::make<Interface::AllIntfStatusLocalDir>();
  Interface::DeviceIntfStatusDir::Ptr present = rt::make<Interface::DeviceIntfStatusDir>();
  KernelNetInfo::Status::Ptr kernel = rt::make<KernelNetInfo::Status>();
  Bridging::Input::Config::Ptr bridging = rt::make<Bridging::Input::Config>();
};

// `shim` is "off" where guests have none.
std::unique_ptr<Shims> shimsOf(const Options& options) {
  if (options.shim == "off") return std::make_unique<NoShims>();
  return std::make_unique<DiskShims>(options.runDir, options.stopTimeout);
}

// What an earlier daemon put into that bridge. Which of the two forms it had is not known any more;
// what is not there is removed already.
std::set<BridgeEntry> bridgeEntriesOfBefore(statedb::StateDb& db, const rt::String& bridge) {
  std::set<BridgeEntry> entries;
  for (const auto& row : db.snapshot({model::table::fdb}).records) {
    const auto record = rt::make<model::FdbEntry>(row.key);
    const auto entry = bridgeEntryFromKey(row.key);
    if (!entry || !statedb::fill(*record, row.doc).empty() || record->bridge() != bridge) continue;
    entries.insert(*entry);
    entries.insert({entry->mac, 0});
  }
  return entries;
}

}  // namespace

class Daemon::Parts {
 public:
  Parts(const Options& options, TraceLog& traces, AroundStart& start);
  ~Parts();
  void run(const std::function<bool()>& tellReady);

 private:
  void readStatusOfBefore();
  void startAgent();
  void startFeeds();
  void startImages();
  void endOrphans();
  void handleEnd(const rt::String& vm) const;
  void removeSocketsOfBefore() const;
  std::set<rt::EthAddr> ourAddresses() const;
  bool isRemoved(const GuestProcess& guest);
  void handleUnknown(const rt::String& vm, const std::vector<GuestProcess>& guests);
  void handleLeaving(const std::vector<GuestProcess>& guests);
  void handleConfig(const std::vector<statedb::Change>& changes, const statedb::Cursor& reached);
  void turn(rt::Seconds atMost);

  const Options options_;
  AroundStart& start_;
  const std::unique_ptr<Shims> shims_;
  const KernelGuestProcesses processes_;
  WaitingGuests waiting_;
  Locks locks_;
  TraceLog& traces_;
  const std::unique_ptr<TapNodeMaker> tapNodes_;
  statedb::StateDb db_;
  rt::ActivityManager manager_;
  const AgentRecords records_;
  const HostStatus::Ptr hostStatus_ = rt::make<HostStatus>();
  const model::DaemonStatus::Ptr daemonStatus_ = hostStatus_->daemonIs(model::daemonKey);
  Problems problems_{hostStatus_, timeOfDay};
  std::map<rt::String, uint64_t> restartsDone_;
  statedb::Cursor before_;  // how far the daemon before had come with the configuration
  bool stopped_ = false;

  const Vm::Root::Ptr root_;
  rt::Ptr<Signals> signals_;
  rt::Ptr<Heartbeat> heartbeat_;
  StatusFeed::Ptr statusFeed_;
  FdbStatus::Ptr fdbStatus_;
  BridgeFdb::Ptr bridgeFdb_;  // null: no bridge was named
  std::unique_ptr<Janitor> janitor_;
  InterfaceNames::Ptr interfaces_;
  CardHealer::Ptr cardHealer_;
  KernelLinks::Ptr kernelLinks_;
  ImageRows imageRows_{db_};
  ImageLooks::Ptr imageLooks_;
  std::unique_ptr<Images> images_;
  VmSupervisor::Ptr supervisor_;
  Prompter::Ptr prompter_;
  Survivors::Ptr survivors_;
  std::unique_ptr<EarlierGuests> earlierGuests_;
  std::unique_ptr<Configuration> configuration_;
  rt::Ptr<const rt::Entity> guestProblems_;  // followed; null: there are no shims
  ConfigFeed::Ptr configFeed_;
};

Daemon::Parts::Parts(const Options& options, TraceLog& traces, AroundStart& start)
    : options_(options),
      start_(start),
      shims_(shimsOf(options)),
      locks_(options.runDir),
      traces_(traces),
      tapNodes_(needsPrivateDev() ? std::make_unique<TapNodeMaker>() : nullptr),
      db_(statedb::sqlite::openDb({.stateDir = options.stateDir,
                                   .runDir = options.runDir,
                                   .isStatus = model::isStatus,
                                   .role = statedb::sqlite::Role::owner})),
      root_(loadAgent(agentModule)) {
  // After the database, which says better what is wrong with its directory.
  locks_.take(options.stateDir);
  const std::lock_guard held(manager_.lock());
  signals_ = rt::make<Signals>([this] { stopped_ = true; });
  readStatusOfBefore();
  startAgent();
  startFeeds();
}

// The machines go before what they work on; the agent goes last, and no guest with it.
Daemon::Parts::~Parts() {
  const std::lock_guard held(manager_.lock());
  configFeed_ = nullptr;
  guestProblems_ = nullptr;
  survivors_ = nullptr;
  prompter_ = nullptr;
  supervisor_ = nullptr;
  imageLooks_ = nullptr;
  kernelLinks_ = nullptr;
  root_->agentDel();
}

// Which restarts were carried out, and of which configuration, is all of an earlier daemon's status
// that counts.
void Daemon::Parts::readStatusOfBefore() {
  const auto before = rt::make<model::DaemonStatus>(model::daemonKey);
  if (const auto record = db_.record(model::table::daemon, before->name()))
    if (statedb::fill(*before, record->doc).empty())
      before_ = {before->configStore(), before->configSequence(), before->configHistory()};
  for (const auto& record : db_.snapshot({model::table::vmProcess}).records) {
    const auto process = rt::make<model::VmProcess>(record.key);
    if (statedb::fill(*process, record.doc).empty())
      restartsDone_[record.key] = process->restarts();
  }
}

void Daemon::Parts::startAgent() {
  const AgentRecords& all = records_;
  root_->agentIs(all.config, all.status, all.allIntfStatusDir, all.localDir, all.present,
                 all.kernel, all.bridging);
}

void Daemon::Parts::startFeeds() {
  const rt::Clock::Ptr& clock = manager_.clock();
  heartbeat_ = rt::make<Heartbeat>(clock);
  statusFeed_ = rt::make<StatusFeed>(
      db_,
      std::vector<StatusFeed::Source>{{records_.status, model::table::vmStatus},
                                      {hostStatus_, model::table::daemon},
                                      {hostStatus_, model::table::vmProcess},
                                      {hostStatus_, model::table::vmProblem},
                                      {hostStatus_, model::table::interfaceStatus},
                                      {hostStatus_, model::table::fdb}},
      clock);
  fdbStatus_ = rt::make<FdbStatus>(records_.bridging, hostStatus_);
  if (!options_.bridge.empty())
    bridgeFdb_ = rt::make<BridgeFdb>(options_.bridge, kernelBridges(), hostStatus_, records_.kernel,
                                     bridgeEntriesOfBefore(db_, options_.bridge), clock);
  janitor_ = std::make_unique<Janitor>(Janitor::Tools{
      .agent = root_,
      .ourAddresses = [this] { return ourAddresses(); },
      .deviceOf =
          [this](const rt::String& interface) {
            const auto device = records_.present->intfStatusAndDeviceName(rt::IntfId(interface));
            return device ? device->ifIndex : 0;
          },
      .taps = taps,
      .remove = [](const rt::String& tap) { netlink::deviceRemove(tap.charPtr()); }});
  interfaces_ =
      rt::make<InterfaceNames>(records_.localDir, hostStatus_, records_.present,
                               [this](const rt::String& id) { janitor_->handleWithdrawal(id); });
  cardHealer_ = rt::make<CardHealer>(CardHealer::Tools{.agent = root_,
                                                       .present = records_.present,
                                                       .interfaces = interfaces_,
                                                       .janitor = *janitor_,
                                                       .problems = problems_,
                                                       .traces = traces_,
                                                       .taps = taps},
                                     clock);
  startImages();
  supervisor_ = rt::make<VmSupervisor>(KeeperTools{.agent = root_,
                                                   .config = records_.config,
                                                   .status = records_.status,
                                                   .hostStatus = hostStatus_,
                                                   .problems = problems_,
                                                   .traces = traces_,
                                                   .cards = *cardHealer_,
                                                   .shims = *shims_,
                                                   .images = *images_,
                                                   .start = start_,
                                                   .processes = processes_,
                                                   .waiting = waiting_,
                                                   .stopPatience = stopPatience(options_)},
                                       restartsDone_, clock);
  prompter_ = rt::make<Prompter>(root_, records_.status, clock);
  earlierGuests_ = std::make_unique<EarlierGuests>(
      *shims_, waiting_,
      EarlierGuests::Tools{
          .guests = [this] { return processes_.all(); },
          .row = [this](const rt::String& vm) { return configuration_->rows().row(vm); },
          .isRemoved = [this](const GuestProcess& guest) { return isRemoved(guest); },
          .isGivenUp =
              [this](const GuestProcess& guest) {
                return configuration_->isGivenUp(guest.vm, guestName(guest.pid));
              },
          .adoptableIs = [this](const rt::String& vm,
                                bool is) { supervisor_->adoptableIs(vm, is); },
          .unknownIs = [this](const auto& vm, const auto& guests) { handleUnknown(vm, guests); },
          .end =
              [this](const auto& guests) {
                handleLeaving(guests);
                survivors_->add(guests);
              }});
  configuration_ = std::make_unique<Configuration>(
      Configuration::Takers{
          .interfaceIs = [this](const auto& id, const auto& doc) { interfaces_->rowIs(id, doc); },
          .restartIs = [this](const auto& vm, auto number) { supervisor_->restartIs(vm, number); },
          .restartIsPast = [this](const auto& vm,
                                  auto number) { supervisor_->restartIsPast(vm, number); },
          .imageIs = [this](const auto& vm, const auto& row) { images_->rowIs(vm, row); },
          .imageIsLost = [this](const auto& vm) { images_->rowIsLost(vm); },
          .rowIs =
              [this](const rt::String& vm, const VmRow* row) {
                earlierGuests_->handleRow(vm);
                supervisor_->rowIs(vm, row);
              },
          .givenUpIs =
              [this](const rt::String& vm, const rt::String& guest) {
                if (!guest.empty()) earlierGuests_->handleRow(vm);
                supervisor_->givenUpIs(vm, guest);
              }},
      model::machineLimits(), before_);
  configFeed_ = rt::make<ConfigFeed>(
      db_,
      std::vector<rt::String>{model::table::interface, model::table::vmImage,
                              model::table::vmIntent, model::table::vmConfig},
      [this](const auto& changes, const auto& reached) { handleConfig(changes, reached); }, clock);
  endOrphans();
  guestProblems_ = shims_->followProblems([this](const rt::String& vm, const rt::String& problem) {
    supervisor_->guestProblemIs(vm, problem);
  });
  // After the interfaces' names: so a device is heard of under its interface at once.
  kernelLinks_ = rt::make<KernelLinks>(records_.kernel, interfaces_,
                                       [this] { cardHealer_->devicesChanged(); });
  janitor_->sweep();
}

void Daemon::Parts::startImages() {
  const auto known = [this](const rt::String& vm) { supervisor_->imageIsKnown(vm); };
  imageLooks_ = rt::make<ImageLooks>(
      ImageLooks::Tools{.look = model::imageFacts, .answered = known}, manager_.clock());
  images_ = std::make_unique<Images>(
      Images::Tools{
          .look = [this](const auto& vm, const auto& path) { return imageLooks_->facts(vm, path); },
          .forget = [this](const rt::String& vm) { imageLooks_->forget(vm); },
          .known = known,
          .formats = shims_->tellFormats() ? Images::Formats::told : Images::Formats::guessed},
      imageRows_);
}

void Daemon::Parts::endOrphans() {
  survivors_ = rt::make<Survivors>(
      std::vector<GuestProcess>{}, *shims_, stopPatience(options_),
      [this](const rt::String& vm, size_t left) {
        if (left == 0) {
          handleEnd(vm);
          janitor_->guestLeft(vm);
        }
        supervisor_->survivorsIs(vm, left);
      },
      manager_.clock());
  earlierGuests_->decide();
  removeSocketsOfBefore();
}

// Of guests that ended while no daemon ran, or could not be told of any more.
void Daemon::Parts::removeSocketsOfBefore() const {
  std::set<rt::String> living;
  for (const GuestProcess& guest : guestProcesses()) living.insert(guest.vm);
  shims_->removeDeadSocketsOfAllBut(living);
}

// Of the cards that are configured. A guest that is to be taken up keeps its cards' devices.
std::set<rt::EthAddr> Daemon::Parts::ourAddresses() const {
  std::set<rt::EthAddr> addresses;
  for (const auto& [name, row] : configuration_->rows().rows()) {
    if (!row.valid || waiting_.isWaiting(name)) continue;
    for (const auto& [key, card] : row.valid->vnicConfigs()) addresses.insert(card->macAddr());
  }
  return addresses;
}

void Daemon::Parts::handleEnd(const rt::String& vm) const {
  start_.ended(vm);
  shims_->removeDeadSockets(vm);
}

// A store that cannot be asked proves nothing.
bool Daemon::Parts::isRemoved(const GuestProcess& guest) {
  const auto row = rowOf(guest);
  const VmRow* const now = configuration_->rows().row(guest.vm);
  if (!row || (now && !now->isLost && now->origin == *row)) return false;
  bool removed = false;
  const rt::String failure = failureOf([&] {
    removed = db_.store(statedb::Half::config).hasRemoved(model::table::vmConfig, guest.vm, *row);
  });
  if (!failure.empty()) report("VM " + guest.vm + ": whether it was removed: " + failure);
  return removed;
}

void Daemon::Parts::handleUnknown(const rt::String& vm, const std::vector<GuestProcess>& guests) {
  survivors_->forget(vm);
  supervisor_->survivorsIs(vm, 0);
  if (guests.empty()) return;
  const int32_t pid = guests.front().pid;
  const UnknownGuest guest{pid, guestName(pid),
                           doubtOf(rowOf(guests.front()), configuration_->reached().history)};
  handleLeaving(guests);
  survivors_->watch(guests);
  supervisor_->unknownIs(vm, guest);
  report("VM " + vm + ": " + problemOf(vm, guest));
}

// No card of the agent's remembers the devices of a guest that it was never given.
void Daemon::Parts::handleLeaving(const std::vector<GuestProcess>& guests) {
  for (const GuestProcess& guest : guests) cardHealer_->guestLeaves(guest.vm, guest.pid);
}

void Daemon::Parts::handleConfig(const std::vector<statedb::Change>& changes,
                                 const statedb::Cursor& reached) {
  daemonStatus_->configStoreIs(reached.storeId);
  daemonStatus_->configSequenceIs(reached.sequence);
  daemonStatus_->configHistoryIs(reached.history);
  configuration_->take(changes, reached);
}

void Daemon::Parts::turn(rt::Seconds atMost) {
  const rt::String failure = failureOf([&] { manager_.turn(atMost); });
  if (!failure.empty()) report("a handler failed: " + failure);
}

void Daemon::Parts::run(const std::function<bool()>& tellReady) {
  {
    const std::lock_guard held(manager_.lock());
    statusFeed_->pass();
  }
  bool isHeard = tellReady();
  while (!stopped_) {
    bool more = false;
    bool allIsTold = false;
    {
      const std::lock_guard held(manager_.lock());
      more = supervisor_->pass();
      more = cardHealer_->pass() || more;
      if (bridgeFdb_) bridgeFdb_->pass();
      statusFeed_->pass();
      isHeard = isHeard || tellReady();
      allIsTold = traces_.pass() && isHeard;
    }
    turn(more ? rt::Seconds(0) : allIsTold ? rt::Seconds::infinity() : readersPause);
  }
  notifyStopping();
  const std::lock_guard held(manager_.lock());
  statusFeed_->pass();
}

Daemon::Daemon(const Options& options, TraceLog& traces, AroundStart& start) {
  const auto operators = groupOf("vmagent");
  makeSharedDirectory(options.stateDir, operators);
  makeSharedDirectory(options.runDir, operators);
  if (options.shim != "off") makeGuestsDirectory(options.runDir);
  parts_ = std::make_unique<Parts>(options, traces, start);
}

Daemon::~Daemon() = default;

void Daemon::run(const std::function<bool()>& tellReady) { parts_->run(tellReady); }

}  // namespace host
