// The daemon's directories, and who may do what in them.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>

#include "runtime/base/String.h"

namespace host {

// A group of this machine; nothing when there is none of that name.
std::optional<gid_t> groupOf(std::string_view name);

// Makes the directory unless it is there, for the group if there is one (mode 2770): it writes the
// databases there, and SQLite, on its behalf, makes and removes files beside them. So it may rename
// and remove all else there, too. (A sticky directory would not do: Linux can refuse to open there
// for writing, even to root, the files that a member has made.) Throws Exception.
void makeSharedDirectory(const rt::String& path, std::optional<gid_t> group);

// Makes RUN/vm, the directory of all VMs' directories, unless it is there: read by the group of
// RUN, written by us alone (mode 2750), whatever it was. Throws Exception.
void makeGuestsDirectory(const rt::String& runDir);

}  // namespace host
