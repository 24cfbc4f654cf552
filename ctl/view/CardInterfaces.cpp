#include "ctl/view/CardInterfaces.h"

#include "model/Tables.h"
#include "runtime/base/NearName.h"
#include "statedb/EntityDocument.h"

namespace ctl {

std::optional<std::set<rt::String>> presentInterfaces(Context& context) {
  if (!context.daemonRuns()) return std::nullopt;
  const statedb::Snapshot told = context.status({model::table::interfaceStatus});
  std::set<rt::String> present;
  for (const statedb::Record& record : told.records) {
    const auto interface = rt::make<model::InterfaceStatus>(record.key);
    statedb::fillKnown(*interface, record.doc);
    if (interface->present()) present.insert(record.key);
  }
  return present;
}

void warnOfInterfaces(Context& context, const Vm::VmConfig& vm) {
  if (vm.vnicConfigs().empty()) return;
  const auto present = presentInterfaces(context);
  if (!present || present->empty()) return;
  const std::vector<std::string_view> names(present->begin(), present->end());
  for (const auto& [key, card] : vm.vnicConfigs()) {
    const rt::String& name = card->intfName();
    if (present->count(name) != 0) continue;
    const rt::String near = rt::didYouMean(name, names);
    context.complain(vm.name() + ": warning: card '" + key + "' has no carrier now: there is no " +
                     "interface '" + name + "'" +
                     (near.empty() ? "; 'vmctl interface list' shows those there are" : near));
  }
}

}  // namespace ctl
