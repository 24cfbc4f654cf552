#include "ctl/verbs/SwitchVerbs.h"

#include <algorithm>
#include <map>

#include "ctl/line/Json.h"
#include "ctl/verbs/Budget.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/verbs/Waiting.h"
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
};

// Asks for all first, then waits for all: they are carried out side by side.
Exit carryOut(Context& context, const Arguments& arguments, const std::vector<rt::String>& names,
              const Deed& deed) {
  const bool waits = arguments.has("wait");
  const rt::Seconds patience = arguments.timeout();
  std::vector<rt::String> asked;
  Exit exit = forEach(context, names, [&](const rt::String& name) {
    const rt::String answer = deed.ask(name);
    asked.push_back(name);
    if (!waits) context.tell(name + ": " + answer);
  });
  if (asked.empty()) return exit;
  if (!waits) {
    complainOfDelay(context);
    return exit;
  }
  if (!context.daemonRuns()) {
    context.complain("vmagentd is not running: it is written down, and nobody to wait for");
    return exit == Exit::done ? Exit::failed : exit;
  }
  Waiter waiter(context, patience);
  const Exit waited = forEach(context, asked, [&](const rt::String& name) {
    waiter.until(name, deed.goal(name));
    context.tell(name + ": " + deed.done);
  });
  return exit == Exit::done ? waited : exit;
}

// The names given, or with --all those of enabled VMs.
std::vector<rt::String> namesOf(Configuration& configuration, const Arguments& arguments) {
  if (!arguments.has("all")) {
    if (arguments.words().empty()) throw Refusal(Exit::usage, "which VM? Name one, or say --all");
    return arguments.words();
  }
  if (!arguments.words().empty())
    throw Refusal(Exit::usage, "--all takes no names: say one or the other");
  return configuration.enabledNames();
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

rt::String enable(Context& context, Configuration& configuration, const rt::String& name) {
  const VmRow before = vmNamed(context, name);
  const auto changed = configuration.change(
      name, [](const VmRecords& records, auto&) { records.vm.enabledIs(true); });
  warnOfImage(context, *changed.after, changed.formatAfter);
  if (!changed.before->enabled())
    warnOfRoom(context, &before, *changed.after, *changed.limitsAfter);
  if (!changed.before->enabled())
    return configuration.mode() == Configuration::Mode::tell ? "would be enabled" : "enabled";
  const VmRow row = vmNamed(context, name);
  if (row.hasEnded() && context.daemonRuns())
    throw Refusal(Exit::conflict, name + ": is enabled and its guest has ended: 'vmctl restart " +
                                      name + "' starts it again");
  return "was enabled already";
}

// Once a start that was asked for has failed, it stays so. Of a VM that was switched off just
// before, its guest's end may be what is seen at first: `hadEnded`.
std::function<bool(const VmRow& row)> isLostSince(bool hadEnded) {
  return [isNew = !hadEnded](const VmRow& row) mutable {
    isNew = isNew || !row.hasEnded();
    return isNew && row.hasEnded();
  };
}

// The number that was asked for last.
uint64_t restartIn(const std::optional<statedb::Record>& intent) {
  const auto known = rt::make<model::VmIntent>("");
  if (intent) statedb::fillKnown(*known, intent->doc);
  return known->restart();
}

// The number that asks once more.
uint64_t askForRestart(Context& context, const rt::String& name) {
  uint64_t number = 0;
  retried([&] {
    const VmRow row = requiredVm(context, name);
    if (row.config && !row.config->enabled())
      throw Refusal(Exit::conflict,
                    name + ": is not enabled: 'vmctl enable " + name + "' starts it");
    const auto intent = context.db().record(model::table::vmIntent, name);
    number = std::max(restartIn(intent), row.process->restarts()) + 1;
    statedb::Transaction transaction;
    transaction.guard(model::table::vmConfig, name, row.revision);
    transaction.guard(model::table::vmIntent, name, intent ? intent->revision : 0);
    transaction.put(model::table::vmIntent, name, R"({"restart":)" + rt::toText(number) + "}");
    context.db().commit(transaction);
  });
  return number;
}

// There is no row to remove: the guest is named, and no other is meant.
void giveUp(Context& context, const VmRow& row) {
  const auto intent = context.db().record(model::table::vmIntent, row.name);
  const rt::String restart = rt::toText(std::max(restartIn(intent), row.process->restarts()));
  statedb::Transaction transaction;
  transaction.guard(model::table::vmConfig, row.name, 0);
  transaction.guard(model::table::vmIntent, row.name, intent ? intent->revision : 0);
  transaction.put(
      model::table::vmIntent, row.name,
      R"({"restart":)" + restart + R"(,"remove":)" + quoted(row.process->unknown()) + "}");
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
      throw Refusal(Exit::conflict, name + ": is enabled: 'vmctl disable " + name +
                                        "' first, or --force, which ends its guest");
    statedb::Transaction transaction;
    transaction.guard(model::table::vmConfig, name, row.revision);
    transaction.del(model::table::vmConfig, name)
        .del(model::table::vmImage, name)
        .del(model::table::vmLimits, name)
        .del(model::table::vmIntent, name);
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

Exit enableVms(Context& context, const Arguments& arguments) {
  Configuration configuration(context, modeOf(arguments));
  if (modeOf(arguments) == Configuration::Mode::tell)
    return forEach(context, arguments.words(), [&](const rt::String& name) {
      context.tell(name + ": " + enable(context, configuration, name));
    });
  std::map<rt::String, bool> hadEnded;
  Deed deed;
  deed.ask = [&](const rt::String& name) {
    hadEnded[name] = vmNamed(context, name).hasEnded();
    return enable(context, configuration, name);
  };
  deed.goal = [&](const rt::String& name) {
    Goal goal{[](const VmRow& row) { return row.runs(); }};
    goal.isLost = isLostSince(hadEnded[name]);
    return goal;
  };
  deed.done = "enabled and running";
  return carryOut(context, arguments, arguments.words(), deed);
}

Exit disableVms(Context& context, const Arguments& arguments) {
  Configuration configuration(context);
  Deed deed;
  deed.ask = [&](const rt::String& name) -> rt::String {
    const auto changed = configuration.change(
        name, [](const VmRecords& records, auto&) { records.vm.enabledIs(false); });
    return changed.before->enabled() ? "disabled" : "was disabled already";
  };
  deed.goal = [](const rt::String&) {
    return Goal{[](const VmRow& row) { return row.isOff(); }, true, false};
  };
  deed.done = "disabled, and no process is left";
  const std::vector<rt::String> names = namesOf(configuration, arguments);
  if (names.empty()) context.tell("no VM is enabled");
  const Exit exit = carryOut(context, arguments, names, deed);
  const Exit unknown = arguments.has("all") ? complainOfUnknown(context) : Exit::done;
  return exit == Exit::done ? unknown : exit;
}

Exit restartVms(Context& context, const Arguments& arguments) {
  std::map<rt::String, uint64_t> numbers;
  Deed deed;
  deed.ask = [&](const rt::String& name) -> rt::String {
    const VmRow row = vmNamed(context, name);
    if (!arguments.has("force")) requireStart(context, row);
    numbers[name] = askForRestart(context, name);
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
  return carryOut(context, arguments, arguments.words(), deed);
}

Exit removeVms(Context& context, const Arguments& arguments) {
  const bool isForced = arguments.has("force");
  Deed deed;
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
