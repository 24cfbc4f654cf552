#include "ctl/verbs/UndeleteVerbs.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/line/Moments.h"
#include "ctl/verbs/ApplyVerbs.h"
#include "ctl/verbs/Removed.h"
#include "ctl/view/VmRows.h"
#include "model/Tables.h"
#include "runtime/base/NearName.h"
#include "runtime/base/Text.h"

namespace ctl {

namespace {

rt::String jsonOf(const std::vector<RemovedVm>& all) {
  rt::String json = jsonHead(false) + R"("removed":[)";
  const char* separator = "";
  for (const RemovedVm& each : all) {
    ((json += separator) += R"({"at":)") += rt::toText(each.at);
    (json += R"(,"by":)") += quoted(each.by);
    ((json += R"(,"vm":)") += each.document) += '}';
    separator = ",";
  }
  return json + "]}";
}

Exit list(Context& context) {
  const std::vector<RemovedVm> all = removedVms(context);
  if (context.format() == Format::json) {
    context.printJson(jsonOf(all));
  } else if (context.format() == Format::name) {
    for (const RemovedVm& each : all) context.world().out << visible(each.name) << '\n';
  } else if (all.empty()) {
    context.tell("no VM was removed");
  } else {
    Table table({"NAME", "REMOVED", "BY"});
    for (const RemovedVm& each : all)
      table.row({each.name, clockText(each.at, context.world().timeOfDay()), each.by});
    context.print(table);
  }
  return Exit::done;
}

// The last that had the name.
RemovedVm removedVm(Context& context, const rt::String& name) {
  const std::vector<RemovedVm> all = removedVms(context);
  const auto found = std::find_if(all.begin(), all.end(),
                                  [&](const RemovedVm& each) { return each.name == name; });
  if (found != all.end()) return *found;
  std::vector<std::string_view> names;
  names.reserve(all.size());
  for (const RemovedVm& each : all) names.emplace_back(each.name);
  throw Refusal(Exit::noSuch, name + ": is not among the last " + rt::toText(mostRemoved) +
                                  " VMs that were removed" + rt::didYouMean(name, names));
}

void requireFree(Context& context, const rt::String& name) {
  if (!vmNamed(context, name).exists()) return;
  throw Refusal(Exit::conflict, name + ": there is a VM of that name: 'vmctl rename " + name +
                                    " NEW' gives that another one");
}

}  // namespace

Exit undeleteVm(Context& context, const Arguments& arguments) {
  if (arguments.words().empty()) return list(context);
  const rt::String& name = arguments.words().front();
  const RemovedVm removed = removedVm(context, name);
  const ApplyDocument document = readApplyDocument(removed.document);
  ApplyMode mode = applyModeOf(arguments);
  const bool isEnabled = !document.vms.empty() && document.vms.front()->enabled();
  mode.added = isEnabled ? "brought back, enabled" : "brought back, disabled";
  return apply(context, document, mode, [&](statedb::Transaction& transaction) {
    requireFree(context, name);
    transaction.guard(model::table::removed, removed.key, removed.revision);
    transaction.del(model::table::removed, removed.key);
    return std::vector<rt::String>();
  });
}

}  // namespace ctl
