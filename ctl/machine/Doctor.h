// Whether a machine can run guests, and how to mend what keeps it from that.
#pragma once

#include <vector>

#include "ctl/machine/Machine.h"
#include "ctl/machine/World.h"

namespace ctl {

enum class Health : uint8_t { ok, warning, failed };

struct Finding {
  Health health = Health::ok;
  rt::String what;
  rt::String finding;
  rt::String mend;  // what to do about it; empty when it is ok
};

// Ask nothing but `machine`.
Finding examineKvm(const Machine& machine);
Finding examineQemu(const Machine& machine);
Finding examineKernel(const Machine& machine);
Finding examineMacvtap(const Machine& machine);
Finding examineDevices(const Machine& machine);
Finding examineClock(const Machine& machine);
Finding examineBox(const Machine& machine);
Finding examineShim(const Machine& machine);
Finding examineAgent(const Machine& machine);
Finding examinePermissions(const Machine& machine, const Directories& directories);
Finding examineRunDirectory(const Machine& machine, const rt::String& directory);
Finding examineStateDirectory(const Machine& machine, const rt::String& directory);

// "12.3 GiB".
rt::String sizeText(uint64_t bytes);

}  // namespace ctl
