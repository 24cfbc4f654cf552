// Files that a kernel makes up when they are looked at.
#pragma once

#include "sim/kernel/Inode.h"

namespace sim {

// /proc and /sys/class/net, as far as anybody reads them.
InodePtr processFiles();
InodePtr networkFiles();

}  // namespace sim
