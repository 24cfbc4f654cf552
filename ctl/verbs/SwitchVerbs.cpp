#include "ctl/verbs/SwitchVerbs.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "ctl/line/Json.h"
#include "ctl/verbs/Budget.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/verbs/PowerVerbs.h"
#include "ctl/verbs/Removed.h"
#include "ctl/verbs/Waiting.h"
#include "guest/Variables.h"
#include "model/Tables.h"
#include "model/VmIntent.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

// What is done to each VM.
struct Deed {
  // Writes what is asked for; returns what was done, such as "enabled".
  std::function<rt::String(const rt::String& name)> ask;
  // When it is so; asked for after the writing.
  std::function<Goal(const rt::String& name)> goal;
  const char* done;  // what is said then
  // Does what can be done where no daemon runs, and tells of it; none: nothing can.
  std::function<void(const rt::String& name)> alone = {};
  rt::Seconds patience;  // of --wait, for all together
};

// "--wait 5" names a VM '5'.
void requireNoSeconds(Context& context, const std::vector<rt::String>& names) {
  for (const rt::String& name : names)
    if (rt::fromText<rt::Seconds>(name) && !vmNamed(context, name).exists())
      throw Refusal(Exit::usage, name + ": there is no such VM; for how long --wait waits, say " +
                                     "--timeout " + name);
}

// Asks for all first, then waits for all: they are carried out side by side.
Exit carryOut(Context& context, const Arguments& arguments, const std::vector<rt::String>& names,
              const Deed& deed) {
  const bool waits = arguments.has("wait");
  if (waits) requireNoSeconds(context, names);
  const bool isAlone = deed.alone && !context.daemonRuns();
  std::vector<rt::String> asked;
  Exit exit = forEach(context, names, [&](const rt::String& name) {
    const rt::String answer = deed.ask(name);
    asked.push_back(name);
    if (!waits && !isAlone) context.tell(name + ": " + answer);
  });
  if (isAlone) {
    const Exit ended = forEach(context, asked, deed.alone);
    return exit == Exit::done ? ended : exit;
  }
  if (asked.empty()) return exit;
  if (!waits) {
    complainOfDelay(context);
    return exit;
  }
  if (!context.daemonRuns()) {
    context.complain("vmagentd is not running: it is written down, and nobody to wait for");
    return exit == Exit::done ? Exit::failed : exit;
  }
  Waiter waiter(context, deed.patience);
  const Exit waited = forEach(context, asked, [&](const rt::String& name) {
    waiter.until(name, deed.goal(name));
    context.tell(name + ": " + deed.done);
  });
  return exit == Exit::done ? waited : exit;
}

// The names given, or with --all those.
std::vector<rt::String> namesOf(const Arguments& arguments, const std::vector<rt::String>& all) {
  if (!arguments.has("all")) {
    if (arguments.words().empty()) throw Refusal(Exit::usage, "which VM? Name one, or say --all");
    return arguments.words();
  }
  if (!arguments.words().empty())
    throw Refusal(Exit::usage, "--all takes no names: say one or the other");
  return all;
}

// Whoever stops all is not to believe that nothing runs.
Exit complainOfUnknown(Context& context) {
  Exit exit = Exit::done;
  for (const VmRow& row : allVms(context)) {
    if (!row.isUnknown()) continue;
    context.complain(unknownVm(row.name));
    exit = Exit::conflict;
  }
  return exit;
}

// What operators ask for once, as it was asked for last.
struct Intent {
  uint64_t revision = 0;
  model::VmIntent::Ptr record = rt::make<model::VmIntent>("");
};

Intent intentOf(Context& context, const rt::String& name) {
  Intent intent;
  const auto row = context.db().record(model::table::vmIntent, name);
  if (!row) return intent;
  intent.revision = row->revision;
  statedb::fillKnown(*intent.record, row->doc);
  return intent;
}

// What says nothing is left out: a daemon of before knows of restarts only.
rt::String documentOf(const model::VmIntent& intent) {
  rt::String members = R"("restart":)" + rt::toText(intent.restart());
  if (intent.ifEnded()) members += R"(,"ifEnded":true)";
  if (intent.stop() != 0) members += R"(,"stop":)" + rt::toText(intent.stop());
  if (intent.within() >= 0) members += R"(,"within":)" + rt::toText(intent.within());
  if (!intent.remove().empty()) members += R"(,"remove":)" + quoted(intent.remove());
  return "{" + members + "}";
}

// In place of what was asked for before.
void putIntent(statedb::Transaction& transaction, const rt::String& name, const Intent& intent) {
  transaction.guard(model::table::vmIntent, name, intent.revision);
  transaction.put(model::table::vmIntent, name, documentOf(*intent.record));
}

// What the guest gets to shut itself down, in seconds; -1: as the daemon has it.
int32_t timeOf(const Arguments& arguments) {
  if (arguments.has("now") && arguments.has("timeout"))
    throw Refusal(Exit::usage, "--now is at once, and takes no --timeout: say one or the other");
  if (arguments.has("now")) return 0;
  if (!arguments.has("timeout")) return -1;
  const double seconds = std::ceil(arguments.timeout().value());
  if (seconds > guest::longestStopTimeout)
    throw Refusal(Exit::usage, "--timeout: '" + arguments.value("timeout", {}) +
                                   "' is refused: " + guest::stopTimeoutRight);
  return static_cast<int32_t>(seconds);
}

// Once a start that was asked for has failed, it stays so. Of a VM that was switched off just
// before, its guest's end may be what is seen at first: `hadEnded`.
std::function<bool(const VmRow& row)> isLostSince(bool hadEnded) {
  return [isNew = !hadEnded](const VmRow& row) mutable {
    isNew = isNew || !row.hasEnded();
    return isNew && row.hasEnded();
  };
}

// Of a guest that may run by now, though the status says that it has ended.
enum class Running : uint8_t { ends, goesOn };

// The number that asks for one more. What was asked for before and is not done yet is not taken
// back.
uint64_t askForRestart(Context& context, const rt::String& name, int32_t within, Running running) {
  uint64_t number = 0;
  retried([&] {
    const VmRow row = requiredVm(context, name);
    if (row.config && !row.config->enabled())
      throw Refusal(Exit::conflict,
                    name + ": is not enabled: 'vmctl start " + name + "' starts it");
    const Intent intent = intentOf(context, name);
    const bool isOpen = intent.record->restart() > row.process->restarts();
    const bool endsAlready = isOpen && !intent.record->ifEnded();
    number = std::max(intent.record->restart(), row.process->restarts()) + 1;
    intent.record->restartIs(number);
    intent.record->ifEndedIs(running == Running::goesOn && !endsAlready);
    intent.record->withinIs(within);
    statedb::Transaction transaction;
    transaction.guard(model::table::vmConfig, name, row.revision);
    putIntent(transaction, name, intent);
    context.db().commit(transaction);
  });
  return number;
}

// Has it started, also when it has ended though it is enabled: a restart starts it then.
rt::String start(Context& context, Configuration& configuration, const rt::String& name) {
  const VmRow before = vmNamed(context, name);
  const bool onlyTells = configuration.mode() == Configuration::Mode::tell;
  const auto changed = configuration.change(
      name, [](const VmRecords& records, auto&) { records.vm.enabledIs(true); });
  warnOfImage(context, *changed.after, changed.formatAfter);
  if (!changed.before->enabled()) warnOfRoom(context, &before, *changed.after, changed.ownAfter);
  if (!changed.before->enabled()) return onlyTells ? "would be enabled" : "enabled";
  const VmRow row = vmNamed(context, name);
  const bool isOff = row.process->process() == "none" && row.process->actual() != "starting" &&
                     !row.process->actual().empty();
  if (row.process->actual() == "paused")
    context.complain(name + ": is paused: 'vmctl resume " + name + "' lets it go on");
  if (!row.hasEnded() && !isOff) return "was enabled already";
  if (onlyTells) return "would be started again";
  askForRestart(context, name, -1, Running::goesOn);
  return "is started again";
}

// There is no row to remove: the guest is named, and no other is meant.
void giveUp(Context& context, const VmRow& row) {
  const Intent intent = intentOf(context, row.name);
  intent.record->restartIs(std::max(intent.record->restart(), row.process->restarts()));
  intent.record->removeIs(row.process->unknown());
  statedb::Transaction transaction;
  transaction.guard(model::table::vmConfig, row.name, 0);
  putIntent(transaction, row.name, intent);
  context.db().commit(transaction);
}

// Returns its row as it was.
VmRow remove(Context& context, const rt::String& name, bool isForced) {
  VmRow row;
  retried([&] {
    row = vmNamed(context, name);
    if (!isForced && row.isUnknown())
      throw Refusal(Exit::conflict,
                    name + ": is in no configuration, and its guest runs: --force ends it");
    if (row.isUnknown()) return giveUp(context, row);
    row = requiredVm(context, name);
    if (!isForced && !row.config)
      throw Refusal(Exit::conflict,
                    name +
                        ": its configuration cannot be read, so it may be enabled: --force "
                        "removes it");
    if (!isForced && row.config->enabled())
      throw Refusal(Exit::conflict, name + ": is enabled: 'vmctl stop " + name +
                                        "' first, or --force, which ends its guest");
    statedb::Transaction transaction;
    transaction.guard(model::table::vmConfig, name, row.revision);
    removeVms(context, transaction, {name});
    context.db().commit(transaction);
  });
  return row;
}

// Of an image that was removed the guest that runs has the last copy.
void requireStart(Context& context, const VmRow& row) {
  if (!row.config || !row.config->enabled() || row.process->process() != "running") return;
  const rt::String trouble = troubleWithImage(context, *row.config, row.imageFormat());
  if (trouble.empty()) return;
  throw Refusal(Exit::conflict, row.name + ": the disk image '" + row.config->diskImage() +
                                    "' cannot be used now: it " + trouble +
                                    "; a restart would end the guest for good: --force does so");
}

}  // namespace

Exit startVms(Context& context, const Arguments& arguments) {
  Configuration configuration(context, modeOf(arguments));
  if (modeOf(arguments) == Configuration::Mode::tell)
    return forEach(context, namesOf(arguments, configuration.names()), [&](const rt::String& name) {
      context.tell(name + ": " + start(context, configuration, name));
    });
  std::map<rt::String, bool> hadEnded;
  Deed deed;
  deed.patience = arguments.timeout();
  deed.ask = [&](const rt::String& name) {
    hadEnded[name] = vmNamed(context, name).hasEnded();
    return start(context, configuration, name);
  };
  deed.goal = [&](const rt::String& name) {
    Goal goal{[](const VmRow& row) { return row.runs(); }};
    goal.isLost = isLostSince(hadEnded[name]);
    return goal;
  };
  deed.done = "enabled and running";
  const std::vector<rt::String> names = namesOf(arguments, configuration.names());
  if (names.empty()) context.tell("there is no VM");
  return carryOut(context, arguments, names, deed);
}

Exit stopVms(Context& context, const Arguments& arguments) {
  Configuration configuration(context);
  const int32_t within = timeOf(arguments);
  Deed deed;
  // One that gets so long is ended soon after.
  constexpr rt::Seconds forItsEnd(15);
  deed.patience = arguments.has("timeout") ? arguments.timeout() + forItsEnd : arguments.timeout();
  deed.ask = [&](const rt::String& name) -> rt::String {
    const auto changed = configuration.change(
        name, [](const VmRecords& records, auto&) { records.vm.enabledIs(false); },
        [&](statedb::Transaction& transaction) {
          if (within < 0) return;
          const Intent intent = intentOf(context, name);
          intent.record->stopIs(intent.record->stop() + 1);
          intent.record->withinIs(within);
          putIntent(transaction, name, intent);
        });
    return changed.before->enabled() ? "disabled" : "was disabled already";
  };
  deed.goal = [](const rt::String&) {
    return Goal{[](const VmRow& row) { return row.isOff(); }, true, false};
  };
  deed.done = "disabled, and no process is left";
  // Its keeper ends it without a daemon, too.
  deed.alone = [&](const rt::String& name) {
    const bool waits = arguments.has("wait");
    const rt::String seconds = within < 0 ? rt::String() : rt::toText(within);
    const bool hasGuest = askShimToStop(
        context, name, seconds, waits ? StopWait::forTheEnd : StopWait::forNothing, deed.patience);
    context.tell(name + ": disabled; " +
                 (!hasGuest ? "no guest runs"
                  : waits   ? "its guest has ended"
                            : "its guest is being ended"));
  };
  const std::vector<rt::String> names = namesOf(arguments, configuration.enabledNames());
  if (names.empty()) context.tell("no VM is enabled");
  const Exit exit = carryOut(context, arguments, names, deed);
  const Exit unknown = arguments.has("all") ? complainOfUnknown(context) : Exit::done;
  return exit == Exit::done ? unknown : exit;
}

Exit restartVms(Context& context, const Arguments& arguments) {
  const int32_t within = arguments.has("now") ? 0 : -1;
  std::map<rt::String, uint64_t> numbers;
  Deed deed;
  deed.patience = arguments.timeout();
  deed.ask = [&](const rt::String& name) -> rt::String {
    const VmRow row = vmNamed(context, name);
    if (!arguments.has("force")) requireStart(context, row);
    numbers[name] = askForRestart(context, name, within, Running::ends);
    if (row.config) warnOfImage(context, *row.config, row.imageFormat());
    return "restart asked for";
  };
  deed.goal = [&](const rt::String& name) {
    const auto isCarriedOut = [number = numbers[name]](const VmRow& row) {
      return row.process->restarts() >= number;
    };
    Goal goal{[=](const VmRow& row) { return isCarriedOut(row) && row.runs(); }};
    goal.isLost = [=](const VmRow& row) { return isCarriedOut(row) && row.hasEnded(); };
    return goal;
  };
  deed.done = "restarted and running";
  const std::vector<rt::String> names = namesOf(arguments, Configuration(context).enabledNames());
  if (names.empty()) context.tell("no VM is enabled");
  return carryOut(context, arguments, names, deed);
}

Exit removeVms(Context& context, const Arguments& arguments) {
  const bool isForced = arguments.has("force");
  Deed deed;
  deed.patience = arguments.timeout();
  deed.ask = [&](const rt::String& name) -> rt::String {
    const VmRow row = remove(context, name, isForced);
    return row.process->process() == "none" ? "removed" : "removed; its guest is being ended";
  };
  deed.goal = [](const rt::String&) {
    return Goal{[](const VmRow& row) { return !row.status && row.process->process() == "none"; },
                true, false};
  };
  deed.done = "removed, and no process is left";
  return carryOut(context, arguments, arguments.words(), deed);
}

}  // namespace ctl
