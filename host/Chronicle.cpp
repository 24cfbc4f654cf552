#include "host/Chronicle.h"

#include <tuple>
#include <utility>

#include "guest/EventWords.h"
#include "guest/ShimProtocol.h"
#include "host/database/FieldChanges.h"
#include "host/database/Intents.h"
#include "model/VmOwn.h"
#include "runtime/base/Text.h"

namespace host {

namespace {

namespace kind = model::eventKind;
namespace word = guest::event;
using model::ProblemSource;

// What a problem of that source is an event of; null: of none, for something else tells the same.
const char* kindOf(ProblemSource source) {
  switch (source) {
    case ProblemSource::card:
      return kind::card;
    case ProblemSource::guest:
      return kind::shim;
    case ProblemSource::config:
    case ProblemSource::image:
    case ProblemSource::agent:
      return kind::problem;
    default:
      return nullptr;
  }
}

// What an operator had a shim do that changes no state; null: it is no such thing.
const char* textOfWish(const rt::String& wish) {
  if (wish == guest::word::interrupt) return "it was sent a non-maskable interrupt";
  if (wish == guest::word::key) return "keys were pressed for it";
  if (wish == guest::word::screenshot) return "a picture of its screen was taken";
  return nullptr;
}

rt::String secondsText(int32_t within) {
  if (within < 0) return {};
  return within == 0 ? rt::String(", at once") : ", within " + rt::toText(within) + " s";
}

}  // namespace

model::Event::Ptr Chronicle::made(const char* kind, const rt::String& vm, const rt::String& reason,
                                  const char* severity, const rt::String& text) const {
  auto event = rt::make<model::Event>("");
  event->kindIs(kind);
  event->vmIs(vm);
  event->reasonIs(reason);
  event->severityIs(severity);
  event->textIs(text);
  event->atIs(timeOfDay_());
  return event;
}

void Chronicle::daemonBegins(const rt::String& version, int32_t pid) {
  history_.add(made(kind::daemon, {}, "begun", "note",
                    "vmagentd " + version + " begins, process " + rt::toText(pid)));
}

void Chronicle::daemonEnds() {
  history_.add(made(kind::daemon, {}, "ended", "note", "vmagentd ends; guests go on"));
}

void Chronicle::configChanges(const std::vector<statedb::Change>& changes, const VmRows& rows,
                              const OwnRows& own) {
  before_.clear();
  ownBefore_.clear();
  for (const statedb::Change& change : changes) {
    const rt::String& vm = change.record.key;
    if (model::isOwn(change.record.table)) ownBefore_.try_emplace(vm, own.own(vm));
    if (change.record.table != model::table::vmConfig) continue;
    const VmRow* const row = rows.row(change.record.key);
    before_[change.record.key] = row ? row->valid : nullptr;
  }
}

void Chronicle::addChange(const statedb::Change& change, const rt::String& reason,
                          const rt::String& text) {
  const bool isOfVm = model::isOfVms(change.record.table);
  const auto event =
      made(kind::config, isOfVm ? change.record.key : rt::String(), reason, "note", text);
  if (!isOfVm) event->subjectIs(change.record.key);
  // Any program may have written any time.
  if (change.author.at != 0 && change.author.at <= event->at()) event->atIs(change.author.at);
  event->byIs(change.author.who);
  event->viaIs(change.author.via);
  history_.add(event);
}

void Chronicle::configChanged(const std::vector<statedb::Change>& changes, const VmRows& rows,
                              const OwnRows& own) {
  for (const statedb::Change& change : changes) {
    if (change.proof != statedb::Proof::history) continue;  // nobody need have done it
    if (change.record.table == model::table::vmConfig) tellVm(change, rows);
    if (change.record.table == model::table::vmIntent) tellIntent(change);
    for (const auto& [table, member] : model::ownTables)
      if (change.record.table == table) tellOwn(change, rt::String(member), own);
    if (change.record.table == model::table::interface)
      addChange(change, "interface",
                "interface " + change.record.key +
                    (change.op == statedb::Op::put ? ": " + change.record.doc
                                                   : rt::String(" is the device of its name")));
  }
  before_.clear();
}

// One that was refused changes nothing; what is wrong is told as a problem.
void Chronicle::tellOwn(const statedb::Change& change, const rt::String& member,
                        const OwnRows& own) {
  const auto& [table, vm] = std::tie(change.record.table, change.record.key);
  const auto before = ownBefore_.find(vm);
  if (before == ownBefore_.end()) return;
  const model::VmOwn& now = own.own(vm);
  const rt::String text = changesText(before->second.record(table), now.record(table));
  addChange(change, member, text.empty() ? member + ": refused" : text);
}

void Chronicle::tellVm(const statedb::Change& change, const VmRows& rows) {
  const rt::String& vm = change.record.key;
  if (change.op == statedb::Op::del) return addChange(change, "removed", "removed");
  const VmRow* const row = rows.row(vm);
  if (!row || !row->problems.empty())
    return addChange(change, "refused", "changed, and refused: what was in force before stays");
  const Vm::VmConfig::Ptr before = before_[vm];
  if (!before)
    return addChange(change, "added", row->valid->enabled() ? "added, enabled" : "added, disabled");
  const rt::String text = changesText(*before, *row->valid);
  if (!text.empty()) addChange(change, "changed", text);
}

void Chronicle::tellIntent(const statedb::Change& change) {
  if (change.op == statedb::Op::del) return;
  const Intent intent = intentOf(change.record);
  if (!intent.remove.empty())
    return addChange(change, "given-up", "the guest that is in no configuration is given up");
  // A stop is written with the row, which says the rest.
  if (intent.stop != 0 && change.author.via == "vmctl stop")
    return addChange(change, "stop", "asked to stop" + secondsText(intent.within));
  addChange(change, "restart", "restart asked for" + secondsText(intent.within));
}

void Chronicle::configWasChanged(const std::vector<statedb::Change>& changes) {
  for (const statedb::Change& change : changes) {
    if (change.record.table != model::table::vmConfig) continue;
    const bool isNew = change.record.revision == change.record.created;
    addChange(change,
              change.op == statedb::Op::del ? "removed"
              : isNew                       ? "added"
                                            : "changed",
              rt::String(change.op == statedb::Op::del ? "removed"
                         : isNew                       ? "added"
                                                       : "changed") +
                  " while no vmagentd ran");
  }
}

void Chronicle::problemIs(const rt::String& vm, const rt::String& text, ProblemSource source) {
  const char* const what = text.empty() ? nullptr : kindOf(source);
  // A weightier one that others tell of hides what is known; it need not be mended.
  if (!text.empty() && !what) return;
  const auto known = problems_.find(vm);
  if (known != problems_.end() && (known->second.text != text || !what)) {
    const char* const was = kindOf(known->second.source);
    if (!what) history_.add(made(was, vm, "mended", "ok", "no more: " + known->second.text));
    problems_.erase(known);
  } else if (known != problems_.end()) {
    return;
  }
  if (!what) return;
  problems_[vm] = {text, source};
  history_.add(made(what, vm, rt::String(model::textOf(source)), "bad", text));
}

model::Event::Ptr happeningOf(const GuestEvent& event, const rt::String& resetBy) {
  const auto of = [&](const char* reason, const char* severity, const rt::String& text) {
    auto made = rt::make<model::Event>("");
    made->kindIs(kind::guest);
    made->vmIs(event.vm());
    made->reasonIs(reason);
    made->severityIs(severity);
    made->textIs(text);
    made->atIs(event.at());
    made->runIs(event.run());
    made->nIs(event.n());
    return made;
  };
  if (event.kind() == word::reset) {
    auto made = of("reset", "note",
                   !resetBy.empty()  ? rt::String("the guest was reset")
                   : event.byGuest() ? rt::String("the guest reset itself")
                                     : rt::String("the guest was reset, over its monitor"));
    made->byIs(!resetBy.empty() ? resetBy : event.byGuest() ? rt::String("guest") : rt::String());
    return made;
  }
  if (const char* const text =
          event.kind() == word::wished ? textOfWish(event.reason()) : nullptr) {
    auto made = of("operator", "note", text);
    made->subjectIs(event.reason());
    made->byIs(event.by());
    return made;
  }
  if (event.kind() == word::panicked) return of("panicked", "bad", "the guest panicked");
  if (event.kind() == word::watchdog)
    return of("watchdog", "bad", "the guest did not feed its watchdog: " + event.reason());
  if (event.kind() == word::diskError)
    return of("disk-error", "bad", "its disk failed: " + event.text());
  return nullptr;
}

}  // namespace host
