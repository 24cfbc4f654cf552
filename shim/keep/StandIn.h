// The one that an agent takes for its QEMU while another shim keeps the guest.
#pragma once

#include <string>
#include <vector>

#include "shim/decide/Arguments.h"
#include "shim/keep/Parent.h"
#include "shim/keep/VmDirectory.h"

namespace shim {

// Asks the shim that keeps the guest to serve the daemon `parent`, whose command line is `line`,
// and whose agent is awaited at `listener`, if there is one: it gets that, or listens by itself. If
// it does, stands in for it until the guest has ended, and then ends this process as the guest
// ended, `parting` first (see endAs); until then it asks for that end when told to end by a signal.
// Takes the signals of keeperSignals(), which must be blocked. Ends with the daemon, by SIGKILL,
// and the guest goes on.
//
// Returns only when the guest cannot be taken over now: why. Throws Failure when it never can.
std::string standIn(const VmDirectory& directory, const CommandLine& line, const Parent& parent,
                    rt::Descriptor& listener, const std::vector<int>& parting);

}  // namespace shim
