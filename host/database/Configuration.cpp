#include "host/database/Configuration.h"

#include "host/base/Report.h"
#include "host/database/Intents.h"
#include "model/Tables.h"
#include "runtime/base/FirstException.h"

namespace host {

using statedb::Op;
using statedb::Proof;

void Configuration::take(const std::vector<statedb::Change>& changes,
                         const statedb::Cursor& reached) {
  // Whether it goes on from where this daemon, or the one before, was with it.
  const bool goesOn = reached.history == reached_.history && reached.sequence >= reached_.sequence;
  reached_ = reached;
  std::vector<statedb::Change> vms;
  std::set<rt::String> intents;
  rt::FirstException failures;
  for (const auto& change : changes) {
    if (change.record.table == model::table::interface) {
      failures.run([&] { takeInterface(change); });
    } else if (change.record.table == model::table::vmImage) {
      takeImage(change);
    } else if (change.record.table == model::table::vmIntent) {
      takeIntent(change, change.proof == Proof::comparison && !goesOn);
      intents.insert(change.record.key);
    } else {
      vms.push_back(change);
    }
  }
  for (const rt::String& vm : rows_.apply(vms, reached.history)) takers_.rowIs(vm, rows_.row(vm));
  for (const rt::String& vm : intents) {
    const auto guest = givenUp_.find(vm);
    takers_.givenUpIs(vm, guest == givenUp_.end() ? rt::String() : guest->second);
  }
  failures.rethrow();
}

void Configuration::takeInterface(const statedb::Change& change) {
  const rt::String& id = change.record.key;
  if (change.op == Op::put) return takers_.interfaceIs(id, change.record.doc);
  if (change.proof == Proof::history) return takers_.interfaceIs(id, std::nullopt);
  report("interface " + id +
         ": its row is lost with the configuration before; it stays what it was until it is set or "
         "vmagentd is restarted");
}

void Configuration::takeImage(const statedb::Change& change) {
  const rt::String& vm = change.record.key;
  if (change.op == Op::put) return takers_.imageIs(vm, change.record);
  if (change.proof == Proof::history) return takers_.imageIs(vm, std::nullopt);
  takers_.imageIsLost(vm);
}

void Configuration::takeIntent(const statedb::Change& change, bool isPast) {
  if (change.op == Op::del && change.proof == Proof::comparison) return;
  const rt::String& vm = change.record.key;
  const Intent intent = change.op == Op::put ? intentOf(change.record) : Intent();
  (isPast ? takers_.restartIsPast : takers_.restartIs)(vm, intent.restart);
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
