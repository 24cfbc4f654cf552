// The calls by which a process shuts itself in: mounts, its root, its user. Results are as the
// kernel's: -errno.
#pragma once

#include <sys/types.h>

#include "sim/kernel/File.h"

namespace sim::sys {

// Of mounts as much as one root that a process puts together: a file system in memory at a place,
// where directories and files of the machine's are bound. Nobody else sees it, nor does this
// process, until it changes its directory to that place.
Result unshare(int flags);
Result mount(const char* what, const char* where, const char* type, unsigned long flags);
Result unmount(const char* where);
Result changeDirectory(const char* path);
// Its directory becomes its root.
Result pivotRoot();

// What root alone may, and nobody looks at afterwards.
Result asRoot();
Result groupsAre(size_t count);
// Who is not root's any more stays so, and has no signal from his parent's end until he asks anew.
Result userIs(uid_t user);
// Of all that this user has; -ESRCH when that is nothing.
Result priorityOf(int which, unsigned who);

}  // namespace sim::sys
