#include "ctl/verbs/WaitVerbs.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "ctl/line/Fields.h"
#include "ctl/verbs/Waiting.h"
#include "model/VmIntent.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

using Values = std::span<const std::string_view>;

// What 'vmctl list' has as ACTUAL.
constexpr std::array<std::string_view, 9> actuals{"stopped", "starting", "running",
                                                  "paused",  "stopping", "hung",
                                                  "crashed", "retrying", "refused"};
// A state is one of these, or what QEMU calls it.
constexpr std::array<std::string_view, 3> ownStates{"Starting", "Running", "Stopped"};
constexpr std::array<std::string_view, 2> truthValues{"true", "false"};
constexpr std::array<std::string_view, 3> processValues{"none", "running", "ending"};

// What can be waited for.
struct Field {
  std::string_view name;
  Values values;  // all it can have; empty: any text
  rt::String (*value)(const VmRow& row);
};

rt::String actualOf(const VmRow& row) { return row.process->actual(); }
rt::String stateOf(const VmRow& row) { return row.status ? row.status->state() : ""; }
rt::String enabledOf(const VmRow& row) { return rt::toText(row.status && row.status->enabled()); }
rt::String configEnabledOf(const VmRow& row) { return rt::toText(row.isEnabled()); }
rt::String processOf(const VmRow& row) { return row.process->process(); }

constexpr Field fields[] = {{"actual", actuals, actualOf},
                            {"state", {}, stateOf},
                            {"enabled", truthValues, enabledOf},
                            {"config.enabled", truthValues, configEnabledOf},
                            {"process", processValues, processOf}};

struct Condition {
  const Field* field;
  rt::String value;
};

Refusal noSuchField(const rt::String& name) {
  return {Exit::usage, "--for: there is no field '" + name +
                           "' to wait for; there are actual, state, enabled, config.enabled and "
                           "process"};
}

Refusal noSuchValue(const Assignment& wanted, const rt::String& right) {
  return {Exit::usage,
          "--for: " + rt::Problem{wanted.field, wanted.value, "must be " + right}.text()};
}

bool isSame(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

// A value of ours is meant in whatever case it is written.
rt::String spelledAsOurs(std::string_view value, Values values) {
  for (const std::string_view each : values)
    if (isSame(value, each)) return each;
  return value;
}

bool isAmong(std::string_view value, Values values) {
  return std::find(values.begin(), values.end(), value) != values.end();
}

// "running" alone is what 'vmctl list' has.
Assignment wantedOf(const rt::String& text) {
  if (const rt::String word = spelledAsOurs(text, actuals); isAmong(word, actuals))
    return {"actual", word};
  return assignmentOf(text, "actual=running");
}

Condition conditionOf(const rt::String& text) {
  const Assignment wanted = wantedOf(text);
  const auto field = std::find_if(std::begin(fields), std::end(fields), [&](const Field& each) {
    return isSame(each.name, wanted.field);
  });
  if (field == std::end(fields)) throw noSuchField(wanted.field);
  const bool isState = field->value == stateOf;
  rt::String value = spelledAsOurs(wanted.value, isState ? Values(ownStates) : field->values);
  if (!isState && !isAmong(value, field->values)) {
    rt::String right;
    for (const std::string_view each : field->values)
      ((right += right.empty() ? "" : each == field->values.back() ? " or " : ", ")) += each;
    throw noSuchValue(wanted, right);
  }
  return {&*field, std::move(value)};
}

bool isOf(const Condition& condition, std::string_view field) {
  return condition.field->name == field;
}

// `restarts`: how many were asked for; what is so before the last of them is of the run before.
Goal goalOf(const std::vector<Condition>& conditions, uint64_t restarts) {
  Goal goal;
  goal.isReached = [conditions, restarts](const VmRow& row) {
    if (row.process->restarts() < restarts) return false;
    return std::all_of(conditions.begin(), conditions.end(), [&](const Condition& condition) {
      return condition.field->value(row) == condition.value;
    });
  };
  goal.needsDaemon =
      std::any_of(conditions.begin(), conditions.end(),
                  [](const Condition& condition) { return !isOf(condition, "config.enabled"); });
  goal.needsConfiguration =
      std::any_of(conditions.begin(), conditions.end(),
                  [](const Condition& condition) { return !isOf(condition, "process"); });
  return goal;
}

// How many restarts of it were asked for.
uint64_t restartsOf(Context& context, const rt::String& name) {
  const auto record = context.db().record(model::table::vmIntent, name);
  model::VmIntent::Ptr intent = rt::make<model::VmIntent>(name);
  if (record) statedb::fillKnown(*intent, record->doc);
  return intent->restart();
}

}  // namespace

Exit waitForVm(Context& context, const Arguments& arguments) {
  std::vector<Condition> conditions;
  for (const rt::String& text : arguments.values("for")) conditions.push_back(conditionOf(text));
  if (conditions.empty())
    throw Refusal(Exit::usage, "'wait' needs --for FIELD=VALUE, such as --for actual=running");
  const rt::Seconds patience = arguments.timeout();
  const rt::String& name = arguments.words().front();
  const VmRow row = vmNamed(context, name);
  // One that was removed may still have a process to wait for.
  if (!row.status && row.process->process() == "none") (void)requiredVm(context, name);
  const bool isOfState = std::any_of(
      conditions.begin(), conditions.end(),
      [](const Condition& each) { return isOf(each, "state") || isOf(each, "actual"); });
  const bool isOfRun = isOfState && row.exists();
  const Goal goal = goalOf(conditions, isOfRun ? restartsOf(context, name) : 0);
  if (goal.needsDaemon && !context.daemonRuns())
    throw Refusal(
        Exit::failed,
        "vmagentd is not running: there is nobody to wait for; when it stopped, " + whatIsSo(row));
  Waiter(context, patience).until(name, goal);
  return Exit::done;
}

}  // namespace ctl
