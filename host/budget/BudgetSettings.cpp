#include "host/budget/BudgetSettings.h"

#include <fcntl.h>
#include <unistd.h>

#include "guest/Emulation.h"
#include "guest/Variables.h"
#include "model/VmConfigCheck.h"
#include "runtime/base/Descriptor.h"

namespace host {

namespace {

// All but one, so that what the machine is there for always has one.
model::Processors usualProcessors() {
  const long count = sysconf(_SC_NPROCESSORS_ONLN);
  return count > 1 ? model::Processors(static_cast<uint32_t>(count - 1) * model::Processors::parts)
                   : model::Processors();
}

// As a shim decides it.
model::Processor processorOf(const rt::String& acceleration, const MachineFiles& files) {
  const auto wish = guest::accelerationFrom(acceleration.str());
  if (wish && *wish != guest::Acceleration::automatic)
    return *wish == guest::Acceleration::kvm ? model::Processor::real : model::Processor::emulated;
  const rt::Descriptor kvm(open("/dev/kvm", O_RDWR | O_CLOEXEC));
  const auto cpuinfo = files.read("/proc/cpuinfo");
  return kvm && cpuinfo && guest::canRunGuests(cpuinfo->str()) ? model::Processor::real
                                                               : model::Processor::emulated;
}

}  // namespace

Budget::Settings budgetOf(const BudgetWish& wish, const MachineFiles& files) {
  const uint32_t memory = model::machineLimits().memory;
  const bool isSaid = wish.processors != model::Processors();
  return {.group = {},
          .share = {.memory = wish.memory != 0 ? wish.memory : model::usualCap(memory),
                    .processors = isSaid ? wish.processors : usualProcessors()},
          .reserve = model::usualReserve(memory),
          .processor = processorOf(wish.acceleration, files)};
}

void show(model::DaemonStatus& status, const Budget::Settings& settings, const GuestsGroup& group) {
  status.guestsGroupIs(group.path);
  status.guestsTroubleIs(group.trouble);
  status.memoryCapIs(settings.share.memory);
  status.memoryReserveIs(settings.reserve);
  status.guestsCpuIs(settings.share.processors);
  status.emulatesIs(settings.processor == model::Processor::emulated);
}

}  // namespace host
