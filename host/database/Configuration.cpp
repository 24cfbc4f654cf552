#include "host/database/Configuration.h"

#include "host/base/Report.h"
#include "host/database/Intents.h"
#include "model/VmOwn.h"
#include "runtime/base/FirstException.h"

namespace host {

using statedb::Op;
using statedb::Proof;

namespace {

void takeInterface(const statedb::Change& change, ConfigurationTaker& taker) {
  const rt::String& id = change.record.key;
  if (change.op == Op::put) return taker.interfaceIs(id, change.record.doc);
  if (change.proof == Proof::history) return taker.interfaceIs(id, std::nullopt);
  report("interface " + id +
         ": its row is lost with the configuration before; it stays what it was until it is set or "
         "vmagentd is restarted");
}

void takeImage(const statedb::Change& change, ConfigurationTaker& taker) {
  const rt::String& vm = change.record.key;
  if (change.op == Op::put) return taker.imageIs(vm, change.record);
  if (change.proof == Proof::history) return taker.imageIs(vm, std::nullopt);
  taker.imageIsLost(vm);
}

void takeOwn(const statedb::Change& change, ConfigurationTaker& taker) {
  const auto& [table, vm] = std::tie(change.record.table, change.record.key);
  if (change.op == Op::put) return taker.ownRowIs(table, vm, change.record);
  if (change.proof == Proof::history) taker.ownRowIs(table, vm, std::nullopt);
}

}  // namespace

void Configuration::take(const std::vector<statedb::Change>& changes,
                         const statedb::Cursor& reached, ConfigurationTaker& taker) {
  // Whether it goes on from where this daemon, or the one before, was with it.
  const bool goesOn = reached.history == reached_.history && reached.sequence >= reached_.sequence;
  reached_ = reached;
  std::vector<statedb::Change> vms;
  std::set<rt::String> intents;
  rt::FirstException failures;
  for (const auto& change : changes) {
    if (change.record.table == model::table::interface) {
      failures.run([&] { takeInterface(change, taker); });
    } else if (change.record.table == model::table::vmImage) {
      takeImage(change, taker);
    } else if (model::isOwn(change.record.table)) {
      takeOwn(change, taker);
    } else if (change.record.table == model::table::vmIntent) {
      takeIntent(change, change.proof == Proof::comparison && !goesOn, taker);
      intents.insert(change.record.key);
    } else {
      vms.push_back(change);
    }
  }
  for (const rt::String& vm : rows_.apply(vms, reached.history)) taker.rowIs(vm, rows_.row(vm));
  for (const rt::String& vm : intents) {
    const auto guest = givenUp_.find(vm);
    taker.givenUpIs(vm, guest == givenUp_.end() ? rt::String() : guest->second);
  }
  failures.rethrow();
}

void Configuration::takeIntent(const statedb::Change& change, bool isPast,
                               ConfigurationTaker& taker) {
  if (change.op == Op::del && change.proof == Proof::comparison) return;
  const rt::String& vm = change.record.key;
  const Intent intent = change.op == Op::put ? intentOf(change.record) : Intent();
  taker.stopIs(vm, intent.stop, isPast ? -1 : intent.within);
  if (isPast)
    taker.restartIsPast(vm, intent.restart);
  else
    taker.restartIs(vm, intent.restart, intent.ifEnded);
  if (intent.remove.empty())
    givenUp_.erase(vm);
  else
    givenUp_[vm] = intent.remove;
}

bool Configuration::isGivenUp(const rt::String& vm, const rt::String& guest) const {
  const auto found = givenUp_.find(vm);
  return found != givenUp_.end() && found->second == guest;
}

}  // namespace host
