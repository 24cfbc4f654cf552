// What is so of a VM, as people read it. All of it is decided by the daemon: here are only words.
#pragma once

#include "ctl/line/Table.h"
#include "ctl/view/VmRows.h"

namespace ctl {

// When it is told, and for whom.
struct Telling {
  uint64_t now = 0;       // seconds since 1970
  bool isNarrow = false;  // there is room for few words
  bool isStale = false;   // no daemon keeps the status up to date
};
Telling tellingFor(Context& context, bool isStale);

// "running", "stopped", "gone" or "unknown": what the configuration says, or what is left of a row
// that it does not have any more. "?" for one that cannot be read.
rt::String wantedOf(const VmRow& row);
// The daemon's word, in the colour of how bad it is; empty while there is none.
Cell actualOf(const VmRow& row);
// For how long: "59s", "59m59s", "23h59m", "99d23h", "412d". A clock that was set back makes it
// "0s".
rt::String ageText(uint64_t since, uint64_t now);
rt::String sinceOf(const VmRow& row, const Telling& telling);
// Why it is so, or what is wrong: a clause, or where there is little room a few words.
rt::String whyOf(const VmRow& row, const Telling& telling);
// What comes next, or what to type; where there is little room, a command's verb.
rt::String nextOf(const VmRow& row, const Telling& telling);
// Whether it is as the configuration wants it.
bool isAsWanted(const VmRow& row);

// The members of its object that say so: "wanted", "actual", "severity", "since", "reasons",
// "next", "end", "attempt", "nextAt", "stopDeadline", "pid", "startedAt", "qemuVersion" and
// "resets". Each is always there, and null when nobody knows.
rt::String stateJson(const VmRow& row);
// Several lines for one who asks why.
rt::String whyText(const VmRow& row, const Telling& telling);

}  // namespace ctl
