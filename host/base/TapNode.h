// The character device by which a macvtap device is opened.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "runtime/base/String.h"

namespace host {

// Returns the number of the node of the device of that name and index, as sysfs has it for the
// network of whoever mounted it; 0: it has none, or is gone.
dev_t tapNode(const rt::String& device, uint32_t index);

}  // namespace host
