#include "ctl/verbs/ApplyVerbs.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/verbs/ApplyPlan.h"
#include "ctl/verbs/ConfigVerbs.h"
#include "ctl/verbs/Configuration.h"
#include "ctl/verbs/Removed.h"
#include "ctl/view/OwnRows.h"
#include "model/Tables.h"
#include "runtime/base/Text.h"
#include "statedb/EntityDocument.h"

namespace ctl {

namespace {

// What would be done, for --dry-run: one line each.
void printPlan(Context& context, const Plan& plan) {
  std::ostream& out = context.world().out;
  for (const Step& step : plan.steps) {
    if (step.kind == StepKind::add) out << "add " << visible(step.name) << '\n';
    if (step.kind == StepKind::remove)
      out << "remove " << visible(step.name) << (step.wasEnabled ? ", and its guest ends" : "")
          << '\n';
    if (step.kind == StepKind::change)
      out << "change " << visible(step.name) << ": " << visible(changesText(step)) << '\n';
  }
}

void tellDone(Context& context, const Plan& plan, const ApplyMode& mode) {
  for (const Step& step : plan.steps) {
    if (step.kind == StepKind::add) context.tell(step.name + ": " + mode.added);
    if (step.kind == StepKind::remove) context.tell(step.name + ": removed");
    if (step.kind == StepKind::change) context.tell(step.name + ": changed: " + changesText(step));
  }
}

const char* wordOf(StepKind kind) {
  return kind == StepKind::add ? "add" : kind == StepKind::remove ? "remove" : "change";
}

rt::String listJson(const std::vector<rt::String>& texts) {
  rt::String json = "[";
  for (const rt::String& text : texts) (json += json.size() > 1 ? "," : "") += quoted(text);
  return json + "]";
}

// `others`: what was changed beside the VMs.
rt::String planJson(const Plan& plan, const std::vector<rt::String>& others,
                    const ApplyMode& mode) {
  rt::String json = jsonHead(false) + R"("dryRun":)" +
                    rt::toText(mode.writing == ApplyMode::Writing::told) + R"(,"changes":[)";
  const char* separator = "";
  for (const Step& step : plan.steps) {
    if (step.kind == StepKind::keep) continue;
    ((json += separator) += R"({"name":)") += quoted(step.name);
    ((json += R"(,"op":")") += wordOf(step.kind)) += R"(","changes":)";
    (json += listJson(step.changes)) += R"(,"needsRestart":)";
    (json += rt::toText(step.needsRestart)) += '}';
    separator = ",";
  }
  return json + R"(],"others":)" + listJson(others) + "}";
}

bool isIdle(const Plan& plan) {
  return std::all_of(plan.steps.begin(), plan.steps.end(),
                     [](const Step& step) { return step.kind == StepKind::keep; });
}

// What is kept is guarded too: the plan holds for the rows that it was made of only.
statedb::Transaction transactionOf(Context& context, const Plan& plan) {
  statedb::Transaction transaction;
  std::vector<rt::String> removed;
  for (const Step& step : plan.steps) {
    transaction.guard(model::table::vmConfig, step.name, step.revision);
    if (step.kind == StepKind::remove)
      removed.push_back(step.name);
    else if (step.kind != StepKind::keep)
      putVm(context, transaction, step);
  }
  if (!removed.empty()) removeVms(context, transaction, removed);
  return transaction;
}

// Of what is written: the images that cannot be used as they are now.
void warnOfImages(Context& context, const Configuration& configuration, const Plan& plan) {
  auto all = configuration.configs();
  for (const Step& step : plan.steps) {
    all.erase(step.name);
    if (step.config) all[step.name] = step.config;
  }
  for (const Step& step : plan.steps) {
    if (!step.config || step.kind == StepKind::keep) continue;
    warnOfImage(context, *step.config, formatOf(step));
    if (step.image.isNamedNow) warnOfSharedImage(context, all, *step.config);
  }
}

Plan soundPlan(Context& context, const Configuration& configuration, const ApplyDocument& document,
               Others others) {
  Plan plan = planOf(configuration.rows(), document, others, context.world().limits);
  std::vector<rt::String> problems = document.problems;
  problems.insert(problems.end(), plan.problems.begin(), plan.problems.end());
  if (!problems.empty()) throw Refusal(Exit::invalid, problems);
  return plan;
}

}  // namespace

Exit apply(Context& context, const ApplyDocument& document, const ApplyMode& mode,
           const BesideVms& beside) {
  Configuration configuration(context);
  Plan plan;
  std::vector<rt::String> others;
  configuration.retry([&] {
    plan = soundPlan(context, configuration, document, mode.others);
    statedb::Transaction transaction = transactionOf(context, plan);
    others = beside ? beside(transaction) : std::vector<rt::String>();
    if (mode.writing == ApplyMode::Writing::done) context.db().commit(transaction);
  });
  warnOfImages(context, configuration, plan);
  const bool isSame = isIdle(plan) && others.empty();
  if (context.format() == Format::json) {
    context.printJson(planJson(plan, others, mode));
    if (!isSame && mode.writing == ApplyMode::Writing::done) complainOfDelay(context);
  } else if (isSame) {
    context.tell("nothing to change");
  } else if (mode.writing == ApplyMode::Writing::told) {
    printPlan(context, plan);
    for (const rt::String& line : others) context.world().out << visible(line) << '\n';
  } else {
    tellDone(context, plan, mode);
    for (const rt::String& line : others) context.tell(line);
    complainOfDelay(context);
  }
  return mode.tellsByExit && !isSame ? Exit::differs : Exit::done;
}

ApplyMode applyModeOf(const Arguments& arguments) {
  if (arguments.has("exit-code") && !arguments.has("dry-run"))
    throw Refusal(Exit::usage, "--exit-code tells what --dry-run found: say both");
  return {.others = arguments.has("prune") ? Others::prune : Others::stay,
          .writing = arguments.has("dry-run") ? ApplyMode::Writing::told : ApplyMode::Writing::done,
          .tellsByExit = arguments.has("exit-code")};
}

Exit applyDocument(Context& context, const Arguments& arguments) {
  const auto file = arguments.value("file");
  if (!file) throw Refusal(Exit::usage, "'apply' needs -f FILE");
  return apply(context, readApplyDocument(context.world().readFile(*file)), applyModeOf(arguments),
               {});
}

Exit exportVms(Context& context, const Arguments&) {
  const Configuration configuration(context);
  Exit exit = Exit::done;
  rt::String json = jsonHead(false) + R"("vms":[)";
  const char* separator = "";
  for (const auto& [name, row] : configuration.rows()) {
    complainOfUnreadable(context, row);
    if (!row.config) {
      exit = Exit::failed;  // a backup that lacks a VM must not look whole
      continue;
    }
    ((json += separator) += R"({"name":)") += quoted(name);
    (json += R"(,"config":)") += statedb::documentOf(*row.config);
    if (const rt::String format = row.imageFormat(); !format.empty())
      (json += R"(,"format":)") += quoted(format);
    json += ownMembers(row.own.records);
    json += '}';
    separator = ",";
  }
  context.printJson(json + "]}");
  return exit;
}

}  // namespace ctl
