#include "ctl/verbs/Budget.h"

#include <algorithm>

namespace ctl {

namespace {

// Where nobody has bounded guests, there is room for all.
std::optional<model::Room> roomOf(Context& context) {
  const auto daemon = daemonStatus(context);
  if (!daemon || daemon->guestsGroup().empty() || !context.daemonRuns()) return std::nullopt;
  const Machine& machine = context.world().machine;
  const auto touched = machine.text(daemon->guestsGroup() + "/memory.current");
  const auto meminfo = machine.text("/proc/meminfo");
  return model::Room{.cap = daemon->memoryCap(),
                     .given = daemon->memoryGiven(),
                     .touched = touched ? model::mebibytesIn(touched->str()) : 0,
                     .reserve = daemon->memoryReserve(),
                     .available = meminfo ? model::availableIn(meminfo->str()) : std::nullopt};
}

uint64_t needOf(Context& context, const Vm::VmConfig& vm, const model::VmOwn& own) {
  const bool emulates = daemonStatus(context)->emulates();
  return model::memoryNeed(vm, emulates ? model::Processor::emulated : model::Processor::real) +
         own.limits->memoryReserve();
}

rt::String sizes(const model::DaemonStatus& daemon, const model::Room& room) {
  const auto size = [](uint64_t mebibytes) { return model::grouped(mebibytes) + " MiB"; };
  const rt::String processors =
      daemon.guestsCpu() == model::Processors()
          ? "all processors"
          : daemon.guestsCpu().text() +
                (daemon.guestsCpu() == model::Processors(model::Processors::parts) ? " processor"
                                                                                   : " processors");
  return "guests may have " + size(room.cap) + " and " + processors + "; given are " +
         size(room.given) + ", used " + size(room.touched) + "; " + size(room.reserve) +
         " are the machine's reserve" +
         (room.available ? ", of " + size(*room.available) + " available" : rt::String());
}

}  // namespace

void warnOfRoom(Context& context, const VmRow* before, const Vm::VmConfig& vm,
                const model::VmOwn& own) {
  auto room = vm.enabled() ? roomOf(context) : std::nullopt;
  if (!room) return;
  // What its guest has now it gives back first.
  const bool runs = before && before->config && before->process->process() != "none";
  if (runs) {
    const uint64_t had =
        std::min(needOf(context, *before->config, before->own.records), room->given);
    room->given -= had;
    room->touched -= std::min(had, room->touched);
    if (room->available) *room->available += had;
  }
  if (const auto refusal = model::refusalOf(needOf(context, vm, own), *room))
    context.complain(vm.name() + ": warning: it would not be started now: memory: " + *refusal);
}

std::optional<Finding> examineBudget(Context& context) {
  const auto daemon = daemonStatus(context);
  if (!daemon || daemon->memoryCap() == 0) return std::nullopt;
  if (!daemon->guestsTrouble().empty())
    return Finding{Health::warning, "limits",
                   "nothing bounds what guests take: " + daemon->guestsTrouble(),
                   "start vmagentd by its unit, on a kernel with control groups of version 2 "
                   "(systemd.unified_cgroup_hierarchy=1)"};
  const auto room = roomOf(context);
  if (!room) return std::nullopt;
  return Finding{Health::ok, "limits", sizes(*daemon, *room), {}};
}

}  // namespace ctl
