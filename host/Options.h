// The daemon's command line.
#pragma once

#include <optional>
#include <span>

#include "guest/Variables.h"
#include "guest/VmFiles.h"
#include "model/Processors.h"
#include "runtime/base/Seconds.h"
#include "runtime/base/String.h"
#include "runtime/base/Trace.h"

namespace host {

struct Options {
  rt::String stateDir = guest::defaultStateDir;
  rt::String runDir = guest::defaultRunDir;
  rt::TraceLevels traceLevels = rt::TraceHandle::defaultLevels;
  // What stands in QEMU's place: "auto", the shim that is installed with us; "off", whatever stands
  // there; or a path.
  rt::String shim = "auto";
  // For the shims.
  rt::String accel = guest::defaultAcceleration;
  rt::String vncListen;  // empty: screens are on sockets of the group's
  rt::String stopTimeout = guest::defaultStopTimeout;  // seconds
  rt::String guestUsers;                               // "FIRST-LAST"; empty: the shim's own
  rt::String qemuReads;         // beside Debian's files for QEMU: paths, ':' between them
  bool holdsSenders = true;     // guests send under their cards' addresses only
  uint32_t guestsMemory = 0;    // mebibytes for all guests; 0: all but a quarter
  model::Processors guestsCpu;  // for all guests; none: all but one, where there are more
  bool keepsHistory = false;    // events on disk, too
  rt::String bridge;            // that static MAC entries are applied to; empty: to none
};

// The program's, such as "0.1.0".
rt::String version();

// How long an orderly stop of a guest may take: its own time, and the shim's to end it then.
rt::Seconds stopPatience(const Options& options);

// What the command line asks for: to run, to look whether it could, to end what earlier ones left
// running, or to print a text and end.
struct CommandLine {
  enum class Wish : uint8_t { run, check, endGuests, print, usageError };
  Wish wish = Wish::run;
  Options options;
  rt::String text;  // to print: on standard output, or on standard error for an error
};

// The variables of the environment; those that are null are not set.
struct Environment {
  const char* stateDir = nullptr;
  const char* runDir = nullptr;
  const char* trace = nullptr;
};
// Pure. `words` without the program's name.
CommandLine readCommandLine(std::span<const char* const> words, const Environment& environment);

}  // namespace host
