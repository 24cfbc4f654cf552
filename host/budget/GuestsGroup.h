// The control group of all guests.
#pragma once

#include "host/budget/MachineFiles.h"
#include "model/Processors.h"

namespace host {

struct GuestsGroup {
  rt::String path;     // empty: there is none
  rt::String trouble;  // why
};

struct GuestsShare {
  uint64_t memory = 0;           // mebibytes
  model::Processors processors;  // none: all there are
};

// Finds its place, makes it, and has the kernel bound what is in it:
//
//   this process' group            | the guests'
//   -------------------------------+---------------------------------------------------------
//   …/vmagentd.service             | …/vmagent-guests.service/guests: systemd lets us have what
//                                  | is below, and it is not ours, so that we can be restarted
//   the root, without systemd      | /vmagent/guests; we move to /vmagent/daemon
//   another                        | none: it is somebody else's to divide
//
// Only with control groups of version 2. `pid`: this process.
GuestsGroup makeGuestsGroup(MachineFiles& files, const GuestsShare& share, int32_t pid);

// Has the kernel do so again: systemd takes it away when that unit is started anew. Returns what
// could not be; empty: all is as it was made.
rt::String renewGuestsGroup(MachineFiles& files, const rt::String& path, const GuestsShare& share);

}  // namespace host
