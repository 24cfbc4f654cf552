#include "host/EndGuests.h"

#include <mutex>
#include <set>

#include "guest/VmFiles.h"
#include "host/EndsOnDisk.h"
#include "host/base/Report.h"
#include "host/database/Locks.h"
#include "host/guests/DiskShims.h"
#include "host/guests/EventReader.h"
#include "host/network/Janitor.h"
#include "host/network/Taps.h"
#include "model/Tables.h"
#include "netlink/Macvtap.h"
#include "runtime/base/FirstException.h"
#include "runtime/loop/ActivityManager.h"
#include "runtime/records/VmConfig.h"
#include "statedb/EntityDocument.h"
#include "statedb/sqlite/SqliteDb.h"

namespace host {

namespace {

// For those that were killed to be gone.
constexpr rt::Seconds killedPatience{5};

// Who asks guests to end, as their shims tell it.
constexpr const char* asker = "vmagentd --end-guests";
// For a file to be written.
constexpr rt::Seconds diskPatience{5};

// What its shim has told of the VM's last run.
GuestRun lastRunOf(const Options& options, const rt::String& vm) {
  EventReader reader(guest::vmsDirectoryOf(options.runDir));
  GuestRun run;
  for (const auto& event : reader.read(vm)) take(run, *event);
  return run;
}

// When the machine goes down next, what shims have told is gone.
void keepEnds(const Options& options, const std::set<rt::String>& vms,
              const rt::Clock::Ptr& clock) {
  const KeptDirectory directory(options.stateDir);
  EndsOnDisk ends(directory, clock);
  for (const rt::String& vm : vms) {
    GuestRun run = lastRunOf(options, vm);
    const bool isWithAll = run.endedBy == asker || !run.hasEnded();
    if (run.endedBy == asker) run.endedBy = {};
    const End end = endOf(run, {});
    if (end.cause != EndCause::none) ends.ended(vm, run.run, end, isWithAll);
  }
  ends.finish(diskPatience);
}

// Asks once a VM, whose shim and its stand-in both count as its guest, and nobody who has been
// asked already: a shim that is asked again gives its guest no more time.
class ShimsAskedOnce final : public DiskShims {
 public:
  using DiskShims::DiskShims;

  bool askToStop(const rt::String& vm, std::optional<rt::Seconds> time) override {
    return !asked_.insert(vm).second || isStopping(vm) || DiskShims::askToStop(vm, time);
  }

 private:
  std::set<rt::String> asked_;
};

// A row that cannot be read was never handed to an agent.
std::set<rt::EthAddr> configuredAddresses(const Options& options) {
  std::set<rt::EthAddr> addresses;
  auto db = statedb::sqlite::openDb(
      {.stateDir = options.stateDir, .runDir = options.runDir, .isStatus = model::isStatus});
  for (const auto& record : db.snapshot({model::table::vmConfig}).records) {
    const auto vm = rt::make<Vm::VmConfig>(record.key);
    if (!statedb::fill(*vm, record.doc).empty()) continue;
    for (const auto& [key, card] : vm->vnicConfigs()) addresses.insert(card->macAddr());
  }
  return addresses;
}

// Of the devices that the guests have now: one that no row has may have some.
std::set<rt::EthAddr> addressesOf(const std::vector<GuestProcess>& guests) {
  std::set<rt::EthAddr> addresses;
  const rt::String failure = failureOf([&] {
    Nodes held;
    for (const GuestProcess& guest : guests) held.merge(nodesHeldBy(guest.pid));
    for (const Tap& tap : taps())
      if (held.contains(tap.node)) addresses.insert(tap.mac);
  });
  if (!failure.empty()) report("what guests will leave is not known: " + failure);
  return addresses;
}

// `theirs`: what the guests had. It is deleted though the configuration cannot be read.
void removeCards(const Options& options, std::set<rt::EthAddr> theirs) {
  const auto all = taps();
  if (all.empty()) return;
  rt::FirstException failure;
  failure.run([&] { theirs.merge(configuredAddresses(options)); });
  const auto strays = strayTaps(all, theirs, {});
  const auto users = guest::userRangeFrom(options.guestUsers.str());
  const auto others =
      strays.empty() ? std::optional(Nodes()) : nodesOfOthers(users.value_or(guest::UserRange()));
  for (const rt::String& stray : strays)
    if (!mayBeOthers(stray, all, others)) netlink::deviceRemove(stray.charPtr());
  failure.rethrow();
}

}  // namespace

std::vector<GuestProcess> endGuests(const Options& options) {
  const statedb::OwnerLock noDaemon(statedb::ownerLockFile(guest::monitorsDirectory));
  rt::ActivityManager manager;
  ShimsAskedOnce shims(options.runDir, options.stopTimeout, asker);
  const rt::Seconds patience = stopPatience(options);
  rt::Ptr<Survivors> guests;
  const auto all = guestProcesses();
  const auto addresses = addressesOf(all);
  {
    const std::lock_guard held(manager.lock());
    guests = rt::make<Survivors>(
        all, shims, patience,
        [&](const rt::String& vm, size_t left) {
          if (left == 0) shims.removeDeadSockets(vm);
        },
        manager.clock());
  }
  const rt::Seconds last =
      manager.clock()->now() + std::max(patience, Survivors::leastPatience) + killedPatience;
  while (guests->left() > 0 && manager.clock()->now() < last)
    manager.turn(last - manager.clock()->now());
  const std::lock_guard held(manager.lock());
  guests = nullptr;
  auto left = guestProcesses();
  std::set<rt::String> ended;
  for (const GuestProcess& guest : all) ended.insert(guest.vm);
  for (const GuestProcess& guest : left) ended.erase(guest.vm);
  keepEnds(options, ended, manager.clock());
  if (left.empty())
    if (const rt::String failure = failureOf([&] { removeCards(options, addresses); });
        !failure.empty())
      report("what cards have left is not looked for: " + failure);
  return left;
}

}  // namespace host
