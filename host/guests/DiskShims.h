// What the daemon says to a guest's shim.
#pragma once

#include <set>

#include "statedb/Record.h"

namespace host {

// Asks the shim of that VM, on its socket below `runDir`, to have its guest shut itself down,
// within `timeout` (text of whole seconds), and then to end it. Does not wait for anything; false
// when there is no shim to ask.
bool askShimToStop(const rt::String& runDir, const rt::String& vm, const rt::String& timeout);

// Whether the shim of that VM has been asked already, or is ending its guest by itself. Waits for
// its answer, a second at most: not for the daemon.
bool shimIsStopping(const rt::String& runDir, const rt::String& vm);

// Tells the shim of that VM of which row its guest is now. Likewise; a shim of before takes no
// notice.
bool tellShimOfRow(const rt::String& runDir, const rt::String& vm, const statedb::Origin& row);

// Whether somebody listens where the shim of that VM should; one that stands still does.
bool shimIsThere(const rt::String& runDir, const rt::String& vm);

// Of a VM without a process: removes the sockets that a shim left which was killed. One that
// somebody listens at, or that is no socket, stays.
void removeDeadSockets(const rt::String& runDir, const rt::String& vm);
// The same of all VMs that ever had a guest, but for those that have one.
void removeDeadSocketsOfAllBut(const std::set<rt::String>& living, const rt::String& runDir);

// Before a start of the VM: removes the last word of the run before, which would else be taken for
// that of a shim that cannot be executed.
void removeLastError(const rt::String& runDir, const rt::String& vm);

}  // namespace host
