// Files and directories of ours in places where others may write, too. Needs nothing of the
// runtime.
//
// What stands at a name there may be a link that leads elsewhere, another name of somebody's file,
// a pipe whose opening waits, or a file that its owner goes on changing. These functions never
// follow, never wait, and take only what is our own user's.
#pragma once

#include <sys/types.h>

namespace rt {

// Whether it is open to a regular file of our user's that has no other name.
bool isOwnFile(int descriptor);

// Opens the file of that name in an open directory (or AT_FDCWD) with `flags`, or makes it; it has
// the mode then, whatever it had and whatever the umask. What stands there and is none of ours is
// removed first. The caller closes it. -1, and errno, when there can be none.
int openOwnFile(int directory, const char* name, int flags, mode_t mode);

// The same for a directory, which gets the group as well. Another user's directory is left as it
// is, and so is one of ours with something in it that more could read then: -1, and EPERM.
int openOwnDirectory(int directory, const char* name, mode_t mode, gid_t group);

}  // namespace rt
