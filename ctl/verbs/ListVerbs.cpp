#include "ctl/verbs/ListVerbs.h"

#include <algorithm>

#include "ctl/line/Json.h"
#include "ctl/view/CardInterfaces.h"
#include "ctl/view/StateView.h"
#include "ctl/view/VmView.h"
#include "guest/VmFiles.h"

namespace ctl {

namespace {

void printVms(Context& context, const std::vector<VmRow>& rows, bool isStale) {
  rt::String json = jsonHead(isStale) + R"("vms":[)";
  for (const VmRow& row : rows) {
    if (&row != &rows.front()) json += ',';
    json += "{" + vmJson(row) + "}";
  }
  context.printJson(json + "]}");
}

// The socket that the guest's screen is on now; empty for none.
rt::String screenOf(Context& context, const VmRow& row) {
  const rt::String path = guest::fileOf(context.directories().run, row.name, guest::screenSocket);
  const bool isThere = row.process->pid() != 0 &&
                       context.world().machine.accessError(path, Machine::Access::exists) == 0;
  return isThere ? path : rt::String();
}

}  // namespace

Exit listVms(Context& context, const Arguments& arguments) {
  std::vector<VmRow> rows = allVms(context);
  if (const std::vector<rt::String>& names = arguments.words(); !names.empty()) {
    for (const rt::String& name : names) (void)presentVm(context, name);
    std::erase_if(rows, [&](const VmRow& row) {
      return std::find(names.begin(), names.end(), row.name) == names.end();
    });
  }
  const bool isStale = complainOfStaleness(context);
  for (const VmRow& row : rows) complainOfUnreadable(context, row);
  if (context.format() == Format::json) {
    printVms(context, rows, isStale);
  } else if (context.format() == Format::name) {
    for (const VmRow& row : rows) context.world().out << visible(row.name) << '\n';
  } else if (rows.empty()) {
    context.tell("there are no VMs: 'vmctl add' makes one");
  } else {
    Table table = vmTable(context.format());
    const Telling telling = tellingFor(context, isStale);
    for (const VmRow& row : rows) table.row(vmCells(row, context.format(), telling));
    context.print(table);
  }
  return Exit::done;
}

Exit showVm(Context& context, const Arguments& arguments) {
  const VmRow row = presentVm(context, arguments.words().front());
  const bool isStale = complainOfStaleness(context);
  complainOfUnreadable(context, row);
  if (context.format() == Format::json)
    context.printJson(jsonHead(isStale) + vmJson(row) + "}");
  else if (context.format() == Format::name)
    context.world().out << visible(row.name) << '\n';
  else
    context.world().out << vmText(row, presentInterfaces(context), screenOf(context, row),
                                  tellingFor(context, isStale));
  return Exit::done;
}

Exit tellWhy(Context& context, const Arguments& arguments) {
  const VmRow row = presentVm(context, arguments.words().front());
  const bool isStale = complainOfStaleness(context);
  complainOfUnreadable(context, row);
  if (context.format() == Format::json)
    context.printJson(jsonHead(isStale) + R"("name":)" + quoted(row.name) + "," + stateJson(row) +
                      "}");
  else
    context.world().out << whyText(row, {.now = context.world().timeOfDay(), .isStale = isStale});
  return isAsWanted(row) && !isStale ? Exit::done : Exit::failed;
}

}  // namespace ctl
